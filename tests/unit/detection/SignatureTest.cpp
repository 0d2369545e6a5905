#include "DetectionFixture.h"
#include "PacketSignature.h"

// Crafted TCP packets, known by their flag byte alone.
namespace {

class SignatureTest : public DetectionTest {
protected:
    // What the attacker's packet was reported as.
    Texts Reported(const velm_log_entry_s& entry) {
        Take(entry);
        return Events();
    }
    bool CountsAsFlow() { return FlowCount(kAttacker) == 1; }
};

TEST_F(SignatureTest, UrgPshSynFinIsAFingerprintScanAndNoSynFinScan) {
    EXPECT_EQ(Reported(Crafted(0x2B)), Texts{"7000: FingerprintScan|192.0.2.7|6|0"});
    EXPECT_FALSE(CountsAsFlow());
}

TEST_F(SignatureTest, AllFlagsAreAnXmasScanAndNoSynFinScan) {
    EXPECT_EQ(Reported(Crafted(0xFF)), Texts{"7004: XmasScan|192.0.2.7|6|0"});
}

TEST_F(SignatureTest, UrgPshFinIsAnXmasScan) {
    EXPECT_EQ(Reported(Crafted(0x29)), Texts{"7004: XmasScan|192.0.2.7|6|0"});
}

TEST_F(SignatureTest, SynFinAckIsASynFinScan) {
    EXPECT_EQ(Reported(Crafted(0x13)), Texts{"7003: SynFinScan|192.0.2.7|6|0"});
}

TEST_F(SignatureTest, NoFlagsWithDontFragmentAreAFingerprintScan) {
    EXPECT_EQ(Reported(Crafted(0, true)), Texts{"7000: FingerprintScan|192.0.2.7|6|0"});
}

TEST_F(SignatureTest, NoFlagsWithoutDontFragmentAreANullScan) {
    EXPECT_EQ(Reported(Crafted(0, false)), Texts{"7002: NullScan|192.0.2.7|6|0"});
}

TEST_F(SignatureTest, MoreFragmentsIsNotTakenForDontFragment) {
    velm_log_entry_s entry = Crafted(0);
    entry.log_ip.v4.iph_frag = htons(0x2000);
    EXPECT_EQ(Reported(entry), Texts{"7002: NullScan|192.0.2.7|6|0"});
}

TEST_F(SignatureTest, AnOrdinaryPacketIsNoProbeAndCountsAsAFlow) {
    EXPECT_EQ(Reported(Crafted(0x02)), Texts{});
    EXPECT_TRUE(CountsAsFlow());
}

// 64 flag bytes have SYN and FIN; two of them are taken by earlier signatures.
TEST(SignatureOrderTest, EachFlagByteHasTheSignatureThatComesFirst) {
    for (const bool dontFragment : {false, true}) {
        std::map<int, int> count;
        for (int flags = 0; flags < 256; ++flags) {
            ++count[OSTREL::SignatureOf(static_cast<uint8_t>(flags), dontFragment)];
        }
        EXPECT_EQ(count[0], dontFragment ? 2 : 1);
        EXPECT_EQ(count[2], dontFragment ? 0 : 1);
        EXPECT_EQ(count[3], 62);
        EXPECT_EQ(count[4], 2);
        EXPECT_EQ(count[-1], 190);
    }
}

TEST_F(SignatureTest, AClosedConnectionShowsNoSignatureAndCountsAsAFlow) {
    velm_log_entry_s entry = Crafted(0x29);
    entry.log_reason = 10001;
    EXPECT_EQ(Reported(entry), Texts{});
    EXPECT_TRUE(CountsAsFlow());
}

TEST_F(SignatureTest, ADatagramShowsNoSignature) {
    velm_log_entry_s entry = Datagram(kAttacker, kHost, 53);
    entry.log_transport.tcp.tcph_flags = 0x29;
    EXPECT_EQ(Reported(entry), Texts{});
    EXPECT_EQ(FlowCount(kAttacker, 17), 1u);
}

TEST_F(SignatureTest, AnIpv6PacketShowsNoSignatureAndIsNoFlow) {
    EXPECT_EQ(Reported(CraftedV6(0x29)), Texts{});
    EXPECT_TRUE(Inside().flows.IsEmpty());
}

TEST_F(SignatureTest, ADroppedRetransmitStillShowsItsSignature) {
    velm_log_entry_s entry = Crafted(0x29);
    entry.log_reason = 139;
    EXPECT_EQ(Reported(entry), Texts{"7004: XmasScan|192.0.2.7|6|0"});
}

TEST_F(SignatureTest, AnEntryThatOnlyLogsStillShowsItsSignature) {
    velm_log_entry_s entry = Crafted(0x29);
    entry.log_action = 6;
    EXPECT_EQ(Reported(entry), Texts{"7004: XmasScan|192.0.2.7|6|0"});
}

TEST_F(SignatureTest, ACraftedPacketOfADisabledTypeCountsAsAFlow) {
    Configure(Configuration("[0] = {}"));
    EXPECT_EQ(Reported(Crafted(0x29)), Texts{});
    EXPECT_TRUE(CountsAsFlow());
}

TEST_F(SignatureTest, WithNoTypeEnabledNothingCounts) {
    Configure(Configuration(""));
    EXPECT_EQ(Reported(Crafted(0x29)), Texts{});
    Take(Crafted(0x02));
    EXPECT_TRUE(Inside().flows.IsEmpty());
}

TEST_F(SignatureTest, ASecondPacketOfAReportedHostIsNoEventAndNoFlow) {
    Take(Crafted(0x2B));
    Events();
    EXPECT_EQ(Reported(Crafted(0x2B)), Texts{});
    EXPECT_TRUE(Inside().flows.IsEmpty());
}

TEST_F(SignatureTest, IgnoredFlagBytesStayOutOfTheFlowStatistic) {
    MakeLogWith("IgnoreTcpFlags", "0x10;4");
    Take(Crafted(0x10));
    Take(Crafted(0x04));
    EXPECT_TRUE(Inside().flows.IsEmpty());
    Take(Crafted(0x14));
    EXPECT_TRUE(CountsAsFlow());
}

TEST_F(SignatureTest, IgnoredFlagBytesNeverHideASignature) {
    MakeLogWith("IgnoreTcpFlags", "0x29");
    EXPECT_EQ(Reported(Crafted(0x29)), Texts{"7004: XmasScan|192.0.2.7|6|0"});
}

TEST_F(SignatureTest, AnIgnoredFlagByteOfADisabledSignatureCountsAsAFlow) {
    MakeLogWith("IgnoreTcpFlags", "0x29");
    Configure(Configuration("[0] = {}"));
    Take(Crafted(0x29));
    EXPECT_TRUE(CountsAsFlow());
}

TEST_F(SignatureTest, IgnoredFlagBytesMeanNothingForAClosedConnectionOrADatagram) {
    MakeLogWith("IgnoreTcpFlags", "0x10");
    velm_log_entry_s closed = Crafted(0x10);
    closed.log_reason = 10001;
    Take(closed);
    EXPECT_TRUE(CountsAsFlow());
    velm_log_entry_s datagram = Datagram(kAttacker, kHost, 53);
    datagram.log_transport.tcp.tcph_flags = 0x10;
    Take(datagram);
    EXPECT_EQ(FlowCount(kAttacker, 17), 1u);
}

TEST_F(SignatureTest, EachSignatureIsTracedByItsName) {
    TraceScans();
    Take(Crafted(0x2B));
    EXPECT_TRUE(HasTrace("AnalyzeLogEntry - fingerprint scan"));
    Take(Crafted(0xFF));
    EXPECT_TRUE(HasTrace("AnalyzeLogEntry - Xmas scan"));
    Take(Crafted(0x03));
    EXPECT_TRUE(HasTrace("AnalyzeLogEntry - SYN-FIN scan"));
    Take(Crafted(0));
    EXPECT_TRUE(HasTrace("AnalyzeLogEntry - NULL scan"));
}

TEST_F(SignatureTest, IgnoredFlagsAreTraced) {
    dom.SetText("plg.ostrel.analysis.IgnoreTcpFlags", "0x1a");
    TraceScans();
    Take(Crafted(0x1A));
    EXPECT_TRUE(HasTrace("Ignoring packet with TCP flags of 0x1A."));
}

}  // namespace
