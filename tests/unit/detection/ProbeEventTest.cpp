#include <stdexcept>

#include "DetectionFixture.h"
#include "kdi/testing.h"

// What follows when a probe was recognised: memory, event, heartbeat.
namespace {

class ProbeEventTest : public DetectionTest {
protected:
    // The tick at which a host is forgotten.
    unsigned int Expiry(const char* source, uint8_t type) {
        return Inside().knownProbers.at({Address(source), type});
    }
};

TEST_F(ProbeEventTest, EachTypeHasItsNumberAndItsWord) {
    Take(Syn("10.0.0.1", kHost, 1));
    for (int type = 0; type < 5; ++type)
        EXPECT_TRUE(Report(type, (std::string("192.0.2.") + char('1' + type)).c_str(), 17));
    EXPECT_EQ(Events(),
              (Texts{"7000: FingerprintScan|192.0.2.1|17|0", "7001: HostOrPortScan|192.0.2.2|17|0",
                     "7002: NullScan|192.0.2.3|17|0", "7003: SynFinScan|192.0.2.4|17|0",
                     "7004: XmasScan|192.0.2.5|17|0"}));
}

TEST_F(ProbeEventTest, AScanOfTwoAddressesAnd130PortsBlockedFor300Seconds) {
    Configure(Configuration("[1] = {blockAttackerSeconds = 300}"));
    TouchPorts(kAttacker, kHost, 130);
    TouchPorts(kAttacker, "198.51.100.2", 1);
    CloseBin();
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|300|2|130"});
}

TEST_F(ProbeEventTest, ATypeThatIsNotEnabledIsRefused) {
    Configure(Configuration("[0] = {}"));
    Take(Syn("10.0.0.1", kHost, 1));
    VelmCore::EnableTrace("LogScan", true);
    EXPECT_FALSE(Report(4, kAttacker));
    EXPECT_TRUE(HasTrace("ProbeType was Not enabled"));
    EXPECT_EQ(Events(), Texts{});
    EXPECT_TRUE(Inside().knownProbers.empty());
}

TEST_F(ProbeEventTest, ATypeThatIsNoneIsOutOfRange) {
    for (const int type : {5, 6, -1}) {
        try {
            Report(type, kAttacker);
            FAIL() << type;
        } catch (const std::out_of_range& error) {
            EXPECT_EQ(std::string(error.what()).rfind("bitset::test", 0), 0u) << error.what();
        }
    }
    Take(Crafted(0x29));
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|0"});
}

TEST_F(ProbeEventTest, AHostIsReportedOncePerType) {
    Take(Crafted(0x2B));
    EXPECT_EQ(Events().size(), 1u);
    VelmCore::EnableTrace("LogScan", true);
    EXPECT_TRUE(Report(0, kAttacker));
    EXPECT_TRUE(HasTrace("ProbeType was already logged"));
    EXPECT_EQ(Events(), Texts{});
}

TEST_F(ProbeEventTest, AFingerprintScanCoversTheXmasAndNullPacketsThatFollow) {
    Take(Crafted(0x2B));
    Events();
    VelmCore::EnableTrace("LogScan", true);
    Take(Crafted(0x29));
    EXPECT_TRUE(
        HasTrace("ProbeType was already logged because we already detected fingerprint scan"));
    Take(Crafted(0));
    EXPECT_EQ(Events(), Texts{});
    EXPECT_TRUE(Inside().flows.IsEmpty());
    EXPECT_EQ(Inside().knownProbers.size(), 1u);
}

TEST_F(ProbeEventTest, AFingerprintScanDoesNotCoverASynFinScanNorAPortScan) {
    Take(Crafted(0x2B));
    Take(Crafted(0x03));
    TouchPorts(kAttacker, kHost, 65);
    CloseBin();
    EXPECT_EQ(Events(),
              (Texts{"7000: FingerprintScan|192.0.2.7|6|0", "7003: SynFinScan|192.0.2.7|6|0",
                     "7001: HostOrPortScan|192.0.2.7|6|0|1|65"}));
}

TEST_F(ProbeEventTest, AFingerprintScanBehindANullOrXmasScanIsReportedToo) {
    Take(Crafted(0));
    Take(Crafted(0x29));
    Take(Crafted(0x2B));
    EXPECT_EQ(Events(), (Texts{"7002: NullScan|192.0.2.7|6|0", "7004: XmasScan|192.0.2.7|6|0",
                               "7000: FingerprintScan|192.0.2.7|6|0"}));
}

TEST_F(ProbeEventTest, AFingerprintScanOfOneHostCoversNoOther) {
    Take(Crafted(0x2B));
    velm_log_entry_s other = Crafted(0x29);
    other.log_ip.v4.iph_src = Address("192.0.2.8");
    Take(other);
    EXPECT_EQ(Events().size(), 2u);
}

TEST_F(ProbeEventTest, AHostKnownForOneTypeIsReportedForAnother) {
    Take(Crafted(0x03));
    Take(Crafted(0));
    EXPECT_EQ(Events(), (Texts{"7003: SynFinScan|192.0.2.7|6|0", "7002: NullScan|192.0.2.7|6|0"}));
}

TEST_F(ProbeEventTest, AHostThatIsNotBlockedIsKnownForTheRetentionTime) {
    Take(Crafted(0x29));
    EXPECT_EQ(Expiry(kAttacker, 4), 301000u);
    VelmCore::AdvanceTickCount(299999);
    Maintain();
    Take(Crafted(0x29));
    EXPECT_EQ(Events().size(), 1u);
    VelmCore::AdvanceTickCount(1);
    Take(Crafted(0x29));  // nothing has forgotten it yet
    EXPECT_EQ(Events(), Texts{});
    Maintain();
    Take(Crafted(0x29));
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|0"});
}

TEST_F(ProbeEventTest, TheRetentionTimeIsASetting) {
    MakeLogWith("ScanningIpsRetentionMsec", "1234");
    Take(Crafted(0x29));
    EXPECT_EQ(Expiry(kAttacker, 4), 2234u);
}

TEST_F(ProbeEventTest, ANegativeBlockTimeShowsInTheEventAndBlocksNothing) {
    Configure(Configuration("[4] = {blockAttackerSeconds = -5}"));
    Take(Crafted(0x29));
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|-5"});
    EXPECT_EQ(Expiry(kAttacker, 4), 301000u);
    EXPECT_TRUE(Blocks().empty());
}

TEST_F(ProbeEventTest, ABlockTimeBeyond32BitsOfMillisecondsWraps) {
    Configure(Configuration("[4] = {blockAttackerSeconds = 4294968}"));
    Take(Crafted(0x29));
    EXPECT_EQ(Expiry(kAttacker, 4), 1000u + 704u);
    ASSERT_EQ(Blocks().size(), 1u);
}

TEST_F(ProbeEventTest, TheHeartbeatIsAskedForOnlyIfConfigured) {
    Configure(Configuration("[3] = {notifyImmediately = true}, [4] = {notifyImmediately = false}"));
    const unsigned long long before = Heartbeats();
    Take(Crafted(0x29));
    EXPECT_EQ(Heartbeats(), before);
    Take(Crafted(0x03));
    EXPECT_NE(Heartbeats(), before);
    const unsigned long long after = Heartbeats();
    Take(Crafted(0x03));
    EXPECT_EQ(Heartbeats(), after);
    EXPECT_EQ(Events().size(), 2u);
}

TEST_F(ProbeEventTest, ANumberTailIsAppendedAsAFieldOfItsOwn) {
    Take(Syn("10.0.0.1", kHost, 1));
    Log().WriteProbeEvent(OSTREL::CProbeConfiguration::HostOrPortScan, Address(kAttacker), 255,
                          L"%lu|%lu", 0ul, 4294967295ul);
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|255|0|0|4294967295"});
}

TEST_F(ProbeEventTest, TheEventIsTraced) {
    TraceScans();
    Take(Crafted(0x29));
    EXPECT_TRUE(HasTrace("WriteProbeEvent writing agent event 7004-XmasScan|192.0.2.7|6|0"));
}

// The event's text is a format when it is written. Whatever of the configuration reached it would
// be interpreted, and show.
TEST_F(ProbeEventTest, NoTextOfTheConfigurationReachesTheEventOrIsInterpreted) {
    Configure(R"({
        packetFilterLog = {cacheSize = 128},
        agentConfiguration = {hostID = 1, hostname = "%s%n%d"},
        packetFilterMap = {[1] = {name = "%s%n%d"}},
        trafficAnalysisConfiguration = {
            destIpList = {items = "%n%s/40", name = "%s%n|%d"},
            whitelistIpList = {items = "%d%s-", name = "%999d%s"}},
        platformInterfaceMap = {["%s"] = {}, ["192.0.2.%d"] = {}},
        probeConfigurationMap = {[4] = {blockAttackerSeconds = 60, name = "%s%n%d"}}})");
    Take(Crafted(0x29));
    EXPECT_EQ(Events(), (Texts{"2019: %n%s/40|%s%n/%d|${ipList}", "2019: %d%s-|%999d%s|${ipList}",
                               "7004: XmasScan|192.0.2.7|6|60"}));
}

TEST_F(ProbeEventTest, WithoutADriverTheEventShowsTheBlockTimeAllTheSame) {
    Log().SetKdi(nullptr);
    Configure(Configuration("[4] = {blockAttackerSeconds = 600}"));
    Take(Crafted(0x29));
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|600"});
    EXPECT_TRUE(Blocks().empty());
}

TEST_F(ProbeEventTest, OutsideAScriptCallNothingIsBlockedAndTheEventShowsTheBlockTime) {
    Configure(Configuration("[4] = {blockAttackerSeconds = 600}"));
    Take(Syn("10.0.0.1", kHost, 1));
    EXPECT_TRUE(Log().WriteProbeEvent(OSTREL::CProbeConfiguration::XmasScan, Address(kAttacker), 6,
                                      nullptr));
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|600"});
    EXPECT_TRUE(Blocks().empty());
}

TEST_F(ProbeEventTest, ATypeDroppedFromTheMapIsNotReportedAndKeepsItsNumberUnreachable) {
    Configure(Configuration("[3] = {blockAttackerSeconds = 9}"));
    Take(Syn("10.0.0.1", kHost, 1));
    Configure(Configuration("[0] = {}"));
    Take(Crafted(0x03));
    EXPECT_EQ(Events(), Texts{});
    EXPECT_EQ(Inside().blockAttackerSeconds[3], 9);
}

}  // namespace
