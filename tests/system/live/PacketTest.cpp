#include <net/if.h>
#include <sys/time.h>

#include "Live.h"

// What rules log comes as entries.
namespace LiveTest {

using LivePacketTest = Live;
using KdiTest::Line;
using KdiTest::Lines;
using KdiTest::ToLines;

static int64_t Now() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return int64_t{now.tv_sec} * 1000000 + now.tv_usec;
}

static std::string Hardware(const uint8_t* bytes) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2],
                  bytes[3], bytes[4], bytes[5]);
    return text;
}

TEST_F(LivePacketTest, DeniedPacketBecomesAnEntryWithAllItsFields) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    const int64_t before = Now();
    Send(Tcp(40000, 23, SYN));
    const Entries entries = handle.Take(1);
    const int64_t after = Now();
    ASSERT_EQ(entries.size(), 1u);
    const velm_log_entry_s& entry = entries[0];
    EXPECT_EQ(Line(entry), "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 40000 23");
    const int64_t first = int64_t{entry.log_first_sec} * 1000000 + entry.log_first_usec;
    EXPECT_GE(first, before);
    EXPECT_LE(first, after);
    EXPECT_EQ(entry.log_last_sec, entry.log_first_sec);
    EXPECT_EQ(entry.log_last_usec, entry.log_first_usec);
    EXPECT_EQ(entry.log_repeat_count, 1u);
    EXPECT_EQ(entry.log_packet_len, 40u);
    EXPECT_EQ(entry.log_if_index, if_nametoindex("wan"));
    ASSERT_EQ(entry.log_if_addr_len, 6u);
    EXPECT_EQ(Hardware(entry.log_if_addr), HOST_HW);
    ASSERT_TRUE(entry.log_flags & LOG_FLAG_ETH);
    EXPECT_EQ(Hardware(entry.log_eth.eth_dest), HOST_HW);
    EXPECT_EQ(Hardware(entry.log_eth.eth_src), PEER_HW);
    EXPECT_EQ(entry.log_eth.eth_type, htons(0x0800));
    EXPECT_EQ(entry.log_ip.v4.iph_vhl, 0x45);
    EXPECT_EQ(entry.log_ip.v4.iph_ttl, 64);
    EXPECT_EQ(entry.log_transport.tcp.tcph_seq, htonl(0x01020304));
    EXPECT_EQ(entry.log_transport.tcp.tcph_flags, SYN);
}

TEST_F(LivePacketTest, RulesetTellsWhyItDenies) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    Send(Tcp(1, 22, 0));
    Send(Tcp(2, 22, FIN | PSH | URG));
    Send(Tcp(3, 23, SYN | FIN | PSH | URG));
    Send(Tcp(4, 23, 0xFF));
    Send(Tcp(5, 22, ACK));
    Send(Tcp(6, 22, FIN));
    Send(Tcp(7, 22, SYN | ACK));
    Send(Tcp(8, 23, SYN | ACK));
    Send(Tcp(9, 23, RST));
    Send(Udp(10, 53));
    Send(KdiTest::Icmp(13, 0, {0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    const std::string ends = " 192.0.2.66 > 192.0.2.10";
    EXPECT_EQ(ToLines(handle.Take(11)),
              (Lines{"101 1 0 in fwd p6" + ends + " 1 22", "101 1 0 in fwd p6" + ends + " 2 22",
                     "101 1 0 in fwd p6" + ends + " 3 23", "101 1 0 in fwd p6" + ends + " 4 23",
                     "100 1 0 in fwd p6" + ends + " 5 22", "100 1 0 in fwd p6" + ends + " 6 22",
                     "100 1 0 in fwd p6" + ends + " 7 22", "0 1 1 in fwd p6" + ends + " 8 23",
                     "100 1 0 in fwd p6" + ends + " 9 23", "0 1 1 in fwd p17" + ends + " 10 53",
                     "0 1 1 in fwd p1" + ends}));
    EXPECT_EQ(handle.Statistics().foreign_prefixes, 0u);
    EXPECT_EQ(handle.Statistics().lost, 0u);
}

TEST_F(LivePacketTest, Ipv6PacketIsDeniedAndLogged) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    SendIpv6();
    const Entries entries = handle.Take(1);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(Line(entries[0]).find("0 1 1 in fwd p17 2001:db8:2::66 > 2001:db8:2::10 "), 0u)
        << Line(entries[0]);
    EXPECT_EQ(entries[0].log_packet_len, 49u);
    EXPECT_EQ(entries[0].log_eth.eth_type, htons(0x86DD));
}

TEST_F(LivePacketTest, SentPacketIsOutgoingAndHasNoHardwareHeader) {
    Shell(
        "nft 'table ip t { chain c { type filter hook output priority 0; "
        "udp dport 7 log prefix \"velm f=7 a=6 \" group 5; }; }'");
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    const Descriptor udp(socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(7);
    to.sin_addr.s_addr = inet_addr(PEER);
    ASSERT_EQ(sendto(udp.Get(), "x", 1, 0, reinterpret_cast<sockaddr*>(&to), sizeof to), 1);
    const Entries entries = handle.Take(1);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(Line(entries[0]).find("0 6 7 out fwd p17 192.0.2.10 > 192.0.2.66 "), 0u)
        << Line(entries[0]);
    EXPECT_FALSE(entries[0].log_flags & LOG_FLAG_ETH);
    EXPECT_EQ(entries[0].log_if_index, if_nametoindex("wan"));
    EXPECT_EQ(Hardware(entries[0].log_if_addr), HOST_HW);
}

TEST_F(LivePacketTest, PacketWithAnotherPrefixWasOnlyLogged) {
    Shell(
        "nft 'table ip t { chain c { type filter hook input priority 0; "
        "tcp dport 23 log prefix \"DROP \" group 5 drop; tcp dport 24 log group 5 drop; }; }'");
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    Send(Tcp(40000, 23, SYN));
    Send(Tcp(40000, 24, SYN));
    EXPECT_EQ(ToLines(handle.Take(2)), (Lines{"0 6 0 in fwd p6 192.0.2.66 > 192.0.2.10 40000 23",
                                              "0 6 0 in fwd p6 192.0.2.66 > 192.0.2.10 40000 24"}));
    EXPECT_EQ(handle.Statistics().foreign_prefixes, 2u);
}

TEST_F(LivePacketTest, OnlyOneProgramHasTheGroup) {
    LiveHandle first, second;
    EXPECT_NE(first.Get(), nullptr) << first.OpenError();
    EXPECT_EQ(second.Get(), nullptr);
    EXPECT_EQ(second.OpenError(),
              "cannot open source nflog:5: another program has the group: Device or resource busy");
}

TEST_F(LivePacketTest, GroupIsFreeAgainWhenItsHandleIsClosed) {
    { LiveHandle first; }
    LiveHandle second;
    EXPECT_NE(second.Get(), nullptr) << second.OpenError();
}

}  // namespace LiveTest
