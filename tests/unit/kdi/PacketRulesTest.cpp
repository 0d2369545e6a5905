#include <cstring>

#include "Replay.h"

using namespace KdiTest;

namespace {

using PacketRulesTest = HostTest;

const Bytes ECHO_ID = {0x12, 0x34, 0, 1};
const char* const DENIED_ICMP = "0 1 1 in fwd p1 192.0.2.66 > 192.0.2.10";
const char* const LATER_FRAGMENT = "108 1 0 in fwd p6 192.0.2.66 > 192.0.2.10";
const char* const CLOSED_23 = "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4000 23";

}  // namespace

TEST_F(PacketRulesTest, EntryHasTheFieldsOfItsPacket) {
    m_Now = START + 123456;
    In(Tcp(4000, 23, SYN));
    const auto entries = Entries();
    ASSERT_EQ(entries.size(), 1u);
    const velm_log_entry_s& entry = entries[0];
    EXPECT_EQ(entry.log_first_sec, 1700000000u);
    EXPECT_EQ(entry.log_first_usec, 123456u);
    EXPECT_EQ(entry.log_last_sec, 1700000000u);
    EXPECT_EQ(entry.log_last_usec, 123456u);
    EXPECT_EQ(entry.log_repeat_count, 1u);
    EXPECT_EQ(entry.log_action, 1);
    EXPECT_EQ(entry.log_if_index, 0u);
    EXPECT_EQ(entry.log_if_addr_len, 6u);
    const uint8_t hardware[8] = {2, 0, 0, 0, 0, 0x0A, 0, 0};
    EXPECT_EQ(std::memcmp(entry.log_if_addr, hardware, 8), 0);
    EXPECT_EQ(entry.log_packet_len, 40u);
    EXPECT_EQ(entry.log_packet_data_len, 0u);
    EXPECT_EQ(entry.log_data_len, 0u);
    EXPECT_EQ(entry.log_dpi_flags, 0u);
    EXPECT_EQ(entry.log_flags, 0x5A);  // forward, Ethernet, IPv4, transport
}

TEST_F(PacketRulesTest, HeadersAreCopiedAsOnTheWire) {
    In(Tcp(4000, 23, SYN));
    const auto entries = Entries();
    ASSERT_EQ(entries.size(), 1u);
    const uint8_t wire[] = {2,   0, 0,  0,  0, 0x0A, 2,    0,  0, 0,    0,    0x42, 8,  0, 0x45,
                            0,   0, 40, 0,  7, 0,    0,    64, 6, 0,    0,    192,  0,  2, 66,
                            192, 0, 2,  10, 0, 0,    0,    0,  0, 0,    0,    0,    0,  0, 0,
                            0,   0, 0,  0,  0, 0,    0,    0,  0, 0x0F, 0xA0, 0,    23, 1, 2,
                            3,   4, 5,  6,  7, 8,    0x50, 2,  4, 0,    0xAB, 0xCD, 0,  0};
    ASSERT_EQ(sizeof wire, 74u);
    EXPECT_EQ(std::memcmp(&entries[0].log_eth, wire, sizeof wire), 0);
}

TEST_F(PacketRulesTest, WhatTheCaptureCutOffIsZero) {
    Put(Ethernet(HOST_HW, PEER_HW, Ipv4("192.0.2.66", "192.0.2.10", Tcp(4000, 23, SYN))),
        14 + 20 + 14);
    const auto entries = Entries();
    ASSERT_EQ(ToLines(entries), Lines{CLOSED_23});
    EXPECT_EQ(entries[0].log_transport.tcp.tcph_flags, SYN);
    const uint8_t zeros[6] = {};
    EXPECT_EQ(std::memcmp(entries[0].log_transport.tcp.rest, zeros, 6), 0);
    EXPECT_EQ(entries[0].log_packet_len, 40u);
}

TEST_F(PacketRulesTest, WithoutItsFlagsByteATcpHeaderIsNotShown) {
    Put(Ethernet(HOST_HW, PEER_HW, Ipv4("192.0.2.66", "192.0.2.10", Tcp(4000, 23, SYN))),
        14 + 20 + 13);
    const auto entries = Entries();
    ASSERT_EQ(ToLines(entries), Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10"});
    const uint8_t zeros[20] = {};
    EXPECT_EQ(std::memcmp(&entries[0].log_transport, zeros, 20), 0);
}

TEST_F(PacketRulesTest, PaddingOfTheLinkIsNoTransportHeader) {
    Bytes ip = Ipv4("192.0.2.66", "192.0.2.10", {6, {}});
    Put(Ethernet(HOST_HW, PEER_HW, ip + Bytes(26, 0xEE)));
    const auto entries = Entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].log_flags & LOG_FLAG_TRANSPORT, 0);
    EXPECT_EQ(entries[0].log_packet_len, 46u);
}

TEST_F(PacketRulesTest, VlanTagsAreSkippedAndTheInnerTypeIsShown) {
    const Bytes ip = Ipv4("192.0.2.66", "192.0.2.10", Tcp(4000, 23, SYN));
    Put(HOST_HW + PEER_HW + Big16(0x88A8) + Big16(5) + Big16(0x8100) + Big16(6) + Big16(0x0800) +
        ip);
    const auto entries = Entries();
    ASSERT_EQ(ToLines(entries), Lines{CLOSED_23});
    EXPECT_EQ(entries[0].log_eth.eth_type, htons(0x0800));
    EXPECT_EQ(entries[0].log_packet_len, 40u);
}

TEST_F(PacketRulesTest, FramesThatAreNotIpGiveNoEntryButCount) {
    Put(ALL_HW + PEER_HW + Big16(0x0806) + Bytes(28, 0));
    Put(HOST_HW + PEER_HW + Big16(0x0026) + Bytes(38, 0));
    Put(HOST_HW + PEER_HW + Big16(0x0800) + Bytes{0x65} + Bytes(40, 0));
    Put(Bytes{1, 2, 3});
    Handle handle("pcap:" + m_Capture.Write());
    EXPECT_TRUE(handle.All().empty());
    EXPECT_EQ(handle.Last(), KDI_END);
    EXPECT_EQ(handle.Statistics().packets, 4u);
    EXPECT_EQ(handle.Statistics().entries, 0u);
}

TEST_F(PacketRulesTest, PacketsOfOthersAndWithinTheHostGiveNoEntry) {
    Put(Ethernet(HOST_HW, PEER_HW, Ipv4("192.0.2.66", "192.0.2.99", Tcp(4000, 23, SYN))));
    Put(Ethernet(HOST_HW, HOST_HW, Ipv4("192.0.2.10", "192.0.2.10", Tcp(4000, 23, SYN))));
    EXPECT_EQ(Logged(), Lines{});
}

TEST_F(PacketRulesTest, BroadcastAndMulticastOfOthersAreInbound) {
    Put(Ethernet(ALL_HW, PEER_HW, Ipv4("192.0.2.66", "192.0.2.255", Udp(137, 137))));
    Put(Ethernet(HOST_HW, PEER_HW, Ipv4("192.0.2.66", "224.0.0.251", Udp(5353, 5353))));
    Put(Ethernet({0x33, 0x33, 0, 0, 0, 0xFB}, PEER_HW,
                 Ipv6("2001:db8::66", "ff02::fb", Udp(5353, 5353))));
    EXPECT_EQ(Logged(), (Lines{"0 1 1 in fwd p17 192.0.2.66 > 192.0.2.255 137 137",
                               "0 1 1 in fwd p17 192.0.2.66 > 224.0.0.251 5353 5353",
                               "0 1 1 in fwd p17 2001:db8::66 > ff02::fb 5353 5353"}));
}

TEST_F(PacketRulesTest, HostWithoutAnAddressYetIsToldByItsInterface) {
    Put(Ethernet(PEER_HW, HOST_HW, Ipv4("192.0.2.10", "192.0.2.66", Udp(1, 2))));
    Put(Ethernet(ALL_HW, HOST_HW, Ipv4("0.0.0.0", "255.255.255.255", Udp(68, 67))));
    Put(Ethernet(ALL_HW, PEER_HW, Ipv4("0.0.0.0", "255.255.255.255", Udp(68, 67))));
    EXPECT_EQ(Logged().front(), "10001 0 0 out fwd p17 192.0.2.10 > 192.0.2.66 1 2");
    EXPECT_EQ(Logged().size(), 2u);  // both outbound; the third has the tuple of the second
}

TEST_F(PacketRulesTest, EchoThatIsAnsweredIsAccepted) {
    In(Icmp(8, 0, ECHO_ID));
    Out(Icmp(0, 0, ECHO_ID));
    EXPECT_EQ(Logged(), Lines{});
    EXPECT_EQ(Logged("icmp"), Lines{});
    EXPECT_EQ(Logged("tcp/80"), Lines{DENIED_ICMP});
}

TEST_F(PacketRulesTest, EchoThatIsNotAnsweredIsDenied) {
    In(Icmp(8, 0, ECHO_ID));
    EXPECT_EQ(Logged(), Lines{DENIED_ICMP});
}

TEST_F(PacketRulesTest, ReplyBelongsToTheOutboundEchoOfItsIdentifier) {
    Out(Icmp(8, 0, ECHO_ID));
    In(Icmp(0, 0, ECHO_ID));
    In(Icmp(0, 0, {0x99, 0x99, 0, 1}));
    EXPECT_EQ(Logged(), Lines{DENIED_ICMP});
}

TEST_F(PacketRulesTest, EchoOverIpv6IsTrackedAlike) {
    In6(Icmp6(128, 0, ECHO_ID));
    Out6(Icmp6(129, 0, ECHO_ID));
    In6(Icmp6(129, 0, {9, 9, 0, 0}));
    EXPECT_EQ(Logged(), Lines{"0 1 1 in fwd p58 2001:db8::66 > 2001:db8::10"});
}

TEST_F(PacketRulesTest, ErrorBelongsToTheConnectionOfThePacketItCarries) {
    const Bytes cause = Ipv4("192.0.2.10", "192.0.2.66", Udp(5000, 53));
    Put(Ethernet(PEER_HW, HOST_HW, cause));
    In(Icmp(3, 3, Bytes(4, 0) + cause));
    EXPECT_EQ(Logged(), Lines{"10001 0 0 out fwd p17 192.0.2.10 > 192.0.2.66 5000 53"});
}

TEST_F(PacketRulesTest, ErrorAboutNoKnownConnectionIsDenied) {
    In(Icmp(3, 3, Bytes(4, 0) + Ipv4("192.0.2.10", "192.0.2.66", Udp(5000, 53))));
    In(Icmp(3, 3, Bytes{0, 0}));
    EXPECT_EQ(Logged(), (Lines{DENIED_ICMP, DENIED_ICMP}));
}

TEST_F(PacketRulesTest, ErrorOverIpv6BelongsToItsConnection) {
    const Bytes cause = Ipv6("2001:db8::10", "2001:db8::66", Udp(5000, 53));
    Put(Ethernet(PEER_HW, HOST_HW, cause));
    In6(Icmp6(1, 4, Bytes(4, 0) + cause));
    In6(Icmp6(1, 4, Bytes(4, 0) + Ipv6("2001:db8::10", "2001:db8::77", Udp(5000, 53))));
    EXPECT_EQ(Logged(), (Lines{"0 1 1 in fwd p58 2001:db8::66 > 2001:db8::10",
                               "10001 0 0 out fwd p17 2001:db8::10 > 2001:db8::66 5000 53"}));
}

TEST_F(PacketRulesTest, NeighbourDiscoveryIsTheLinksOwn) {
    for (const int type : {130, 131, 132, 133, 134, 135, 136, 137, 143}) {
        In6(Icmp6(static_cast<uint8_t>(type), 0, Bytes(20, 0)));
    }
    EXPECT_EQ(Logged(), Lines{});
}

TEST_F(PacketRulesTest, OtherProtocolsAreDeniedAndShowNoTransport) {
    In({132, Bytes(12, 1)});
    EXPECT_EQ(Logged(), Lines{"0 1 1 in fwd p132 192.0.2.66 > 192.0.2.10"});
}

TEST_F(PacketRulesTest, ExtensionHeadersAreSkippedAndTheUpperProtocolIsNamed) {
    const Bytes hopByHop = {60, 0, 1, 4, 0, 0, 0, 0};
    const Bytes destinationOptions = {43, 0, 1, 4, 0, 0, 0, 0};
    const Bytes routing = {51, 0, 4, 0, 0, 0, 0, 0};
    const Bytes authentication = {6, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 2};
    In6({0, hopByHop + destinationOptions + routing + authentication + Tcp(4000, 23, SYN).bytes});
    EXPECT_EQ(Logged(), Lines{"0 1 1 in fwd p6 2001:db8::66 > 2001:db8::10 4000 23"});
}

TEST_F(PacketRulesTest, TinyFragmentsOfASynAreJudgedAsTheSyn) {
    const Payload syn = Tcp(4000, 23, SYN);
    InFragment(Part(syn, 0, 8), {0, true, 77});
    InFragment(Part(syn, 8, 8), {8, true, 77});
    InFragment(Part(syn, 16, 4), {16, false, 77});
    const auto entries = Entries();
    ASSERT_EQ(ToLines(entries), (Lines{CLOSED_23, LATER_FRAGMENT}));
    EXPECT_EQ(entries[0].log_transport.tcp.tcph_flags, SYN);
    EXPECT_EQ(entries[0].log_first_usec, 0u);
    EXPECT_EQ(entries[0].log_ip.v4.iph_frag, htons(0x2000));
    EXPECT_EQ(entries[0].log_packet_len, 28u);
    EXPECT_EQ(entries[0].log_eth.eth_type, htons(0x0800));
}

TEST_F(PacketRulesTest, TinyFragmentsOfASynToAnOpenPortBeginAConnection) {
    const Payload syn = Tcp(4000, 23, SYN);
    InFragment(Part(syn, 0, 8), {0, true, 77});
    InFragment(Part(syn, 8, 8), {8, true, 77});
    InFragment(Part(syn, 16, 4), {16, false, 77});
    Out(Tcp(23, 4000, SYN | ACK));
    In(Tcp(4000, 23, ACK));
    EXPECT_EQ(Logged("tcp/23"), Lines{});
}

TEST_F(PacketRulesTest, FragmentsOfDatagramsWithOtherIdsDoNotMix) {
    const Payload syn = Tcp(4000, 23, SYN);
    const Payload xmas = Tcp(4000, 23, FIN | PSH | URG);
    InFragment(Part(syn, 0, 8), {0, true, 77});
    InFragment(Part(xmas, 0, 8), {0, true, 78});
    InFragment(Part(xmas, 8, 12), {8, false, 78});
    InFragment(Part(syn, 8, 12), {8, false, 77});
    EXPECT_EQ(Logged(), (Lines{"101 1 0 in fwd p6 192.0.2.66 > 192.0.2.10 4000 23", CLOSED_23}));
}

TEST_F(PacketRulesTest, TinyFirstFragmentThatIsNeverCompletedIsTooSmall) {
    InFragment(Part(Tcp(4000, 23, SYN), 0, 8), {0, true, 77});
    const auto entries = Entries();
    ASSERT_EQ(ToLines(entries), Lines{"110 1 0 in fwd p6 192.0.2.66 > 192.0.2.10"});
    EXPECT_EQ(entries[0].log_flags & LOG_FLAG_TRANSPORT, 0);
    EXPECT_EQ(entries[0].log_first_sec, 1700000000u);
}

TEST_F(PacketRulesTest, HeldFragmentIsGivenUpAfterThirtySeconds) {
    InFragment(Part(Tcp(4000, 23, SYN), 0, 8), {0, true, 77});
    At(31);
    InFragment(Part(Tcp(4000, 23, SYN), 8, 12), {8, false, 77});
    EXPECT_EQ(Logged(), (Lines{"110 1 0 in fwd p6 192.0.2.66 > 192.0.2.10", LATER_FRAGMENT}));
}

TEST_F(PacketRulesTest, OfMoreHeldFragmentsThanThereIsRoomForTheOldestIsGivenUp) {
    for (unsigned int id = 0; id < 1026; ++id) {
        InFragment(Part(Tcp(4000, 23, SYN), 0, 8), {0, true, id});
    }
    InFragment(Part(Tcp(4000, 23, SYN), 8, 12), {8, false, 1});
    InFragment(Part(Tcp(4000, 23, SYN), 8, 12), {8, false, 2});
    const Lines lines = Logged();
    ASSERT_EQ(lines.size(), 1027u);
    EXPECT_EQ(lines[0], "110 1 0 in fwd p6 192.0.2.66 > 192.0.2.10");
    EXPECT_EQ(lines[1], "110 1 0 in fwd p6 192.0.2.66 > 192.0.2.10");
    EXPECT_EQ(lines[2], LATER_FRAGMENT);
    EXPECT_EQ(lines[3], CLOSED_23);
}

TEST_F(PacketRulesTest, LaterFragmentThatDoesNotFollowOnCompletesNothing) {
    const Payload syn = Tcp(4000, 23, SYN);
    InFragment(Part(syn, 0, 8), {0, true, 77});
    InFragment(Part(syn, 16, 4), {16, false, 77});
    InFragment(Part(syn, 8, 8), {8, true, 77});
    EXPECT_EQ(Logged(), (Lines{LATER_FRAGMENT, CLOSED_23}));
}

TEST_F(PacketRulesTest, SecondFirstFragmentOfADatagramReplacesTheHeldOne) {
    InFragment(Part(Tcp(4000, 23, SYN), 0, 8), {0, true, 77});
    InFragment(Part(Tcp(4000, 24, SYN), 0, 8), {0, true, 77});
    InFragment(Part(Tcp(4000, 24, SYN), 8, 12), {8, false, 77});
    EXPECT_EQ(Logged(), (Lines{"110 1 0 in fwd p6 192.0.2.66 > 192.0.2.10",
                               "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4000 24"}));
}

TEST_F(PacketRulesTest, LaterFragmentOfAnAcceptedDatagramIsAccepted) {
    const Payload query = Udp(4000, 53, Bytes(24, 'x'));
    InFragment(Part(query, 0, 16), {0, true, 77});
    InFragment(Part(query, 16, 16), {16, false, 77});
    InFragment(Part(query, 16, 16), {16, false, 78});
    Out(Udp(53, 4000));
    EXPECT_EQ(Logged(), Lines{"108 1 0 in fwd p17 192.0.2.66 > 192.0.2.10"});
}

TEST_F(PacketRulesTest, LaterFragmentOfADeniedDatagramIsDenied) {
    const Payload query = Udp(4000, 53, Bytes(24, 'x'));
    InFragment(Part(query, 0, 16), {0, true, 77});
    InFragment(Part(query, 16, 16), {16, false, 77});
    EXPECT_EQ(Logged(), (Lines{"0 1 1 in fwd p17 192.0.2.66 > 192.0.2.10 4000 53",
                               "108 1 0 in fwd p17 192.0.2.66 > 192.0.2.10"}));
}

TEST_F(PacketRulesTest, Ipv6FragmentsAreJudgedAlike) {
    const Bytes syn = Tcp(4000, 23, SYN).bytes;
    const Bytes first(syn.begin(), syn.begin() + 8), later(syn.begin() + 8, syn.end());
    In6({44, Bytes{6, 0} + Big16(1) + Big32(99) + first});
    In6({44, Bytes{6, 0} + Big16(8) + Big32(99) + later});
    In6({44, Bytes{6, 0} + Big16(8) + Big32(100) + later});
    EXPECT_EQ(Logged(), (Lines{"0 1 1 in fwd p6 2001:db8::66 > 2001:db8::10 4000 23",
                               "108 1 0 in fwd p6 2001:db8::66 > 2001:db8::10"}));
}
