// Arbitrary bytes as a credential's container, behind one byte that picks its type, its passphrase
// and whether the bytes are the container or its base64 text. A key that loads must not harm.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <openssl/err.h>
#include <openssl/evp.h>

#include "Input.h"
#include "RSAKey.h"
#include "policy/SSLCredential.h"

namespace {

using Fuzz::Require;
using OSTREL::CRSAKey;
using OSTREL::CRSAOpenSSLKey;

enum Choice : uint8_t { IsP12 = 1, HasPassphrase = 2, IsText = 4 };

constexpr unsigned int kMostRounds = 5000;
constexpr int kMostKeyBytes = 1024;

std::string ToBase64(const std::string& bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                       reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
    text.resize(static_cast<size_t>(length));
    return text;
}

// What the base64 characters of a text stand for; others are skipped.
std::string FromBase64(const std::string& text) {
    static const std::string kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const size_t digit = kDigits.find(c);
        if (digit == std::string::npos) continue;
        bits = bits << 6 | static_cast<uint32_t>(digit);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes.push_back(static_cast<char>(bits >> count));
    }
    return bytes;
}

// Whether a DER integer behind an octet string, as a number of hashing rounds stands, is large.
// Such a container is sound, and takes minutes.
bool IsSlow(const std::string& der) {
    for (size_t at = 0; at + 1 < der.size(); ++at) {
        const auto length = static_cast<unsigned char>(der[at + 1]);
        if (der[at] != 2 || length < 2 || length > 8 || at + 2 + length > der.size()) continue;
        uint64_t value = 0;
        for (size_t i = 0; i < length; ++i)
            value = value << 8 | static_cast<unsigned char>(der[at + 2 + i]);
        if (value > kMostRounds) return true;
    }
    return false;
}

bool IsSlow(bool isP12, const std::string& container) {
    if (isP12) return IsSlow(container);
    const size_t mark = container.find("ENCRYPTED PRIVATE KEY-----");
    return mark != std::string::npos && IsSlow(FromBase64(container.substr(mark + 26)));
}

void Use(CRSAKey& key) {
    const unsigned int size = static_cast<CRSAOpenSSLKey&>(key).GetModulusSize();
    Require(size > 0, "a key has a modulus");
    if (size > kMostKeyBytes) return;
    const std::string from(size, '\1');
    std::vector<unsigned char> to(size);
    unsigned int length = 0;
    const bool done = key.Decrypt(size, from.data(), to.data(), size, length);
    Require(length <= size, "no more comes out than the modulus has");
    Require(done || length == 0, "nothing comes out of a failure");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Fuzz::Input input(data, size);
    const auto choice = input.Take<uint8_t>();
    const std::string rest = input.TakeRest();
    const bool isP12 = (choice & IsP12) != 0;
    const bool isText = (choice & IsText) != 0;
    if (rest.empty() || IsSlow(isP12, isText ? FromBase64(rest) : rest)) return 0;
    const std::string text = isText ? rest : ToBase64(rest);
    OSTREL::CSSLCredential credential;
    credential.m_CredentialType = isP12 ? "P12" : "PEM";
    credential.m_Credential = wxString::FromUTF8(text.data(), text.size());
    if (credential.m_Credential.empty()) return 0;  // would name a file
    if ((choice & HasPassphrase) != 0) credential.m_Passphrase = "correct horse";
    ERR_clear_error();
    auto reason = static_cast<CRSAKey::FailureReason>(0);
    const std::unique_ptr<CRSAKey> key(CRSAKey::Create(credential, &reason));
    if (key) {
        Use(*key);
        return 0;
    }
    Require(reason == CRSAKey::ImproperKeyUsage || reason == CRSAKey::IncorrectPassphrase ||
                reason == CRSAKey::KeyNotFound || reason == CRSAKey::UnableToLoadCredentials,
            "a failure has one of the reasons of a container");
    return 0;
}
