#include <string>

#include "Credentials.h"

namespace {

// What comes of each container, with OpenSSL 3.0.
struct Kind {
    const char* file;
    const char* withPassphrase;
    const char* withoutPassphrase;
    const char* withWrongPassphrase;
};

constexpr const char* LOADS = "loads";
constexpr const char* UNREADABLE = "UnableToLoadCredentials";
constexpr const char* PASSPHRASE = "IncorrectPassphrase";
constexpr const char* NO_KEY = "KeyNotFound";
constexpr const char* USAGE = "ImproperKeyUsage";

// The same whatever the passphrase is, since the container has none.
constexpr Kind Plain(const char* file, const char* outcome) {
    return {file, outcome, outcome, outcome};
}

const Kind kKinds[] = {
    // Private keys of RSA, in the clear.
    Plain("rsa1024.key.pem", LOADS),
    Plain("rsa2048.key.pem", LOADS),
    Plain("rsa2048.key.trad.pem", LOADS),
    Plain("rsa2048.key.crlf.pem", LOADS),
    Plain("rsa2048.key.withtext.pem", LOADS),
    Plain("rsa4096.key.pem", LOADS),
    Plain("rsa4096.key.trad.pem", LOADS),
    Plain("chain.key.pem", LOADS),
    Plain("ca.key.pem", LOADS),
    Plain("rsa2048.key+cert.pem", LOADS),
    // The structure is whole; that the numbers do not belong together shows at the first use.
    Plain("rsa2048.key.damaged.pem", LOADS),
    // RSA for signatures only counts as RSA: OpenSSL hands it out as such.
    Plain("rsapss.key.pem", LOADS),
    // Encrypted in the traditional way: OpenSSL names the wrong passphrase.
    {"rsa2048.key.trad.aes256.enc.pem", LOADS, PASSPHRASE, PASSPHRASE},
    {"rsa2048.key.trad.des3.enc.pem", LOADS, PASSPHRASE, PASSPHRASE},
    {"rsa4096.key.trad.aes256.enc.pem", LOADS, PASSPHRASE, PASSPHRASE},
    // Encrypted PKCS#8: what OpenSSL queues for a wrong passphrase names other libraries.
    {"rsa2048.key.p8.aes256.enc.pem", LOADS, UNREADABLE, UNREADABLE},
    {"rsa2048.key.p8.pbe3des.enc.pem", LOADS, UNREADABLE, UNREADABLE},
    {"rsa2048.key.p8.scrypt.enc.pem", LOADS, UNREADABLE, UNREADABLE},
    {"rsa4096.key.p8.aes256.enc.pem", LOADS, UNREADABLE, UNREADABLE},
    {"rsa2048.cert+enckey.pem", LOADS, UNREADABLE, UNREADABLE},
    // PKCS#12.
    {"rsa2048.modern.p12", LOADS, PASSPHRASE, PASSPHRASE},
    {"rsa4096.modern.p12", LOADS, PASSPHRASE, PASSPHRASE},
    {"chain.modern.p12", LOADS, PASSPHRASE, PASSPHRASE},
    {"rsa2048.emptypass.p12", PASSPHRASE, LOADS, PASSPHRASE},
    // The passphrase is right, the ciphers are retired ones.
    {"rsa2048.legacy.p12", UNREADABLE, PASSPHRASE, PASSPHRASE},
    {"rsa2048.certonly.p12", NO_KEY, PASSPHRASE, PASSPHRASE},
    {"rsa2048.clientonly.modern.p12", USAGE, PASSPHRASE, PASSPHRASE},
    // The certificate of an elliptic curve lacks the key usage that a server of the test needs, and
    // it is tested before the key.
    {"ec256.modern.p12", USAGE, PASSPHRASE, PASSPHRASE},
    {"ec256.keyonly.p12", NO_KEY, PASSPHRASE, PASSPHRASE},
    Plain("rsa2048.truncated.p12", UNREADABLE),
    Plain("random.p12", UNREADABLE),
    // Keys that are not RSA.
    Plain("ec256.key.pem", NO_KEY),
    Plain("ed25519.key.pem", NO_KEY),
    // Certificates without a key: the unfit one is told first.
    Plain("rsa2048.cert.pem", UNREADABLE),
    Plain("rsa1024.cert.pem", UNREADABLE),
    Plain("rsa4096.cert.pem", UNREADABLE),
    Plain("chain.cert.pem", UNREADABLE),
    Plain("chain.fullchain.pem", UNREADABLE),
    Plain("rsa2048.noeku.cert.pem", UNREADABLE),
    Plain("rsa2048.expired.cert.pem", UNREADABLE),
    Plain("rsa2048.future.cert.pem", UNREADABLE),
    Plain("rsapss.cert.pem", UNREADABLE),
    Plain("rsa2048.clientonly.cert.pem", USAGE),
    Plain("rsa2048.codesign.cert.pem", USAGE),
    Plain("rsa2048.nokeyenc.cert.pem", USAGE),
    Plain("rsa2048.anyeku.cert.pem", USAGE),
    Plain("ca.cert.pem", USAGE),
    Plain("ec256.cert.pem", USAGE),
    // No PEM at all, or not whole.
    Plain("rsa2048.key.p8.der", UNREADABLE),
    Plain("rsa2048.key.pkcs1.der", UNREADABLE),
    Plain("rsa2048.key.p8.aes256.enc.der", UNREADABLE),
    Plain("rsa2048.cert.der", UNREADABLE),
    Plain("rsa2048.key.joined.txt", UNREADABLE),
    Plain("rsa2048.key.escaped.txt", UNREADABLE),
    Plain("rsa2048.key.truncated.pem", UNREADABLE),
    Plain("empty.pem", UNREADABLE),
};

class CredentialKinds : public ::testing::TestWithParam<Kind> {};

TEST_P(CredentialKinds, AsAFile) {
    const Kind& kind = GetParam();
    EXPECT_EQ(Credential::OfFile(kind.file, kPassphrase).Outcome(), kind.withPassphrase);
    EXPECT_EQ(Credential::OfFile(kind.file, "").Outcome(), kind.withoutPassphrase);
    EXPECT_EQ(Credential::OfFile(kind.file, "wrong").Outcome(), kind.withWrongPassphrase);
}

TEST_P(CredentialKinds, AsBase64OnOneLine) {
    const Kind& kind = GetParam();
    const std::string bytes = CredentialBytes(kind.file);
    if (bytes.empty()) {  // an empty credential means the file, which has no name here
        EXPECT_EQ(Credential::OfBytes("PEM", bytes).Outcome(), "UnableToOpenFile");
        return;
    }
    const std::string type = Credential::TypeOf(kind.file);
    EXPECT_EQ(Credential::OfBytes(type, bytes, kPassphrase).Outcome(), kind.withPassphrase);
    EXPECT_EQ(Credential::OfBytes(type, bytes, "").Outcome(), kind.withoutPassphrase);
    EXPECT_EQ(Credential::OfBytes(type, bytes, "wrong").Outcome(), kind.withWrongPassphrase);
}

std::string Name(const ::testing::TestParamInfo<Kind>& info) {
    std::string name = info.param.file;
    for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Files, CredentialKinds, ::testing::ValuesIn(kKinds), Name);

// A certificate that does not belong to the key is none of the loader's business.
TEST(CredentialPairs, AKeyLoadsBesideTheCertificateOfAnotherKey) {
    const std::string both =
        CredentialBytes("rsa4096.cert.pem") + CredentialBytes("rsa2048.key.pem");
    EXPECT_EQ(Credential::OfBytes("PEM", both).Outcome(), LOADS);
    EXPECT_EQ(Credential::OfBytes(
                  "PEM", CredentialBytes("rsa2048.cert.pem") + CredentialBytes("chain.key.pem"))
                  .Outcome(),
              LOADS);
}

TEST(CredentialPairs, OnlyTheUsageOfACertificateCountsNotItsDates) {
    const std::string key = CredentialBytes("rsa2048.key.pem");
    for (const char* file : {"rsa2048.cert.pem", "rsa2048.expired.cert.pem",
                             "rsa2048.future.cert.pem", "rsa2048.noeku.cert.pem"})
        EXPECT_EQ(Credential::OfBytes("PEM", key + CredentialBytes(file)).Outcome(), LOADS) << file;
    for (const char* file : {"rsa2048.clientonly.cert.pem", "rsa2048.codesign.cert.pem",
                             "rsa2048.nokeyenc.cert.pem", "rsa2048.anyeku.cert.pem", "ca.cert.pem"})
        EXPECT_EQ(Credential::OfBytes("PEM", key + CredentialBytes(file)).Outcome(), USAGE) << file;
}

}  // namespace
