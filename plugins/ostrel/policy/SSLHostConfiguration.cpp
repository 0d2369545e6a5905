#include "SSLHostConfiguration.h"

namespace OSTREL {

CSSLHostConfiguration::CSSLHostConfiguration() : CIdNameObject(true) {
    AddAttribute(L"allInterfaces", &m_AllInterfaces, false);
    AddAttribute(L"sslCredentialId", &m_SSLCredentialId, 0, false);
    AddAttribute(L"specificIP", &m_SpecificIP, false);
    AddChild(&m_AddressInfo);
}

CSSLHostConfigurationAssignment::CSSLHostConfigurationAssignment() : XMLObject(false, true) {
    // The odd capitals are the policy format's.
    AddAttribute(L"sSLHostConfigurationId", &m_SSLHostConfigurationId, 0, false);
    AddAttribute(L"interfaceId", &m_InterfaceId, 0, false);
}

}  // namespace OSTREL
