#include <charconv>
#include <string>

#include <wx/xml/xml.h>

#include "Utf8.h"
#include "XmlParse.h"
#include "velm/XmlObject.h"

namespace VelmCore {
namespace {

// Both leave `value` alone on failure.
bool ReadInt(const wxString& text, int& value) {
    const std::string digits = ToUtf8(text);
    const char* end = digits.data() + digits.size();
    int number = 0;
    const auto result = std::from_chars(digits.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) return false;
    value = number;
    return true;
}

bool ReadBool(const wxString& text, bool& value) {
    const bool isTrue = text == "true" || text == "1";
    if (!isTrue && text != "false" && text != "0") return false;
    value = isTrue;
    return true;
}

}  // namespace

int XMLObject::FromXML(const wxString& xml, const char*) {
    SetToDefaults();
    wxXmlDocument document;
    if (!ParseXml(xml.utf8_string(), document, m_ParseError)) return 1;
    return ReadFromNode(*document.GetRoot());
}

int XMLObject::ReadFromNode(const wxXmlNode& node) {
    SetToDefaults();
    wxString reason;
    if (ReadElement(node, reason)) return 0;
    SetToDefaults();
    m_ParseError = reason;
    return 1;
}

bool XMLObject::ReadElement(const wxXmlNode& node, wxString& reason) {
    if (!ElementNameMatches(node.GetName())) {
        reason =
            wxString::Format("<%s> stands where <%s> should", node.GetName(), GetElementName());
        return false;
    }
    if (!ReadAttributes(node, reason)) return false;
    if (EndAttributes() == 0) {
        reason = wxString::Format("the attributes of <%s> are refused", GetElementName());
        return false;
    }
    if (!ReadChildren(node, reason)) return false;
    m_ParseComplete = EndElement() != 0;
    if (!m_ParseComplete) reason = wxString::Format("<%s> is refused", GetElementName());
    return m_ParseComplete;
}

bool XMLObject::ReadAttributes(const wxXmlNode& node, wxString& reason) {
    for (const wxXmlAttribute* attribute = node.GetAttributes(); attribute;
         attribute = attribute->GetNext()) {
        if (SetAttribute(attribute->GetName(), attribute->GetValue()) == 0) {
            reason = WhyRefused(attribute->GetName());
            return false;
        }
    }
    return true;
}

wxString XMLObject::WhyRefused(const wxString& attributeName) {
    const Attribute* attribute = FindAttribute(attributeName);
    wxString why = "is refused";
    if (attribute && attribute->type == PrimitiveInt) why = "is not a 32-bit number";
    if (attribute && attribute->type == PrimitiveBool) why = "is neither true nor false";
    return wxString::Format("attribute %s of <%s> %s", attributeName, GetElementName(), why);
}

bool XMLObject::ReadChildren(const wxXmlNode& node, wxString& reason) {
    for (const wxXmlNode* child = node.GetChildren(); child; child = child->GetNext()) {
        if (child->GetType() == wxXML_ELEMENT_NODE && !ReadChild(*child, reason)) return false;
    }
    return true;
}

bool XMLObject::ReadChild(const wxXmlNode& node, wxString& reason) {
    XMLObject* child = FindChildElement(node.GetName());
    if (!child) {
        if (OnUnhandledChildElement(node.GetName()) != 0) return true;
        reason = wxString::Format("<%s> in <%s> is refused", node.GetName(), GetElementName());
        return false;
    }
    // All children were reset when this read began, so a complete one has been read already.
    if (child->ParseComplete()) {
        reason = wxString::Format("<%s> stands twice in <%s>", node.GetName(), GetElementName());
        return false;
    }
    return child->ReadElement(node, reason);
}

bool XMLObject::ElementNameMatches(const wxString& name) {
    return name == GetElementName();
}

int XMLObject::EndAttributes() {
    return 1;
}

int XMLObject::EndElement() {
    return 1;
}

XMLObject* XMLObject::FindChildElement(const wxString& name) {
    for (XMLObject* child : m_Children) {
        if (child->ElementNameMatches(name)) return child;
    }
    return nullptr;
}

int XMLObject::OnUnhandledAttribute(const wxString&, const wxString&) {
    return 1;
}

int XMLObject::OnUnhandledChildElement(const wxString&) {
    return 1;
}

int XMLObject::SetAttribute(const wxString& name, const wxString& value) {
    Attribute* attribute = FindAttribute(name);
    if (!attribute) return OnUnhandledAttribute(name, value);
    if (!Assign(*attribute, value)) return 0;
    attribute->isNull = false;
    return 1;
}

bool XMLObject::Assign(const Attribute& attribute, const wxString& value) {
    switch (attribute.type) {
        case PrimitiveString:
            *static_cast<wxString*>(attribute.member) = value;
            return true;
        case PrimitiveSecureString:
            *static_cast<wxSecureString*>(attribute.member) = value;
            return true;
        case PrimitiveBool:
            return ReadBool(value, *static_cast<bool*>(attribute.member));
        case PrimitiveInt:
            return ReadInt(value, *static_cast<int*>(attribute.member));
    }
    return false;
}

}  // namespace VelmCore
