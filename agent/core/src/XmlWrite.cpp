#include <wx/stream.h>
#include <wx/txtstrm.h>

#include "velm/XmlObject.h"

namespace VelmCore {
namespace {

constexpr unsigned int INDENT_BLANKS = 2;

// What a character data or attribute value of XML 1.0 may hold.
bool IsXmlCharacter(wxUint32 c) {
    if (c < 0x20) return c == '\t' || c == '\n' || c == '\r';
    return c < 0xD800 || (c > 0xDFFF && c < 0xFFFE) || (c > 0xFFFF && c <= 0x10FFFF);
}

void AppendEscaped(wxString& to, wxUniChar character) {
    const wxUint32 c = character.GetValue();
    switch (c) {
        case '&':
            to += "&amp;";
            break;
        case '<':
            to += "&lt;";
            break;
        case '>':
            to += "&gt;";
            break;
        case '"':
            to += "&quot;";
            break;
        case '\t':
            to += "&#9;";
            break;
        case '\n':
            to += "&#10;";
            break;
        case '\r':
            to += "&#13;";
            break;
        default:
            to += IsXmlCharacter(c) ? character : wxUniChar(0xFFFD);
    }
}

wxString ValueText(_PrimitiveType type, const void* member) {
    switch (type) {
        case PrimitiveString:
            return *static_cast<const wxString*>(member);
        case PrimitiveSecureString:
            return static_cast<const wxSecureString*>(member)->ToString();
        case PrimitiveBool:
            return *static_cast<const bool*>(member) ? "true" : "false";
        case PrimitiveInt:
            return wxString::Format("%d", *static_cast<const int*>(member));
    }
    return wxString();
}

bool PrintAttribute(const XMLObject*, const wchar_t* name, _PrimitiveType type, const void* member,
                    void* context) {
    wxString text = wxString::Format(" %s=\"", name);
    for (wxUniChar c : ValueText(type, member))
        AppendEscaped(text, c);
    text += '"';
    static_cast<wxTextOutputStream*>(context)->WriteString(text);
    return true;
}

}  // namespace

void XMLObject::BeforePrint() {}

void XMLObject::PrintAttributes(wxTextOutputStream& stream, bool) const {
    EnumAttributes(&PrintAttribute, &stream);
}

void XMLObject::PrintChildElements(wxTextOutputStream& stream, unsigned int indent) const {
    for (XMLObject* child : m_Children)
        child->ToXML(stream, indent, false);
}

void XMLObject::ToXML(wxOutputStream& stream, unsigned int indent, bool withDeclaration) {
    wxTextOutputStream text(stream, wxEOL_UNIX, wxConvUTF8);
    ToXML(text, indent, withDeclaration);
}

void XMLObject::ToXML(wxTextOutputStream& stream, unsigned int indent, bool withDeclaration) {
    BeforePrint();
    if (withDeclaration) stream << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    const wxString margin(' ', size_t{indent} * INDENT_BLANKS);
    stream << margin << '<' << GetElementName();
    PrintAttributes(stream, false);
    if (!HasChildElements()) {
        stream << "/>\n";
        return;
    }
    stream << ">\n";
    PrintChildElements(stream, indent + 1);
    stream << margin << "</" << GetElementName() << ">\n";
}

}  // namespace VelmCore
