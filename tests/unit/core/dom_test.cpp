#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "velm/Dom.h"

namespace {

using namespace VelmCore;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr unsigned long long ALL_ONES = ~0ULL;

class Conditions : public ::testing::Test {
protected:
    unsigned long long Query(const std::string& name) {
        unsigned long long value = ALL_ONES;
        m_Dom.ConditionQuery(name, value, nullptr, nullptr);
        return value;
    }

    CDom m_Dom;
};

TEST_F(Conditions, OneThatWasNeverRaisedIsNotAllOnes) {
    EXPECT_NE(Query("app.configUpdated"), ALL_ONES);
}

TEST_F(Conditions, ChangeEachTimeTheyAreRaised) {
    const unsigned long long never = Query("a");
    m_Dom.ConditionRaise("a");
    const unsigned long long once = Query("a");
    m_Dom.ConditionRaise("a");
    const unsigned long long twice = Query("a");
    EXPECT_NE(never, once);
    EXPECT_NE(once, twice);
    EXPECT_NE(never, twice);
}

TEST_F(Conditions, StayTheSameBetweenRaises) {
    m_Dom.ConditionRaise("a");
    const unsigned long long value = Query("a");
    m_Dom.ConditionRaise("b");
    EXPECT_EQ(Query("a"), value);
}

class Exit : public ::testing::Test {
protected:
    milliseconds TimeOf(unsigned int waitMsec, bool& result) {
        const auto begin = steady_clock::now();
        result = m_Dom.ShouldExit(waitMsec, nullptr);
        return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    }

    CDom m_Dom;
    bool m_Result = false;
};

TEST_F(Exit, IsNotWantedAtFirst) {
    EXPECT_FALSE(m_Dom.ShouldExit(0, nullptr));
}

TEST_F(Exit, IsWaitedForAsLongAsAsked) {
    m_Result = true;
    EXPECT_GE(TimeOf(30, m_Result), milliseconds(30));
    EXPECT_FALSE(m_Result);
}

TEST_F(Exit, IsToldAtOnceDuringTheShutdown) {
    m_Dom.RequestExit();
    EXPECT_LT(TimeOf(10000, m_Result), milliseconds(2000));
    EXPECT_TRUE(m_Result);
    EXPECT_TRUE(m_Dom.ShouldExit(0, nullptr));
}

TEST_F(Exit, EndsAWaitWhenTheShutdownBegins) {
    std::thread other([this] {
        std::this_thread::sleep_for(milliseconds(20));
        m_Dom.RequestExit();
    });
    EXPECT_LT(TimeOf(10000, m_Result), milliseconds(5000));
    EXPECT_TRUE(m_Result);
    other.join();
}

}  // namespace
