// The base class of the policy's elements, on elements of the test's own.
#include <vector>

#include <gtest/gtest.h>
#include <wx/txtstrm.h>
#include <wx/xml/xml.h>

#include "Xml.h"

namespace {

using namespace VelmCore;
using policy_test::Read;
using policy_test::WhyRefused;
using policy_test::Write;

class Knob : public XMLObject {
public:
    Knob() : XMLObject(false, true) {
        AddAttribute(L"text", &m_Text, false);
        AddAttribute(L"secret", &m_Secret);
        AddAttribute(L"on", &m_On, false);
        AddAttribute(L"level", &m_Level, 7, false);
    }
    const wchar_t* GetElementName() const override { return L"Knob"; }

    wxString m_Text;
    wxSecureString m_Secret;
    bool m_On = false;
    int m_Level = 0;
};

class Knobs : public XMLObjectList {
public:
    Knobs() : XMLObjectList(true, false) {}
    const wchar_t* GetElementName() const override { return L"Knobs"; }
    const wchar_t* ChildElementName() const override { return L"Knob"; }
    XMLObject* CreateListElement() const override { return new Knob; }

    Knob& At(size_t index) { return *dynamic_cast<Knob*>(Children().Item(index)->GetData()); }
};

// One bound child and one list; attributes that are null until they are set.
class Panel : public CIdNameDescObject {
public:
    Panel() {
        AddAttribute(L"code", &m_Code);
        AddAttribute(L"label", &m_Label, true);
        AddAttribute(L"lit", &m_Lit, true);
        AddAttribute(L"depth", &m_Depth, 3, true);
        AddChild(&m_Knob);
        AddChild(&m_Knobs);
    }
    const wchar_t* GetElementName() const override { return L"Panel"; }
    int OnUnhandledAttribute(const wxString& name, const wxString& value) override {
        m_Unhandled.push_back((name + "=" + value).utf8_string());
        return name == "bad" ? 0 : 1;
    }
    int OnUnhandledChildElement(const wxString& name) override {
        m_Unhandled.push_back(name.utf8_string());
        return name == "Bad" ? 0 : 1;
    }
    int EndAttributes() override { return m_Name == "refuse attributes" ? 0 : 1; }
    int EndElement() override { return m_Name == "refuse element" ? 0 : 1; }
    void BeforePrint() override { ++m_Printed; }

    int m_Code = 0;
    wxString m_Label;
    bool m_Lit = false;
    int m_Depth = 0;
    Knob m_Knob;
    Knobs m_Knobs;
    std::vector<std::string> m_Unhandled;
    int m_Printed = 0;
};

const char NEW_PANEL[] =
    "<Panel id=\"0\" name=\"\" description=\"\">\n"
    "  <Knob text=\"\" secret=\"\" on=\"false\" level=\"7\"/>\n"
    "  <Knobs/>\n"
    "</Panel>\n";

TEST(XmlWriting, LeavesOutNullAttributesAndIndentsChildren) {
    Panel panel;
    EXPECT_EQ(Write(panel), NEW_PANEL);
}

TEST(XmlWriting, FollowsTheOrderOfRegistration) {
    Panel panel;
    for (const void* member :
         {static_cast<const void*>(&panel.m_Code), static_cast<const void*>(&panel.m_Label),
          static_cast<const void*>(&panel.m_Lit), static_cast<const void*>(&panel.m_Depth)}) {
        EXPECT_TRUE(panel.IsAttributeNull(member));
        panel.SetAttributeNull(member, false);
        EXPECT_FALSE(panel.IsAttributeNull(member));
    }
    EXPECT_EQ(Write(panel).substr(0, Write(panel).find('>')),
              "<Panel id=\"0\" name=\"\" description=\"\" code=\"0\" label=\"\" lit=\"false\""
              " depth=\"3\"");
}

TEST(XmlWriting, LeavesOutAnAttributeThatIsMarkedNull) {
    Knob knob;
    knob.SetAttributeNull(&knob.m_Level, true);
    EXPECT_EQ(Write(knob), "<Knob text=\"\" secret=\"\" on=\"false\"/>\n");
}

TEST(XmlWriting, EscapesWhatXmlWouldChange) {
    Knob knob;
    knob.m_Text = "a&b<c>d\"e'f\tg\nh\ri";
    knob.m_Secret = wxString("&");
    EXPECT_EQ(Write(knob),
              "<Knob text=\"a&amp;b&lt;c&gt;d&quot;e'f&#9;g&#10;h&#13;i\" secret=\"&amp;\""
              " on=\"false\" level=\"7\"/>\n");
    Knob copy;
    ASSERT_TRUE(Read(copy, Write(knob)));
    EXPECT_EQ(copy.m_Text, knob.m_Text);
}

TEST(XmlWriting, IsUtf8) {
    Knob knob;
    knob.m_Text = wxString::FromUTF8("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x94\x92");
    EXPECT_EQ(Write(knob),
              "<Knob text=\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x94\x92\" secret=\"\" on=\"false\""
              " level=\"7\"/>\n");
}

TEST(XmlWriting, ReplacesCharactersThatXmlCannotCarry) {
    Knob knob;
    knob.m_Text = wxString("a\0b\x01", 4) + wxUniChar(0xD800) + wxUniChar(0xFFFE);
    EXPECT_EQ(Write(knob),
              "<Knob text=\"a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\" secret=\"\" on=\"false\" level=\"7\"/>\n");
}

TEST(XmlWriting, PrintsTheEndsOfNumbers) {
    Knob knob;
    knob.m_Level = -2147483647 - 1;
    EXPECT_NE(Write(knob).find("level=\"-2147483648\""), std::string::npos);
}

TEST(XmlWriting, CallsBeforePrintOnce) {
    Panel panel;
    Write(panel);
    EXPECT_EQ(panel.m_Printed, 1);
}

std::string WriteAt(Knobs& list, unsigned int indent) {
    wxMemoryOutputStream bytes;
    wxTextOutputStream text(bytes, wxEOL_UNIX, wxConvUTF8);
    list.ToXML(text, indent);
    std::string written(bytes.GetLength(), '\0');
    bytes.CopyTo(&written[0], written.size());
    return written;
}

TEST(XmlWriting, IndentsAListByTheLevelsOutside) {
    Knobs list;
    list.AddChild(new Knob);
    EXPECT_EQ(WriteAt(list, 2),
              "    <Knobs>\n"
              "      <Knob text=\"\" secret=\"\" on=\"false\" level=\"7\"/>\n"
              "    </Knobs>\n");
}

TEST(XmlWriting, BeginsWithADeclarationIfAskedTo) {
    Knobs list;
    wxMemoryOutputStream bytes;
    list.ToXML(bytes, 0, true);
    std::string written(bytes.GetLength(), '\0');
    bytes.CopyTo(&written[0], written.size());
    EXPECT_EQ(written, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Knobs/>\n");
    EXPECT_TRUE(Read(list, written));
}

TEST(XmlReading, AnAbsentAttributeKeepsItsDefault) {
    Panel panel;
    ASSERT_TRUE(Read(panel, "<Panel/>"));
    EXPECT_EQ(Write(panel), NEW_PANEL);
    EXPECT_EQ(panel.m_Depth, 3);
    EXPECT_EQ(panel.m_Knob.m_Level, 7);
}

TEST(XmlReading, AnAttributeThatWasReadIsNotNull) {
    Panel panel;
    ASSERT_TRUE(Read(panel, "<Panel code=\"0\" label=\"\" lit=\"0\" depth=\"3\"/>"));
    EXPECT_FALSE(panel.IsAttributeNull(&panel.m_Code));
    EXPECT_FALSE(panel.IsAttributeNull(&panel.m_Label));
    EXPECT_FALSE(panel.IsAttributeNull(&panel.m_Lit));
    EXPECT_FALSE(panel.IsAttributeNull(&panel.m_Depth));
}

TEST(XmlReading, NothingIsLeftOfAFormerRead) {
    Panel panel;
    ASSERT_TRUE(Read(panel,
                     "<Panel id=\"1\" name=\"n\" code=\"2\"><Knob level=\"1\" secret=\"s\"/>"
                     "<Knobs><Knob/></Knobs></Panel>"));
    ASSERT_TRUE(Read(panel, "<Panel/>"));
    EXPECT_EQ(Write(panel), NEW_PANEL);
}

TEST(XmlReading, TakesTheFourBooleans) {
    Knob knob;
    ASSERT_TRUE(Read(knob, "<Knob on=\"true\"/>"));
    EXPECT_TRUE(knob.m_On);
    ASSERT_TRUE(Read(knob, "<Knob on=\"0\"/>"));
    EXPECT_FALSE(knob.m_On);
    ASSERT_TRUE(Read(knob, "<Knob on=\"1\"/>"));
    EXPECT_TRUE(knob.m_On);
    ASSERT_TRUE(Read(knob, "<Knob on=\"false\"/>"));
    EXPECT_FALSE(knob.m_On);
}

TEST(XmlReading, RefusesAnotherBoolean) {
    Knob knob;
    for (const char* value : {"", "yes", "True", "TRUE", "2", " true", "t"}) {
        EXPECT_EQ(WhyRefused(knob, std::string("<Knob on=\"") + value + "\"/>"),
                  "attribute on of <Knob> is neither true nor false");
    }
}

TEST(XmlReading, TakesTheEndsOfNumbers) {
    Knob knob;
    ASSERT_TRUE(Read(knob, "<Knob level=\"2147483647\"/>"));
    EXPECT_EQ(knob.m_Level, 2147483647);
    ASSERT_TRUE(Read(knob, "<Knob level=\"-2147483648\"/>"));
    EXPECT_EQ(knob.m_Level, -2147483647 - 1);
    ASSERT_TRUE(Read(knob, "<Knob level=\"007\"/>"));
    EXPECT_EQ(knob.m_Level, 7);
}

TEST(XmlReading, RefusesWhatIsNoNumber) {
    Knob knob;
    for (const char* value :
         {"", " ", "x", "1x", " 1", "1 ", "+1", "0x10", "1.5", "1e3", "--1", "-", "2147483648",
          "-2147483649", "99999999999999999999", "\xD9\xA1"}) {
        EXPECT_EQ(WhyRefused(knob, std::string("<Knob level=\"") + value + "\"/>"),
                  "attribute level of <Knob> is not a 32-bit number")
            << value;
    }
}

TEST(XmlReading, NamesTheElementOfADeepError) {
    Panel panel;
    EXPECT_EQ(WhyRefused(panel, "<Panel><Knobs><Knob/><Knob level=\"x\"/></Knobs></Panel>"),
              "attribute level of <Knob> is not a 32-bit number");
}

TEST(XmlReading, AnErrorLeavesTheObjectAtItsDefaults) {
    Panel panel;
    EXPECT_NE(WhyRefused(panel,
                         "<Panel name=\"n\" code=\"1\"><Knob level=\"1\"/><Knobs><Knob/><Knob"
                         " on=\"x\"/></Knobs></Panel>"),
              "");
    EXPECT_EQ(Write(panel), NEW_PANEL);
    EXPECT_FALSE(panel.m_Knob.ParseComplete());
}

TEST(XmlReading, MalformedXmlLeavesTheObjectAtItsDefaults) {
    Panel panel;
    ASSERT_TRUE(Read(panel, "<Panel name=\"n\"/>"));
    EXPECT_EQ(WhyRefused(panel, "<Panel name=\"m\">"), "no element found (line 1, column 17)");
    EXPECT_EQ(Write(panel), NEW_PANEL);
}

TEST(XmlReading, AnErrorIsForgottenByTheNextRead) {
    Knob knob;
    EXPECT_NE(WhyRefused(knob, "<Knob on=\"x\"/>"), "");
    ASSERT_TRUE(Read(knob, "<Knob/>"));
    EXPECT_EQ(knob.ParseError(), "");
}

TEST(XmlReading, RefusesAnotherElement) {
    Knob knob;
    EXPECT_EQ(WhyRefused(knob, "<Panel/>"), "<Panel> stands where <Knob> should");
    EXPECT_EQ(WhyRefused(knob, "<knob/>"), "<knob> stands where <Knob> should");
}

TEST(XmlReading, RefusesTextThatIsNoUnicode) {
    Knob knob;
    EXPECT_NE(knob.FromXML(wxString("<Knob/>") + wxUniChar(0xD800), nullptr), 0);
    EXPECT_NE(knob.FromXML(wxString(), nullptr), 0);
}

TEST(XmlReading, RefusesABoundChildThatStandsTwice) {
    Panel panel;
    EXPECT_EQ(WhyRefused(panel, "<Panel><Knob/><Knob/></Panel>"), "<Knob> stands twice in <Panel>");
    EXPECT_EQ(WhyRefused(panel, "<Panel><Knobs/><Knobs/></Panel>"),
              "<Knobs> stands twice in <Panel>");
}

TEST(XmlReading, TakesChildrenInAnyOrder) {
    Panel panel;
    ASSERT_TRUE(Read(panel, "<Panel><Knobs><Knob/></Knobs>text<Knob level=\"1\"/></Panel>"));
    EXPECT_EQ(panel.m_Knob.m_Level, 1);
    EXPECT_EQ(panel.m_Knobs.Children().GetCount(), 1u);
}

TEST(XmlReading, IgnoresUnknownAttributesAndChildren) {
    Knobs list;
    ASSERT_TRUE(
        Read(list, "<Knobs a=\"1\"><Other><Knob/></Other><Knob a=\"2\"><B/></Knob></Knobs>"));
    EXPECT_EQ(list.Children().GetCount(), 1u);
}

TEST(XmlReading, HandsUnknownAttributesAndChildrenToTheHooks) {
    Panel panel;
    ASSERT_TRUE(Read(panel, "<Panel x=\"1\" NAME=\"&amp;\"><Y/><knob/></Panel>"));
    EXPECT_EQ(panel.m_Unhandled, (std::vector<std::string>{"x=1", "NAME=&", "Y", "knob"}));
}

TEST(XmlReading, AHookCanRefuse) {
    Panel panel;
    EXPECT_EQ(WhyRefused(panel, "<Panel bad=\"1\"/>"), "attribute bad of <Panel> is refused");
    EXPECT_EQ(WhyRefused(panel, "<Panel><Bad/></Panel>"), "<Bad> in <Panel> is refused");
    EXPECT_EQ(WhyRefused(panel, "<Panel name=\"refuse attributes\"/>"),
              "the attributes of <Panel> are refused");
    EXPECT_EQ(WhyRefused(panel, "<Panel name=\"refuse element\"/>"), "<Panel> is refused");
}

TEST(XmlReading, MarksEveryElementThatWasReadToItsEnd) {
    Panel panel;
    EXPECT_FALSE(panel.ParseComplete());
    ASSERT_TRUE(Read(panel, "<Panel><Knobs><Knob/></Knobs></Panel>"));
    EXPECT_TRUE(panel.m_Knobs.At(0).ParseComplete());
    EXPECT_FALSE(panel.m_Knob.ParseComplete());
    panel.SetToDefaults();
    EXPECT_FALSE(panel.ParseComplete());
}

TEST(XmlReading, FromANodeIsTheSame) {
    auto* attribute = new wxXmlAttribute("level", "12");
    const wxXmlNode node(nullptr, wxXML_ELEMENT_NODE, "Knob", wxEmptyString, attribute);
    Knob knob;
    EXPECT_EQ(knob.ReadFromNode(node), 0);
    EXPECT_TRUE(knob.ParseComplete());
    EXPECT_EQ(knob.m_Level, 12);
    const wxXmlNode other(nullptr, wxXML_ELEMENT_NODE, "Other");
    EXPECT_NE(knob.ReadFromNode(other), 0);
    EXPECT_EQ(knob.m_Level, 7);
}

TEST(XmlAttribute, SetByNameFromText) {
    Panel panel;
    EXPECT_EQ(panel.SetAttribute("code", "5"), 1);
    EXPECT_EQ(panel.m_Code, 5);
    EXPECT_FALSE(panel.IsAttributeNull(&panel.m_Code));
    EXPECT_EQ(panel.SetAttribute("code", "6x"), 0);
    EXPECT_EQ(panel.m_Code, 5);
    EXPECT_EQ(panel.SetAttribute("other", "1"), 1);
}

TEST(XmlObjectDefaults, EmptyTheObject) {
    Panel panel;
    ASSERT_TRUE(Read(panel,
                     "<Panel id=\"1\" name=\"n\" description=\"d\" code=\"1\" label=\"l\" lit=\"1\""
                     " depth=\"1\"><Knob text=\"t\" secret=\"s\" on=\"1\" level=\"1\"/>"
                     "<Knobs><Knob/></Knobs></Panel>"));
    panel.SetToDefaults();
    EXPECT_EQ(Write(panel), NEW_PANEL);
}

TEST(XmlObjectChildrenOf, DeleteChildrenEmptiesListsAndKeepsAttributes) {
    Panel panel;
    ASSERT_TRUE(Read(panel, "<Panel id=\"1\"><Knob level=\"2\"/><Knobs><Knob/></Knobs></Panel>"));
    panel.DeleteChildren();
    EXPECT_TRUE(panel.m_Knobs.Children().IsEmpty());
    EXPECT_EQ(panel.m_Id, 1);
    EXPECT_EQ(panel.m_Knob.m_Level, 2);
    EXPECT_TRUE(panel.HasChildElements());
    EXPECT_FALSE(panel.m_Knobs.HasChildElements());
}

TEST(XmlObjectChildrenOf, AListIsACollectionAndOwnsItsElements) {
    Panel panel;
    EXPECT_FALSE(panel.IsCollection());
    EXPECT_TRUE(panel.m_Knobs.IsCollection());
    panel.m_Knobs.AddChild(new Knob);  // the leak checker sees that it goes with the list
    EXPECT_EQ(panel.m_Knobs.Children().GetCount(), 1u);
}

bool CountUpTo(const XMLObject*, const XMLObject*, void* context) {
    return ++*static_cast<int*>(context) < 2;
}

TEST(XmlObjectChildrenOf, AreEnumeratedUntilTheCallbackEndsIt) {
    Knobs list;
    for (int i = 0; i < 3; ++i)
        list.AddChild(new Knob);
    int count = 0;
    EXPECT_FALSE(list.EnumChildObjects(&CountUpTo, &count));
    EXPECT_EQ(count, 2);
    count = -5;
    EXPECT_TRUE(list.EnumChildObjects(&CountUpTo, &count));
    EXPECT_EQ(count, -2);
}

struct Seen {
    std::string names;
    std::string until;
};

bool NoteName(const XMLObject*, const wchar_t* name, _PrimitiveType, const void*, void* context) {
    Seen& seen = *static_cast<Seen*>(context);
    seen.names += wxString(name).utf8_string() + " ";
    return name != wxString(seen.until);
}

TEST(XmlAttribute, AreEnumeratedInOrderWithoutNullOnes) {
    Panel panel;
    panel.SetAttributeNull(&panel.m_Lit, false);
    Seen all;
    EXPECT_TRUE(panel.EnumAttributes(&NoteName, &all));
    EXPECT_EQ(all.names, "id name description lit ");
    Seen some{"", "name"};
    EXPECT_FALSE(panel.EnumAttributes(&NoteName, &some));
    EXPECT_EQ(some.names, "id name ");
}

TEST(XmlObjectCopy, TakesValuesNullMarksAndChildren) {
    Panel panel;
    ASSERT_TRUE(Read(panel,
                     "<Panel id=\"1\" name=\"n\" code=\"0\"><Knob secret=\"s\" on=\"1\"/>"
                     "<Knobs><Knob text=\"a\"/><Knob text=\"b\"/></Knobs></Panel>"));
    panel.SetAttributeNull(&panel.m_Description, true);
    Panel copy;
    copy.m_Knobs.AddChild(new Knob);
    copy.m_Label = "old";
    ASSERT_TRUE(copy.CopyFrom(panel));
    EXPECT_EQ(Write(copy),
              "<Panel id=\"1\" name=\"n\" code=\"0\">\n"
              "  <Knob text=\"\" secret=\"s\" on=\"true\" level=\"7\"/>\n"
              "  <Knobs>\n"
              "    <Knob text=\"a\" secret=\"\" on=\"false\" level=\"7\"/>\n"
              "    <Knob text=\"b\" secret=\"\" on=\"false\" level=\"7\"/>\n"
              "  </Knobs>\n"
              "</Panel>\n");
    EXPECT_EQ(copy.m_Label, "");
    EXPECT_TRUE(copy.ParseComplete());
    EXPECT_TRUE(copy.m_Knobs.At(1).ParseComplete());
}

TEST(XmlObjectCopy, IsIndependent) {
    Knobs list;
    list.AddChild(new Knob);
    Knobs copy;
    ASSERT_TRUE(copy.CopyFrom(list));
    list.At(0).m_Text = "changed";
    EXPECT_EQ(copy.At(0).m_Text, "");
    list.DeleteChildren();
    EXPECT_EQ(copy.Children().GetCount(), 1u);
}

TEST(XmlObjectCopy, OfItselfChangesNothing) {
    Knobs list;
    list.AddChild(new Knob);
    list.At(0).m_Text = "kept";
    EXPECT_TRUE(list.CopyFrom(list));
    EXPECT_EQ(list.At(0).m_Text, "kept");
}

TEST(XmlObjectCopy, OfAnotherClassChangesNothing) {
    Knob knob;
    knob.m_Text = "kept";
    EXPECT_FALSE(knob.CopyFrom(Panel()));
    EXPECT_EQ(knob.m_Text, "kept");
}

}  // namespace
