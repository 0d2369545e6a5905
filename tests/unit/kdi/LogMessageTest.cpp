#include "LogMessage.h"

#include <gtest/gtest.h>

#include <map>

#include "NflogMessages.h"
#include "Replay.h"

using namespace KdiTest;
using Kdi::LoggedPacket;

namespace {

constexpr int64_t NOW = 1700000000000000;

// What a rule that logs an inbound SYN hands over; a test changes what it is about.
class LogMessageTest : public testing::Test {
protected:
    LogMessageTest() {
        m_Attributes[NFULA_PACKET_HDR] = {0x08, 0x00, 1, 0};
        m_Attributes[NFULA_PREFIX] = Text("velm f=1 a=1 r=0 ") + Bytes{0};
        m_Attributes[NFULA_IFINDEX_INDEV] = Big32(2);
        m_Attributes[NFULA_SEQ] = Big32(77);
        m_Attributes[NFULA_HWTYPE] = Big16(1);
        m_Attributes[NFULA_HWLEN] = Big16(14);
        m_Attributes[NFULA_HWHEADER] = KdiTest::HOST_HW + PEER_HW + Big16(0x0800);
        m_Attributes[NFULA_TIMESTAMP] = Big32(0) + Big32(1600000000) + Big32(0) + Big32(123456);
        m_Attributes[NFULA_PAYLOAD] = Ipv4("192.0.2.66", "192.0.2.10", Tcp(40000, 23, SYN));
    }
    bool Read() {
        Bytes content = {2, 0, 0, 5};
        for (const auto& [type, value] : m_Attributes)
            content = std::move(content) + Attribute(type, value);
        const LogMessageBytes message(content);
        return Kdi::ReadLogMessage(message.Get(), NOW, m_Packet, m_Sequence);
    }
    std::string ReadLine() {
        if (!Read()) return "unreadable";
        velm_log_entry_s entry;
        Kdi::FillEntry(m_Packet.record, nullptr, entry);
        return Line(entry);
    }

    std::map<uint16_t, Bytes> m_Attributes;
    LoggedPacket m_Packet;
    std::optional<uint32_t> m_Sequence;
};

TEST_F(LogMessageTest, InboundPacket) {
    EXPECT_EQ(ReadLine(), "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 40000 23");
    EXPECT_EQ(m_Packet.record.first, 1600000000123456);
    EXPECT_EQ(m_Packet.record.last, 1600000000123456);
    EXPECT_EQ(m_Packet.Device(), 2u);
    EXPECT_EQ(m_Sequence, 77u);
    EXPECT_FALSE(m_Packet.foreignPrefix);
    EXPECT_EQ(m_Packet.record.headers.packetLen, 40u);
    EXPECT_EQ(m_Packet.record.headers.flags,
              LOG_FLAG_FORWARD | LOG_FLAG_ETH | LOG_FLAG_IPV4 | LOG_FLAG_TRANSPORT);
}

TEST_F(LogMessageTest, PacketWithADeviceToGoOutByOnlyIsOutgoing) {
    m_Attributes.erase(NFULA_IFINDEX_INDEV);
    m_Attributes[NFULA_IFINDEX_OUTDEV] = Big32(3);
    EXPECT_EQ(ReadLine(), "0 1 1 out fwd p6 192.0.2.66 > 192.0.2.10 40000 23");
    EXPECT_EQ(m_Packet.Device(), 3u);
}

TEST_F(LogMessageTest, ForwardedPacketIsIncomingByTheDeviceThatItCameInBy) {
    m_Attributes[NFULA_IFINDEX_OUTDEV] = Big32(3);
    EXPECT_EQ(ReadLine(), "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 40000 23");
    EXPECT_EQ(m_Packet.Device(), 2u);
}

TEST_F(LogMessageTest, TimeOfReadingStandsInForAMissingOrBrokenStamp) {
    for (const Bytes& stamp : {Bytes(), Big32(0), Big32(1) + Big32(0) + Big32(0) + Big32(0),
                               Big32(0) + Big32(1) + Big32(0) + Big32(1000000)}) {
        m_Attributes[NFULA_TIMESTAMP] = stamp;
        EXPECT_TRUE(Read());
        EXPECT_EQ(m_Packet.record.first, NOW);
    }
    m_Attributes.erase(NFULA_TIMESTAMP);
    EXPECT_TRUE(Read());
    EXPECT_EQ(m_Packet.record.first, NOW);
}

TEST_F(LogMessageTest, PacketThatTheRuleCutHasItsWholeLength) {
    Bytes& payload = m_Attributes[NFULA_PAYLOAD];
    payload[2] = 5;  // 1320 bytes
    EXPECT_TRUE(Read());
    EXPECT_EQ(m_Packet.record.headers.packetLen, 1320u);
    payload.resize(30);
    EXPECT_EQ(ReadLine(), "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10");
    EXPECT_EQ(m_Packet.record.headers.packetLen, 1320u);
}

TEST_F(LogMessageTest, Ipv6PacketThatTheRuleCutHasItsWholeLength) {
    m_Attributes[NFULA_PACKET_HDR] = {0x86, 0xDD, 1, 0};
    Bytes packet = Ipv6("2001:db8::66", "2001:db8::10", Tcp(1, 2, SYN));
    packet[4] = 1;  // 276 bytes behind the header
    m_Attributes[NFULA_PAYLOAD] = packet;
    EXPECT_EQ(ReadLine(), "0 1 1 in fwd p6 2001:db8::66 > 2001:db8::10 1 2");
    EXPECT_EQ(m_Packet.record.headers.packetLen, 316u);
}

TEST_F(LogMessageTest, OtherPrefixMakesAPacketThatWasOnlyLogged) {
    m_Attributes[NFULA_PREFIX] = Text("DROP ") + Bytes{0};
    EXPECT_EQ(ReadLine(), "0 6 0 in fwd p6 192.0.2.66 > 192.0.2.10 40000 23");
    EXPECT_TRUE(m_Packet.foreignPrefix);
    m_Attributes.erase(NFULA_PREFIX);
    EXPECT_EQ(ReadLine(), "0 6 0 in fwd p6 192.0.2.66 > 192.0.2.10 40000 23");
    EXPECT_TRUE(m_Packet.foreignPrefix);
}

TEST_F(LogMessageTest, PrefixNeedsNoTerminator) {
    m_Attributes[NFULA_PREFIX] = Text("velm f=3 a=1 r=12");
    EXPECT_EQ(ReadLine(), "12 1 3 in fwd p6 192.0.2.66 > 192.0.2.10 40000 23");
}

TEST_F(LogMessageTest, HardwareHeaderOfAnotherKindOfDeviceIsLeftOut) {
    m_Attributes[NFULA_HWTYPE] = Big16(512);  // point to point
    EXPECT_TRUE(Read());
    EXPECT_FALSE(m_Packet.record.headers.flags & LOG_FLAG_ETH);
    m_Attributes[NFULA_HWTYPE] = Big16(1);
    m_Attributes[NFULA_HWHEADER].resize(13);
    EXPECT_TRUE(Read());
    EXPECT_FALSE(m_Packet.record.headers.flags & LOG_FLAG_ETH);
}

TEST_F(LogMessageTest, PacketThatIsNotIpIsUnreadableAndItsNumberCounts) {
    m_Attributes[NFULA_PACKET_HDR] = {0x08, 0x06, 1, 0};
    EXPECT_FALSE(Read());
    EXPECT_EQ(m_Sequence, 77u);
    m_Attributes.erase(NFULA_PACKET_HDR);
    EXPECT_FALSE(Read());
}

TEST_F(LogMessageTest, PacketWhoseVersionIsNotItsTypesIsUnreadable) {
    m_Attributes[NFULA_PACKET_HDR] = {0x86, 0xDD, 1, 0};
    EXPECT_FALSE(Read());
}

TEST_F(LogMessageTest, MessageCutAnywhereIsReadWithinItsBounds) {
    Bytes content = {2, 0, 0, 5};
    size_t sequenceEnd = 0;
    for (const auto& [type, value] : m_Attributes) {
        content = std::move(content) + Attribute(type, value);
        if (type == NFULA_SEQ) sequenceEnd = content.size();
    }
    for (size_t length = 0; length < content.size(); ++length) {
        const LogMessageBytes message(
            Bytes(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(length)));
        Kdi::ReadLogMessage(message.Get(), NOW, m_Packet, m_Sequence);
        EXPECT_EQ(m_Sequence.has_value(), length >= sequenceEnd && length % 4 == 0) << length;
    }
}

// Recorded from the kernel; counted with other tools.
class RecordedMessages : public testing::Test {
protected:
    void ReadCapture(const std::string& name) {
        for (const Bytes& content : ReadNflogCapture(KDI_TEST_CAPTURES "/nflog/" + name)) {
            const LogMessageBytes message(content);
            LoggedPacket packet;
            std::optional<uint32_t> sequence;
            ASSERT_TRUE(Kdi::ReadLogMessage(message.Get(), NOW, packet, sequence));
            velm_log_entry_s entry;
            Kdi::FillEntry(packet.record, nullptr, entry);
            m_Entries.push_back(entry);
        }
    }
    size_t CountFlags(uint8_t flags) const {
        return Count([&](const velm_log_entry_s& entry) {
            return Protocol(entry) == 6 && entry.log_transport.tcp.tcph_flags == flags;
        });
    }
    size_t CountProtocol(uint8_t protocol) const {
        return Count([&](const velm_log_entry_s& entry) { return Protocol(entry) == protocol; });
    }
    template <typename Condition>
    size_t Count(Condition condition) const {
        return static_cast<size_t>(std::count_if(m_Entries.begin(), m_Entries.end(), condition));
    }

    std::vector<velm_log_entry_s> m_Entries;

private:
    static uint8_t Protocol(const velm_log_entry_s& entry) {
        return entry.log_flags & LOG_FLAG_IPV4 ? entry.log_ip.v4.iph_proto
                                               : entry.log_ip.v6.ipv6h_next;
    }
};

TEST_F(RecordedMessages, SynScanAtAnInputChain) {
    ReadCapture("nmap-sS-100-drop.pcap");
    ASSERT_EQ(m_Entries.size(), 197u);
    EXPECT_EQ(CountFlags(SYN), 197u);
    const velm_log_entry_s& first = m_Entries[0];
    EXPECT_EQ(Line(first), "0 6 0 in fwd p6 192.0.2.66 > 192.0.2.10 45174 111");
    EXPECT_EQ(first.log_first_sec, 1795198713u);
    EXPECT_EQ(first.log_first_usec, 921494u);
    EXPECT_EQ(first.log_packet_len, 44u);
    const Bytes ethernet = {0x02, 0, 0xC0, 0, 0x02, 0x0A, 0x02, 0, 0xC0, 0, 0x02, 0x42, 8, 0};
    EXPECT_EQ(std::memcmp(&first.log_eth, ethernet.data(), ethernet.size()), 0);
}

TEST_F(RecordedMessages, FingerprintingAtAnInputChain) {
    ReadCapture("nmap-O-drop.pcap");
    ASSERT_EQ(m_Entries.size(), 43u);
    EXPECT_EQ(CountProtocol(6), 31u);
    EXPECT_EQ(CountProtocol(1), 8u);
    EXPECT_EQ(CountProtocol(17), 4u);
    EXPECT_EQ(CountFlags(SYN), 13u);
    EXPECT_EQ(CountFlags(0x2B), 4u);
    EXPECT_EQ(CountFlags(0x29), 4u);
    EXPECT_EQ(CountFlags(0xC2), 1u);
    EXPECT_EQ(CountFlags(ACK), 5u);
    EXPECT_EQ(CountFlags(0), 4u);
}

TEST_F(RecordedMessages, Ipv6XmasScanAtAPreroutingChain) {
    ReadCapture("nmap6-sX-100-raw.pcap");
    ASSERT_EQ(m_Entries.size(), 105u);
    EXPECT_EQ(CountFlags(0x29), 104u);
    EXPECT_EQ(CountProtocol(58), 1u);
    EXPECT_EQ(m_Entries[0].log_packet_len, 72u);
    EXPECT_EQ(AddressText(m_Entries[0], true), "2001:db8:2::66");
    EXPECT_EQ(m_Entries[0].log_eth.eth_type, htons(0x86DD));
}

TEST_F(RecordedMessages, UdpScanAtANetdevChain) {
    ReadCapture("nmap-sU-30-ingress.pcap");
    ASSERT_EQ(m_Entries.size(), 30u);
    EXPECT_EQ(CountProtocol(17), 30u);
    EXPECT_EQ(Line(m_Entries[0]), "0 6 0 in fwd p17 192.0.2.66 > 192.0.2.10 56156 1028");
    EXPECT_EQ(m_Entries[0].log_packet_len, 100u);
    EXPECT_EQ(
        Count([](const velm_log_entry_s& entry) { return (entry.log_flags & LOG_FLAG_ETH) != 0; }),
        30u);
}

TEST_F(RecordedMessages, CraftedPacketsAtAPreroutingChain) {
    ReadCapture("hping-each-raw.pcap");
    ASSERT_EQ(m_Entries.size(), 8u);
    EXPECT_EQ(CountFlags(0x2B), 1u);
    EXPECT_EQ(CountFlags(0xFF), 1u);
    EXPECT_EQ(CountFlags(0x29), 1u);
    EXPECT_EQ(CountFlags(SYN | FIN), 1u);
    EXPECT_EQ(CountFlags(0), 2u);
    EXPECT_EQ(CountProtocol(58), 2u);
}

}  // namespace
