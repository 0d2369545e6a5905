#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velm/Clock.h"

namespace {

using namespace VelmCore;

class Clock : public ::testing::Test {
protected:
    ~Clock() override { UseSystemClock(); }
};

unsigned int MonotonicMsec() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<unsigned int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

TEST_F(Clock, CountsMillisecondsOfTheMonotonicClock) {
    const unsigned int before = MonotonicMsec();
    const unsigned int tick = SystemTickCount();
    const unsigned int after = MonotonicMsec();
    EXPECT_LE(tick - before, after - before);
}

TEST_F(Clock, StandsStillOnceSet) {
    SetTickCount(42);
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    EXPECT_EQ(SystemTickCount(), 42u);
}

TEST_F(Clock, CanBeSetToZero) {
    SetTickCount(0);
    EXPECT_EQ(SystemTickCount(), 0u);
}

TEST_F(Clock, WrapsAt32Bits) {
    SetTickCount(0xFFFFFFFF);
    AdvanceTickCount(5);
    EXPECT_EQ(SystemTickCount(), 4u);
}

TEST_F(Clock, AdvancingSetsItFromThePresentTick) {
    const unsigned int before = SystemTickCount();
    AdvanceTickCount(1000000);
    const unsigned int tick = SystemTickCount();
    EXPECT_GE(tick - before, 1000000u);
    EXPECT_LT(tick - before, 1060000u);
    EXPECT_EQ(SystemTickCount(), tick);
}

TEST_F(Clock, ReturnsToTheMonotonicClock) {
    SetTickCount(42);
    UseSystemClock();
    const unsigned int before = MonotonicMsec();
    EXPECT_LT(SystemTickCount() - before, 60000u);
}

TEST_F(Clock, NoAdvanceIsLostBetweenThreads) {
    SetTickCount(0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 1000; ++k)
                AdvanceTickCount(3);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(SystemTickCount(), 12000u);
}

}  // namespace
