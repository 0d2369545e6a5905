// The cache that counts repeats: what makes a repeat, and when a record leaves.

#include "LogDataFixture.h"

namespace {

class CacheTest : public LogDataTest {
protected:
    Texts Cached() const {
        Texts texts;
        for (const auto& record : peer.cache)
            texts.push_back(record.first);
        return texts;
    }
    const OSTREL::LogData::CBufferedLogRecord& Record(const std::string& text) const {
        return peer.cache.at(text);
    }
};

TEST_F(CacheTest, NewRecordHoldsItsTicksTimesAndCount) {
    EXPECT_TRUE(log.CacheRecord("a", 11, 22, 33));
    EXPECT_EQ(Record("a").m_FirstTicks, 1000u);
    EXPECT_EQ(Record("a").m_LastTicks, 1000u);
    EXPECT_EQ(Record("a").m_FirstTime, 11);
    EXPECT_EQ(Record("a").m_LastTime, 22);
    EXPECT_EQ(Record("a").m_Count, 33u);
}

TEST_F(CacheTest, TextsThatDifferInOneByteAreTwoRecords) {
    Cache("text a");
    Cache("text b");
    EXPECT_EQ(Cached(), Texts({"text a", "text b"}));
}

TEST_F(CacheTest, TextsDifferBehindAZeroByteAndByLength) {
    Cache(std::string("a\0b", 3));
    Cache(std::string("a\0c", 3));
    Cache("a");
    EXPECT_EQ(peer.cache.size(), 3u);
    EXPECT_EQ(peer.cache.begin()->first, "a");
}

TEST_F(CacheTest, RepeatAddsItsCountAndMovesItsLastTick) {
    Cache("a", 2);
    Advance(500);
    Cache("a", 40);
    EXPECT_EQ(Record("a").m_Count, 42u);
    EXPECT_EQ(Record("a").m_FirstTicks, 1000u);
    EXPECT_EQ(Record("a").m_LastTicks, 1500u);
}

TEST_F(CacheTest, EarlierFirstTimeLowersIt) {
    log.CacheRecord("a", 100, 200, 1);
    log.CacheRecord("a", 50, 200, 1);
    log.CacheRecord("a", 70, 200, 1);
    EXPECT_EQ(Record("a").m_FirstTime, 50);
}

TEST_F(CacheTest, EarlierLastTimeLeavesItAlone) {
    log.CacheRecord("a", 100, 200, 1);
    log.CacheRecord("a", 100, 150, 1);
    EXPECT_EQ(Record("a").m_LastTime, 200);
    log.CacheRecord("a", 100, 250, 1);
    EXPECT_EQ(Record("a").m_LastTime, 250);
}

TEST_F(CacheTest, RepeatCostsNoDiskAccess) {
    Cache("a");
    Cache("a");
    EXPECT_TRUE(directory.Names().empty());
}

TEST_F(CacheTest, CountOfZeroIsWritten) {
    Cache("a", 0);
    Cache("a", 0);
    EXPECT_TRUE(log.FlushBufferedData(true));
    EXPECT_EQ(File(), "1970/01/01, 00:00:01, a, 0, 1000000, 1000000\n");
}

TEST_F(CacheTest, LineHoldsCountThenLastThenFirstTime) {
    log.CacheRecord("a", 2000001, 3000002, 7);
    log.FlushBufferedData(true);
    EXPECT_EQ(File(), "1970/01/01, 00:00:02, a, 7, 3000002, 2000001\n");
}

TEST_F(CacheTest, ForcedFlushWritesEverythingInTheOrderOfTheTexts) {
    Cache("b");
    Cache("a");
    Cache("C");
    EXPECT_TRUE(log.FlushBufferedData(true));
    EXPECT_EQ(File(), CachedLine("C") + CachedLine("a") + CachedLine("b"));
    EXPECT_TRUE(Cached().empty());
}

TEST_F(CacheTest, UnforcedFlushKeepsWhatIsNotDue) {
    Cache("a");
    EXPECT_TRUE(log.FlushBufferedData(false));
    EXPECT_EQ(Cached(), Texts({"a"}));
}

TEST_F(CacheTest, RecordWithoutRepeatGoesWhenItIsStale) {
    Cache("a");
    Advance(899999);
    log.FlushBufferedData(false);
    EXPECT_EQ(Cached(), Texts({"a"}));
    Advance(1);
    log.FlushBufferedData(false);
    EXPECT_EQ(File(), CachedLine("a"));
}

TEST_F(CacheTest, SteadyRepeatsGoAfterTheLifetimeAndBeginANewRecord) {
    for (int i = 0; i < 18; ++i) {
        Cache("a");
        Advance(100000);
    }
    Cache("a");
    EXPECT_EQ(File(), CachedLine("a", "19"));
    EXPECT_TRUE(Cached().empty());
    Cache("a");
    EXPECT_EQ(Record("a").m_Count, 1u);
}

TEST_F(CacheTest, RecordJustBelowItsLifetimeStays) {
    log.SetCacheParameters(128, 60000, 60000);
    Cache("a");
    Advance(59999);
    Cache("a");
    EXPECT_EQ(Cached(), Texts({"a"}));
    Advance(1);
    Cache("a");
    EXPECT_EQ(File(), CachedLine("a", "3"));
}

TEST_F(CacheTest, WrapOfTheTickCounterDoesNoHarm) {
    VelmCore::SetTickCount(0xFFFFFFFF);
    Cache("a");
    VelmCore::SetTickCount(899998);
    Cache("b");
    EXPECT_EQ(Cached(), Texts({"a", "b"}));
    VelmCore::SetTickCount(899999);
    Cache("c");
    EXPECT_EQ(Cached(), Texts({"b", "c"}));
}

TEST_F(CacheTest, ClockThatGoesBackMakesEveryRecordOld) {
    Cache("a");
    VelmCore::SetTickCount(999);
    Cache("b");
    EXPECT_EQ(File(), CachedLine("a"));
    EXPECT_EQ(Cached(), Texts({"b"}));
}

TEST_F(CacheTest, DueRecordsStayWithoutACall) {
    Cache("a");
    Advance(2000000);
    EXPECT_EQ(Cached(), Texts({"a"}));
    Cache("b");
    EXPECT_EQ(Cached(), Texts({"b"}));
}

TEST_F(CacheTest, DueRecordsAreWrittenInTheOrderOfTheTexts) {
    Cache("b");
    Advance(10);
    Cache("a");
    Advance(900000);
    log.FlushBufferedData(false);
    EXPECT_EQ(File(), CachedLine("a") + CachedLine("b"));
}

TEST_F(CacheTest, OldestOf129RecordsGoesAnd128Stay) {
    for (int i = 0; i < 129; ++i) {
        Cache("record " + std::to_string(1000 - i));
        Advance(1);
    }
    EXPECT_EQ(File(), CachedLine("record 1000"));
    EXPECT_EQ(peer.cache.size(), 128u);
}

TEST_F(CacheTest, OfTwoOfTheSameAgeTheLongerIdleGoes) {
    log.SetCacheParameters(2, 60000, 60000);
    Cache("a");
    Cache("b");
    Advance(5);
    Cache("b");
    Cache("c");
    EXPECT_EQ(File(), CachedLine("a"));
}

TEST_F(CacheTest, AgeCountsBeforeIdleTime) {
    log.SetCacheParameters(2, 60000, 60000);
    Cache("b");
    Advance(5);
    Cache("a");
    Advance(5);
    Cache("b");
    Cache("c");
    EXPECT_EQ(File(), CachedLine("b", "2"));
}

TEST_F(CacheTest, OnAFullTieTheLaterTextGoes) {
    log.SetCacheParameters(2, 60000, 60000);
    Cache("b");
    Cache("a");
    Cache("c");
    EXPECT_EQ(File(), CachedLine("c"));
}

TEST_F(CacheTest, DueRecordMakesRoomSoNoOtherGoes) {
    log.SetCacheParameters(2, 60000, 10000);
    Cache("b");
    Advance(5000);
    Cache("a");
    Advance(5000);
    Cache("c");
    EXPECT_EQ(File(), CachedLine("b"));
    EXPECT_EQ(Cached(), Texts({"a", "c"}));
}

// "z" is due and the oldest so far; behind it the search begins anew, so that "zz" goes although
// "a" is older.
TEST_F(CacheTest, SearchForTheOldestBeginsAnewBehindADueRecord) {
    log.SetCacheParameters(10, 60000, 10000);
    Cache("a");
    Cache("z");
    Advance(9000);
    Cache("a");
    Advance(500);
    Cache("zz");
    Advance(500);
    log.SetCacheParameters(1, 60000, 10000);
    EXPECT_EQ(File(), CachedLine("z") + CachedLine("zz"));
    EXPECT_EQ(Cached(), Texts({"a"}));
}

TEST_F(CacheTest, CacheTooBigWithoutAnOldestRecordWarnsAndStaysUntilTheNextFlush) {
    log.SetCacheParameters(10, 60000, 10000);
    Cache("z");
    Advance(9000);
    Cache("a");
    Cache("b");
    Advance(1000);
    VelmCore::TakeLog();
    const unsigned int failed = VelmCore::FailedAssertions();
    log.SetCacheParameters(1, 60000, 10000);
    const Texts lines = TakeLogLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0],
              "warning: FlushBufferedData() -  cache is too big, but we didn't locate the oldest "
              "record!");
    EXPECT_NE(lines[1].find("oldestRecord != this->m_LogRecordMap.end()"), std::string::npos);
    EXPECT_EQ(VelmCore::FailedAssertions(), failed + 1);
    EXPECT_EQ(File(), CachedLine("z") + CachedLine("b"));
    EXPECT_EQ(Cached(), Texts({"a"}));
}

TEST_F(CacheTest, RecordWhoseWriteFailsIsLost) {
    log.SetLogFileName("missing/fw");
    Cache("a");
    EXPECT_FALSE(log.FlushBufferedData(true));
    EXPECT_TRUE(Cached().empty());
    EXPECT_TRUE(log.FlushBufferedData(true));
}

TEST_F(CacheTest, WalkGoesOnBehindAFailedWrite) {
    log.SetLogFileName("missing/fw");
    Cache("a");
    Cache("b");
    EXPECT_FALSE(log.FlushBufferedData(true));
    EXPECT_EQ(Events().size(), 2u);  // one for each record
    EXPECT_TRUE(Cached().empty());
}

TEST_F(CacheTest, CacheRecordReturnsTheFlushsResult) {
    log.SetLogFileName("missing/fw");
    log.SetCacheParameters(1, 60000, 60000);
    EXPECT_TRUE(Cache("a"));
    EXPECT_FALSE(Cache("b"));
}

TEST_F(CacheTest, ForcedFlushOfAnEmptyCacheClosesTheFile) {
    ASSERT_TRUE(log.InitializeLogFile());
    EXPECT_TRUE(log.FlushBufferedData(true));
    EXPECT_FALSE(peer.logFile.IsOpened());
    EXPECT_EQ(directory.Names(), Texts({"fw"}));
}

TEST_F(CacheTest, ForcedFlushOfAnEmptyCacheMayRotate) {
    directory.Plant("fw", std::string(1024, '.'));
    log.SetLogFileSizeKB(1);
    log.InitializeLogFile();
    EXPECT_TRUE(log.FlushBufferedData(true));
    EXPECT_EQ(directory.Names(), Texts({"fw.1"}));
}

TEST_F(CacheTest, FlushThatWroteNothingRotatesNothing) {
    directory.Plant("fw", std::string(1024, '.'));
    log.SetLogFileSizeKB(1);
    EXPECT_TRUE(log.FlushBufferedData(true));
    EXPECT_EQ(directory.Names(), Texts({"fw"}));
}

TEST_F(CacheTest, FileIsClosedBehindAFlush) {
    Cache("a");
    log.FlushBufferedData(true);
    EXPECT_FALSE(peer.logFile.IsOpened());
}

TEST_F(CacheTest, InsertAndRepeatAreTraced) {
    log.SetDriverName("packet");
    TraceScope trace;
    Cache("a");
    EXPECT_TRUE(
        trace.Has("CacheRecord() - added packet record to cache. Size of cache is now 1 records"));
    Advance(250);
    Cache("a");
    EXPECT_TRUE(trace.Has(
        "CacheRecord() - incremented count to 2 for cached packet record that is 250 msec old"));
}

}  // namespace
