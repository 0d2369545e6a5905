// The schedule must answer as a walk over all records would.

#include <map>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "CacheSchedule.h"

namespace {

struct Ticks {
    unsigned int m_FirstTicks;
    unsigned int m_LastTicks;
};
using Map = std::map<std::string, Ticks>;

class CacheScheduleTest : public ::testing::Test {
protected:
    static constexpr unsigned int kLifetime = 100;
    static constexpr unsigned int kStale = 40;

    void Add(const std::string& text, unsigned int now) {
        const auto place = records.emplace(text, Ticks{now, now}).first;
        schedule.Inserted(place, now, kLifetime, kStale);
    }
    void Repeat(const std::string& text, unsigned int now) {
        records.at(text).m_LastTicks = now;
        schedule.NoteTime(now);
    }
    void Walk(unsigned int now) { schedule.Walked(records, now, kLifetime, kStale); }
    std::string TakeOldest() {
        const auto oldest = schedule.TakeOldest();
        const std::string text = oldest->first;
        records.erase(oldest);
        return text;
    }

    Map records;
    OSTREL::CacheSchedule<Map> schedule;
};

TEST_F(CacheScheduleTest, AsksForAWalkBeforeTheFirst) {
    EXPECT_FALSE(schedule.IsQuiet(0));
}

TEST_F(CacheScheduleTest, IsQuietUntilTheFirstRecordIsStale) {
    Walk(0);
    Add("a", 10);
    EXPECT_TRUE(schedule.IsQuiet(49));
    EXPECT_FALSE(schedule.IsQuiet(50));
}

TEST_F(CacheScheduleTest, IsQuietUntilARecordThatWasWalkedIsDue) {
    records = {{"a", {0, 30}}};
    Walk(30);
    EXPECT_TRUE(schedule.IsQuiet(69));
    EXPECT_FALSE(schedule.IsQuiet(70));
}

TEST_F(CacheScheduleTest, LifetimeCountsAsWell) {
    records = {{"a", {0, 90}}};
    Walk(90);
    EXPECT_TRUE(schedule.IsQuiet(99));
    EXPECT_FALSE(schedule.IsQuiet(100));
}

TEST_F(CacheScheduleTest, AsksForAWalkWhenTheClockGoesBack) {
    Walk(100);
    EXPECT_TRUE(schedule.IsQuiet(110));
    EXPECT_FALSE(schedule.IsQuiet(109));
    EXPECT_FALSE(schedule.IsQuiet(111));
    Walk(111);
    EXPECT_FALSE(schedule.IsQuiet(110));
}

TEST_F(CacheScheduleTest, AsksForAWalkWhenTheLimitsHaveChanged) {
    Walk(0);
    schedule.Invalidate();
    EXPECT_FALSE(schedule.IsQuiet(0));
}

TEST_F(CacheScheduleTest, SurvivesAWrap) {
    Walk(0xFFFFFFF0);
    Add("a", 0xFFFFFFF8);
    Add("b", 2);
    EXPECT_TRUE(schedule.IsQuiet(3));
    EXPECT_EQ(TakeOldest(), "a");
    EXPECT_TRUE(schedule.IsQuiet(31));
    EXPECT_FALSE(schedule.IsQuiet(32));
}

TEST_F(CacheScheduleTest, OldestGoesByAgeThenByIdleTimeThenByTheLaterText) {
    Walk(0);
    for (const char* text : {"a", "b", "c", "d"})
        Add(text, 1);
    Add("z", 2);
    Repeat("d", 5);
    EXPECT_TRUE(schedule.IsQuiet(6));
    EXPECT_EQ(TakeOldest(), "c");
    EXPECT_EQ(TakeOldest(), "b");
    EXPECT_EQ(TakeOldest(), "a");
    EXPECT_EQ(TakeOldest(), "d");
    EXPECT_EQ(TakeOldest(), "z");
}

// What the walk would find at `now`, told step by step.
struct Plain {
    bool anyDue = false;
    Map::iterator oldest;
    Plain(Map& records, unsigned int now, unsigned int lifetime, unsigned int stale)
        : oldest(records.end()) {
        unsigned int oldestAge = 0;
        unsigned int oldestIdle = 0;
        for (auto it = records.begin(); it != records.end(); ++it) {
            const unsigned int age = now - it->second.m_FirstTicks;
            const unsigned int idle = now - it->second.m_LastTicks;
            if (age >= lifetime || idle >= stale) anyDue = true;
            if (age > oldestAge || (age == oldestAge && idle >= oldestIdle)) {
                oldest = it;
                oldestAge = age;
                oldestIdle = idle;
            }
        }
    }
};

TEST_F(CacheScheduleTest, AnswersAsTheWalkForRandomMovesOfTheClock) {
    std::mt19937 random(20251113);
    const auto below = [&](unsigned int limit) { return random() % limit; };
    unsigned int taken = 0;
    for (int sequence = 0; sequence < 3000; ++sequence) {
        records.clear();
        schedule = {};
        unsigned int now = random();
        for (int step = 0; step < 60; ++step) {
            now += below(50) == 0 ? random() : below(8);
            const std::string text(1, static_cast<char>('a' + below(8)));
            if (records.count(text)) {
                Repeat(text, now);
            } else {
                Add(text, now);
            }
            const Plain plain(records, now, kLifetime, kStale);
            if (schedule.IsQuiet(now)) {
                ASSERT_FALSE(plain.anyDue);
                if (records.size() > 4) {
                    const std::string expected = plain.oldest->first;
                    ASSERT_EQ(TakeOldest(), expected);
                    ++taken;
                }
            } else {
                for (auto it = records.begin(); it != records.end();) {
                    const bool due = now - it->second.m_FirstTicks >= kLifetime ||
                                     now - it->second.m_LastTicks >= kStale;
                    it = due ? records.erase(it) : std::next(it);
                }
                Walk(now);
            }
        }
    }
    EXPECT_GT(taken, 1000u);
}

}  // namespace
