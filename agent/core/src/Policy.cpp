#include "Policy.h"

#include <utility>

#include <wx/tokenzr.h>
#include <wx/xml/xml.h>

#include "TraceSelf.h"
#include "Utf8.h"
#include "XmlParse.h"
#include "velm/XmlObject.h"

namespace VelmCore {
namespace {

const wxXmlNode* FirstOf(const wxXmlNode* sibling, const wxString& name) {
    while (sibling && sibling->GetName() != name)
        sibling = sibling->GetNext();
    return sibling;
}

const wxXmlNode* FindIn(const wxXmlNode* root, const wxString& path) {
    const wxXmlNode* found = nullptr;
    const wxXmlNode* candidates = root;
    wxStringTokenizer names(path, "/", wxTOKEN_STRTOK);
    while (names.HasMoreTokens()) {
        found = FirstOf(candidates, names.GetNextToken());
        if (!found) return nullptr;
        candidates = found->GetChildren();
    }
    return found;
}

}  // namespace

Policy::Policy() = default;
Policy::~Policy() = default;

wxString Policy::Replace(const std::string& xml) {
    auto document = std::make_unique<wxXmlDocument>();
    wxString reason;
    if (!ParseXml(xml, *document, reason)) return reason;
    const wxString name = document->GetRoot()->GetName();
    if (name != "SecurityConfiguration") {
        return wxString::Format("the root element is %s, not SecurityConfiguration", name);
    }
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Document = std::move(document);
    return wxString();
}

bool Policy::Read(const std::string& path, XMLObject& object) const {
    object.SetToDefaults();
    std::lock_guard<std::mutex> lock(m_Mutex);
    const wxXmlNode* element = m_Document ? FindIn(m_Document->GetRoot(), FromUtf8(path)) : nullptr;
    if (!element) return false;
    if (object.ReadFromNode(*element) == 0) return true;
    VELM_CORE_TRACE("policy element %s: %s", path, object.ParseError());
    return false;
}

}  // namespace VelmCore
