#pragma once

#include <openssl/types.h>
#include <wx/string.h>

namespace OSTREL {

class CSSLCredential;
class CSSLCredentials;

// The private key of an inspected server. Used by one thread at a time.
class CRSAKey {
public:
    // Why a credential gives no key. The numbers are part of the script surface. Three of them are
    // kept for the vocabulary and never set.
    enum FailureReason {
        BadIdentifierFormat = 580,
        IdentifierNotFound,
        ImproperKeyUsage,
        IncorrectPassphrase,
        KeyNotFound,
        UnableToLoadCredentials,
        UnableToOpenContainer,
        UnableToOpenFile,
        UnsupportedCredentialType
    };

    CRSAKey() = default;
    CRSAKey(const CRSAKey&) = delete;
    CRSAKey& operator=(const CRSAKey&) = delete;
    virtual ~CRSAKey() = default;

    // A new key, which the caller deletes, or null with the reason in `reason`, which may be null.
    static CRSAKey* Create(const CSSLCredential& credential, FailureReason* reason);

    // Decrypts `fromLen` bytes with PKCS#1 padding into `to` and tells in `outLen` how many came
    // out; none is no failure. `to` has room for as many bytes as the key's modulus has, whatever
    // `toSize` says. A failure is told in the log.
    virtual bool Decrypt(unsigned int fromLen, const void* from, void* to, unsigned int toSize,
                         unsigned int& outLen) = 0;

    // The reason's name as the enumeration has it. "Unknown", with a failed assertion, for others.
    static wxString toString(FailureReason reason);
};

// A key of OpenSSL's libcrypto.
class CRSAOpenSSLKey : public CRSAKey {
public:
    // Takes over one reference of `rsa`.
    explicit CRSAOpenSSLKey(RSA* rsa) : m_RSA(rsa) {}
    ~CRSAOpenSSLKey() override;

    // Loads the key of a PKCS#12 or PEM container: the base64 text `credential`, on one line; if
    // that is empty, the file named `identifier`. As CRSAKey::Create otherwise. Leaves one error on
    // the thread's OpenSSL queue when a PEM text without a certificate was loaded.
    static CRSAKey* Create(bool isP12, const wxString& identifier, const wxString& credential,
                           const wxString& passphrase, FailureReason* reason);

    bool Decrypt(unsigned int fromLen, const void* from, void* to, unsigned int toSize,
                 unsigned int& outLen) override;

    // Bytes of the modulus: the room that Decrypt needs.
    unsigned int GetModulusSize() const;

private:
    RSA* m_RSA;
};

// Credentials that the platform itself keeps. There are none: `credentials` stays empty, `code` and
// `message` say "not implemented", and the result is true all the same.
bool GetPlatformCredentials(CSSLCredentials& credentials, int& code, wxString& message);

}  // namespace OSTREL
