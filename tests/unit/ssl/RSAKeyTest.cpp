#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include "Credentials.h"
#include "velm/Text.h"

namespace {

using OSTREL::CRSAKey;
using OSTREL::CRSAOpenSSLKey;

constexpr const wchar_t* kTrace = L"velm.ostrel.RSAKey";

// PEM of a certificate whose key usage is no bit string.
std::string CertificateWithUnreadableUsage() {
    EVP_PKEY* key = EVP_RSA_gen(1024);
    X509* certificate = X509_new();
    X509_set_version(certificate, 2);
    X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    X509_set_pubkey(certificate, key);
    ASN1_OCTET_STRING* usage = ASN1_OCTET_STRING_new();
    ASN1_OCTET_STRING_set(usage, reinterpret_cast<const unsigned char*>("?!"), 2);
    X509_EXTENSION* extension = X509_EXTENSION_create_by_NID(nullptr, NID_key_usage, 0, usage);
    X509_add_ext(certificate, extension, -1);
    EXPECT_GT(X509_sign(certificate, key, EVP_sha256()), 0);
    BIO* memory = BIO_new(BIO_s_mem());
    PEM_write_bio_X509(memory, certificate);
    char* pem = nullptr;
    const long length = BIO_get_mem_data(memory, &pem);
    const std::string text(pem, static_cast<size_t>(length));
    BIO_free_all(memory);
    X509_EXTENSION_free(extension);
    ASN1_OCTET_STRING_free(usage);
    X509_free(certificate);
    EVP_PKEY_free(key);
    return text;
}

class RSAKey : public ::testing::Test {
protected:
    RSAKey() {
        ERR_clear_error();
        VelmCore::TakeLog();
        VelmCore::TakeTrace();
    }
    ~RSAKey() override { VelmCore::EnableTrace(kTrace, false); }

    static Texts TraceMessages() {
        Texts messages;
        for (const VelmCore::TraceLine& line : VelmCore::TakeTrace())
            messages.push_back(Utf8(line.message));
        return messages;
    }
    static std::unique_ptr<CRSAKey> Key(const char* file) {
        return Credential::OfFile(file).Load(nullptr);
    }
};

TEST_F(RSAKey, APrivateKeyWithoutACertificateLoadsWithoutAPurposeTest) {
    EXPECT_EQ(Credential::OfFile("rsa2048.key.pem").Outcome(), "loads");
}

TEST_F(RSAKey, ACertificateThatFailsThePurposeTestHidesAMissingKey) {
    EXPECT_EQ(Credential::OfFile("rsa2048.clientonly.cert.pem").Outcome(), "ImproperKeyUsage");
}

TEST_F(RSAKey, ACertificateThatFailsThePurposeTestHidesAWrongPassphrase) {
    const std::string both = CredentialBytes("rsa2048.clientonly.cert.pem") +
                             CredentialBytes("rsa2048.key.trad.aes256.enc.pem");
    EXPECT_EQ(Credential::OfBytes("PEM", both, "wrong").Outcome(), "ImproperKeyUsage");
}

TEST_F(RSAKey, AKeyThatIsNotRsaIsNotFound) {
    EXPECT_EQ(Credential::OfFile("ec256.key.pem").Outcome(), "KeyNotFound");
    EXPECT_EQ(Credential::OfFile("ec256.keyonly.p12", kPassphrase).Outcome(), "KeyNotFound");
}

TEST_F(RSAKey, TheCredentialWinsOverTheIdentifierAndTheFileIsNeverOpened) {
    const Credential key = Credential::OfBytes("PEM", CredentialBytes("rsa2048.key.pem"));
    EXPECT_EQ((Credential{"PEM", "/nonexistent", key.credential, ""}.Outcome()), "loads");
    EXPECT_EQ((Credential{"PEM", CredentialPath("rsa2048.key.pem"), "AAAA", ""}.Outcome()),
              "UnableToLoadCredentials");
}

TEST_F(RSAKey, WithNeitherCredentialNorIdentifierNoFileOpens) {
    EXPECT_EQ((Credential{"PEM", "", "", ""}.Outcome()), "UnableToOpenFile");
    EXPECT_EQ((Credential{"P12", "", "", ""}.Outcome()), "UnableToOpenFile");
}

TEST_F(RSAKey, AMissingFileIsNamedAsTheReasonAndADirectoryAsUnreadable) {
    EXPECT_EQ((Credential{"PEM", CredentialPath("none.pem"), "", ""}.Outcome()),
              "UnableToOpenFile");
    EXPECT_EQ((Credential{"PEM", CREDENTIAL_FILES, "", ""}.Outcome()), "UnableToLoadCredentials");
}

TEST_F(RSAKey, Base64WithLineFeedsDoesNotLoad) {
    std::string base64 = Base64(CredentialBytes("rsa2048.key.pem"));
    for (size_t at = 64; at < base64.size(); at += 65)
        base64.insert(at, "\n");
    EXPECT_EQ((Credential{"PEM", "", base64, ""}.Outcome()), "UnableToLoadCredentials");
    base64 = Base64(CredentialBytes("rsa2048.modern.p12"));
    for (size_t at = 64; at < base64.size(); at += 65)
        base64.insert(at, "\n");
    EXPECT_EQ((Credential{"P12", "", base64, kPassphrase}.Outcome()), "UnableToLoadCredentials");
}

TEST_F(RSAKey, ATypeIsComparedWithItsCase) {
    for (const char* type : {"pem", "Pem", "p12", "", "PEM ", "DER"}) {
        Credential credential = Credential::OfFile("rsa2048.key.pem");
        credential.type = type;
        EXPECT_EQ(credential.Outcome(), "UnsupportedCredentialType") << type;
    }
}

TEST_F(RSAKey, AnUnsupportedTypeIsTracedCutTo128Characters) {
    VelmCore::EnableTrace(kTrace, true);
    Credential{std::string(200, 'x'), "", "", ""}.Outcome();
    EXPECT_EQ(TraceMessages(), Texts{"CRSAKey::Create() - unsupported credential type '" +
                                     std::string(128, 'x') + "'"});
}

TEST_F(RSAKey, AnEmptyPassphraseOnAnEncryptedKeyFailsWithoutAPrompt) {
    // A prompt would read the terminal or standard input, which is at its end here.
    EXPECT_EQ(Credential::OfFile("rsa2048.key.trad.aes256.enc.pem").Outcome(),
              "IncorrectPassphrase");
    EXPECT_EQ(Credential::OfFile("rsa2048.key.p8.aes256.enc.pem").Outcome(),
              "UnableToLoadCredentials");
}

TEST_F(RSAKey, TheReasonIsTheSameWhetherOrNotTracingIsOn) {
    const Credential credential = Credential::OfFile("rsa2048.key.trad.aes256.enc.pem", "wrong");
    EXPECT_EQ(credential.Outcome(), "IncorrectPassphrase");
    EXPECT_TRUE(TraceMessages().empty());
    VelmCore::EnableTrace(kTrace, true);
    EXPECT_EQ(credential.Outcome(), "IncorrectPassphrase");
    EXPECT_FALSE(TraceMessages().empty());
}

TEST_F(RSAKey, TheReasonMayBeLeftOut) {
    EXPECT_EQ(Credential::OfFile("rsa2048.truncated.p12").Load(nullptr), nullptr);
    EXPECT_EQ(Credential::OfFile("none.pem").Load(nullptr), nullptr);
    EXPECT_EQ((Credential{"DER", "", "", ""}.Load(nullptr)), nullptr);
    EXPECT_NE(Credential::OfFile("rsa2048.key.pem").Load(nullptr), nullptr);
}

TEST_F(RSAKey, EachFailingStepIsTracedWithItsName) {
    VelmCore::EnableTrace(kTrace, true);
    const struct {
        Credential credential;
        const char* step;
    } cases[] = {
        {{"PEM", "/nonexistent", "", ""}, "BIO_new_file"},
        {Credential::OfFile("random.p12"), "d2i_PKCS12_bio"},
        {Credential::OfFile("rsa2048.modern.p12", "wrong"), "PKCS12_parse"},
        {Credential::OfBytes("PEM", "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----"),
         "PEM_read_bio_X509"},
        {Credential::OfFile("rsa2048.cert.pem"), "PEM_read_bio_PrivateKey"},
        {Credential::OfFile("ec256.key.pem"), "EVP_PKEY_get1_RSA"},
    };
    for (const auto& testCase : cases) {
        testCase.credential.Outcome();
        const Texts messages = TraceMessages();
        ASSERT_FALSE(messages.empty()) << testCase.step;
        const std::string start =
            "CRSAOpenSSLKey::Create() - " + std::string(testCase.step) + ": error:";
        for (const std::string& message : messages)
            EXPECT_EQ(message.compare(0, start.size(), start), 0) << message;
        EXPECT_EQ(ERR_peek_error(), 0u) << "the drain leaves nothing";
    }
    EXPECT_TRUE(VelmCore::TakeLog().empty()) << "loading only traces";
}

TEST_F(RSAKey, TheErrorOfATextWithoutACertificateStaysQueuedForTheNextDrain) {
    ERR_clear_error();
    ASSERT_NE(Key("rsa2048.key.pem"), nullptr);
    EXPECT_EQ(ERR_GET_LIB(ERR_peek_error()), 9);
    EXPECT_EQ(ERR_GET_REASON(ERR_peek_error()), 108);
    EXPECT_EQ(ERR_peek_error(), ERR_peek_last_error());
    VelmCore::EnableTrace(kTrace, true);
    EXPECT_EQ((Credential{"PEM", "/nonexistent", "", ""}.Load(nullptr)), nullptr);
    bool traced = false;
    for (const std::string& message : TraceMessages())
        traced = traced || message.find("no start line") != std::string::npos;
    EXPECT_TRUE(traced);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_F(RSAKey, ACertificateThatCannotBeTestedPassesAndSpoilsNoLaterLoad) {
    ERR_clear_error();
    const Credential odd = Credential::OfBytes(
        "PEM", CertificateWithUnreadableUsage() + CredentialBytes("rsa2048.key.pem"));
    EXPECT_NE(odd.Load(nullptr), nullptr);
    EXPECT_EQ(ERR_peek_error(), 0u);
    EXPECT_NE(Key("rsa2048.key.pem"), nullptr);
}

TEST_F(RSAKey, AQueuedErrorOfAnEarlierLoadMakesABrokenCertificatePassForNone) {
    const Credential broken = Credential::OfBytes(
        "PEM", "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n" +
                   CredentialBytes("rsa2048.key.pem"));
    EXPECT_EQ(broken.Outcome(), "UnableToLoadCredentials");
    ASSERT_NE(Key("rsa2048.key.pem"), nullptr);
    EXPECT_NE(broken.Load(nullptr), nullptr);
}

TEST_F(RSAKey, ATextOfCertificateAndKeyLeavesTheQueueEmpty) {
    ASSERT_NE(Key("rsa2048.key+cert.pem"), nullptr);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_F(RSAKey, ALargeBase64PemIsReadFromItsBeginningASecondTime) {
    // Longer than the buffer of the chain, with the certificate far from its beginning and the key
    // behind it.
    const std::string text(10000, 'x');
    EXPECT_EQ(Credential::OfBytes("PEM", text + "\n" + CredentialBytes("rsa2048.cert.pem") + text +
                                             "\n" + CredentialBytes("rsa4096.key.pem"))
                  .Outcome(),
              "loads");
}

TEST_F(RSAKey, DecryptsTheVectors) {
    std::ifstream file(CredentialPath("premaster-vectors.txt"));
    std::map<std::string, std::unique_ptr<CRSAKey>> keys;
    int count = 0;
    for (std::string line; std::getline(file, line);) {
        if (line[0] == '#') continue;
        std::istringstream fields(line);
        std::string name, keyFile, expected, encrypted;
        std::getline(fields, name, '|');
        std::getline(fields, keyFile, '|');
        std::getline(fields, expected, '|');
        std::getline(fields, encrypted, '|');
        std::unique_ptr<CRSAKey>& key = keys[keyFile];
        if (!key) key = Key(keyFile.c_str());
        ASSERT_NE(key, nullptr) << keyFile;
        VelmCore::TakeLog();
        ERR_clear_error();
        const std::string from = FromHex(encrypted);
        std::vector<char> to(512);
        unsigned int outLen = 99;
        const bool done = key->Decrypt(static_cast<unsigned int>(from.size()), from.data(),
                                       to.data(), static_cast<unsigned int>(to.size()), outLen);
        const Texts lines = TakeLogLines();
        if (expected == "-") {
            EXPECT_FALSE(done) << name;
            EXPECT_EQ(outLen, 0u) << name;
            EXPECT_FALSE(lines.empty()) << name;
            for (const std::string& text : lines)
                EXPECT_EQ(text.find("error: CRSAOpenSSLKey::Decrypt() RSA_private_decrypt: error:"),
                          0u)
                    << text;
        } else if (expected.size() < 3) {
            EXPECT_TRUE(done) << name << ": a wrong length is the driver's to judge";
            EXPECT_EQ(std::to_string(outLen), expected) << name;
        } else {
            EXPECT_TRUE(done) << name;
            EXPECT_EQ(std::string(to.data(), outLen), FromHex(expected)) << name;
            EXPECT_TRUE(lines.empty()) << name;
        }
        EXPECT_EQ(ERR_peek_error(), 0u) << name;
        ++count;
    }
    EXPECT_EQ(count, 65);
}

TEST_F(RSAKey, AKeyWithoutAHandleDecryptsNothing) {
    CRSAOpenSSLKey key(nullptr);
    char byte = 0;
    unsigned int outLen = 5;
    EXPECT_FALSE(key.Decrypt(1, &byte, &byte, 1, outLen));
    EXPECT_EQ(outLen, 0u);
    EXPECT_EQ(key.GetModulusSize(), 0u);
    EXPECT_TRUE(VelmCore::TakeLog().empty());
}

TEST_F(RSAKey, AnAbsurdLengthIsRefused) {
    const auto key = Key("rsa1024.key.pem");
    char bytes[128] = {};
    unsigned int outLen = 5;
    EXPECT_FALSE(key->Decrypt(0xFFFFFFFFu, bytes, bytes, sizeof bytes, outLen));
    EXPECT_FALSE(key->Decrypt(0x80000000u, bytes, bytes, sizeof bytes, outLen));
    EXPECT_EQ(outLen, 0u);
}

TEST_F(RSAKey, ReasonsHaveTheirNamesAndNumbers) {
    const std::pair<int, const char*> reasons[] = {
        {580, "BadIdentifierFormat"},
        {581, "IdentifierNotFound"},
        {582, "ImproperKeyUsage"},
        {583, "IncorrectPassphrase"},
        {584, "KeyNotFound"},
        {585, "UnableToLoadCredentials"},
        {586, "UnableToOpenContainer"},
        {587, "UnableToOpenFile"},
        {588, "UnsupportedCredentialType"},
    };
    for (const auto& reason : reasons)
        EXPECT_EQ(CRSAKey::toString(static_cast<CRSAKey::FailureReason>(reason.first)),
                  reason.second);
}

TEST_F(RSAKey, ANumberThatIsNoReasonFailsAnAssertion) {
    const unsigned int before = VelmCore::FailedAssertions();
    int notAReason = 589;
    CRSAKey::FailureReason reason;
    memcpy(&reason, &notAReason, sizeof reason);
    EXPECT_EQ(CRSAKey::toString(reason), "Unknown");
    EXPECT_EQ(VelmCore::FailedAssertions(), before + 1);
    const Texts lines = TakeLogLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].find("error: assertion \"false\" failed"), 0u);
}

TEST_F(RSAKey, PlatformCredentialsAreNoneAndSucceed) {
    OSTREL::CSSLCredentials credentials;
    int code = 0;
    wxString message;
    EXPECT_TRUE(OSTREL::GetPlatformCredentials(credentials, code, message));
    EXPECT_EQ(code, 501);
    EXPECT_EQ(message, "Not Implemented");
    EXPECT_TRUE(credentials.Children().empty());
}

}  // namespace
