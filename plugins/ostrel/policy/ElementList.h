#pragma once

#include "velm/XmlObject.h"

namespace OSTREL {

// What the policy's list classes share: a list asks its element class for the element's name and
// for new elements.
template <typename Element>
class ElementList : public VelmCore::XMLObjectList {
public:
    ElementList() : XMLObjectList(true, false) {}

    const wchar_t* ChildElementName() const override { return Element::ElementName(); }
    VelmCore::XMLObject* CreateListElement() const override { return new Element; }
};

}  // namespace OSTREL
