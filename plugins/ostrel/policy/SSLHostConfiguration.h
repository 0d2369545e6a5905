#pragma once

#include <wx/string.h>

#include "ElementList.h"
#include "IpPortInfo.h"
#include "velm/XmlObject.h"

namespace OSTREL {

// Which credential serves the inspected connections to an address of this host.
class CSSLHostConfiguration : public VelmCore::CIdNameObject {
public:
    CSSLHostConfiguration();

    static const wchar_t* ElementName() { return L"SSLHostConfiguration"; }
    const wchar_t* GetElementName() const override { return ElementName(); }

    bool m_AllInterfaces = false;
    int m_SSLCredentialId = 0;  // m_Id of a CSSLCredential
    wxString m_SpecificIP;
    CAddressInfo m_AddressInfo;
};

class CSSLHostConfigurations : public ElementList<CSSLHostConfiguration> {
public:
    static const wchar_t* ElementName() { return L"SSLHostConfigurations"; }
    const wchar_t* GetElementName() const override { return ElementName(); }
};

// Binds a host configuration to one interface.
class CSSLHostConfigurationAssignment : public VelmCore::XMLObject {
public:
    CSSLHostConfigurationAssignment();

    static const wchar_t* ElementName() { return L"SSLHostConfigurationAssignment"; }
    const wchar_t* GetElementName() const override { return ElementName(); }

    int m_SSLHostConfigurationId = 0;  // m_Id of a CSSLHostConfiguration
    int m_InterfaceId = 0;
};

class CSSLHostConfigurationAssignments : public ElementList<CSSLHostConfigurationAssignment> {
public:
    static const wchar_t* ElementName() { return L"SSLHostConfigurationAssignments"; }
    const wchar_t* GetElementName() const override { return ElementName(); }
};

}  // namespace OSTREL
