#pragma once

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include "CoreEnvironment.h"
#include "RSAKey.h"
#include "policy/SSLCredential.h"

// Credentials of the test keys, whose passphrase, where they have one, is kPassphrase.

constexpr const char* kPassphrase = "correct horse";

inline std::string CredentialPath(const std::string& file) {
    return std::string(CREDENTIAL_FILES) + "/" + file;
}

inline std::string CredentialBytes(const std::string& file) {
    std::ifstream stream(CredentialPath(file), std::ios::binary);
    EXPECT_TRUE(stream) << file;
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// Base64 on one line.
inline std::string Base64(const std::string& bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                       reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
    text.resize(static_cast<size_t>(length));
    return text;
}

inline std::string FromHex(const std::string& hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

// A credential as the policy would carry it.
struct Credential {
    std::string type;
    std::string identifier;
    std::string credential;
    std::string passphrase;

    static std::string TypeOf(const std::string& file) {
        return file.find(".p12") != std::string::npos ? "P12" : "PEM";
    }
    static Credential OfFile(const std::string& file, const std::string& passphrase = "") {
        return {TypeOf(file), CredentialPath(file), "", passphrase};
    }
    static Credential OfBytes(const std::string& type, const std::string& bytes,
                              const std::string& passphrase = "") {
        return {type, "", Base64(bytes), passphrase};
    }

    std::unique_ptr<OSTREL::CRSAKey> Load(OSTREL::CRSAKey::FailureReason* reason) const {
        OSTREL::CSSLCredential element;
        element.m_CredentialType = wxString::FromUTF8(type.c_str());
        element.m_Identifier = wxString::FromUTF8(identifier.c_str());
        element.m_Credential = wxString::FromUTF8(credential.c_str());
        element.m_Passphrase = wxString::FromUTF8(passphrase.c_str());
        return std::unique_ptr<OSTREL::CRSAKey>(OSTREL::CRSAKey::Create(element, reason));
    }
    // "loads", or the name of the reason. Begins with an empty OpenSSL queue.
    std::string Outcome() const {
        ERR_clear_error();
        OSTREL::CRSAKey::FailureReason reason = OSTREL::CRSAKey::BadIdentifierFormat;
        if (Load(&reason)) return "loads";
        return Utf8(OSTREL::CRSAKey::toString(reason));
    }
};
