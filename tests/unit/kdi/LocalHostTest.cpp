#include "Replay.h"

using namespace KdiTest;

namespace {

// Whose capture it is, told by the capture.
class LocalHostTest : public HostTest {
protected:
    std::string Description(const char* local = nullptr) {
        Handle handle("pcap:" + m_Capture.Write(), local);
        EXPECT_NE(handle.Get(), nullptr) << handle.OpenError();
        return handle.Get() ? handle.Describe() : "";
    }
    static Bytes Arp(const Bytes& destination, const Bytes& source) {
        return destination + source + Big16(0x0806) + Bytes(28, 0);
    }
    static Bytes Cooked(unsigned int way, const Bytes& hardware, const Bytes& ip) {
        return Big16(way) + Big16(1) + Big16(6) + hardware + Bytes{0, 0} + Big16(TypeOf(ip)) + ip;
    }
    static Bytes Cooked2(uint8_t way, const Bytes& hardware, const Bytes& ip) {
        return Big16(TypeOf(ip)) + Big16(0) + Big32(2) + Big16(1) + Bytes{way, 6} + hardware +
               Bytes{0, 0} + ip;
    }
    static Bytes Packet(const std::string& source, const std::string& destination,
                        const Payload& payload) {
        return IpPacket(source, destination, payload);
    }
};

const std::string HOST = "local address 192.0.2.10 (from the capture: interface 02:00:00:00:00:0a)";

}  // namespace

TEST_F(LocalHostTest, OfTwoHostsItIsTheOneTowardsWhichMoreConnectionsBegin) {
    In(Tcp(4000, 80, SYN));
    Out(Tcp(80, 4000, RST | ACK));
    EXPECT_EQ(Description(), HOST);
}

TEST_F(LocalHostTest, InterfaceInTheMostFramesIsTheHostsOwn) {
    const Bytes otherHw = {2, 0, 0, 0, 0, 0x55};
    Put(Ethernet(PEER_HW, HOST_HW, Packet("192.0.2.10", "192.0.2.66", Tcp(5000, 80, SYN))));
    Put(Ethernet(otherHw, HOST_HW, Packet("192.0.2.10", "192.0.2.55", Tcp(5001, 80, SYN))));
    EXPECT_EQ(Description(), HOST);
}

TEST_F(LocalHostTest, FramesToEverybodyTellNoInterfaceFromTheOthers) {
    Put(Arp(ALL_HW, PEER_HW));
    Put(Arp(ALL_HW, PEER_HW));
    Put(Arp(PEER_HW, HOST_HW));
    In(Tcp(4000, 80, SYN));
    EXPECT_EQ(Description(), HOST);
}

TEST_F(LocalHostTest, WithNothingButFramesToEverybodyTheirSenderIsTheHost) {
    Put(Ethernet(ALL_HW, PEER_HW, Packet("192.0.2.66", "192.0.2.255", Udp(137, 137))));
    EXPECT_EQ(Description(),
              "local address 192.0.2.66 (from the capture: interface 02:00:00:00:00:42)");
}

TEST_F(LocalHostTest, OfFullyEqualInterfacesItIsTheOneThatWasCalledFirst) {
    In(Udp(4000, 69));
    Out(Udp(7000, 4000));
    EXPECT_EQ(Description(), HOST);
}

TEST_F(LocalHostTest, LocalIsWhatItSendsFromAndWhatIsCalledOnIt) {
    In(Tcp(4000, 80, SYN));
    Put(Ethernet(HOST_HW, PEER_HW, Packet("192.0.2.66", "192.0.2.11", Tcp(4001, 80, SYN))));
    Put(Ethernet(PEER_HW, HOST_HW, Packet("192.0.2.12", "192.0.2.66", Tcp(80, 4002, RST))));
    In6(Tcp(4000, 80, SYN));
    EXPECT_EQ(Description(),
              "local addresses 192.0.2.10, 192.0.2.11, 192.0.2.12, 2001:db8::10 (from the capture: "
              "interface 02:00:00:00:00:0a)");
}

TEST_F(LocalHostTest, GroupAndUnspecifiedAddressesAreNobodys) {
    In(Tcp(4000, 80, SYN));
    In(Tcp(4001, 80, SYN));
    Put(Ethernet(HOST_HW, PEER_HW, Packet("192.0.2.66", "224.0.0.1", Udp(1, 2))));
    Put(Ethernet(PEER_HW, HOST_HW, Packet("0.0.0.0", "192.0.2.66", Udp(68, 67))));
    EXPECT_EQ(Description(), HOST);
}

TEST_F(LocalHostTest, ToldNetworksDecideInsteadOfTheCapture) {
    In(Tcp(4000, 80, SYN));
    Out(Tcp(80, 4000, RST | ACK));
    EXPECT_EQ(Description("192.0.2.64/26,2001:db8::/32"),
              "local addresses 192.0.2.64/26, 2001:db8::/32 (as told)");
    const auto entries = Entries(nullptr, "192.0.2.64/26");
    ASSERT_EQ(ToLines(entries), Lines{"10001 0 0 out fwd p6 192.0.2.66 > 192.0.2.10 4000 80"});
    EXPECT_EQ(entries[0].log_if_addr[5], 0x42);
}

TEST_F(LocalHostTest, PrefixLengthsCutWithinAByte) {
    In(Tcp(4000, 80, SYN));
    EXPECT_EQ(Entries(nullptr, "192.0.2.8/29").size(), 1u);
    EXPECT_EQ(Entries(nullptr, "192.0.2.12/30").size(), 0u);
    EXPECT_EQ(Entries(nullptr, "192.0.2.0/27").size(), 1u);
    EXPECT_EQ(Entries(nullptr, "2001:db8::/33").size(), 0u);
}

TEST_F(LocalHostTest, EveryAddressIsLocalWithAPrefixOfNoLength) {
    In(Tcp(4000, 80, SYN));
    EXPECT_EQ(Entries(nullptr, "0.0.0.0/0").size(), 0u);  // within the host
}

TEST_F(LocalHostTest, LongListsAreCut) {
    for (unsigned int i = 1; i <= 15; ++i) {
        Put(Ethernet(HOST_HW, PEER_HW,
                     Packet("192.0.2.66", "10.0.0." + std::to_string(i), Tcp(4000, 80, SYN))));
    }
    EXPECT_EQ(Description(),
              "local addresses 10.0.0.1, 10.0.0.2, 10.0.0.3, 10.0.0.4, 10.0.0.5, 10.0.0.6, "
              "10.0.0.7, 10.0.0.8, 10.0.0.9, 10.0.0.10, 10.0.0.11, 10.0.0.12 and 3 more (from the "
              "capture: interface 02:00:00:00:00:0a)");
}

TEST_F(LocalHostTest, EmptyCaptureHasNoLocalAddress) {
    EXPECT_EQ(Description(), "no local address found in the capture");
}

TEST_F(LocalHostTest, RawCaptureIsOfTheAddressThatIsCalledMoreThanItCalls) {
    m_Capture.SetLink(DLT_RAW_IP);
    Put(Packet("192.0.2.66", "192.0.2.10", Tcp(4000, 80, SYN)));
    Put(Packet("192.0.2.10", "192.0.2.66", Tcp(80, 4000, RST | ACK)));
    Put(Packet("192.0.2.66", "192.0.2.10", Tcp(4001, 81, SYN)));
    Put(Packet("192.0.2.10", "192.0.2.66", Tcp(5000, 25, SYN)));
    EXPECT_EQ(Description(),
              "local address 192.0.2.10 (from the capture: more connections begin towards them "
              "than they begin)");
    const auto entries = Entries(nullptr, nullptr);
    ASSERT_EQ(ToLines(entries), (Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4000 80",
                                       "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4001 81",
                                       "10001 0 0 out fwd p6 192.0.2.10 > 192.0.2.66 5000 25"}));
    EXPECT_EQ(entries[0].log_flags & LOG_FLAG_ETH, 0);
    EXPECT_EQ(entries[0].log_if_addr_len, 0u);
    EXPECT_EQ(entries[0].log_packet_len, 40u);
}

TEST_F(LocalHostTest, CookedCaptureSaysWhatTheHostSends) {
    m_Capture.SetLink(DLT_COOKED);
    Put(Cooked(0, PEER_HW, Packet("192.0.2.66", "192.0.2.10", Tcp(4000, 80, SYN))));
    Put(Cooked(4, HOST_HW, Packet("192.0.2.10", "192.0.2.66", Tcp(80, 4000, RST | ACK))));
    EXPECT_EQ(Description(), HOST);
    const auto entries = Entries(nullptr, nullptr);
    ASSERT_EQ(ToLines(entries), Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4000 80"});
    EXPECT_EQ(entries[0].log_flags & LOG_FLAG_ETH, 0);
    EXPECT_EQ(entries[0].log_if_addr_len, 6u);
    EXPECT_EQ(entries[0].log_if_addr[5], 0x0A);
}

TEST_F(LocalHostTest, CookedCaptureOfTheSecondKindIsReadAlike) {
    m_Capture.SetLink(DLT_COOKED2);
    Put(Cooked2(0, PEER_HW, Packet("2001:db8::66", "2001:db8::10", Tcp(4000, 80, SYN))));
    Put(Cooked2(4, HOST_HW, Packet("2001:db8::10", "2001:db8::66", Tcp(80, 4000, RST))));
    EXPECT_EQ(ToLines(Entries(nullptr, nullptr)),
              Lines{"0 1 1 in fwd p6 2001:db8::66 > 2001:db8::10 4000 80"});
}

TEST_F(LocalHostTest, CookedCaptureWithoutAnythingSentIsReadLikeARawOne) {
    m_Capture.SetLink(DLT_COOKED);
    Put(Cooked(0, PEER_HW, Packet("192.0.2.66", "192.0.2.10", Tcp(4000, 80, SYN))));
    Put(Cooked(0, HOST_HW, Packet("192.0.2.10", "192.0.2.66", Tcp(80, 4000, RST | ACK))));
    EXPECT_EQ(ToLines(Entries(nullptr, nullptr)),
              Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4000 80"});
}

TEST_F(LocalHostTest, BsdLoopbackHeaderIsReadInEitherByteOrder) {
    m_Capture.SetLink(DLT_BSD);
    Put(Bytes{2, 0, 0, 0} + Packet("192.0.2.66", "192.0.2.10", Tcp(4000, 80, SYN)));
    Put(Bytes{0, 0, 0, 30} + Packet("2001:db8::66", "2001:db8::10", Tcp(4000, 81, SYN)));
    Put(Bytes{7, 0, 0, 0} + Packet("192.0.2.66", "192.0.2.10", Tcp(4000, 82, SYN)));
    EXPECT_EQ(Logged(), (Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4000 80",
                               "0 1 1 in fwd p6 2001:db8::66 > 2001:db8::10 4000 81"}));
}
