#include "velm/XmlObject.h"

namespace VelmCore {

XMLObjectList::XMLObjectList(bool ownsChildren, bool reserved)
    : XMLObject(ownsChildren, reserved) {}

bool XMLObjectList::IsCollection() const {
    return true;
}

void XMLObjectList::SetToDefaults() {
    DeleteChildren();
    XMLObject::SetToDefaults();
}

void XMLObjectList::DeleteChildren() {
    for (XMLObject* child : m_Children)
        delete child;
    m_Children.Clear();
}

XMLObject* XMLObjectList::FindChildElement(const wxString& name) {
    if (name != ChildElementName()) return nullptr;
    XMLObject* element = CreateListElement();
    AddChild(element);
    return element;
}

void XMLObjectList::ToXML(wxTextOutputStream& stream, unsigned int indent) {
    ToXML(stream, indent, false);
}

CIdObject::CIdObject(bool reserved) : XMLObject(false, reserved) {
    AddAttribute(L"id", &m_Id, 0, false);
}

CIdNameObject::CIdNameObject(bool reserved) : CIdObject(reserved) {
    AddAttribute(L"name", &m_Name, false);
}

CIdNameDescObject::CIdNameDescObject() : CIdNameObject(true) {
    AddAttribute(L"description", &m_Description, false);
}

}  // namespace VelmCore
