#pragma once

#include <wx/string.h>

#include "ElementList.h"
#include "velm/XmlObject.h"

namespace OSTREL {

// A private key of an inspected server, as the policy carries it.
class CSSLCredential : public VelmCore::CIdNameObject {
public:
    CSSLCredential();

    static const wchar_t* ElementName() { return L"SSLCredential"; }
    const wchar_t* GetElementName() const override { return ElementName(); }

    wxString m_CredentialType;  // "PEM" or "P12"
    wxString m_Identifier;
    wxString m_Passphrase;
    wxString m_Details;
    wxString m_Credential;
};

class CSSLCredentials : public ElementList<CSSLCredential> {
public:
    static const wchar_t* ElementName() { return L"SSLCredentials"; }
    const wchar_t* GetElementName() const override { return ElementName(); }
};

}  // namespace OSTREL
