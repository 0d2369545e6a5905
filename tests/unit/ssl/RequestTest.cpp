// What a worker makes of one request.

#include "SSLFixture.h"

namespace {

class SSLRequest : public SSLWorkerTest {
protected:
    const Vector m_Good = FindVector("made-rsa2048-good");

    // The request fails: the driver is told so once, and the log has the one line.
    void ExpectFailure(const Request& request, const std::string& line) {
        EXPECT_TRUE(Process(request));
        EXPECT_EQ(Responses(), Texts{request.Response()});
        EXPECT_EQ(TakeLogLines(), Texts{"error: CSSLCertThreadWorker0::" + line});
    }
};

TEST_F(SSLRequest, TheSecretComesBackWithTheContextAndFourSpareBytes) {
    const Request request = Request::Tls(1, m_Good.encrypted, "the context of a connection");
    EXPECT_TRUE(Process(request));
    const Texts responses = Responses();
    ASSERT_EQ(responses.size(), 1u);
    EXPECT_EQ(responses[0].size(), 108u);
    EXPECT_EQ(responses[0], request.Response(m_Good.secret));
    EXPECT_TRUE(TakeLogLines().empty());
}

TEST_F(SSLRequest, Ssl3HasNoLengthInFrontOfTheSecret) {
    const Request request(1, m_Good.encrypted, "old", kSsl3);
    EXPECT_TRUE(Process(request));
    EXPECT_EQ(Responses(), Texts{request.Response(m_Good.secret)});
}

TEST_F(SSLRequest, EveryVersionAboveSsl3HasALengthInFront) {
    for (const uint16_t version : {0x0103, 0x0203, 0x0303, 0x0403, 0x0004, 0xFFFF}) {
        const Request request(1, "??" + m_Good.encrypted, "new", version);
        EXPECT_TRUE(Process(request));
        EXPECT_EQ(Responses(), Texts{request.Response(m_Good.secret)}) << version;
    }
}

TEST_F(SSLRequest, AMajorVersionOf2OrLessIsRefusedWhateverTheMinorOne) {
    for (const uint16_t version : {0xFF02, 0x0002, 0x0302, 0x0001, 0x0000, 0xFF00})
        ExpectFailure(Request(1, "??" + m_Good.encrypted, "old", version),
                      "ProcessSSLCertRequest() - Unsupported Protocol version");
}

TEST_F(SSLRequest, OnlyRsaIsAMethod) {
    const std::pair<uint32_t, const char*> methods[] = {{0, "0"}, {2, "2"}, {0xFFFFFFFF, "-1"}};
    for (const auto& method : methods) {
        Request request = Request::Tls(1, m_Good.encrypted);
        request.header.keyExchangeMethod = method.first;
        ExpectFailure(request, std::string("ProcessSSLCertRequest() - Unsupported key exchange "
                                           "method = ") +
                                   method.second);
    }
}

TEST_F(SSLRequest, TheMethodIsLookedAtBeforeTheVersionAndTheVersionBeforeTheLength) {
    Request request(1, std::string(2000, 'x'), "all wrong", 0x0002);
    request.header.keyExchangeMethod = 7;
    ExpectFailure(request, "ProcessSSLCertRequest() - Unsupported key exchange method = 7");
    request.header.keyExchangeMethod = 1;
    ExpectFailure(request, "ProcessSSLCertRequest() - Unsupported Protocol version");
}

TEST_F(SSLRequest, ASecretOf1024BytesIsDecryptedAndOneOf1025IsTooLarge) {
    const std::string tooLarge = "ProcessSSLCertRequest() - premaster key too large";
    for (const Request& request : {Request(1, std::string(1024, 'x'), "ssl3", kSsl3),
                                   Request(1, std::string(1026, 'x'), "tls")}) {
        EXPECT_TRUE(Process(request));
        EXPECT_EQ(Responses(), Texts{request.Response()});
        const Texts lines = TakeLogLines();
        ASSERT_FALSE(lines.empty());  // the key is smaller, so the decryption fails
        for (const std::string& line : lines)
            EXPECT_EQ(line.find("error: CRSAOpenSSLKey::Decrypt()"), 0u) << line;
    }
    ExpectFailure(Request(1, std::string(1025, 'x'), "ssl3", kSsl3), tooLarge);
    ExpectFailure(Request(1, std::string(1027, 'x'), "tls"), tooLarge);
}

TEST_F(SSLRequest, ATlsRequestShorterThanItsLengthPrefixIsTooLarge) {
    for (const char* data : {"", "x"})
        ExpectFailure(Request(1, data), "ProcessSSLCertRequest() - premaster key too large");
}

TEST_F(SSLRequest, AnEmptySsl3SecretFailsToDecrypt) {
    const Request request(1, "", "empty", kSsl3);
    EXPECT_TRUE(Process(request));
    EXPECT_EQ(Responses(), Texts{request.Response()});
}

TEST_F(SSLRequest, AKeyLargerThanTheRoomForASecretIsTooLarge) {
    ExpectFailure(Request(6, std::string(1024, '\0'), "large", kSsl3),
                  "ProcessSSLCertRequest() - premaster key too large");
}

TEST_F(SSLRequest, DataBehindTheSecretIsNotRead) {
    Request request = Request::Tls(1, m_Good.encrypted);
    request.data += "more than the secret";
    EXPECT_TRUE(Process(request));
    EXPECT_EQ(Responses(), Texts{request.Response(m_Good.secret)});
}

TEST_F(SSLRequest, WrongPaddingFails) {
    const Request request = Request::Tls(1, FindVector("made-rsa2048-random").encrypted);
    EXPECT_TRUE(Process(request));
    EXPECT_EQ(Responses(), Texts{request.Response()});
}

TEST_F(SSLRequest, ADecryptedLengthOfZeroIsASuccessThatIsSentOnce) {
    const Request request = Request::Tls(1, FindVector("made-rsa2048-len0").encrypted);
    EXPECT_TRUE(Process(request));
    EXPECT_EQ(Responses(), Texts{request.Response()});
    EXPECT_TRUE(TakeLogLines().empty());
}

TEST_F(SSLRequest, WithoutAKeyTheRequestFailsBeforeAnythingElseIsLookedAt) {
    Request request = Request::Tls(7, "", "no key");
    request.header.keyExchangeMethod = 9;
    EXPECT_FALSE(Process(request));
    EXPECT_EQ(Responses(), Texts{request.Response()});
    EXPECT_EQ(TakeLogLines(),
              Texts{"error: CSSLCertThreadWorker0::GetKey() - unable to locate SSL credential for "
                    "SSL host configuration '<Not Found>' with ID 7"});
}

TEST_F(SSLRequest, AHostConfigurationWithoutACredentialIsNamed) {
    EXPECT_FALSE(Process(Request::Tls(5, m_Good.encrypted)));
    EXPECT_EQ(TakeLogLines(),
              Texts{"error: CSSLCertThreadWorker0::GetKey() - unable to locate SSL credential for "
                    "SSL host configuration 'lonely' with ID 5"});
}

TEST_F(SSLRequest, ACredentialThatDoesNotLoadFailsWithoutALine) {
    const Request request = Request::Tls(4, m_Good.encrypted);
    EXPECT_FALSE(Process(request));
    EXPECT_EQ(Responses(), Texts{request.Response()});
    EXPECT_TRUE(TakeLogLines().empty());
}

TEST_F(SSLRequest, ASendThatFailsIsTriedAgainAsAFailure) {
    const Request request = Request::Tls(1, m_Good.encrypted);
    kdi_testing_fail_ssl_response(1);
    EXPECT_TRUE(Process(request));
    EXPECT_EQ(Responses(), Texts{request.Response()});
    EXPECT_EQ(TakeLogLines(), Texts{"error: kdi_ssl_response(): failure asked for by a test"});
    EXPECT_EQ(TakeEvents(m_Dom), Texts{"1001: SSL_RESPONSE|5|failure asked for by a test"});
}

TEST_F(SSLRequest, EachFailedSendIsReported) {
    kdi_testing_fail_ssl_response(2);
    EXPECT_TRUE(Process(Request::Tls(1, m_Good.encrypted)));
    EXPECT_TRUE(Responses().empty());
    EXPECT_EQ(TakeLogLines().size(), 2u);
    EXPECT_EQ(TakeEvents(m_Dom).size(), 2u);
}

TEST_F(SSLRequest, WithoutAHandleNothingIsSent) {
    OSTREL::SSLCertThreadPeer::SetHandle(m_Worker, nullptr);
    EXPECT_TRUE(Process(Request::Tls(1, m_Good.encrypted)));
    EXPECT_TRUE(Responses().empty());
    EXPECT_TRUE(TakeEvents(m_Dom).empty());
}

TEST_F(SSLRequest, EveryVectorComesOutAsOpenSslMakesIt) {
    std::ifstream file(CredentialPath("premaster-vectors.txt"));
    int count = 0;
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::string name, key, secret, encrypted;
        std::getline(fields, name, '|');
        std::getline(fields, key, '|');
        std::getline(fields, secret, '|');
        std::getline(fields, encrypted, '|');
        const int configuration = key == "rsa2048.key.pem"   ? 1
                                  : key == "rsa4096.key.pem" ? 2
                                  : key == "rsa1024.key.pem" ? 3
                                                             : 0;
        if (configuration == 0 || secret == "47" || secret == "49" || secret == "0") continue;
        const Request request = Request::Tls(configuration, FromHex(encrypted), name);
        EXPECT_TRUE(Process(request));
        EXPECT_EQ(Responses(), Texts{request.Response(FromHex(secret))}) << name;
        ++count;
    }
    EXPECT_EQ(count, 57);
}

}  // namespace
