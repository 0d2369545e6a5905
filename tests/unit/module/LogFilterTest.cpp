// What an entry must pass to be logged, and the settings that the first one reads.

#include "LogDataFixture.h"

namespace {

class LogFilterTest : public LogDataTest {
protected:
    // The decision on an entry, without the cache behind it.
    bool Decide(const velm_log_entry_s& entry) {
        OSTREL::WorkingRecord record;
        record.Assign(entry, nullptr, 0, nullptr, 0);
        OSTREL::ConfigUtils utils(configuration.State(), ConfigurationTable::kIndex);
        log.SetConfigUtils(&utils);
        const bool result = log.ProcessLogEntry("text", 0, &record);
        log.SetConfigUtils(nullptr);
        configuration.EndCall();
        return result;
    }
    static velm_log_entry_s EntryWithReason(int16_t reason) {
        velm_log_entry_s entry = TcpEntry();
        entry.log_reason = reason;
        return entry;
    }
    // A configuration with these fields in its table packetFilterLog.
    static std::string WithLogSettings(const std::string& fields) {
        return "{packetFilterLog = {" + fields +
               "}, trafficAnalysisConfiguration = {}, probeConfigurationMap = {}}";
    }
};

TEST_F(LogFilterTest, FirstEntryAlwaysReadsTheConfiguration) {
    EXPECT_EQ(peer.lastConfigUpdate, 0xFFFFFFFFFFFFFFFF);
    configuration.Set(WithLogSettings("size = 5, keep = 4, cacheSize = 6"));
    EXPECT_TRUE(Decide(TcpEntry()));
    EXPECT_EQ(log.GetLogFileSizeKB(), 5);
    EXPECT_EQ(log.GetNumberOfOldCopies(), 3);
    EXPECT_EQ(peer.cacheSize, 6u);
    EXPECT_EQ(peer.cacheLifetimeMsec, 60000u);
    EXPECT_EQ(peer.cacheStaleTimeMsec, 10000u);
}

TEST_F(LogFilterTest, ConfigurationIsReadAgainOnlyAfterAnUpdate) {
    Decide(TcpEntry());
    configuration.Set(WithLogSettings("size = 5"));
    Decide(TcpEntry());
    EXPECT_EQ(log.GetLogFileSizeKB(), 1024);
    dom.ConditionRaise("app.configUpdated");
    Decide(TcpEntry());
    EXPECT_EQ(log.GetLogFileSizeKB(), 5);
}

TEST_F(LogFilterTest, SizeAndKeepOfZeroOrBelowLeaveTheMembers) {
    configuration.Set(WithLogSettings("size = 0, keep = 0"));
    Decide(TcpEntry());
    EXPECT_EQ(log.GetLogFileSizeKB(), 1024);
    EXPECT_EQ(log.GetNumberOfOldCopies(), 7);
    Configure(WithLogSettings("size = -1, keep = -1"));
    Decide(TcpEntry());
    EXPECT_EQ(log.GetLogFileSizeKB(), 1024);
    EXPECT_EQ(log.GetNumberOfOldCopies(), 7);
}

TEST_F(LogFilterTest, KeepOfOneKeepsNoOldCopy) {
    configuration.Set(WithLogSettings("keep = 1"));
    Decide(TcpEntry());
    EXPECT_EQ(log.GetNumberOfOldCopies(), 0);
}

TEST_F(LogFilterTest, MissingCacheSizeTurnsTheCacheOff) {
    configuration.Set(WithLogSettings("cacheLifetime = 100000, cacheStaletime = 100000"));
    EXPECT_TRUE(Write(TcpEntry()));
    EXPECT_EQ(peer.cacheSize, 0u);
    EXPECT_EQ(peer.cacheLifetimeMsec, 0u);
    EXPECT_TRUE(peer.cache.empty());
    EXPECT_TRUE(directory.Has("fw"));
}

TEST_F(LogFilterTest, RefreshLetsRecordsGoThatNoLongerFit) {
    Decide(TcpEntry());
    Cache("a");
    Cache("b");
    Configure(WithLogSettings("cacheSize = 1"));
    Decide(TcpEntry());
    EXPECT_EQ(File(), CachedLine("b"));
}

TEST_F(LogFilterTest, MissingLogSettingsRefuseTheEntryOnceAndLeaveEverything) {
    configuration.Set("{trafficAnalysisConfiguration = {}, probeConfigurationMap = {}}");
    EXPECT_FALSE(Decide(TcpEntry()));
    EXPECT_EQ(peer.cacheSize, 128u);
    EXPECT_EQ(log.GetNumberOfOldCopies(), 7);
    configuration.Set(kConfiguration);
    peer.cacheSize = 99;
    EXPECT_TRUE(Decide(TcpEntry()));
    EXPECT_EQ(peer.cacheSize, 99u);  // the refresh was not tried again
}

TEST_F(LogFilterTest, MissingAnalysisSettingsRefuseAPacketLogWithTheLogSettingsChanged) {
    configuration.Set("{packetFilterLog = {size = 5, keep = 3, cacheSize = 9}}");
    EXPECT_FALSE(Decide(TcpEntry()));
    EXPECT_EQ(log.GetLogFileSizeKB(), 5);
    EXPECT_EQ(log.GetNumberOfOldCopies(), 2);
    EXPECT_EQ(peer.cacheSize, 9u);
    EXPECT_TRUE(Decide(TcpEntry()));
}

TEST_F(LogFilterTest, PayloadLogDoesNotNeedTheAnalysisSettings) {
    configuration.Set("{packetFilterLog = {}}");
    EXPECT_TRUE(Decide(EntryWithReason(-1)));
}

TEST_F(LogFilterTest, PayloadLogFirstLeavesTheAnalysisSettingsUntilTheNextUpdate) {
    configuration.Set(R"({packetFilterLog = {cacheSize = 5}, trafficAnalysisConfiguration = {
        destIpList = {items = "1.1.1.1"}}, probeConfigurationMap = {[2] = {}}})");
    EXPECT_TRUE(Decide(EntryWithReason(-1)));
    EXPECT_EQ(peer.cacheSize, 5u);
    EXPECT_TRUE(Decide(TcpEntry()));
    EXPECT_EQ(peer.destIpList, nullptr);
    EXPECT_TRUE(peer.enabledProbes.none());
    dom.ConditionRaise("app.configUpdated");
    EXPECT_TRUE(Decide(TcpEntry()));
    ASSERT_NE(peer.destIpList, nullptr);
    EXPECT_EQ(peer.enabledProbes, std::bitset<5>(4));
}

TEST_F(LogFilterTest, IgnoreListIsReplacedAndTheFormerOneIsNotFreed) {
    configuration.Set(WithLogSettings("ignoreIpList = {items = '10.0.0.5'}"));
    Decide(TcpEntry());
    OSTREL::IpSpaceList* former = peer.ignoreIpList;
    ASSERT_NE(former, nullptr);
    Configure(WithLogSettings("ignoreIpList = {items = '10.0.0.6'}"));
    EXPECT_TRUE(Decide(TcpEntry()));
    EXPECT_NE(peer.ignoreIpList, former);
    EXPECT_EQ(former->front().low, Address("10.0.0.5"));
    delete former;
}

TEST_F(LogFilterTest, MissingIgnoreListIgnoresNobodyAgain) {
    configuration.Set(WithLogSettings("ignoreIpList = {items = '10.0.0.5'}"));
    EXPECT_FALSE(Decide(TcpEntry()));
    delete peer.ignoreIpList;
    Configure(WithLogSettings(""));
    EXPECT_TRUE(Decide(TcpEntry()));
    EXPECT_EQ(peer.ignoreIpList, nullptr);
}

TEST_F(LogFilterTest, IgnoredSourceIsNotLogged) {
    configuration.Set(WithLogSettings("cacheSize = 5, ignoreIpList = {items = '10.0.0.0/24'}"));
    EXPECT_FALSE(Write(TcpEntry()));
    EXPECT_TRUE(peer.cache.empty());
    velm_log_entry_s other = TcpEntry();
    other.log_ip.v4.iph_src = Address("10.0.1.5");
    EXPECT_TRUE(Write(other));
}

TEST_F(LogFilterTest, IgnoreListSeesTheSameBytesOfEveryRecord) {
    configuration.Set(WithLogSettings("ignoreIpList = {items = '1.2.3.4'}"));
    velm_log_entry_s entry = Ipv6Entry(6);
    EXPECT_TRUE(Decide(entry));
    memcpy(entry.log_ip.v6.ipv6h_src.bytes + 4, "\1\2\3\4", 4);
    EXPECT_FALSE(Decide(entry));
    entry.log_flags = 0;
    EXPECT_FALSE(Decide(entry));
}

TEST_F(LogFilterTest, IgnoredSourceIsTracedIfTraceWasOnWhenTheLogWasMade) {
    TraceScope trace;
    configuration.Set(WithLogSettings("ignoreIpList = {items = '10.0.0.5'}"));
    Decide(TcpEntry());
    EXPECT_FALSE(trace.Has("Ignoring log from 10.0.0.5"));
    OSTREL::LogData traced(dom);
    OSTREL::LogDataPeer(traced).lastConfigUpdate = peer.lastConfigUpdate;
    OSTREL::LogDataPeer(traced).ignoreIpList = peer.ignoreIpList;
    OSTREL::WorkingRecord record;
    record.Assign(TcpEntry(), nullptr, 0, nullptr, 0);
    EXPECT_FALSE(traced.ProcessLogEntry("text", 0, &record));
    EXPECT_TRUE(trace.Has("Ignoring log from 10.0.0.5"));
}

TEST_F(LogFilterTest, EngineNoticeIsStoredAndRaisesTheHeartbeat) {
    const unsigned long long before = Condition("velm.HeartbeatNow");
    EXPECT_FALSE(Write(EntryWithReason(-5000)));
    EXPECT_EQ(peer.vmProtection, 1);
    EXPECT_EQ(Setting("VmProtection"), 1);
    EXPECT_NE(Condition("velm.HeartbeatNow"), before);
    EXPECT_TRUE(peer.cache.empty());
}

TEST_F(LogFilterTest, SecondEngineNoticeInARowChangesNothing) {
    Decide(EntryWithReason(-5000));
    dom.Set("VmProtection", 9);
    const unsigned long long before = Condition("velm.HeartbeatNow");
    EXPECT_FALSE(Decide(EntryWithReason(-5000)));
    EXPECT_EQ(Setting("VmProtection"), 9);
    EXPECT_EQ(Condition("velm.HeartbeatNow"), before);
}

TEST_F(LogFilterTest, OtherEngineNoticeChangesTheState) {
    Decide(EntryWithReason(-5000));
    const unsigned long long before = Condition("velm.HeartbeatNow");
    EXPECT_FALSE(Decide(EntryWithReason(-5010)));
    EXPECT_EQ(peer.vmProtection, 2);
    EXPECT_EQ(Setting("VmProtection"), 2);
    EXPECT_NE(Condition("velm.HeartbeatNow"), before);
}

TEST_F(LogFilterTest, EngineNoticeReadsTheConfigurationFirst) {
    configuration.Set("{}");
    EXPECT_FALSE(Decide(EntryWithReason(-5000)));
    EXPECT_EQ(peer.vmProtection, 0);  // the failed refresh ended it
    EXPECT_FALSE(Decide(EntryWithReason(-5000)));
    EXPECT_EQ(peer.vmProtection, 1);
}

TEST_F(LogFilterTest, NeighboursOfTheEngineNoticesAreLogged) {
    for (int16_t reason : {-4999, -5001, -5009, -5011})
        EXPECT_TRUE(Decide(EntryWithReason(reason)));
    EXPECT_EQ(peer.vmProtection, 0);
}

TEST_F(LogFilterTest, FlowEndsAreNeverLogged) {
    EXPECT_FALSE(Decide(EntryWithReason(10000)));
    EXPECT_FALSE(Decide(EntryWithReason(10001)));
    EXPECT_TRUE(Decide(EntryWithReason(9999)));
    EXPECT_TRUE(Decide(EntryWithReason(10002)));
}

TEST_F(LogFilterTest, EntryForAnalysisOnlyIsNotLogged) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x40;
    EXPECT_FALSE(Decide(entry));
    entry.log_dpi_flags = 0xBF;
    EXPECT_TRUE(Decide(entry));
}

TEST_F(LogFilterTest, OnlyAPayloadLogForAnalysisIsTraced) {
    TraceScope trace;
    velm_log_entry_s entry = EntryWithReason(-1);
    entry.log_dpi_flags = 0x40;
    entry.log_filter_id = 0xFFFFFFFE;
    Decide(entry);
    EXPECT_TRUE(trace.Has("Ignoring payload log id=-2"));
    entry.log_reason = 0;
    Decide(entry);
    EXPECT_FALSE(trace.Has("Ignoring payload log id=-2"));
}

TEST_F(LogFilterTest, RefreshIsTraced) {
    TraceScope trace;
    Decide(TcpEntry());
    const Texts messages = trace.Take();
    ASSERT_GE(messages.size(), 2u);
    EXPECT_EQ(messages[0], "LogData::ProcessLogEntry()");
    EXPECT_EQ(messages[1], "LogData::ProcessLogEntry() - getting updated settings from config.");
}

}  // namespace
