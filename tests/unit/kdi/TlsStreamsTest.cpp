#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "TlsBuilder.h"
#include "TlsStreams.h"
#include "kdi/log_entry.h"

using namespace KdiTest;
using Kdi::TlsCounts;
using Kdi::TlsStreams;

namespace {

constexpr int64_t START = 1700000000000000;
constexpr uint32_t CLIENT_ISN = 0xFFFFFFF0;  // wraps within the handshake
constexpr uint32_t SERVER_ISN = 5000;

struct Taken {
    Bytes encrypted;
    int32_t hostConfiguration;
    Kdi::TlsStreamKey key;
};

Kdi::Endpoint Endpoint(const std::string& address, uint16_t port) {
    const Bytes bytes = Ip(address);
    return Kdi::MakeEndpoint(bytes.size() == 4 ? 4 : 6, bytes.data(), port);
}

class TlsStreamsTest : public testing::Test {
protected:
    TlsStreamsTest() { m_Streams.AddServer(Endpoint("198.51.100.10", 443), 7); }

    void Segment(const std::string& source, uint16_t sourcePort, const std::string& destination,
                 uint16_t destinationPort, uint32_t sequence, uint32_t acknowledged, uint8_t flags,
                 const Bytes& data) {
        const Bytes tcp = Big16(sourcePort) + Big16(destinationPort) + Big32(sequence) +
                          Big32(acknowledged) + Bytes{0x50, flags} + Big16(1024) + Big16(0) +
                          Big16(0) + data;
        const Bytes frame = Ethernet(HOST_HW, PEER_HW, IpPacket(source, destination, {6, tcp}));
        const auto size = static_cast<uint32_t>(frame.size());
        m_Streams.Process(Kdi::ParseFrame(Kdi::LinkType::Ethernet, frame.data(), size, size),
                          m_Time);
    }
    // Of the connection that is under test; `offset` from the first byte of data.
    void Client(size_t offset, const Bytes& data, uint8_t flags = TCP_FLAG_ACK) {
        Segment(m_ClientAddress, m_Port, m_ServerAddress, 443,
                CLIENT_ISN + 1 + static_cast<uint32_t>(offset), SERVER_ISN + 1, flags, data);
    }
    void Server(size_t offset, const Bytes& data, uint8_t flags = TCP_FLAG_ACK) {
        Segment(m_ServerAddress, 443, m_ClientAddress, m_Port,
                SERVER_ISN + 1 + static_cast<uint32_t>(offset), CLIENT_ISN + 1, flags, data);
    }
    void Syn(uint32_t sequence = CLIENT_ISN) {
        Segment(m_ClientAddress, m_Port, m_ServerAddress, 443, sequence, 0, TCP_FLAG_SYN, {});
    }
    void SynAck() {
        Segment(m_ServerAddress, 443, m_ClientAddress, m_Port, SERVER_ISN, CLIENT_ISN + 1,
                TCP_FLAG_SYN | TCP_FLAG_ACK, {});
    }
    void ExpectOneSecret(const Bytes& encrypted = KeyExchangeBody()) {
        ASSERT_EQ(m_Taken.size(), 1u);
        EXPECT_EQ(m_Taken[0].encrypted, encrypted);
        EXPECT_EQ(m_Taken[0].hostConfiguration, 7);
        EXPECT_EQ(Counts().rsa, 1u);
        EXPECT_EQ(Counts().handshakes, 1u);
    }
    const TlsCounts& Counts() const { return m_Streams.Counts(); }

    std::string m_ClientAddress = "198.51.100.66", m_ServerAddress = "198.51.100.10";
    uint16_t m_Port = 40000;
    int64_t m_Time = START;
    std::vector<Taken> m_Taken;
    TlsStreams m_Streams{
        [this](const Kdi::TlsSecret& secret, const Kdi::TlsStreamKey& key, int32_t id) {
            m_Taken.push_back({secret.encrypted, id, key});
        }};
};

Bytes Part(const Bytes& bytes, size_t begin, size_t end) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                 bytes.begin() + static_cast<std::ptrdiff_t>(std::min(end, bytes.size())));
}

}  // namespace

TEST_F(TlsStreamsTest, HandshakeInOrderGivesItsSecret) {
    Syn();
    SynAck();
    Client(0, ClientSide());
    Server(0, ServerSide());
    ExpectOneSecret();
    EXPECT_EQ(m_Taken[0].key.client, Endpoint("198.51.100.66", 40000));
    EXPECT_EQ(m_Taken[0].key.server, Endpoint("198.51.100.10", 443));
    EXPECT_EQ(Counts().connections, 1u);
    EXPECT_EQ(Counts().packets, 4u);
}

TEST_F(TlsStreamsTest, Ipv6IsTheSame) {
    m_ClientAddress = "2001:db8::66", m_ServerAddress = "2001:db8::10";
    m_Streams.AddServer(Endpoint(m_ServerAddress, 443), 7);
    Syn();
    Client(0, ClientSide());
    Server(0, ServerSide());
    ExpectOneSecret();
}

TEST_F(TlsStreamsTest, SegmentsInReverseOrderAreSorted) {
    const Bytes client = ClientSide(), server = ServerSide();
    Syn();
    SynAck();
    for (size_t end = client.size() / 10 * 10 + 10; end > 0; end -= 10)
        Client(end - 10, Part(client, end - 10, end));
    for (size_t end = server.size() / 100 * 100 + 100; end > 0; end -= 100)
        Server(end - 100, Part(server, end - 100, end));
    ExpectOneSecret();
    EXPECT_EQ(Counts().gaps, 0u);
}

TEST_F(TlsStreamsTest, RepeatedAndOverlappingSegmentsCountOnce) {
    const Bytes client = ClientSide();
    Syn();
    Syn();
    SynAck();
    SynAck();
    for (size_t begin = 0; begin < client.size(); begin += 20) {
        Client(begin, Part(client, begin, begin + 40));
        Client(begin, Part(client, begin, begin + 20));
        Client(begin / 2, Part(client, begin / 2, begin / 2 + 10));
    }
    Server(0, ServerSide());
    Server(0, ServerSide());
    ExpectOneSecret();
}

TEST_F(TlsStreamsTest, ServersSegmentsMayComeFirst) {
    Syn();
    Server(0, ServerSide());  // its beginning is not known yet
    SynAck();
    Server(0, ServerSide());
    Client(0, ClientSide());
    ExpectOneSecret();
}

TEST_F(TlsStreamsTest, ConnectionWithoutASynIsFollowedFromItsHello) {
    const Bytes client = ClientSide(), hello = TlsRecord(22, ClientHello(), 1);
    Client(0, hello);
    Server(0, ServerSide());
    Client(hello.size(), Part(client, hello.size(), client.size()));
    ExpectOneSecret();
}

TEST_F(TlsStreamsTest, MiddleOfAConnectionIsLeftAlone) {
    Client(0, TlsRecord(23, Bytes(100, 1)));
    Client(105, TlsRecord(22, Bytes{1} + Bytes(99, 1)));
    Server(0, ServerSide());
    m_Streams.Finish();
    EXPECT_EQ(Counts().connections, 0u);
    EXPECT_EQ(Counts().notTls + Counts().malformed + Counts().handshakes, 0u);
}

TEST_F(TlsStreamsTest, OtherServersAndPortsAreLeftAlone) {
    m_ServerAddress = "198.51.100.11";
    Syn();
    Client(0, ClientSide());
    Server(0, ServerSide());
    EXPECT_EQ(Counts().packets, 0u);
    EXPECT_TRUE(m_Taken.empty());
}

TEST_F(TlsStreamsTest, ServerMayBeAClientOfAnotherServer) {
    m_Streams.AddServer(Endpoint("198.51.100.66", 443), 8);
    m_Port = 443;
    Syn();
    SynAck();
    Client(0, ClientSide());
    Server(0, ServerSide());
    ExpectOneSecret();
}

TEST_F(TlsStreamsTest, PortsThatAreUsedAgainBeginAnotherConnection) {
    Syn();
    SynAck();
    Client(0, ClientSide());
    Server(0, ServerSide());
    ExpectOneSecret();
    m_Time += 1000000;
    Syn(77);
    const Bytes client = ClientSide(KeyExchangeBody(Encrypted(256)));
    Segment(m_ClientAddress, m_Port, m_ServerAddress, 443, 78, 9001, TCP_FLAG_ACK, client);
    Segment(m_ServerAddress, 443, m_ClientAddress, m_Port, 9001, 78, TCP_FLAG_ACK, ServerSide());
    ASSERT_EQ(m_Taken.size(), 2u);
    EXPECT_EQ(m_Taken[1].encrypted, KeyExchangeBody(Encrypted(256)));
    EXPECT_EQ(Counts().connections, 2u);
}

TEST_F(TlsStreamsTest, ResetAndFinDoNotLoseWhatComesBehindThem) {
    const Bytes client = ClientSide();
    Syn();
    SynAck();
    Client(0, Part(client, 0, 60));
    Client(60, {}, TCP_FLAG_RST);
    Client(client.size(), {}, TCP_FLAG_FIN | TCP_FLAG_ACK);
    Client(60, Part(client, 60, client.size()));
    Server(0, ServerSide());
    ExpectOneSecret();
}

TEST_F(TlsStreamsTest, MissingSegmentsMakeAHandshakeIncomplete) {
    const Bytes client = ClientSide();
    Syn();
    SynAck();
    Client(0, Part(client, 0, 70));
    Client(80, Part(client, 80, client.size()));
    Server(0, ServerSide());
    EXPECT_EQ(Counts().incomplete, 0u);
    m_Streams.Finish();
    EXPECT_EQ(Counts().handshakes, 1u);
    EXPECT_EQ(Counts().incomplete, 1u);
    EXPECT_TRUE(m_Taken.empty());
}

TEST_F(TlsStreamsTest, TooMuchBehindAGapEndsTheConnection) {
    Syn();
    Client(0, TlsRecord(22, ClientHello()));
    for (size_t i = 0; i < 70; ++i)
        Client(1000 + i * 1000, Bytes(1000, 1));
    EXPECT_EQ(Counts().gaps, 1u);
    EXPECT_EQ(Counts().incomplete, 1u);
}

TEST_F(TlsStreamsTest, ManyTinySegmentsBehindAGapEndTheConnection) {
    Syn();
    Client(0, TlsRecord(22, ClientHello()));
    for (size_t i = 0; i < 300; ++i)
        Client(1000 + i * 2, Bytes(1, 1));
    EXPECT_EQ(Counts().gaps, 1u);
}

TEST_F(TlsStreamsTest, SegmentFarOutsideTheWindowIsIgnored) {
    Syn();
    SynAck();
    Client(5u << 20, Bytes(1000, 1));
    Client(0, ClientSide());
    Server(0, ServerSide());
    ExpectOneSecret();
}

TEST_F(TlsStreamsTest, OneDirectionAloneIsIncomplete) {
    Syn();
    Client(0, ClientSide());
    m_Streams.Finish();
    EXPECT_EQ(Counts().incomplete, 1u);
    EXPECT_TRUE(m_Taken.empty());
}

TEST_F(TlsStreamsTest, SilentConnectionEnds) {
    Syn();
    SynAck();
    Client(0, TlsRecord(22, ClientHello()));
    m_Time += TlsStreams::MAX_IDLE_USEC + 1;
    m_Port = 40001;
    Syn();
    EXPECT_EQ(Counts().incomplete, 1u);
}

TEST_F(TlsStreamsTest, FloodOfSynsPushesOutNoConnection) {
    Syn();
    SynAck();
    Client(0, TlsRecord(22, ClientHello(), 1));
    const uint16_t port = m_Port;
    for (m_Port = 1; m_Port < 10000; ++m_Port)
        Syn();
    m_Port = port;
    const Bytes client = ClientSide();
    const size_t begin = TlsRecord(22, ClientHello(), 1).size();
    Client(begin, Part(client, begin, client.size()));
    Server(0, ServerSide());
    ExpectOneSecret();
    EXPECT_EQ(Counts().evicted, 0u);
    EXPECT_EQ(Counts().connections, 1u);
}

TEST_F(TlsStreamsTest, OfTooManyConnectionsWithoutDataTheOldestAreForgotten) {
    const Bytes client = ClientSide();
    for (uint32_t i = 0; i <= TlsStreams::MAX_EMBRYOS; ++i) {
        m_Port = static_cast<uint16_t>(1000 + i);
        Syn();
    }
    m_Port = 1000;
    Client(0, Part(client, 0, 3));  // too little to be recognised without the SYN
    EXPECT_EQ(Counts().connections, 0u);
    m_Port = 1001;
    Client(0, Part(client, 0, 3));
    EXPECT_EQ(Counts().connections, 1u);
}

TEST_F(TlsStreamsTest, OfTooManyConnectionsTheMostSilentOnesGiveWay) {
    for (uint32_t i = 0; i <= TlsStreams::MAX_STREAMS; ++i) {
        m_Port = static_cast<uint16_t>(1000 + i);
        Syn();
        Client(0, TlsRecord(22, ClientHello()));
    }
    EXPECT_EQ(Counts().evicted, 1u);
    EXPECT_EQ(Counts().incomplete, 1u);
    SynAck();
    Client(TlsRecord(22, ClientHello()).size(), TlsRecord(22, Message(16, KeyExchangeBody())));
    Server(0, ServerSide());
    EXPECT_EQ(m_Taken.size(), 1u);
}

TEST_F(TlsStreamsTest, WhatWaitsForGapsIsBoundedInAll) {
    const size_t each = 60000;
    const size_t count = TlsStreams::MAX_HELD / each + 10;
    for (size_t i = 0; i < count; ++i) {
        m_Port = static_cast<uint16_t>(1000 + i);
        Syn();
        for (size_t part = 0; part < 4; ++part)
            Client(1 + part * (each / 4), Bytes(each / 4, 1));
    }
    EXPECT_GE(Counts().evicted, 10u);
    EXPECT_LE(Counts().evicted, 20u);  // a segment takes more than its bytes
}

TEST_F(TlsStreamsTest, SmallSegmentsCountWithTheMemoryThatTheyTake) {
    const size_t segments = 100, each = 640;
    const uint16_t count = 450;
    ASSERT_LT(count * segments * each, TlsStreams::MAX_HELD);
    for (m_Port = 1000; m_Port < 1000 + count; ++m_Port) {
        Syn();
        for (size_t i = 0; i < segments; ++i)
            Client(1 + i * each, Bytes(each, 1));
    }
    EXPECT_EQ(Counts().gaps, 0u);
    EXPECT_GE(Counts().evicted, 10u);
    EXPECT_LE(Counts().evicted, 20u);
}

TEST_F(TlsStreamsTest, WhatServersSendBeforeTheirClientsPushesOutNoLivelyConnection) {
    Syn();
    SynAck();
    Client(0, TlsRecord(22, ClientHello(), 1));
    const uint16_t port = m_Port;
    const Bytes client = ClientSide();
    size_t at = TlsRecord(22, ClientHello(), 1).size();
    const size_t each = 60000;
    const size_t count = TlsStreams::MAX_HELD / each + 10;
    for (size_t i = 0; i < count; ++i) {
        m_Port = static_cast<uint16_t>(1000 + i);
        Syn();
        SynAck();
        for (size_t part = 0; part < 4; ++part)
            Server(1 + part * (each / 4), Bytes(each / 4, 1));
        if (i % 10 != 0) continue;
        m_Port = port;
        Client(at, Part(client, at, at + 1));
        ++at;
    }
    EXPECT_GE(Counts().evicted, 10u);
    EXPECT_LE(Counts().evicted, 20u);  // a segment takes more than its bytes
    EXPECT_EQ(Counts().connections, 1u);
    m_Port = port;
    Client(at, Part(client, at, client.size()));
    Server(0, ServerSide());
    ExpectOneSecret();
}

TEST_F(TlsStreamsTest, FragmentsAreCounted) {
    const Payload tcp = Tcp(40000, 443, TCP_FLAG_ACK);
    const Bytes frame =
        Ethernet(HOST_HW, PEER_HW, Ipv4("198.51.100.66", "198.51.100.10", tcp, {0, true, 7}));
    const auto size = static_cast<uint32_t>(frame.size());
    m_Streams.Process(Kdi::ParseFrame(Kdi::LinkType::Ethernet, frame.data(), size, size), START);
    EXPECT_EQ(Counts().fragments, 1u);
}

TEST_F(TlsStreamsTest, OutcomesAreCountedByTheirKind) {
    Syn();
    Client(0, ClientSide(Bytes{65} + Bytes(65, 4)));
    Server(0, ServerSide(SUITE_ECDHE));
    ++m_Port;
    Syn();
    Client(0, TlsRecord(22, ClientHello()) + ChangeCipherSpec());
    Server(0, TlsRecord(22, ServerHello(SUITE_RSA)));
    ++m_Port;
    Syn();
    Client(0, Bytes(10, 'x'));
    ++m_Port;
    Syn();
    Client(0, ClientSide() + TlsRecord(20, Bytes(40, 1)));
    Server(0, ServerSide());
    m_Streams.Finish();
    EXPECT_EQ(Counts().connections, 4u);
    EXPECT_EQ(Counts().handshakes, 3u);
    EXPECT_EQ(Counts().other[static_cast<size_t>(Kdi::KeyExchange::Ecdhe)], 1u);
    EXPECT_EQ(Counts().resumed, 1u);
    EXPECT_EQ(Counts().notTls, 1u);
    EXPECT_EQ(Counts().rsa, 1u);
    EXPECT_EQ(Counts().renegotiations, 1u);
    EXPECT_EQ(Counts().incomplete, 0u);
}
