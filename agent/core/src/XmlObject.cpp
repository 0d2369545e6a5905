#include "velm/XmlObject.h"

#include <typeinfo>

#include <wx/listimpl.cpp>

namespace VelmCore {

WX_DEFINE_LIST(XMLObjectChildren)

XMLObject::XMLObject(bool ownsChildren, bool) : m_OwnsChildren(ownsChildren) {}

XMLObject::~XMLObject() {
    if (!m_OwnsChildren) return;
    for (XMLObject* child : m_Children)
        delete child;
}

void XMLObject::AddChild(XMLObject* child) {
    m_Children.Append(child);
}

bool XMLObject::EnumAttributes(bool (*callback)(const XMLObject*, const wchar_t*, _PrimitiveType,
                                                const void*, void*),
                               void* context) const {
    for (const Attribute& attribute : m_Attributes) {
        if (attribute.isNull) continue;
        if (!callback(this, attribute.name, attribute.type, attribute.member, context))
            return false;
    }
    return true;
}

bool XMLObject::EnumChildObjects(bool (*callback)(const XMLObject*, const XMLObject*, void*),
                                 void* context) const {
    for (const XMLObject* child : m_Children) {
        if (!callback(this, child, context)) return false;
    }
    return true;
}

const wchar_t* XMLObject::GetElementName() const {
    return L"";
}

bool XMLObject::HasChildElements() const {
    return !m_Children.IsEmpty();
}

bool XMLObject::IsCollection() const {
    return false;
}

void XMLObject::SetToDefaults() {
    for (Attribute& attribute : m_Attributes)
        SetToDefault(attribute);
    for (XMLObject* child : m_Children)
        child->SetToDefaults();
    m_ParseComplete = false;
    m_ParseError.clear();
}

void XMLObject::DeleteChildren() {
    for (XMLObject* child : m_Children)
        child->DeleteChildren();
}

bool XMLObject::CopyFrom(const XMLObject& other) {
    if (this == &other) return true;
    if (typeid(*this) != typeid(other)) return false;
    SetToDefaults();
    for (size_t i = 0; i < m_Attributes.size(); ++i) {
        CopyAttribute(m_Attributes[i], other.m_Attributes[i]);
    }
    for (const XMLObject* child : other.m_Children) {
        XMLObject* copy = FindChildElement(child->GetElementName());
        if (copy) copy->CopyFrom(*child);
    }
    m_ParseComplete = other.m_ParseComplete;
    m_ParseError = other.m_ParseError;
    return true;
}

void XMLObject::AddAttribute(const wchar_t* name, wxString* member, bool startsNull) {
    Bind({name, PrimitiveString, member, 0, startsNull, startsNull});
}

void XMLObject::AddAttribute(const wchar_t* name, wxSecureString* member) {
    Bind({name, PrimitiveSecureString, member, 0, false, false});
}

void XMLObject::AddAttribute(const wchar_t* name, bool* member, bool startsNull) {
    Bind({name, PrimitiveBool, member, 0, startsNull, startsNull});
}

void XMLObject::AddAttribute(const wchar_t* name, int* member) {
    Bind({name, PrimitiveInt, member, 0, true, true});
}

void XMLObject::AddAttribute(const wchar_t* name, int* member, int defaultValue, bool startsNull) {
    Bind({name, PrimitiveInt, member, defaultValue, startsNull, startsNull});
}

void XMLObject::SetAttributeNull(const void* member, bool value) {
    for (Attribute& attribute : m_Attributes) {
        if (attribute.member == member) attribute.isNull = value;
    }
}

bool XMLObject::IsAttributeNull(const void* member) const {
    for (const Attribute& attribute : m_Attributes) {
        if (attribute.member == member) return attribute.isNull;
    }
    return true;
}

void XMLObject::Bind(const Attribute& attribute) {
    m_Attributes.push_back(attribute);
    SetToDefault(m_Attributes.back());
}

XMLObject::Attribute* XMLObject::FindAttribute(const wxString& name) {
    for (Attribute& attribute : m_Attributes) {
        if (name == attribute.name) return &attribute;
    }
    return nullptr;
}

void XMLObject::SetToDefault(Attribute& attribute) {
    attribute.isNull = attribute.startsNull;
    switch (attribute.type) {
        case PrimitiveString:
            static_cast<wxString*>(attribute.member)->clear();
            break;
        case PrimitiveSecureString:
            static_cast<wxSecureString*>(attribute.member)->Scrub();
            break;
        case PrimitiveBool:
            *static_cast<bool*>(attribute.member) = false;
            break;
        case PrimitiveInt:
            *static_cast<int*>(attribute.member) = attribute.defaultValue;
            break;
    }
}

namespace {

template <typename T>
void CopyValue(void* to, const void* from) {
    *static_cast<T*>(to) = *static_cast<const T*>(from);
}

}  // namespace

void XMLObject::CopyAttribute(Attribute& to, const Attribute& from) {
    to.isNull = from.isNull;
    switch (to.type) {
        case PrimitiveString:
            CopyValue<wxString>(to.member, from.member);
            break;
        case PrimitiveSecureString:
            CopyValue<wxSecureString>(to.member, from.member);
            break;
        case PrimitiveBool:
            CopyValue<bool>(to.member, from.member);
            break;
        case PrimitiveInt:
            CopyValue<int>(to.member, from.member);
            break;
    }
}

}  // namespace VelmCore
