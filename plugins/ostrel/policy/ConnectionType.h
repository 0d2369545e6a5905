#pragma once

#include <wx/string.h>

#include "ElementList.h"
#include "IpPortInfo.h"
#include "velm/SecureString.h"
#include "velm/XmlObject.h"

namespace OSTREL {

// A kind of connection that payload filters apply to.
class CConnectionType : public VelmCore::CIdNameDescObject {
public:
    CConnectionType();

    static const wchar_t* ElementName() { return L"ConnectionType"; }
    const wchar_t* GetElementName() const override { return ElementName(); }

    int m_Direction = 0;
    int m_Protocol = 0;
    int m_IcmpType1 = 0;
    int m_IcmpType2 = 0;
    wxSecureString m_Engine;
    wxString m_VirtualPortName;
    CAddressInfo m_AddressInfo;
};

class CConnectionTypes : public ElementList<CConnectionType> {
public:
    static const wchar_t* ElementName() { return L"ConnectionTypes"; }
    const wchar_t* GetElementName() const override { return ElementName(); }
};

}  // namespace OSTREL
