// XML from outside: what is taken, and what is refused without harm.
#include "XmlParse.h"

#include <string>

#include <gtest/gtest.h>
#include <wx/xml/xml.h>

namespace {

using VelmCore::ParseXml;

std::string Repeat(const std::string& text, size_t count) {
    std::string repeated;
    repeated.reserve(text.size() * count);
    for (size_t i = 0; i < count; ++i)
        repeated += text;
    return repeated;
}

class XmlParse : public ::testing::Test {
protected:
    bool Parses(const std::string& xml) { return ParseXml(xml, m_Document, m_Reason); }

    std::string WhyRefused(const std::string& xml) {
        m_Reason.clear();
        EXPECT_FALSE(Parses(xml)) << "was parsed: " << xml.substr(0, 200);
        return m_Reason.utf8_string();
    }

    const wxXmlNode& Root() { return *m_Document.GetRoot(); }

    wxXmlDocument m_Document;
    wxString m_Reason;
};

TEST_F(XmlParse, KeepsElementsAndAttributesInOrder) {
    ASSERT_TRUE(Parses("<?xml version=\"1.0\"?>\n<r b='2' a='1'> <x/> text <y z=''><w/></y></r>"));
    EXPECT_EQ(Root().GetName(), "r");
    const wxXmlAttribute* attribute = Root().GetAttributes();
    EXPECT_EQ(attribute->GetName(), "b");
    EXPECT_EQ(attribute->GetValue(), "2");
    EXPECT_EQ(attribute->GetNext()->GetName(), "a");
    EXPECT_EQ(attribute->GetNext()->GetNext(), nullptr);
    const wxXmlNode* x = Root().GetChildren();
    EXPECT_EQ(x->GetName(), "x");
    EXPECT_EQ(x->GetParent(), &Root());
    const wxXmlNode* y = x->GetNext();
    EXPECT_EQ(y->GetName(), "y");
    EXPECT_EQ(y->GetNext(), nullptr);
    EXPECT_EQ(y->GetChildren()->GetName(), "w");
    EXPECT_EQ(Root().GetLineNumber(), 2);
}

TEST_F(XmlParse, ResolvesTheBuiltInEntitiesAndCharacterReferences) {
    ASSERT_TRUE(Parses("<r a='&amp;&lt;&gt;&quot;&apos;&#10;&#xE9;'/>"));
    EXPECT_EQ(Root().GetAttribute("a"), wxString::FromUTF8("&<>\"'\n\xC3\xA9"));
}

TEST_F(XmlParse, TakesTextBeyondTheBasicPlane) {
    ASSERT_TRUE(Parses("<r a='\xF0\x9F\x94\x92\xF4\x8F\xBF\xBD'/>"));
    EXPECT_EQ(Root().GetAttribute("a").length(), 2u);
}

TEST_F(XmlParse, IgnoresCommentsInstructionsAndCharacterData) {
    ASSERT_TRUE(Parses("<!-- c --><r><?pi x?><![CDATA[<a/>]]><!-- <b/> --></r>"));
    EXPECT_EQ(Root().GetChildren(), nullptr);
}

TEST_F(XmlParse, ReplacesTheDocumentThatWasThere) {
    ASSERT_TRUE(Parses("<first/>"));
    ASSERT_TRUE(Parses("<second/>"));
    EXPECT_EQ(Root().GetName(), "second");
}

TEST_F(XmlParse, LeavesTheDocumentAloneOnFailure) {
    ASSERT_TRUE(Parses("<first/>"));
    EXPECT_EQ(WhyRefused("<second><a/>"), "no element found (line 1, column 13)");
    EXPECT_EQ(Root().GetName(), "first");
}

TEST_F(XmlParse, RefusesMalformedXml) {
    EXPECT_EQ(WhyRefused(""), "no element found (line 1, column 1)");
    EXPECT_EQ(WhyRefused("   "), "no element found (line 1, column 4)");
    EXPECT_EQ(WhyRefused("text"), "syntax error (line 1, column 1)");
    EXPECT_EQ(WhyRefused("<r>\n</s>"), "mismatched tag (line 2, column 3)");
    for (const char* xml :
         {"<r", "<r>", "<r a>", "<r a=1/>", "<r a='1' b/>", "<r a='<'/>", "<r/><s/>", "<r/>text",
          "<1/>", "<r a='&'/>", "<r>&#0;</r>", "<r a='&#1;'/>", "<r>]]></r>", "<r><!-- -- --></r>",
          "</r>", "<r a='1'b='2'/>", "<r/><?xml version='1.0'?>", "<r a='&#xD800;'/>"}) {
        EXPECT_NE(WhyRefused(xml), "") << xml;
    }
}

TEST_F(XmlParse, RefusesDuplicateAttributes) {
    EXPECT_EQ(WhyRefused("<r a='1' a='1'/>"), "duplicate attribute (line 1, column 10)");
}

TEST_F(XmlParse, RefusesInvalidUtf8) {
    for (const char* bytes : {"\xFF", "\xC3", "\xC3\x28", "\xC0\xAF", "\xE2\x82", "\xED\xA0\x80",
                              "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xEF\xBF\xBE", "\x80"}) {
        EXPECT_NE(WhyRefused(std::string("<r a='") + bytes + "'/>"), "");
        EXPECT_NE(WhyRefused(std::string("<r>") + bytes + "</r>"), "");
        EXPECT_NE(WhyRefused(std::string("<") + bytes + "/>"), "");
    }
}

TEST_F(XmlParse, RefusesControlAndZeroBytes) {
    EXPECT_EQ(WhyRefused(std::string("<r a='\0'/>", 10)), "a zero byte");
    EXPECT_EQ(WhyRefused(std::string("<r/>\0", 5)), "a zero byte");
    EXPECT_NE(WhyRefused("<r a='\x01'/>"), "");
}

TEST_F(XmlParse, ReadsUtf8WhateverTheDeclarationNames) {
    ASSERT_TRUE(Parses("<?xml version='1.0' encoding='ISO-8859-1'?><r a='\xC3\xA9'/>"));
    EXPECT_EQ(Root().GetAttribute("a"), wxString::FromUTF8("\xC3\xA9"));
    EXPECT_NE(WhyRefused("<?xml version='1.0' encoding='ISO-8859-1'?><r a='\xE9'/>"), "");
}

TEST_F(XmlParse, RefusesUtf16) {
    EXPECT_EQ(WhyRefused(std::string("\xFF\xFE<\0r\0/\0>\0", 10)), "a zero byte");
    EXPECT_EQ(WhyRefused(std::string("\0<\0r\0/\0>", 8)), "a zero byte");
    EXPECT_NE(WhyRefused("\xFF\xFE<r/>"), "");
}

TEST_F(XmlParse, TakesAByteOrderMark) {
    EXPECT_TRUE(Parses("\xEF\xBB\xBF<r/>"));
}

TEST_F(XmlParse, RefusesEveryDoctype) {
    const char reason[] = "a DOCTYPE is not allowed";
    for (const char* doctype :
         {"<!DOCTYPE r>", "<!DOCTYPE r SYSTEM 'file:///etc/passwd'>",
          "<!DOCTYPE r PUBLIC 'p' 'http://192.0.2.1/x.dtd'>", "<!DOCTYPE r []>",
          "<!DOCTYPE r [<!ENTITY e 'x'>]>", "<!-- --><!DOCTYPE r [<!ATTLIST r a CDATA 'x'>]>",
          "<?xml version='1.0'?>\n<!DOCTYPE r [<!ENTITY e SYSTEM 'file:///etc/passwd'>]>"}) {
        EXPECT_EQ(WhyRefused(std::string(doctype) + "<r/>").substr(0, sizeof(reason) - 1), reason)
            << doctype;
    }
}

TEST_F(XmlParse, RefusesABillionLaughsAtTheDoctype) {
    std::string xml = "<!DOCTYPE r [<!ENTITY l0 'lol'>";
    for (int i = 1; i < 10; ++i) {
        xml += "<!ENTITY l" + std::to_string(i) + " '" +
               Repeat("&l" + std::to_string(i - 1) + ";", 10) + "'>";
    }
    EXPECT_EQ(WhyRefused(xml + "]><r>&l9;</r>").substr(0, 24), "a DOCTYPE is not allowed");
}

TEST_F(XmlParse, RefusesEntitiesThatNobodyDefined) {
    EXPECT_EQ(WhyRefused("<r a='&e;'/>"), "undefined entity (line 1, column 1)");
    EXPECT_EQ(WhyRefused("<r>&e;</r>"), "undefined entity (line 1, column 4)");
}

TEST_F(XmlParse, TakesSixtyFourLevelsAndNoMore) {
    EXPECT_TRUE(Parses(Repeat("<a>", 64) + Repeat("</a>", 64)));
    EXPECT_EQ(WhyRefused(Repeat("<a>", 65) + Repeat("</a>", 65)),
              "elements are nested too deep (line 1, column 193)");
    EXPECT_EQ(WhyRefused(Repeat("<a>", 64) + "<b/>" + Repeat("</a>", 64)),
              "elements are nested too deep (line 1, column 193)");
    EXPECT_TRUE(Parses("<r>" + Repeat(Repeat("<a>", 63) + Repeat("</a>", 63), 3) + "</r>"));
}

TEST_F(XmlParse, RefusesADeepDocumentWithoutReadingItToItsEnd) {
    EXPECT_EQ(WhyRefused(Repeat("<a>", 5000000)),
              "elements are nested too deep (line 1, column 193)");
}

TEST_F(XmlParse, TakesSixteenMebibytesAndNoMore) {
    const std::string tail = "<r/>";
    const std::string fits = std::string(16777216 - tail.size(), '\n') + tail;
    ASSERT_EQ(fits.size(), 16777216u);
    EXPECT_TRUE(Parses(fits));
    EXPECT_EQ(WhyRefused("\n" + fits), "larger than 16777216 bytes");
}

TEST_F(XmlParse, RefusesMoreThanAMillionElementsAndAttributes) {
    EXPECT_TRUE(Parses("<r>" + Repeat("<a/>", 999999) + "</r>"));
    EXPECT_EQ(WhyRefused("<r>" + Repeat("<a/>", 1000000) + "</r>").substr(0, 32),
              "too many elements and attributes");
    EXPECT_EQ(WhyRefused("<r>" + Repeat("<a b=''/>", 500000) + "</r>").substr(0, 32),
              "too many elements and attributes");
}

TEST_F(XmlParse, ReadsAnElementOfVeryManyAttributesInLinearTime) {
    std::string xml = "<r";
    for (int i = 0; i < 500000; ++i)
        xml += " a" + std::to_string(i) + "=''";
    EXPECT_TRUE(Parses(xml + "/>"));
}

TEST_F(XmlParse, ReadsVeryMuchTextInLinearTime) {
    EXPECT_TRUE(Parses("<r>" + Repeat("\n", 16000000) + "</r>"));
}

}  // namespace
