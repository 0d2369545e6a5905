#include "DetectionFixture.h"

// Which entries are looked at, and which of them count as flows.
namespace {

class PacketAnalysisTest : public DetectionTest {
protected:
    // True if the entry, alone in its bin, came into the flow statistic.
    bool Counts(const velm_log_entry_s& entry) {
        Inside().flows = OSTREL::FlowBin();
        Take(entry);
        return !Inside().flows.IsEmpty();
    }
    // The traces that say why an entry was turned away.
    std::string Refusal(const velm_log_entry_s& entry) {
        Trace();
        Take(entry);
        for (const std::string& message : Trace()) {
            if (message.find("returning because") != std::string::npos) return message;
        }
        return "";
    }
};

// One entry that fails every test; each step mends what the test before has found.
TEST_F(PacketAnalysisTest, TheTestsAreTriedInTheirOrder) {
    Configure(Configuration("", R"(
        destIpList = {items = "10.9.9.9", name = "watched"},
        whitelistIpList = {items = "192.0.2.7", name = "exempt"})"));
    TraceScans();
    Take(Syn("10.1.1.1", kHost, 1));  // reads the configuration
    velm_log_entry_s entry = {};
    entry.log_reason = -1;
    entry.log_flags = 0x01 | 0x10;
    entry.log_ip.v4.iph_proto = 1;
    EXPECT_EQ(Refusal(entry), "AnalyzeLogEntry - returning because it not packet");
    entry.log_reason = 10000;
    EXPECT_EQ(Refusal(entry), "AnalyzeLogEntry - returning because it is Outgoing");
    entry.log_flags = 0x10 | 0x40;
    EXPECT_EQ(Refusal(entry),
              "AnalyzeLogEntry - returning because protocol does not use port numbers");
    entry.log_ip.v4.iph_proto = 6;
    EXPECT_EQ(Refusal(entry), "AnalyzeLogEntry - returning because both port fields are 0");
    entry.log_transport.tcp.tcph_dport = htons(80);
    EXPECT_EQ(Refusal(entry),
              "AnalyzeLogEntry - returning because iph_src and iph_dest are both 0");
    entry.log_ip.v4.iph_src = Address(kAttacker);
    EXPECT_EQ(Refusal(entry), "AnalyzeLogEntry - returning because no probe configs are enabled");
    Inside().enabledProbes.set(0);
    EXPECT_EQ(Refusal(entry),
              "AnalyzeLogEntry - returning because the ipv4 packet isn't from a host we care "
              "about");
    entry.log_ip.v4.iph_src = Address("192.0.2.8");
    EXPECT_EQ(Refusal(entry),
              "AnalyzeLogEntry - returning because the ipv4 packet isn't destined for a host we "
              "care about");
    entry.log_ip.v4.iph_dest = Address("10.9.9.9");
    EXPECT_EQ(Refusal(entry),
              "AnalyzeLogEntry - returning because log_reason_conntrack_closed_normal");
    entry.log_reason = 10001;
    EXPECT_EQ(Refusal(entry), "");
    EXPECT_EQ(FlowCount("192.0.2.8"), 1u);
}

TEST_F(PacketAnalysisTest, TheAnalysisSaysYesToEveryEntry) {
    OSTREL::WorkingRecord record;
    record.Assign(CraftedV6(0x29), nullptr, 0, nullptr, 0);
    EXPECT_TRUE(Log().AnalyzeLogEntry("", 0, &record));
    record.Assign(Syn(kAttacker, kHost, 80), nullptr, 0, nullptr, 0);
    EXPECT_TRUE(Log().AnalyzeLogEntry("", 0, &record));
}

TEST_F(PacketAnalysisTest, OtherProtocolsDoNotCount) {
    EXPECT_TRUE(Counts(Syn(kAttacker, kHost, 80)));
    EXPECT_TRUE(Counts(Datagram(kAttacker, kHost, 80)));
    EXPECT_FALSE(Counts(Denied(kAttacker, kHost, 1, 80)));
    EXPECT_FALSE(Counts(Denied(kAttacker, kHost, 132, 80)));
}

TEST_F(PacketAnalysisTest, WithoutATransportHeaderNothingCounts) {
    velm_log_entry_s entry = Syn(kAttacker, kHost, 80);
    entry.log_flags = 0x10;
    EXPECT_FALSE(Counts(entry));
}

TEST_F(PacketAnalysisTest, ADatagramFromPort0Counts) {
    velm_log_entry_s entry = Datagram(kAttacker, kHost, 53);
    entry.log_transport.udp.udph_sport = 0;
    EXPECT_TRUE(Counts(entry));
    entry.log_transport.udp.udph_dport = 0;
    EXPECT_FALSE(Counts(entry));
}

TEST_F(PacketAnalysisTest, OneZeroAddressIsNoReasonToTurnAnEntryAway) {
    EXPECT_TRUE(Counts(Syn("0.0.0.0", kHost, 80)));
    EXPECT_TRUE(Counts(Syn(kAttacker, "0.0.0.0", 80)));
    EXPECT_FALSE(Counts(Syn("0.0.0.0", "0.0.0.0", 80)));
}

TEST_F(PacketAnalysisTest, AnIpv6EntryIsTurnedAwayOnlyIfBothAddressesAreZero) {
    TraceScans();
    velm_log_entry_s entry = CraftedV6(0x02);
    entry.log_ip.v6.ipv6h_src = {};
    EXPECT_EQ(Refusal(entry), "");
    entry.log_ip.v6.ipv6h_dest = {};
    EXPECT_EQ(Refusal(entry), "AnalyzeLogEntry - returning because ipv6h_src is zero");
}

TEST_F(PacketAnalysisTest, AListOfIpv6DestinationsTurnsEveryIpv6EntryAway) {
    TraceScans();
    EXPECT_EQ(Refusal(CraftedV6(0x02)), "");
    OSTREL::IpSpaceList list = {{false, 0, 0}};
    Inside().destIpListV6 = &list;
    EXPECT_EQ(Refusal(CraftedV6(0x02)),
              "AnalyzeLogEntry - returning because the ipv6 packet isn't destined for a host we "
              "care about");
    EXPECT_EQ(Refusal(Syn(kAttacker, kHost, 80)), "");
    Inside().destIpListV6 = nullptr;
}

TEST_F(PacketAnalysisTest, AnEntryThatClaimsBothVersionsIsAnIpv4Entry) {
    velm_log_entry_s entry = Crafted(0x29);
    entry.log_flags |= 0x20;
    Take(entry);
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|0"});
}

TEST_F(PacketAnalysisTest, WithoutADestinationListEveryDestinationCounts) {
    EXPECT_TRUE(Counts(Syn(kAttacker, "203.0.113.200", 80)));
}

TEST_F(PacketAnalysisTest, WithAnEmptyDestinationListNoDestinationCounts) {
    Configure(Configuration(kAllProbes, "destIpList = {}"));
    EXPECT_FALSE(Counts(Syn(kAttacker, kHost, 80)));
    Take(Crafted(0x29));
    EXPECT_EQ(Events(), Texts{});
}

TEST_F(PacketAnalysisTest, OnlyListedDestinationsCount) {
    Configure(Configuration(kAllProbes, "destIpList = {items = '198.51.100.0/24', name = 'ours'}"));
    EXPECT_TRUE(Counts(Syn(kAttacker, kHost, 80)));
    EXPECT_FALSE(Counts(Syn(kAttacker, "203.0.113.1", 80)));
}

TEST_F(PacketAnalysisTest, ADestinationListWithABadTokenLetsEveryDestinationCount) {
    Configure(
        Configuration(kAllProbes, "destIpList = {items = '10.0.0.1, 10.0.0.0/33', name = 'ours'}"));
    EXPECT_TRUE(Counts(Syn(kAttacker, kHost, 80)));
}

TEST_F(PacketAnalysisTest, AnExemptSourceRaisesNoEventAndIsNoFlow) {
    Configure(Configuration(kAllProbes,
                            "whitelistIpList = {items = '192.0.2.1-192.0.2.9', name = 'scanner'}"));
    for (const uint8_t flags : {0x02, 0x2B, 0xFF, 0x03, 0x00})
        Take(Crafted(flags));
    EXPECT_EQ(Events(), Texts{});
    EXPECT_TRUE(Inside().flows.IsEmpty());
}

TEST_F(PacketAnalysisTest, ANormalCloseNeverCounts) {
    velm_log_entry_s entry = Syn(kAttacker, kHost, 80);
    entry.log_reason = 10000;
    EXPECT_FALSE(Counts(entry));
    entry.log_reason = 10001;
    EXPECT_TRUE(Counts(entry));
}

TEST_F(PacketAnalysisTest, AnEntryThatOnlyLogsDoesNotCount) {
    velm_log_entry_s entry = Syn(kAttacker, kHost, 80);
    for (const uint16_t action : {0x06, 0x86}) {
        entry.log_action = action;
        EXPECT_FALSE(Counts(entry));
    }
    for (const uint16_t action : {0x00, 0x01, 0x05, 0x81}) {
        entry.log_action = action;
        EXPECT_TRUE(Counts(entry));
    }
}

TEST_F(PacketAnalysisTest, ADroppedRetransmitDoesNotCount) {
    velm_log_entry_s entry = Syn(kAttacker, kHost, 80);
    entry.log_reason = 139;
    EXPECT_FALSE(Counts(entry));
    entry.log_reason = 138;
    EXPECT_TRUE(Counts(entry));
}

TEST_F(PacketAnalysisTest, ASourceInTheHistoryListDoesNotCount) {
    TraceScans();
    velm_log_entry_s entry = Syn(kAttacker, kHost, 80);
    entry.log_flags2 = 0x01;
    EXPECT_FALSE(Counts(entry));
    EXPECT_TRUE(HasTrace("Ignoring packet with bSrcIPInHistoryList set."));
    entry.log_flags2 = 0xFE;
    EXPECT_TRUE(Counts(entry));
}

TEST_F(PacketAnalysisTest, AFlowKeepsAddressesAsOnTheWireAndItsDestinationPortAsANumber) {
    Take(Datagram(kAttacker, kHost, 0x1234));
    const OSTREL::FlowSets touched = Touched(kAttacker, 17);
    EXPECT_EQ(touched.first, std::set<uint32_t>{Address(kHost)});
    EXPECT_EQ(touched.second, std::set<uint16_t>{0x1234});
}

TEST_F(PacketAnalysisTest, EntriesThatAreNotLoggedAreAnalysedAllTheSame) {
    Configure(
        "{packetFilterLog = {ignoreIpList = {items = '192.0.2.7', name = 'quiet'}}, "
        "trafficAnalysisConfiguration = {}, probeConfigurationMap = {[0] = {}}}");
    EXPECT_FALSE(Take(Crafted(0x2B)));
    EXPECT_EQ(Events(), Texts{"7000: FingerprintScan|192.0.2.7|6|0"});
    velm_log_entry_s entry = Syn("192.0.2.8", kHost, 80);
    entry.log_dpi_flags = 0x40;
    EXPECT_FALSE(Take(entry));
    EXPECT_EQ(FlowCount("192.0.2.8"), 1u);
}

TEST_F(PacketAnalysisTest, APayloadLogLeavesTheAnalysisSettingsAsTheyWereUntilTheNextChange) {
    velm_log_entry_s payload = Syn(kAttacker, kHost, 80);
    payload.log_reason = -1;
    Take(payload);
    Take(Crafted(0x29));
    EXPECT_EQ(Events(), Texts{});
    dom.ConditionRaise("app.configUpdated");
    Take(Crafted(0x29));
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|0"});
}

TEST_F(PacketAnalysisTest, TheEntryThatBringsNewSettingsIsJudgedByThem) {
    Take(Crafted(0x02));
    Configure(Configuration("[4] = {blockAttackerSeconds = 60}"));
    Take(Crafted(0x29));
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|60"});
}

}  // namespace
