// The limits of the cache, brought into their bounds.

#include "LogDataFixture.h"

namespace {

class CacheLimitsTest : public LogDataTest {
protected:
    void ExpectLimits(unsigned int size, unsigned int lifetime, unsigned int stale) {
        EXPECT_EQ(peer.cacheSize, size);
        EXPECT_EQ(peer.cacheLifetimeMsec, lifetime);
        EXPECT_EQ(peer.cacheStaleTimeMsec, stale);
    }
};

TEST_F(CacheLimitsTest, Defaults) {
    ExpectLimits(128, 1800000, 900000);
}

TEST_F(CacheLimitsTest, ValuesWithinTheBoundsStand) {
    log.SetCacheParameters(1024, 3600000, 3600000);
    ExpectLimits(1024, 3600000, 3600000);
    log.SetCacheParameters(1, 60000, 10000);
    ExpectLimits(1, 60000, 10000);
}

TEST_F(CacheLimitsTest, TooManyRecordsAndTooShortTimes) {
    log.SetCacheParameters(2000, 5, 5);
    ExpectLimits(1024, 60000, 10000);
}

TEST_F(CacheLimitsTest, TooLongTimes) {
    log.SetCacheParameters(10, 4000000, 3700000);
    ExpectLimits(10, 3600000, 3600000);
}

TEST_F(CacheLimitsTest, StaleTimeIsAtMostTheLifetime) {
    log.SetCacheParameters(10, 70000, 80000);
    ExpectLimits(10, 70000, 70000);
}

TEST_F(CacheLimitsTest, StaleTimeIsMeasuredAgainstTheFinalLifetime) {
    log.SetCacheParameters(10, 5, 65000);
    ExpectLimits(10, 60000, 60000);
}

TEST_F(CacheLimitsTest, SizeOfZeroPutsTheTimesToZero) {
    log.SetCacheParameters(0, 100000, 100000);
    ExpectLimits(0, 0, 0);
}

TEST_F(CacheLimitsTest, HugeValuesAreCut) {
    log.SetCacheParameters(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF);
    ExpectLimits(1024, 3600000, 3600000);
}

TEST_F(CacheLimitsTest, CacheOfSizeZeroPassesRecordsThrough) {
    log.SetCacheParameters(0, 0, 0);
    EXPECT_TRUE(Cache("a"));
    EXPECT_EQ(File(), CachedLine("a"));
    EXPECT_TRUE(Cache("a"));
    EXPECT_EQ(File(), CachedLine("a") + CachedLine("a"));
}

TEST_F(CacheLimitsTest, SmallerSizeLetsTheOldestGoUntilTheRestFits) {
    for (const char* text : {"d", "c", "b", "a"}) {
        Cache(text);
        Advance(1);
    }
    log.SetCacheParameters(1, 60000, 60000);
    EXPECT_EQ(File(), CachedLine("d") + CachedLine("c") + CachedLine("b"));
    EXPECT_EQ(peer.cache.size(), 1u);
}

TEST_F(CacheLimitsTest, SizeOfZeroEmptiesTheCache) {
    Cache("b");
    Cache("a");
    log.SetCacheParameters(0, 0, 0);
    EXPECT_EQ(File(), CachedLine("a") + CachedLine("b"));
}

TEST_F(CacheLimitsTest, ShrinkingEndsAtTheFirstFailedWrite) {
    Cache("a");
    Cache("b");
    Cache("c");
    log.SetLogFileName("missing/fw");
    log.SetCacheParameters(1, 60000, 60000);
    EXPECT_EQ(peer.cache.size(), 2u);
}

TEST_F(CacheLimitsTest, ShorterLifetimeMakesRecordsDueAtOnce) {
    Cache("a");
    Advance(70000);
    Cache("a");
    log.SetCacheParameters(128, 60000, 60000);
    EXPECT_EQ(File(), CachedLine("a", "2"));
}

TEST_F(CacheLimitsTest, LongerLifetimeKeepsARecordThatWasNearlyDue) {
    Cache("a");
    Advance(899999);
    log.SetCacheParameters(128, 3600000, 3600000);
    Advance(1000000);
    Cache("b");
    EXPECT_EQ(peer.cache.size(), 2u);
}

TEST_F(CacheLimitsTest, SettingTheLimitsFlushesOnce) {
    Cache("a");
    Advance(900000);
    log.SetCacheParameters(128, 1800000, 900000);
    EXPECT_EQ(File(), CachedLine("a"));
}

}  // namespace
