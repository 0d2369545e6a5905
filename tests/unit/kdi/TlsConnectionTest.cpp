#include <gtest/gtest.h>

#include "TlsBuilder.h"
#include "TlsConnection.h"

using namespace KdiTest;
using Kdi::KeyExchange;
using Kdi::TlsConnection;
using Kdi::TlsOutcome;

namespace {

class TlsConnectionTest : public testing::Test {
protected:
    void Client(const Bytes& bytes) { m_Tls.FeedClient(bytes.data(), bytes.size()); }
    void Server(const Bytes& bytes) { m_Tls.FeedServer(bytes.data(), bytes.size()); }
    void ExpectSecret(const Bytes& encrypted, uint8_t offered = 3, uint8_t version = 3) {
        ASSERT_EQ(m_Tls.Outcome(), TlsOutcome::RsaKeyExchange);
        const Kdi::TlsSecret secret = m_Tls.TakeSecret();
        EXPECT_EQ(secret.encrypted, encrypted);
        EXPECT_EQ(secret.offeredVersion[0], 3);
        EXPECT_EQ(secret.offeredVersion[1], offered);
        EXPECT_EQ(secret.version[0], 3);
        EXPECT_EQ(secret.version[1], version);
        EXPECT_EQ(Bytes(secret.clientRandom.begin(), secret.clientRandom.end()), Random(0xC1));
    }

    TlsConnection m_Tls;
};

}  // namespace

TEST_F(TlsConnectionTest, RsaKeyExchangeGivesItsSecretWithTheLength) {
    Client(TlsRecord(22, ClientHello(), 1));
    Server(ServerSide());
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::None);
    Client(TlsRecord(22, Message(16, KeyExchangeBody())));
    ExpectSecret(KeyExchangeBody());
}

TEST_F(TlsConnectionTest, Ssl3HasNoLengthInFront) {
    Client(TlsRecord(22, ClientHello(0), 0));
    Server(TlsRecord(22, ServerHello(0x0005, 0), 0));
    Client(TlsRecord(22, Message(16, Encrypted()), 0));
    ASSERT_EQ(m_Tls.Outcome(), TlsOutcome::RsaKeyExchange);
    const Kdi::TlsSecret secret = m_Tls.TakeSecret();
    EXPECT_EQ(secret.encrypted, Encrypted());
    EXPECT_EQ(secret.PrefixLen(), 0u);
}

TEST_F(TlsConnectionTest, OfferedAndChosenVersionAreToldApart) {
    Client(TlsRecord(22, ClientHello(3), 1));
    Server(TlsRecord(22, ServerHello(0x002F, 1), 1));
    Client(TlsRecord(22, Message(16, KeyExchangeBody()), 1));
    ExpectSecret(KeyExchangeBody(), 3, 1);
}

TEST_F(TlsConnectionTest, SplitAtEveryByteTheSameComesOut) {
    const Bytes client = ClientSide(), server = ServerSide();
    for (size_t at = 0; at <= client.size(); ++at) {
        TlsConnection tls;
        tls.FeedServer(server.data(), std::min(at, server.size()));
        tls.FeedClient(client.data(), at);
        if (at < server.size()) tls.FeedServer(&server[at], server.size() - at);
        if (at < client.size()) tls.FeedClient(&client[at], client.size() - at);
        ASSERT_EQ(tls.Outcome(), TlsOutcome::RsaKeyExchange) << at;
        ASSERT_EQ(tls.TakeSecret().encrypted, KeyExchangeBody()) << at;
        ASSERT_EQ(tls.Renegotiations(), 0u) << at;
    }
}

TEST_F(TlsConnectionTest, SingleBytesGiveTheSame) {
    for (const uint8_t byte : ClientSide())
        m_Tls.FeedClient(&byte, 1);
    for (const uint8_t byte : ServerSide())
        m_Tls.FeedServer(&byte, 1);
    ExpectSecret(KeyExchangeBody());
}

TEST_F(TlsConnectionTest, MessageMayBeSplitOverRecordsAtEveryByte) {
    const Bytes message = Message(16, KeyExchangeBody());
    for (size_t at = 1; at < message.size(); ++at) {
        TlsConnection tls;
        const auto middle = message.begin() + static_cast<std::ptrdiff_t>(at);
        const Bytes client = TlsRecord(22, ClientHello(), 1) +
                             TlsRecord(22, Bytes(message.begin(), middle)) + TlsRecord(22, {}) +
                             TlsRecord(22, Bytes(middle, message.end())) + ChangeCipherSpec();
        const Bytes server = ServerSide();
        tls.FeedServer(server.data(), server.size());
        tls.FeedClient(client.data(), client.size());
        ASSERT_EQ(tls.Outcome(), TlsOutcome::RsaKeyExchange) << at;
        ASSERT_EQ(tls.TakeSecret().encrypted, KeyExchangeBody()) << at;
    }
}

TEST_F(TlsConnectionTest, MessagesMayShareARecord) {
    Server(ServerSide());
    Client(TlsRecord(22, ClientHello() + Message(16, KeyExchangeBody())));
    ExpectSecret(KeyExchangeBody());
}

TEST_F(TlsConnectionTest, ClientCertificateBeforeTheKeyExchangeIsPassedOver) {
    Server(ServerSide());
    Client(TlsRecord(22, ClientHello()) + TlsRecord(22, Message(11, Bytes(16000, 0x30))) +
           TlsRecord(22, Message(16, KeyExchangeBody()) + Message(15, Bytes(260, 0x31))));
    ExpectSecret(KeyExchangeBody());
}

TEST_F(TlsConnectionTest, ServersSideMayComeLate) {
    Client(ClientSide());
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::None);
    Server(ServerSide());
    ExpectSecret(KeyExchangeBody());
}

TEST_F(TlsConnectionTest, SessionIdentifierOfAnyLengthIsPassedOver) {
    for (const size_t length : {1u, 32u, 255u}) {
        TlsConnection tls;
        const Bytes client = ClientSide(),
                    server = TlsRecord(22, ServerHello(SUITE_RSA, 3, length));
        tls.FeedClient(client.data(), client.size());
        tls.FeedServer(server.data(), server.size());
        EXPECT_EQ(tls.Outcome(), TlsOutcome::RsaKeyExchange) << length;
    }
}

TEST_F(TlsConnectionTest, EphemeralKeyExchangeIsNamed) {
    Server(ServerSide(SUITE_ECDHE));
    Client(ClientSide(Bytes{65} + Bytes(65, 4)));
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::OtherKeyExchange);
    EXPECT_EQ(m_Tls.Exchange(), KeyExchange::Ecdhe);
}

TEST_F(TlsConnectionTest, Tls13IsKnownByTheServersHello) {
    Client(TlsRecord(22, ClientHello()) + ChangeCipherSpec());
    Server(TlsRecord(22, ServerHello(SUITE_TLS13, 3, 32)));
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::OtherKeyExchange);
    EXPECT_EQ(m_Tls.Exchange(), KeyExchange::Tls13);
    EXPECT_TRUE(m_Tls.IsClientDone());
}

TEST_F(TlsConnectionTest, ChangeOfKeysWithoutKeyExchangeIsAResumption) {
    Client(TlsRecord(22, ClientHello()));
    Server(TlsRecord(22, ServerHello(SUITE_ECDHE, 3, 32)) + ChangeCipherSpec());
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::None);
    Client(ChangeCipherSpec());
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::Resumed);
}

TEST_F(TlsConnectionTest, LaterHandshakesAreEncryptedAndCounted) {
    Server(ServerSide());
    Client(ClientSide());
    // Its records look like handshake messages only from outside.
    for (int i = 0; i < 2; ++i)
        Client(TlsRecord(22, Message(16, Bytes(50, 9))) + TlsRecord(20, Bytes(40, 7)) +
               TlsRecord(22, Bytes(40, 8)));
    EXPECT_EQ(m_Tls.Renegotiations(), 2u);
    ExpectSecret(KeyExchangeBody());
}

TEST_F(TlsConnectionTest, OtherProtocolsAreNotTls) {
    for (const std::string text : {"GET / HTTP/1.1\r\n", "SSH-2.0-x", "\x80\x2E\x01\x03\x01"}) {
        TlsConnection tls;
        tls.FeedClient(reinterpret_cast<const uint8_t*>(text.data()), text.size());
        EXPECT_EQ(tls.Outcome(), TlsOutcome::NotTls) << text;
        EXPECT_TRUE(tls.IsClientDone());
    }
}

TEST_F(TlsConnectionTest, GarbageBehindTheHelloIsMalformed) {
    Client(TlsRecord(22, ClientHello()) + Bytes(20, 'x'));
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::Malformed);
    EXPECT_TRUE(m_Tls.IsServerDone());
}

TEST_F(TlsConnectionTest, GarbageOfTheServerIsMalformed) {
    Client(TlsRecord(22, ClientHello()));
    Server(Bytes(20, 'x'));
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::Malformed);
}

TEST_F(TlsConnectionTest, GarbageBehindTheOutcomeChangesNothing) {
    Server(ServerSide() + Bytes(20, 'x'));
    Client(ClientSide() + Bytes(20, 'x'));
    EXPECT_TRUE(m_Tls.IsClientDone());
    ExpectSecret(KeyExchangeBody());
}

TEST_F(TlsConnectionTest, RecordLongerThanAnyIsGarbage) {
    Client(Bytes{22, 3, 1, 0x48, 0x00});
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::None);
    TlsConnection longer;
    const Bytes bytes = {22, 3, 1, 0x48, 0x01};
    longer.FeedClient(bytes.data(), bytes.size());
    EXPECT_EQ(longer.Outcome(), TlsOutcome::NotTls);
}

TEST_F(TlsConnectionTest, HostileMessageLengthsAreMalformedOrWaitForEver) {
    Server(ServerSide());
    Client(TlsRecord(22, ClientHello()));
    // A key exchange that claims 16 MB: nothing comes of it, and little is kept.
    Client(TlsRecord(22, Bytes{16, 0xFF, 0xFF, 0xFF} + Bytes(12000, 1)));
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::None);
    Client(ChangeCipherSpec());
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::Malformed);
}

TEST_F(TlsConnectionTest, KeyExchangeWhoseLengthDisagreesIsMalformed) {
    for (const int by : {-1, 1}) {
        TlsConnection tls;
        Bytes body = KeyExchangeBody();
        body[1] = static_cast<uint8_t>(body[1] + by);
        const Bytes client = ClientSide(body), server = ServerSide();
        tls.FeedServer(server.data(), server.size());
        tls.FeedClient(client.data(), client.size());
        EXPECT_EQ(tls.Outcome(), TlsOutcome::Malformed) << by;
    }
}

TEST_F(TlsConnectionTest, KeyExchangeOfImpossibleSizeIsMalformed) {
    for (const size_t size : {0u, 1u, 58u, 4095u, 5000u}) {
        TlsConnection tls;
        const Bytes client = ClientSide(KeyExchangeBody(Encrypted(size))), server = ServerSide();
        tls.FeedServer(server.data(), server.size());
        tls.FeedClient(client.data(), client.size());
        EXPECT_EQ(tls.Outcome(), TlsOutcome::Malformed) << size;
    }
    Server(ServerSide());
    Client(ClientSide(KeyExchangeBody(Encrypted(4094))));
    ExpectSecret(KeyExchangeBody(Encrypted(4094)));
}

TEST_F(TlsConnectionTest, HelloThatIsTooShortIsMalformed) {
    Client(TlsRecord(22, Message(1, Bytes{3, 3} + Bytes(31, 1))));
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::Malformed);
    TlsConnection tls;
    const Bytes client = TlsRecord(22, ClientHello());
    const Bytes server = TlsRecord(22, Message(2, Bytes{3, 3} + Random(1) + Bytes{32, 1, 2}));
    tls.FeedClient(client.data(), client.size());
    tls.FeedServer(server.data(), server.size());
    EXPECT_EQ(tls.Outcome(), TlsOutcome::Malformed);
}

TEST_F(TlsConnectionTest, KeyExchangeWithoutAHelloIsMalformed) {
    Server(ServerSide());
    Client(TlsRecord(22, Message(16, KeyExchangeBody())));
    EXPECT_EQ(m_Tls.Outcome(), TlsOutcome::Malformed);
}

TEST_F(TlsConnectionTest, SuitesGoByTheirRegisteredNumbers) {
    const struct {
        uint16_t suite;
        KeyExchange expected;
    } cases[] = {
        {0x0000, KeyExchange::Unknown},     {0x0001, KeyExchange::Rsa},
        {0x0003, KeyExchange::RsaExport},   {0x000A, KeyExchange::Rsa},
        {0x000D, KeyExchange::Dh},          {0x0016, KeyExchange::Dhe},
        {0x0018, KeyExchange::DhAnonymous}, {0x001E, KeyExchange::Kerberos},
        {0x002F, KeyExchange::Rsa},         {0x0033, KeyExchange::Dhe},
        {0x0035, KeyExchange::Rsa},         {0x003D, KeyExchange::Rsa},
        {0x0041, KeyExchange::Rsa},         {0x0084, KeyExchange::Rsa},
        {0x008C, KeyExchange::Psk},         {0x0094, KeyExchange::RsaPsk},
        {0x0096, KeyExchange::Rsa},         {0x009C, KeyExchange::Rsa},
        {0x009D, KeyExchange::Rsa},         {0x009E, KeyExchange::Dhe},
        {0x00BA, KeyExchange::Rsa},         {0x00C0, KeyExchange::Rsa},
        {0x00FF, KeyExchange::Unknown},     {0x1302, KeyExchange::Tls13},
        {0x5600, KeyExchange::Unknown},     {0xC004, KeyExchange::Ecdh},
        {0xC013, KeyExchange::Ecdhe},       {0xC01E, KeyExchange::Srp},
        {0xC030, KeyExchange::Ecdhe},       {0xC035, KeyExchange::EcdhePsk},
        {0xC03C, KeyExchange::Rsa},         {0xC051, KeyExchange::Rsa},
        {0xC07A, KeyExchange::Rsa},         {0xC09C, KeyExchange::Rsa},
        {0xC0A0, KeyExchange::Rsa},         {0xC0AE, KeyExchange::Ecdhe},
        {0xCCA8, KeyExchange::Ecdhe},       {0xCCAA, KeyExchange::Dhe},
        {0xCCAE, KeyExchange::RsaPsk},      {0xFEFE, KeyExchange::Rsa},
        {0xFFFF, KeyExchange::Unknown},
    };
    for (const auto& one : cases)
        EXPECT_EQ(Kdi::KeyExchangeOf(one.suite), one.expected) << std::hex << one.suite;
}
