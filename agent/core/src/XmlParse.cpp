#include "XmlParse.h"

#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include <expat.h>
#include <wx/xml/xml.h>

namespace VelmCore {
namespace {

using ParserPtr = std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)>;

// Turns the parser's events into a tree. Every list keeps its last member at hand, since appending
// through wxXmlNode searches for it and a hostile document would make that quadratic.
class TreeBuilder {
public:
    TreeBuilder();
    bool Parse(const std::string& utf8);
    std::unique_ptr<wxXmlNode> TakeRoot() { return std::move(m_Root); }
    const wxString& Reason() const { return m_Reason; }

private:
    struct OpenElement {
        wxXmlNode* node;
        wxXmlNode* lastChild;
    };

    static void OnStart(void* self, const char* name, const char** attributes);
    static void OnEnd(void* self, const char* name);
    static void OnDoctype(void* self, const char*, const char*, const char*, int);

    void Start(const char* name, const char** attributes);
    void AddAttributes(wxXmlNode& node, const char** attributes);
    void Append(std::unique_ptr<wxXmlNode> node);
    bool CountNode();
    void Refuse(const wxString& reason);
    wxString Place() const;

    ParserPtr m_Parser;
    std::unique_ptr<wxXmlNode> m_Root;
    std::vector<OpenElement> m_Open;
    size_t m_Nodes = 0;
    wxString m_Reason;
};

TreeBuilder::TreeBuilder() : m_Parser(XML_ParserCreate("UTF-8"), &XML_ParserFree) {
    if (!m_Parser) throw std::bad_alloc();
    XML_SetUserData(m_Parser.get(), this);
    XML_SetElementHandler(m_Parser.get(), &OnStart, &OnEnd);
    XML_SetStartDoctypeDeclHandler(m_Parser.get(), &OnDoctype);
}

bool TreeBuilder::Parse(const std::string& utf8) {
    const int length = static_cast<int>(utf8.size());  // at most XML_MAX_BYTES
    if (XML_Parse(m_Parser.get(), utf8.data(), length, XML_TRUE) == XML_STATUS_OK) return true;
    if (m_Reason.empty()) {
        const char* text = XML_ErrorString(XML_GetErrorCode(m_Parser.get()));
        m_Reason = wxString::FromUTF8(text) + Place();
    }
    return false;
}

wxString TreeBuilder::Place() const {
    return wxString::Format(" (line %lu, column %lu)", XML_GetCurrentLineNumber(m_Parser.get()),
                            XML_GetCurrentColumnNumber(m_Parser.get()) + 1);
}

void TreeBuilder::Refuse(const wxString& reason) {
    m_Reason = reason + Place();
    XML_StopParser(m_Parser.get(), XML_FALSE);
}

// The parser is C: no exception may pass through it.
void TreeBuilder::OnStart(void* self, const char* name, const char** attributes) {
    TreeBuilder& builder = *static_cast<TreeBuilder*>(self);
    try {
        builder.Start(name, attributes);
    } catch (const std::bad_alloc&) {
        XML_StopParser(builder.m_Parser.get(), XML_FALSE);
    }
}

// Comes also for an empty element whose start was refused.
void TreeBuilder::OnEnd(void* self, const char*) {
    TreeBuilder& builder = *static_cast<TreeBuilder*>(self);
    if (!builder.m_Open.empty()) builder.m_Open.pop_back();
}

// Called before anything of the DOCTYPE's inside is read.
void TreeBuilder::OnDoctype(void* self, const char*, const char*, const char*, int) {
    static_cast<TreeBuilder*>(self)->Refuse("a DOCTYPE is not allowed");
}

bool TreeBuilder::CountNode() {
    if (++m_Nodes <= XML_MAX_NODES) return true;
    Refuse("too many elements and attributes");
    return false;
}

void TreeBuilder::Start(const char* name, const char** attributes) {
    if (m_Open.size() >= XML_MAX_DEPTH) return Refuse("elements are nested too deep");
    if (!CountNode()) return;
    auto node =
        std::make_unique<wxXmlNode>(wxXML_ELEMENT_NODE, wxString::FromUTF8(name), wxEmptyString,
                                    static_cast<int>(XML_GetCurrentLineNumber(m_Parser.get())));
    AddAttributes(*node, attributes);
    Append(std::move(node));
}

void TreeBuilder::AddAttributes(wxXmlNode& node, const char** attributes) {
    wxXmlAttribute* last = nullptr;
    for (; *attributes && CountNode(); attributes += 2) {
        auto* attribute = new wxXmlAttribute(wxString::FromUTF8(attributes[0]),
                                             wxString::FromUTF8(attributes[1]));
        if (last) {
            last->SetNext(attribute);
        } else {
            node.SetAttributes(attribute);
        }
        last = attribute;
    }
}

void TreeBuilder::Append(std::unique_ptr<wxXmlNode> node) {
    m_Open.push_back({node.get(), nullptr});
    if (m_Open.size() == 1) {
        m_Root = std::move(node);
        return;
    }
    OpenElement& parent = m_Open[m_Open.size() - 2];
    node->SetParent(parent.node);
    if (parent.lastChild) {
        parent.lastChild->SetNext(node.get());
    } else {
        parent.node->SetChildren(node.get());
    }
    parent.lastChild = node.release();
}

}  // namespace

bool ParseXml(const std::string& utf8, wxXmlDocument& document, wxString& reason) {
    if (utf8.size() > XML_MAX_BYTES) {
        reason = wxString::Format("larger than %zu bytes", XML_MAX_BYTES);
        return false;
    }
    // The parser would take UTF-16 in spite of what it was told; that has zero bytes, and XML has
    // none.
    if (utf8.find('\0') != std::string::npos) {
        reason = "a zero byte";
        return false;
    }
    TreeBuilder builder;
    if (!builder.Parse(utf8)) {
        reason = builder.Reason();
        return false;
    }
    document = wxXmlDocument();
    document.SetRoot(builder.TakeRoot().release());
    return true;
}

}  // namespace VelmCore
