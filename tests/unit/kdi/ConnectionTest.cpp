#include "Replay.h"

using namespace KdiTest;

namespace {

class ConnectionTest : public HostTest {
protected:
    void Handshake(unsigned int client, unsigned int port) {
        In(Tcp(client, port, SYN));
        Out(Tcp(port, client, SYN | ACK));
        In(Tcp(client, port, ACK));
    }
};

const char* const CLOSED_80 = "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4000 80";
const char* const LOST_80 = "100 1 0 in fwd p6 192.0.2.66 > 192.0.2.10 4000 80";
const char* const INVALID_80 = "101 1 0 in fwd p6 192.0.2.66 > 192.0.2.10 4000 80";
const char* const END_NORMAL_80 = "10000 0 0 in fwd p6 192.0.2.66 > 192.0.2.10 4000 80";
const char* const END_80 = "10001 0 0 in fwd p6 192.0.2.66 > 192.0.2.10 4000 80";

}  // namespace

TEST_F(ConnectionTest, SynToAPortThatResetsIsDeniedByTheFilter) {
    In(Tcp(4000, 80, SYN));
    Out(Tcp(80, 4000, RST | ACK));
    EXPECT_EQ(Logged(), Lines{CLOSED_80});
}

TEST_F(ConnectionTest, SynToAPortThatStaysSilentIsDeniedEachTime) {
    In(Tcp(4000, 80, SYN));
    In(Tcp(4000, 80, SYN));
    EXPECT_EQ(Logged(), (Lines{CLOSED_80, CLOSED_80}));
}

TEST_F(ConnectionTest, PortThatAnswersLaterInTheCaptureIsOpenFromItsBeginning) {
    In(Tcp(4000, 80, SYN));
    At(5);
    Handshake(4001, 80);
    EXPECT_EQ(Logged(), (Lines{"10001 0 0 in fwd p6 192.0.2.66 > 192.0.2.10 4000 80"}));
}

TEST_F(ConnectionTest, ConnectionThatBothSidesCloseEndsNormally) {
    Handshake(4000, 80);
    In(Tcp(4000, 80, ACK | PSH));
    Out(Tcp(80, 4000, ACK | FIN));
    In(Tcp(4000, 80, ACK | FIN));
    Out(Tcp(80, 4000, ACK));
    EXPECT_EQ(Logged(), Lines{END_NORMAL_80});
}

TEST_F(ConnectionTest, FlowEndHasTheHeadersOfTheFirstPacketAndTheTimesOfBothEnds) {
    Handshake(4000, 80);
    At(2.5);
    Out(Tcp(80, 4000, RST));
    const auto entries = Entries();
    ASSERT_EQ(entries.size(), 1u);
    const velm_log_entry_s& end = entries[0];
    EXPECT_EQ(Line(end), END_80);
    EXPECT_EQ(end.log_first_sec, 1700000000u);
    EXPECT_EQ(end.log_first_usec, 0u);
    EXPECT_EQ(end.log_last_sec, 1700000002u);
    EXPECT_EQ(end.log_last_usec, 500000u);
    EXPECT_EQ(end.log_transport.tcp.tcph_flags, SYN);
    EXPECT_EQ(end.log_repeat_count, 1u);
    EXPECT_EQ(end.log_packet_len, 40u);
}

TEST_F(ConnectionTest, OneSidedFinEndsNothing) {
    Handshake(4000, 80);
    In(Tcp(4000, 80, ACK | FIN));
    Out(Tcp(80, 4000, ACK));
    EXPECT_EQ(Logged(), Lines{});
}

TEST_F(ConnectionTest, ConnectionStillOpenAtTheEndHasNotEnded) {
    Handshake(4000, 80);
    EXPECT_EQ(Logged(), Lines{});
}

TEST_F(ConnectionTest, HandshakeLeftUnfinishedCountsAsNeverAnswered) {
    In(Tcp(4000, 80, SYN));
    Out(Tcp(80, 4000, SYN | ACK));
    EXPECT_EQ(Logged(), Lines{END_80});
}

TEST_F(ConnectionTest, UnfinishedHandshakeTimesOutThirtySecondsBehindItsLastPacket) {
    In(Tcp(4000, 80, SYN));
    Out(Tcp(80, 4000, SYN | ACK));
    At(60);
    In(Tcp(4001, 81, SYN));
    const auto entries = Entries();
    ASSERT_EQ(ToLines(entries), (Lines{END_80, "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4001 81"}));
    EXPECT_EQ(entries[0].log_last_sec, 1700000030u);
    EXPECT_EQ(entries[0].log_last_usec, 1000u);
}

TEST_F(ConnectionTest, TimeOutStandsBeforeTheFirstPacketThatIsLaterAndNotBeforeOneAtItsTime) {
    In(Tcp(4000, 80, SYN));
    m_Now = START + 30000000;
    In(Tcp(4001, 81, SYN));
    m_Now = START + 30000001;
    In(Tcp(4002, 82, SYN));
    EXPECT_EQ(Logged("tcp/80"), (Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4001 81", END_80,
                                       "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4002 82"}));
}

TEST_F(ConnectionTest, TimeOutsOfDifferentKindsComeInTheOrderOfTheirExpiry) {
    Out(Udp(5000, 53));
    In(Udp(53, 5000));  // answered: 120 s
    At(100);
    In(Tcp(4000, 80, SYN));  // 30 s
    At(300);
    In(Tcp(4001, 81, SYN));
    EXPECT_EQ(Logged("tcp/80"), (Lines{"10001 0 0 out fwd p17 192.0.2.10 > 192.0.2.66 5000 53",
                                       END_80, "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4001 81"}));
}

TEST_F(ConnectionTest, EstablishedConnectionTimesOutAfterAnHour) {
    Handshake(4000, 80);
    At(3600);
    In(Tcp(4001, 81, SYN));
    At(3601);
    In(Tcp(4001, 81, SYN));
    EXPECT_EQ(Logged(), (Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4001 81", END_80,
                               "0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4001 81"}));
}

TEST_F(ConnectionTest, StragglersOfAnEndedConnectionAreNotLogged) {
    Handshake(4000, 80);
    Out(Tcp(80, 4000, RST));
    In(Tcp(4000, 80, ACK));
    In(Tcp(4000, 80, RST));
    EXPECT_EQ(Logged(), Lines{END_80});
}

TEST_F(ConnectionTest, AfterAMinuteAStragglerIsOutOfConnection) {
    Handshake(4000, 80);
    Out(Tcp(80, 4000, RST));
    At(61);
    In(Tcp(4000, 80, ACK));
    EXPECT_EQ(Logged(), (Lines{END_80, LOST_80}));
}

TEST_F(ConnectionTest, NewSynOnThePortsOfAnEndedConnectionBeginsAnother) {
    Handshake(4000, 80);
    Out(Tcp(80, 4000, RST));
    Handshake(4000, 80);
    In(Tcp(4000, 80, RST));
    EXPECT_EQ(Logged(), (Lines{END_80, END_80}));
}

TEST_F(ConnectionTest, OutboundConnectionIsNotLoggedAndItsEndIsOutgoing) {
    Out(Tcp(5000, 443, SYN));
    In(Tcp(443, 5000, SYN | ACK));
    Out(Tcp(5000, 443, ACK));
    In(Tcp(443, 5000, FIN | ACK));
    Out(Tcp(5000, 443, FIN | ACK));
    EXPECT_EQ(Logged(), Lines{"10000 0 0 out fwd p6 192.0.2.10 > 192.0.2.66 5000 443"});
}

TEST_F(ConnectionTest, RefusedOutboundConnectionEndsAsReset) {
    Out(Tcp(5000, 443, SYN));
    In(Tcp(443, 5000, RST | ACK));
    EXPECT_EQ(Logged(), Lines{"10001 0 0 out fwd p6 192.0.2.10 > 192.0.2.66 5000 443"});
}

TEST_F(ConnectionTest, OutboundPacketPicksUpAConnectionThatBeganBeforeTheCapture) {
    Out(Tcp(5000, 443, ACK | PSH));
    In(Tcp(443, 5000, ACK));
    EXPECT_EQ(Logged(), Lines{});
}

TEST_F(ConnectionTest, OutboundResetBeginsNothing) {
    Out(Tcp(5000, 443, RST));
    In(Tcp(443, 5000, ACK));
    EXPECT_EQ(Logged(), Lines{"100 1 0 in fwd p6 192.0.2.66 > 192.0.2.10 443 5000"});
}

TEST_F(ConnectionTest, InboundSegmentWithoutAConnectionIsOutOfConnection) {
    In(Tcp(4000, 80, ACK));
    In(Tcp(4000, 80, FIN));
    In(Tcp(4000, 80, RST));
    In(Tcp(4000, 80, PSH | ACK));
    EXPECT_EQ(Logged(), (Lines{LOST_80, LOST_80, LOST_80, LOST_80}));
}

TEST_F(ConnectionTest, SynWithAckOrResetToAClosedPortIsDeniedByTheFilter) {
    In(Tcp(4000, 80, SYN | ACK));
    In(Tcp(4000, 80, SYN | RST));
    EXPECT_EQ(Logged(), (Lines{CLOSED_80, CLOSED_80}));
}

TEST_F(ConnectionTest, SynWithAckOrResetToAnOpenPortBeginsNothing) {
    In(Tcp(4000, 80, SYN | ACK));
    In(Tcp(4000, 80, SYN | RST));
    In(Tcp(4000, 80, ACK));
    EXPECT_EQ(Logged("tcp/80"), (Lines{LOST_80, LOST_80, LOST_80}));
}

TEST_F(ConnectionTest, FlagsThatNoConnectionMayCarryAreInvalidWhateverThePort) {
    for (const int flags : {0x00, 0x03, 0x2B, 0x29, 0x3F, 0xFF, 0x13}) {
        In(Tcp(4000, 80, static_cast<uint8_t>(flags)));
    }
    EXPECT_EQ(Logged(), Lines(7, INVALID_80));
    EXPECT_EQ(Logged("tcp/80"), Lines(7, INVALID_80));
}

TEST_F(ConnectionTest, OddFlagsThatAConnectionMayCarryAreOutOfConnection) {
    for (const int flags : {0x01, 0x08, 0x20, 0x40, 0x80, 0x11}) {
        In(Tcp(4000, 80, static_cast<uint8_t>(flags)));
    }
    EXPECT_EQ(Logged(), Lines(6, LOST_80));
}

TEST_F(ConnectionTest, InvalidFlagsWithinAConnectionAreLoggedAndLeaveItAlone) {
    Out(Tcp(80, 4000, SYN));
    In(Tcp(4000, 80, SYN | ACK));
    Out(Tcp(80, 4000, ACK));
    In(Tcp(4000, 80, SYN | FIN | RST));
    In(Tcp(4000, 80, ACK));
    EXPECT_EQ(Logged(), Lines{"101 1 0 in rev p6 192.0.2.66 > 192.0.2.10 4000 80"});
}

TEST_F(ConnectionTest, AllowedPortsDecideInsteadOfWhatAnswers) {
    In(Tcp(4000, 80, SYN));
    Out(Tcp(80, 4000, SYN | ACK));
    In(Tcp(4001, 81, SYN));
    EXPECT_EQ(Logged("tcp/81"),
              (Lines{CLOSED_80, "10001 0 0 out fwd p6 192.0.2.10 > 192.0.2.66 80 4000",
                     "10001 0 0 in fwd p6 192.0.2.66 > 192.0.2.10 4001 81"}));
}

TEST_F(ConnectionTest, AnswerFromOneAddressOpensNoPortOfAnother) {
    const auto syn =
        Ethernet(HOST_HW, PEER_HW, Ipv4("192.0.2.66", "192.0.2.11", Tcp(4000, 80, SYN)));
    Handshake(4000, 80);
    Put(syn);
    EXPECT_EQ(ToLines(Entries(nullptr, "192.0.2.0/28")),
              Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.11 4000 80"});
}

TEST_F(ConnectionTest, DatagramToAPortThatNeverAnswersIsDenied) {
    In(Udp(4000, 161));
    EXPECT_EQ(Logged(), Lines{"0 1 1 in fwd p17 192.0.2.66 > 192.0.2.10 4000 161"});
}

TEST_F(ConnectionTest, DatagramToAPortThatAnswersIsAccepted) {
    In(Udp(4000, 53));
    Out(Udp(53, 4000));
    In(Udp(4001, 53));
    Out(Udp(53, 4001));
    EXPECT_EQ(Logged(), Lines{});
}

TEST_F(ConnectionTest, AnsweredExchangeTimesOutAfterTwoMinutes) {
    In(Udp(4000, 53));
    Out(Udp(53, 4000));
    At(200);
    Out(Udp(5000, 123));
    EXPECT_EQ(Logged(), (Lines{"10001 0 0 in fwd p17 192.0.2.66 > 192.0.2.10 4000 53",
                               "10001 0 0 out fwd p17 192.0.2.10 > 192.0.2.66 5000 123"}));
}

TEST_F(ConnectionTest, AnswerToAnOutboundDatagramIsAcceptedAndOneFromAnotherPortIsNot) {
    Out(Udp(5000, 53));
    In(Udp(53, 5000));
    In(Udp(54, 5000));
    EXPECT_EQ(Logged(), Lines{"0 1 1 in fwd p17 192.0.2.66 > 192.0.2.10 54 5000"});
}

TEST_F(ConnectionTest, Ipv6ConnectionsAreTrackedAlike) {
    In6(Tcp(4000, 80, SYN));
    Out6(Tcp(80, 4000, SYN | ACK));
    In6(Tcp(4000, 80, RST));
    In6(Tcp(4000, 81, SYN));
    EXPECT_EQ(Logged(), (Lines{"10001 0 0 in fwd p6 2001:db8::66 > 2001:db8::10 4000 80",
                               "0 1 1 in fwd p6 2001:db8::66 > 2001:db8::10 4000 81"}));
}

TEST_F(ConnectionTest, ClockNeverGoesBackWithAPacketOfAnEarlierTime) {
    In(Tcp(4000, 80, SYN));
    At(31);
    In(Tcp(4001, 81, SYN));
    At(1);
    In(Tcp(4002, 82, SYN));
    const auto entries = Entries("tcp/80");
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(Line(entries[0]), END_80);
    EXPECT_EQ(entries[2].log_first_sec, 1700000001u);
}
