#include <gtest/gtest.h>

#include "velm/Dom.h"
#include "velm/Log.h"
#include "velm/XmlObject.h"

namespace {

using namespace VelmCore;

class Entry : public CIdNameObject {
public:
    Entry() : CIdNameObject(true) {}
    const wchar_t* GetElementName() const override { return L"Entry"; }
};

class Entries : public XMLObjectList {
public:
    Entries() : XMLObjectList(true, false) {}
    const wchar_t* GetElementName() const override { return L"Entries"; }
    const wchar_t* ChildElementName() const override { return L"Entry"; }
    XMLObject* CreateListElement() const override { return new Entry; }
};

class Policy : public ::testing::Test {
protected:
    void Set(const std::string& xml) { ASSERT_EQ(m_Dom.ConfigSetXml(xml), ""); }
    bool Get(const std::string& path) { return m_Dom.ConfigGetXml(path, m_Entries); }

    std::string Ids() {
        std::string ids;
        for (const XMLObject* object : m_Entries.Children()) {
            ids += std::to_string(static_cast<const Entry*>(object)->m_Id) + " ";
        }
        return ids;
    }

    CDom m_Dom;
    Entries m_Entries;
};

const char* const TWO_ENTRIES =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!-- policy -->\n"
    "<SecurityConfiguration>\n"
    "  <Other/>\n"
    "  <Entries><Entry id=\"1\" name=\"a\"/><Entry id=\"2\" name=\"b\"/></Entries>\n"
    "  <Inner><Entries><Entry id=\"7\"/></Entries></Inner>\n"
    "</SecurityConfiguration>\n";

TEST_F(Policy, FillsAnObjectFromThePartAtThePath) {
    Set(TWO_ENTRIES);
    ASSERT_TRUE(Get("/SecurityConfiguration/Entries"));
    EXPECT_EQ(Ids(), "1 2 ");
    ASSERT_TRUE(Get("/SecurityConfiguration/Inner/Entries"));
    EXPECT_EQ(Ids(), "7 ");
}

TEST_F(Policy, EmptiesTheObjectFirst) {
    Set(TWO_ENTRIES);
    ASSERT_TRUE(Get("/SecurityConfiguration/Entries"));
    Set("<SecurityConfiguration><Entries><Entry id=\"3\"/></Entries></SecurityConfiguration>");
    ASSERT_TRUE(Get("/SecurityConfiguration/Entries"));
    EXPECT_EQ(Ids(), "3 ");
}

TEST_F(Policy, APathThatIsNotThereEmptiesTheObject) {
    Set(TWO_ENTRIES);
    ASSERT_TRUE(Get("/SecurityConfiguration/Entries"));
    EXPECT_FALSE(Get("/SecurityConfiguration/Nothing"));
    EXPECT_EQ(Ids(), "");
    EXPECT_FALSE(Get("/Entries"));
    EXPECT_FALSE(Get("/SecurityConfiguration/Entries/Entry/Entry"));
    EXPECT_FALSE(Get(""));
    EXPECT_FALSE(Get("/"));
}

TEST_F(Policy, AnElementOfAnotherKindIsNotRead) {
    Set(TWO_ENTRIES);
    EXPECT_FALSE(Get("/SecurityConfiguration/Other"));
    EXPECT_EQ(Ids(), "");
}

TEST_F(Policy, AnElementThatCannotBeReadEmptiesTheObject) {
    Set("<SecurityConfiguration><Entries><Entry id=\"1\"/><Entry id=\"x\"/></Entries>"
        "</SecurityConfiguration>");
    EXPECT_FALSE(Get("/SecurityConfiguration/Entries"));
    EXPECT_EQ(Ids(), "");
}

TEST_F(Policy, IsAbsentAtFirst) {
    EXPECT_FALSE(Get("/SecurityConfiguration/Entries"));
}

class HostilePolicy : public Policy {
protected:
    // Refused with `why` in the reason, quietly; the former policy stays.
    void ExpectRefused(const std::string& xml, const wxString& why) {
        InstallLog("");
        Set(TWO_ENTRIES);
        TakeLog();
        ::testing::internal::CaptureStderr();
        const wxString reason = m_Dom.ConfigSetXml(xml);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
        EXPECT_TRUE(reason.Contains(why)) << reason;
        EXPECT_FALSE(reason.empty());
        EXPECT_TRUE(TakeLog().empty());
        ASSERT_TRUE(Get("/SecurityConfiguration/Entries"));
        EXPECT_EQ(Ids(), "1 2 ");
    }

    static std::string Nested(int depth) {
        std::string xml = "<SecurityConfiguration>";
        for (int i = 1; i < depth; ++i)
            xml += "<a>";
        for (int i = 1; i < depth; ++i)
            xml += "</a>";
        return xml + "</SecurityConfiguration>";
    }
};

TEST_F(HostilePolicy, Malformed) {
    ExpectRefused("<SecurityConfiguration>\n<a>\n</SecurityConfiguration>",
                  "mismatched tag (line 3");
    ExpectRefused("", "no element found");
    ExpectRefused("text", "(line 1");
    ExpectRefused("<SecurityConfiguration/><b/>", "junk after document element");
    ExpectRefused(std::string("<SecurityConfiguration>\0</SecurityConfiguration>", 48),
                  "a zero byte");
}

TEST_F(HostilePolicy, OfAnotherRoot) {
    ExpectRefused("<Other/>", "the root element is Other, not SecurityConfiguration");
}

TEST_F(HostilePolicy, WithADoctype) {
    ExpectRefused("<!DOCTYPE SecurityConfiguration>\n<SecurityConfiguration/>",
                  "a DOCTYPE is not allowed (line 1");
}

TEST_F(HostilePolicy, WithAnExternalEntity) {
    ExpectRefused(
        "<!DOCTYPE r [<!ENTITY e SYSTEM \"file:///etc/passwd\">]>"
        "<SecurityConfiguration><Entries name=\"&e;\"/></SecurityConfiguration>",
        "a DOCTYPE is not allowed");
}

TEST_F(HostilePolicy, WithEntitiesThatMultiply) {
    std::string xml = "<!DOCTYPE r [<!ENTITY e0 \"0123456789\">";
    for (int i = 1; i < 12; ++i) {
        std::string ten;
        for (int k = 0; k < 10; ++k)
            ten += "&e" + std::to_string(i - 1) + ";";
        xml += "<!ENTITY e" + std::to_string(i) + " \"" + ten + "\">";
    }
    ExpectRefused(xml + "]><SecurityConfiguration>&e11;</SecurityConfiguration>",
                  "a DOCTYPE is not allowed");
}

TEST_F(HostilePolicy, WithAnUnknownEntity) {
    ExpectRefused("<SecurityConfiguration>&e;</SecurityConfiguration>", "undefined entity (line 1");
}

TEST_F(HostilePolicy, NestedTooDeep) {
    EXPECT_EQ(m_Dom.ConfigSetXml(Nested(64)), "");
    ExpectRefused(Nested(65), "nested too deep (line 1");
    ExpectRefused(Nested(1000000), "nested too deep");
}

TEST_F(HostilePolicy, TooLarge) {
    const std::string begin = "<SecurityConfiguration>";
    const std::string end = "</SecurityConfiguration>";
    const size_t room = 16 * 1024 * 1024 - begin.size() - end.size();
    EXPECT_EQ(m_Dom.ConfigSetXml(begin + std::string(room, ' ') + end), "");
    ExpectRefused(begin + std::string(room + 1, ' ') + end, "larger than 16777216 bytes");
}

TEST_F(HostilePolicy, OfInvalidUtf8) {
    ExpectRefused("<SecurityConfiguration>\n<a name=\"\xC3\x28\"/></SecurityConfiguration>",
                  "(line 2");
    ExpectRefused("<SecurityConfiguration a=\"\xED\xA0\x80\"/>", "(line 1");
    ExpectRefused("<SecurityConfiguration a=\"\xC0\xAF\"/>", "(line 1");
}

TEST_F(HostilePolicy, InLatin1) {
    ExpectRefused(
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><SecurityConfiguration a=\"\xE9\"/>",
        "(line 1");
}

TEST_F(HostilePolicy, WithADuplicateAttribute) {
    ExpectRefused("<SecurityConfiguration>\n\n<Entry id=\"1\" id=\"2\"/></SecurityConfiguration>",
                  "duplicate attribute (line 3");
}

}  // namespace
