// The RSA structure and its operations are deprecated in OpenSSL 3.0, in favour of an interface
// that its predecessors lack.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "RSAKey.h"

#include <algorithm>
#include <climits>
#include <memory>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <wx/log.h>

#include "Trace.h"
#include "policy/SSLCredential.h"
#include "velm/Text.h"

namespace OSTREL {

namespace {

const wchar_t* const s_Trace = L"velm.ostrel.RSAKey";

constexpr int kPkcs12MacVerifyError = 112;  // OpenSSL 3.0 has no name for it any more
constexpr int kNotAsCa = 0;

struct Free {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(PKCS12* container) const { PKCS12_free(container); }
    void operator()(X509* certificate) const { X509_free(certificate); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

// Keeps an empty passphrase from becoming a question on the terminal.
int OpenSSLNullPasswordCallback(char*, int, int, void*) {
    return 0;
}

bool IsError(unsigned long code, int library, int reason) {
    return ERR_GET_LIB(code) == library && ERR_GET_REASON(code) == reason;
}

bool IsPassphraseErrorOfPem(unsigned long code) {
    return IsError(code, ERR_LIB_PEM, PEM_R_BAD_DECRYPT) ||
           IsError(code, ERR_LIB_PEM, PEM_R_BAD_PASSWORD_READ);
}

bool IsPassphraseErrorOfP12(unsigned long code) {
    return IsError(code, ERR_LIB_PKCS12, kPkcs12MacVerifyError) ||
           IsError(code, ERR_LIB_PKCS12, PKCS12_R_MAC_VERIFY_FAILURE);
}

bool IsNeverPassphraseError(unsigned long) {
    return false;
}

// Empty if the text cannot be converted.
std::string ToBytes(const wxScopedCharBuffer& converted) {
    return converted.data() != nullptr ? std::string(converted.data()) : std::string();
}

// One attempt to load a key.
class Loader {
public:
    Loader(bool isP12, const wxString& identifier, const wxString& credential,
           const wxString& passphrase, CRSAKey::FailureReason* reason)
        : m_IsP12(isP12),
          m_Identifier(identifier),
          m_HasCredential(!credential.empty()),
          m_HasPassphrase(!passphrase.empty()),
          m_CredentialBytes(ToBytes(credential.utf8_str())),
          m_PassphraseBytes(ToBytes(passphrase.utf8_str())),
          m_Reason(reason) {}

    // The key, with one reference for the caller, or null.
    RSA* Load() {
        if (!OpenInput()) return nullptr;
        const bool isRead = m_IsP12 ? ReadP12() : ReadPem();
        // An unfit certificate hides a key that is missing or cannot be read.
        if (m_Certificate && !SuitsServer()) return Fail(CRSAKey::ImproperKeyUsage);
        if (!isRead) return nullptr;
        if (!m_Key) return Fail(CRSAKey::KeyNotFound);
        RSA* rsa = EVP_PKEY_get1_RSA(m_Key.get());
        if (rsa == nullptr) {
            Fail(CRSAKey::KeyNotFound);
            DrainErrors("EVP_PKEY_get1_RSA", IsNeverPassphraseError);
        }
        return rsa;
    }

private:
    bool OpenInput() {
        m_Input.reset(m_HasCredential ? OpenCredential() : OpenFile());
        return m_Input != nullptr;
    }

    BIO* OpenFile() {
        BIO* file = BIO_new_file(ToBytes(m_Identifier.mb_str(wxConvLibc)).c_str(), "rb");
        if (file == nullptr) {
            Fail(CRSAKey::UnableToOpenFile);
            DrainErrors("BIO_new_file", IsNeverPassphraseError);
        }
        return file;
    }

    // The memory, behind it the base64 filter, and for PEM a buffer on top: PEM is read by lines,
    // which the filter cannot give, and from the beginning a second time.
    BIO* OpenCredential() {
        Owned<BIO> chain(BIO_new_mem_buf(m_CredentialBytes.c_str(), -1));
        if (!chain || !Push(chain, BIO_f_base64())) return Fail(CRSAKey::UnableToLoadCredentials);
        BIO_set_flags(chain.get(), BIO_FLAGS_BASE64_NO_NL);
        if (!m_IsP12 && !Push(chain, BIO_f_buffer())) return Fail(CRSAKey::UnableToLoadCredentials);
        return chain.release();
    }

    static bool Push(Owned<BIO>& chain, const BIO_METHOD* method) {
        BIO* filter = BIO_new(method);
        if (filter == nullptr) return false;
        chain.reset(BIO_push(filter, chain.release()));
        return true;
    }

    bool ReadP12() {
        m_Container.reset(d2i_PKCS12_bio(m_Input.get(), nullptr));
        if (!m_Container) {
            Fail(CRSAKey::UnableToLoadCredentials);
            DrainErrors("d2i_PKCS12_bio", IsNeverPassphraseError);
            return false;
        }
        EVP_PKEY* key = nullptr;
        X509* certificate = nullptr;
        if (PKCS12_parse(m_Container.get(), Passphrase(), &key, &certificate, nullptr) == 0) {
            Fail(CRSAKey::UnableToLoadCredentials);
            DrainErrors("PKCS12_parse", IsPassphraseErrorOfP12);
            return false;
        }
        m_Key.reset(key);
        m_Certificate.reset(certificate);
        return true;
    }

    bool ReadPem() {
        m_Certificate.reset(
            PEM_read_bio_X509(m_Input.get(), nullptr, PassphraseCallback(), Passphrase()));
        // The error of a text that holds no certificate stays queued.
        if (!m_Certificate && !IsError(ERR_peek_error(), ERR_LIB_PEM, PEM_R_NO_START_LINE)) {
            Fail(CRSAKey::UnableToLoadCredentials);
            DrainErrors("PEM_read_bio_X509", IsPassphraseErrorOfPem);
            return false;
        }
        BIO_ctrl(m_Input.get(), BIO_CTRL_RESET, 0, nullptr);
        m_Key.reset(
            PEM_read_bio_PrivateKey(m_Input.get(), nullptr, PassphraseCallback(), Passphrase()));
        if (m_Key) return true;
        Fail(CRSAKey::UnableToLoadCredentials);
        DrainErrors("PEM_read_bio_PrivateKey", IsPassphraseErrorOfPem);
        return false;
    }

    // What OpenSSL queues about a certificate whose extensions it cannot read must not stay: the
    // next PEM text without a certificate would count as unreadable for it.
    bool SuitsServer() const {
        ERR_set_mark();
        const int fit =
            X509_check_purpose(m_Certificate.get(), X509_PURPOSE_NS_SSL_SERVER, kNotAsCa);
        ERR_pop_to_mark();
        return fit != 0;
    }

    // Without a callback OpenSSL takes the passphrase from the argument behind it.
    pem_password_cb* PassphraseCallback() const {
        return m_HasPassphrase ? nullptr : OpenSSLNullPasswordCallback;
    }
    char* Passphrase() { return m_HasPassphrase ? m_PassphraseBytes.data() : nullptr; }

    std::nullptr_t Fail(CRSAKey::FailureReason reason) {
        if (m_Reason != nullptr) *m_Reason = reason;
        return nullptr;
    }

    // Takes all errors off the thread's queue. Both ends of the queue are looked at, so that every
    // error is seen from whichever end it is taken.
    void DrainErrors(const char* step, bool (*isPassphraseError)(unsigned long)) {
        while (ERR_peek_error() != 0) {
            const bool wrongPassphrase =
                isPassphraseError(ERR_peek_error()) || isPassphraseError(ERR_peek_last_error());
            const wxString text = VelmCore::OpenSSLError();
            OSTREL_TRACE(s_Trace, "CRSAOpenSSLKey::Create() - %s: %.128s", step, text);
            if (wrongPassphrase) Fail(CRSAKey::IncorrectPassphrase);
        }
    }

    const bool m_IsP12;
    const wxString& m_Identifier;
    const bool m_HasCredential;
    const bool m_HasPassphrase;
    std::string m_CredentialBytes;
    std::string m_PassphraseBytes;
    CRSAKey::FailureReason* const m_Reason;
    // Released from the last to the first.
    Owned<BIO> m_Input;
    Owned<EVP_PKEY> m_Key;
    Owned<PKCS12> m_Container;
    Owned<X509> m_Certificate;
};

}  // namespace

CRSAKey* CRSAKey::Create(const CSSLCredential& credential, FailureReason* reason) {
    const bool isPem = credential.m_CredentialType == "PEM";
    if (isPem || credential.m_CredentialType == "P12") {
        return CRSAOpenSSLKey::Create(!isPem, credential.m_Identifier, credential.m_Credential,
                                      credential.m_Passphrase, reason);
    }
    OSTREL_TRACE(s_Trace, "CRSAKey::Create() - unsupported credential type '%.128s'",
                 credential.m_CredentialType);
    if (reason != nullptr) *reason = UnsupportedCredentialType;
    return nullptr;
}

wxString CRSAKey::toString(FailureReason reason) {
    switch (reason) {
        case BadIdentifierFormat:
            return "BadIdentifierFormat";
        case IdentifierNotFound:
            return "IdentifierNotFound";
        case ImproperKeyUsage:
            return "ImproperKeyUsage";
        case IncorrectPassphrase:
            return "IncorrectPassphrase";
        case KeyNotFound:
            return "KeyNotFound";
        case UnableToLoadCredentials:
            return "UnableToLoadCredentials";
        case UnableToOpenContainer:
            return "UnableToOpenContainer";
        case UnableToOpenFile:
            return "UnableToOpenFile";
        case UnsupportedCredentialType:
            return "UnsupportedCredentialType";
    }
    wxASSERT(false);
    return "Unknown";
}

CRSAOpenSSLKey::~CRSAOpenSSLKey() {
    if (m_RSA != nullptr) RSA_free(m_RSA);
    m_RSA = nullptr;
}

CRSAKey* CRSAOpenSSLKey::Create(bool isP12, const wxString& identifier, const wxString& credential,
                                const wxString& passphrase, FailureReason* reason) {
    RSA* rsa = Loader(isP12, identifier, credential, passphrase, reason).Load();
    return rsa != nullptr ? new CRSAOpenSSLKey(rsa) : nullptr;
}

bool CRSAOpenSSLKey::Decrypt(unsigned int fromLen, const void* from, void* to, unsigned int,
                             unsigned int& outLen) {
    outLen = 0;
    if (m_RSA == nullptr) return false;
    const int length = static_cast<int>(std::min<unsigned int>(fromLen, INT_MAX));
    const int result =
        RSA_private_decrypt(length, static_cast<const unsigned char*>(from),
                            static_cast<unsigned char*>(to), m_RSA, RSA_PKCS1_PADDING);
    if (result != -1) {
        outLen = static_cast<unsigned int>(result);
        return true;
    }
    while (ERR_peek_error() != 0) {
        wxLogError("CRSAOpenSSLKey::Decrypt() RSA_private_decrypt: %.128s",
                   VelmCore::OpenSSLError());
    }
    return false;
}

unsigned int CRSAOpenSSLKey::GetModulusSize() const {
    return m_RSA != nullptr ? static_cast<unsigned int>(RSA_size(m_RSA)) : 0;
}

bool GetPlatformCredentials(CSSLCredentials&, int& code, wxString& message) {
    code = 501;
    message = "Not Implemented";
    return true;
}

}  // namespace OSTREL
