#include "SSLCredential.h"

namespace OSTREL {

CSSLCredential::CSSLCredential() : CIdNameObject(true) {
    AddAttribute(L"credentialType", &m_CredentialType, false);
    AddAttribute(L"identifier", &m_Identifier, false);
    AddAttribute(L"passphrase", &m_Passphrase, false);
    AddAttribute(L"details", &m_Details, false);
    AddAttribute(L"credential", &m_Credential, false);
}

}  // namespace OSTREL
