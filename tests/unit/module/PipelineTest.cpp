// The log object itself, and the way of an entry from its bytes to the cache.

#include "LogDataFixture.h"

namespace {

class PipelineTest : public LogDataTest {
protected:
    // The text under which the only cached record stands.
    std::string CachedText() const {
        return peer.cache.size() == 1 ? peer.cache.begin()->first : std::string("?");
    }
    // Packet data and log data as the line shows them.
    std::string Dumps() const {
        const std::string text = CachedText();
        return text.substr(text.rfind(", ", text.rfind(", ") - 1) + 2);
    }
};

TEST_F(PipelineTest, AcceptedEntryIsCachedWithItsTimesAndCount) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_repeat_count = 12;
    entry.log_last_usec = 700;
    EXPECT_TRUE(Write(entry));
    ASSERT_EQ(peer.cache.size(), 1u);
    const auto& record = peer.cache.begin()->second;
    EXPECT_EQ(record.m_Count, 12u);
    EXPECT_EQ(record.m_FirstTime, 1763069729000500);
    EXPECT_EQ(record.m_LastTime, 1763069729000700);
}

TEST_F(PipelineTest, RepeatCountOfZeroIsTakenAsItStands) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_repeat_count = 0;
    Write(entry);
    EXPECT_EQ(peer.cache.begin()->second.m_Count, 0u);
}

TEST_F(PipelineTest, RefusedEntryIsNotCached) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_reason = 10000;
    EXPECT_FALSE(Write(entry));
    EXPECT_TRUE(peer.cache.empty());
}

TEST_F(PipelineTest, FailedWriteShowsInTheResult) {
    configuration.Set(
        "{packetFilterLog = {}, trafficAnalysisConfiguration = {}, "
        "probeConfigurationMap = {}}");
    log.SetLogFileName("missing/fw");
    EXPECT_FALSE(Write(TcpEntry()));
    EXPECT_EQ(Events(), Texts({"6001: " + directory.Path("missing/fw")}));
}

TEST_F(PipelineTest, LogDataLengthIsCutToTheBlock) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_data_len = 500;
    Write(entry, "", "\xAA\xBB");
    EXPECT_EQ(Dumps(), ", AABB");
}

TEST_F(PipelineTest, SmallerLogDataLengthStays) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_data_len = 1;
    Write(entry, "", "\xAA\xBB");
    EXPECT_EQ(Dumps(), ", AA");
}

TEST_F(PipelineTest, PointerOfTheSenderIsIgnored) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_data_ptr = 0x12345678;
    entry.log_data_len = 1;
    Write(entry, "", "\xAA");
    EXPECT_EQ(Dumps(), ", AA");
}

TEST_F(PipelineTest, PacketDataThatIsNotThereReadsAsZero) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 5;
    Write(entry, "\xAA\xBB");
    EXPECT_EQ(Dumps(), "AABB000000, ");
}

TEST_F(PipelineTest, PacketDataOfNothingReadsAsZero) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 65535;
    Write(entry);
    EXPECT_EQ(Dumps(), std::string(131070, '0') + ", ");
}

TEST_F(PipelineTest, PacketDataBeyondTheRoomIsCut) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 65535;
    Write(entry, std::string(100000, '\xAA'));
    EXPECT_EQ(Dumps(), std::string(2 * 65356, 'A') + std::string(2 * 179, '0') + ", ");
}

TEST_F(PipelineTest, PacketDataOfExactlyTheRoomIsWhole) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 65356;
    Write(entry, std::string(65356, '\xAA'));
    EXPECT_EQ(Dumps(), std::string(2 * 65356, 'A') + ", ");
}

TEST_F(PipelineTest, DataOfAnEarlierEntryDoesNotShowUpInALaterOne) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 64;
    Write(entry, std::string(64, '\xAA'));
    log.FlushBufferedData(true);
    Write(entry);
    EXPECT_EQ(Dumps(), std::string(128, '0') + ", ");
}

TEST_F(PipelineTest, EmptyTextIsRefusedBeforeAnyDecision) {
    EXPECT_FALSE(log.ProcessLogData("", 0, nullptr));
    EXPECT_EQ(peer.lastConfigUpdate, 0xFFFFFFFFFFFFFFFF);
}

TEST_F(PipelineTest, CallWithoutAConfigurationRefusesTheFirstEntry) {
    const velm_log_entry_s entry = TcpEntry();
    EXPECT_FALSE(log.WriteLogData(&entry, nullptr, 0, nullptr, 0));
    EXPECT_TRUE(log.WriteLogData(&entry, nullptr, 0, nullptr, 0));
}

TEST_F(PipelineTest, StagesAreTracedInTheirOrder) {
    TraceScope trace;
    OSTREL::LogData traced(dom);
    traced.SetDriverName("packet");
    trace.Take();
    velm_log_entry_s entry = TcpEntry();
    entry.log_if_index = 0xFFFFFFFF;
    EXPECT_FALSE(traced.WriteLogData(&entry, nullptr, 0, nullptr, 0));
    const Texts messages = trace.Take();
    ASSERT_EQ(messages.size(), 7u);
    EXPECT_EQ(messages[0], "WriteLogData(packetDataLen=0)");
    EXPECT_EQ(messages[1].substr(0, 9), "f, 0, 1, ");
    EXPECT_EQ(messages[2], "ProcessLogData() for packet");
    EXPECT_EQ(messages[3], "LogData::ProcessLogEntry()");
    EXPECT_EQ(messages[5], "ProcessLogEntry returned false");
    EXPECT_EQ(messages[6], "ProcessLogEntry returning 0");
}

TEST_F(PipelineTest, DestructionWritesNothing) {
    {
        OSTREL::LogData shortLived(dom);
        shortLived.SetLogFilePath(directory.Path());
        shortLived.SetLogFileName("fw");
        shortLived.CacheRecord("a", 1, 1, 1);
    }
    EXPECT_TRUE(directory.Names().empty());
}

TEST_F(PipelineTest, DestructionClosesTheFile) {
    int fd;
    {
        OSTREL::LogData shortLived(dom);
        shortLived.SetLogFilePath(directory.Path());
        shortLived.InitializeLogFile();
        fd = OSTREL::LogDataPeer(shortLived).logFile.fd();
        EXPECT_NE(fcntl(fd, F_GETFD), -1);
    }
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(PipelineTest, DefaultsOfANewLog) {
    OSTREL::LogData fresh(dom);
    OSTREL::LogDataPeer fields(fresh);
    EXPECT_EQ(fresh.GetLogFilePath(), "/var/log/velm_agent");
    EXPECT_EQ(fresh.GetLogFileName(), "velm_mpnp");
    EXPECT_EQ(fresh.GetLogFileFullPath(), "/var/log/velm_agent/velm_mpnp");
    EXPECT_EQ(fresh.GetDriverName(), "");
    EXPECT_EQ(fields.driverPrefix, "");
    EXPECT_EQ(fresh.GetLogFileSizeKB(), 1024);
    EXPECT_EQ(fresh.GetNumberOfOldCopies(), 7);
    EXPECT_EQ(fields.ignoreIpList, nullptr);
    EXPECT_TRUE(fields.firstRetrieval[0]);
    EXPECT_TRUE(fields.firstRetrieval[1]);
    EXPECT_FALSE(fields.firstRetrieval[2]);
    EXPECT_STREQ(fields.lastLineKeys[0], "plg.ostrel.lastline.packet");
    EXPECT_STREQ(fields.lastLineKeys[1], "plg.ostrel.lastline.payload");
    EXPECT_STREQ(fields.lastLineKeys[2], "plg.ostrel.lastline.pcap");
    EXPECT_FALSE(fields.outOfSpace);
    EXPECT_FALSE(fields.rawRecords);
    EXPECT_EQ(fields.configUtils, nullptr);
    EXPECT_EQ(fields.vmProtection, 0);
    EXPECT_EQ(fields.kdiHandle, nullptr);
    EXPECT_EQ(fields.lastInterfaceIndex, -1);
    EXPECT_EQ(fields.lastInterfaceId, -1);
    EXPECT_FALSE(fields.logFile.IsOpened());
}

TEST_F(PipelineTest, PathAndNameAreJoinedWithExactlyOneSlash) {
    log.SetLogFilePath("/x");
    log.SetLogFileName("y");
    EXPECT_EQ(log.GetLogFileFullPath(), "/x/y");
    log.SetLogFilePath("/x/");
    EXPECT_EQ(log.GetLogFileFullPath(), "/x//y");
    EXPECT_EQ(log.GetLogFilePath(), "/x/");
    EXPECT_EQ(log.GetLogFileName(), "y");
}

TEST_F(PipelineTest, NewNameTakesEffectAtTheNextOpen) {
    log.InitializeLogFile();
    log.SetLogFileName("other");
    EXPECT_TRUE(peer.logFile.IsOpened());
    log.WriteRecord("a", {0, 1000000, 0, 1000000, 1});
    log.CloseAndRotateFile();
    log.WriteRecord("b", {0, 1000000, 0, 1000000, 1});
    EXPECT_EQ(File("fw"), CachedLine("a"));
    EXPECT_EQ(File("other"), CachedLine("b"));
}

TEST_F(PipelineTest, DriverNameMakesThePrefix) {
    log.SetDriverName("packet");
    EXPECT_EQ(log.GetDriverName(), "packet");
    EXPECT_EQ(peer.driverPrefix, "packet: ");
}

TEST_F(PipelineTest, FileNameByDriver) {
    EXPECT_EQ(log.GetLogFilename(OSTREL::DriverFirewall), directory.Path("fw"));
    EXPECT_EQ(log.GetLogFilename(OSTREL::PseudoDriverPcap), directory.Path("fw"));
    EXPECT_EQ(log.GetLogFilename(OSTREL::DriverDpi), "");
}

TEST_F(PipelineTest, FileNameOfAnUnknownDriverFailsTheAssertion) {
    const unsigned int failed = VelmCore::FailedAssertions();
    EXPECT_EQ(log.GetLogFilename(static_cast<OSTREL::_Driver>(3)), "");
    EXPECT_EQ(VelmCore::FailedAssertions(), failed + 1);
    EXPECT_NE(TakeLogLines().at(0).find("whichDriver <= PseudoDriverPcap"), std::string::npos);
}

TEST_F(PipelineTest, DrainOfAnEmptyQueueReturnsAtOnce) {
    log.DrainQueue(4000000000);
}

TEST_F(PipelineTest, DrainOfZeroMillisecondsDoesNotLookAtTheQueue) {
    peer.eventQueue.push_back("event");
    log.DrainQueue(0);
}

TEST_F(PipelineTest, DrainBelowSixteenMillisecondsDoesNotSleepBetweenItsLooks) {
    peer.eventQueue.push_back("event");
    VelmCore::UseSystemClock();
    const unsigned int start = VelmCore::SystemTickCount();
    log.DrainQueue(15);
    EXPECT_GE(VelmCore::SystemTickCount() - start, 15u);
}

TEST_F(PipelineTest, DrainIsTraced) {
    TraceScope trace;
    log.DrainQueue(750);
    EXPECT_TRUE(
        trace.Has("DrainQueue(): waiting up to 750 msec for our queue of events awaiting "
                  "formatting to empty"));
}

}  // namespace
