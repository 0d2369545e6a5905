// What depends on the width of a machine word: each platform has its own right answer.

#include <cstring>

#include "RetrievalFixture.h"
#include "Settings.h"

namespace {

constexpr bool kWideLong = sizeof(long) == 8;
constexpr bool kWideTime = sizeof(time_t) == 8;
constexpr bool kPointerFitsSlot = sizeof(void*) == 4;

constexpr uint32_t kYear2040 = 2208988800;  // 2040/01/01, 00:00:00 UTC, in seconds

using WordSizeTest = LogDataTest;

TEST_F(WordSizeTest, LogDataBlockStandsInThePointerSlotWhereAnAddressFits) {
    velm_log_entry_s entry = {};
    entry.log_data_len = 4;
    entry.log_data_ptr = 0x12345678;
    const unsigned char block[4] = {1, 2, 3, 4};
    OSTREL::WorkingRecord record;
    record.Assign(entry, nullptr, 0, block, sizeof block);
    EXPECT_EQ(record.LogDataBlock(), block);
    const uint32_t slot = record.Entry().log_data_ptr;
    const uintptr_t address = reinterpret_cast<uintptr_t>(block);
    EXPECT_EQ(slot, kPointerFitsSlot ? static_cast<uint32_t>(address) : 0x12345678u);
}

TEST_F(WordSizeTest, SettingBeyondALongIsReadAsNothing) {
    unsigned int value = 77;
    dom.SetText("key", "9000000000");
    OSTREL::GetLongSetting(dom, "key", &value, 42);
    EXPECT_EQ(value, kWideLong ? 410065408u : 0u);  // 9000000000 modulo 2^32
    dom.SetText("key", "9223372036854775808");
    OSTREL::GetLongSetting(dom, "key", &value, 42);
    EXPECT_EQ(value, 0u);
}

TEST_F(WordSizeTest, SettingBeyondASignedIntIsReadWhereALongHoldsIt) {
    unsigned int value = 77;
    dom.SetText("key", "4294967295");
    OSTREL::GetLongSetting(dom, "key", &value, 42);
    EXPECT_EQ(value, kWideLong ? 4294967295u : 0u);
}

TEST_F(WordSizeTest, FlagsBeyondALongAreSkippedInSilence) {
    dom.SetText("plg.ostrel.analysis.IgnoreTcpFlags", "0x100000012, 18");
    VelmCore::TakeLog();
    OSTREL::LogData fresh(dom);
    EXPECT_EQ(OSTREL::LogDataPeer(fresh).ignoreTcpFlags, std::set<uint8_t>({18}));
    const Texts warning = {
        "warning: IgnoreTcpFlags value 4294967314 is out of range - ignoring it."};
    EXPECT_EQ(TakeLogLines(), kWideLong ? warning : Texts());
}

TEST_F(WordSizeTest, NumberOfACopyBeyondALongIsNone) {
    const int order = OSTREL::LogData::VersionNumberCompare("fw.9000000000", "fw.1");
    if (kWideLong) {
        EXPECT_GT(order, 0);
    } else {
        EXPECT_EQ(order, -1);  // 0, as the current file
    }
}

TEST_F(WordSizeTest, TimesAfter2038StayWholeInTheirColumns) {
    velm_log_entry_s entry = {};
    entry.log_first_sec = kYear2040;
    entry.log_last_sec = kYear2040;
    entry.log_last_usec = 5;
    Text(entry);
    EXPECT_EQ(firstTime, 2208988800000000);
    EXPECT_EQ(lastTime, 2208988800000005);
    EXPECT_TRUE(log.CacheRecord("a", firstTime, lastTime, 1));
    EXPECT_TRUE(log.FlushBufferedData(true));
    const std::string line = File();
    const std::string columns = ", a, 1, 2208988800000005, 2208988800000000\n";
    ASSERT_GT(line.size(), columns.size());
    EXPECT_EQ(line.substr(line.size() - columns.size()), columns);
}

TEST_F(WordSizeTest, PrintedDateAfter2038IsWhatTheClockOfTheLibraryHolds) {
    EXPECT_TRUE(log.CacheRecord("a", kYear2040 * 1000000LL, kYear2040 * 1000000LL, 1));
    EXPECT_TRUE(log.FlushBufferedData(true));
    // A clock of 32 bits has wrapped once.
    EXPECT_EQ(File().substr(0, 20), kWideTime ? "2040/01/01, 00:00:00" : "1903/11/25, 17:31:44");
}

using WordSizeRetrievalTest = RetrievalTest;

TEST_F(WordSizeRetrievalTest, LineAfter2038IsFoundUnderTheTimeThatALongHolds) {
    directory.Plant("fw", "2040/01/01, 00:00:00, f, a, 1, 2208988800000000, 2208988800000000\n");
    Delivered delivered;
    EXPECT_TRUE(Retrieve(delivered, 0, 0));
    ASSERT_EQ(delivered.times.size(), 1u);
    EXPECT_EQ(static_cast<long long>(delivered.times[0]),
              kWideLong ? 2208988800LL : 2208988800LL - 4294967296LL);
}

}  // namespace
