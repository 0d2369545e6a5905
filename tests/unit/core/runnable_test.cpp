#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <wx/init.h>

#include "velm/Log.h"
#include "velm/Runnable.h"

namespace {

using namespace VelmCore;
using namespace std::chrono_literals;

// Far longer than any wake-up takes, far shorter than a test may.
constexpr unsigned int kLongMsec = 60000;

class Runnable : public ::testing::Test {
protected:
    Runnable() {
        InstallLog("");
        TakeLog();
    }
    wxInitializer m_Wx;
};

// Waits in TestDestroy until it is told to end, and counts how often it was woken.
class Waiter : public CRunnable {
public:
    explicit Waiter(int processor = -1) : CRunnable(false, processor, false) {}
    const char* GetThreadName() const override { return "Waiter"; }
    void OnRun() override {
        cpu_set_t set;
        CPU_ZERO(&set);
        pthread_getaffinity_np(pthread_self(), sizeof(set), &set);
        processors = CPU_COUNT(&set);
        onFirst = CPU_ISSET(0, &set);
        while (!TestDestroy(kLongMsec, nullptr))
            ++woken;
        order += "OnRun ";
    }
    void OnExit() override {
        order += "OnExit ";
        stillRunning = isRunning();
        CRunnable::OnExit();
    }

    std::atomic<int> woken{0};
    std::atomic<int> processors{0};
    std::atomic<bool> onFirst{false};
    std::atomic<bool> stillRunning{false};
    std::string order;
};

template <typename Condition>
bool Becomes(const Condition& condition) {
    for (int i = 0; i < 3000 && !condition(); ++i)
        std::this_thread::sleep_for(10ms);
    return condition();
}

TEST_F(Runnable, RunsThenExitsThenIsJoined) {
    Waiter waiter;
    EXPECT_FALSE(waiter.isRunning());
    ASSERT_TRUE(waiter.start(50, true, 0));
    EXPECT_TRUE(waiter.isRunning());
    waiter.requestExit();
    EXPECT_TRUE(Becomes([&] { return !waiter.isRunning(); }));
    waiter.join();
    EXPECT_EQ(waiter.order, "OnRun OnExit ");
    EXPECT_TRUE(waiter.stillRunning) << "the owner must not join while OnExit is at work";
}

TEST_F(Runnable, ThreadThatWasNeverStartedIsJoinedAndDeletedAtOnce) {
    Waiter waiter;
    waiter.join();
    waiter.StopThread(nullptr);
    EXPECT_EQ(waiter.order, "");
}

TEST_F(Runnable, StartsOnlyOnce) {
    Waiter waiter;
    ASSERT_TRUE(waiter.start(50, true, 0));
    EXPECT_FALSE(waiter.start(50, true, 0));
    waiter.StopThread(nullptr);
    EXPECT_FALSE(waiter.start(50, true, 0));
    EXPECT_EQ(TakeLog().size(), 2u);
    EXPECT_EQ(waiter.order, "OnRun OnExit ");
}

TEST_F(Runnable, InterruptAndAwakenWakeABlockedThreadWithoutEndingIt) {
    Waiter waiter;
    ASSERT_TRUE(waiter.start(50, true, 0));
    waiter.interrupt();
    EXPECT_TRUE(Becomes([&] { return waiter.woken == 1; }));
    waiter.Awaken();
    EXPECT_TRUE(Becomes([&] { return waiter.woken == 2; }));
    EXPECT_TRUE(waiter.isRunning());
    waiter.StopThread(nullptr);
}

TEST_F(Runnable, StopThreadWakesTheThreadAndWaitsForItsEnd) {
    Waiter waiter;
    ASSERT_TRUE(waiter.start(50, true, 0));
    const auto begin = std::chrono::steady_clock::now();
    waiter.StopThread(nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
    EXPECT_FALSE(waiter.isRunning());
    EXPECT_EQ(waiter.order, "OnRun OnExit ");
}

TEST_F(Runnable, DeleteStopsTheThread) {
    Waiter waiter;
    ASSERT_TRUE(waiter.start(50, true, 0));
    int mark = 0;
    void* exitCode = &mark;
    EXPECT_EQ(waiter.Delete(&exitCode), wxTHREAD_NO_ERROR);
    EXPECT_EQ(exitCode, nullptr);
    EXPECT_FALSE(waiter.isRunning());
}

TEST_F(Runnable, TestDestroyWithoutAWaitOnlyLooks) {
    Waiter waiter;
    EXPECT_FALSE(waiter.TestDestroy(0, nullptr));
    waiter.requestExit();
    EXPECT_TRUE(waiter.TestDestroy(0, nullptr));
    EXPECT_TRUE(waiter.TestDestroy(kLongMsec, nullptr));
}

TEST_F(Runnable, IsBoundToItsProcessor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    sched_getaffinity(0, sizeof(set), &set);
    if (!CPU_ISSET(0, &set)) GTEST_SKIP() << "skipped: this process may not use processor 0";
    Waiter waiter(0);
    ASSERT_TRUE(waiter.start(50, true, 0));
    EXPECT_TRUE(Becomes([&] { return waiter.processors == 1; }));
    EXPECT_TRUE(waiter.onFirst);
    waiter.StopThread(nullptr);
}

TEST_F(Runnable, AMissingProcessorIsNotFatal) {
    for (const int processor : {CPU_SETSIZE - 1, CPU_SETSIZE, 2000000000}) {
        Waiter waiter(processor);
        ASSERT_TRUE(waiter.start(50, true, 0));
        EXPECT_TRUE(Becomes([&] { return waiter.processors > 0; }));
        waiter.StopThread(nullptr);
    }
    EXPECT_TRUE(TakeLog().empty());
}

class Faulty : public CRunnable {
public:
    Faulty() : CRunnable(false, -1, false) {}
    const char* GetThreadName() const override { return "Faulty"; }
    void OnRun() override { throw std::runtime_error("no more rooms"); }
};

TEST_F(Runnable, AnExceptionEndsTheThreadWithALineInTheAgentsLog) {
    Faulty faulty;
    ASSERT_TRUE(faulty.start(50, true, 0));
    faulty.join();
    EXPECT_FALSE(faulty.isRunning());
    const std::vector<LogLine> lines = TakeLog();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, "error");
    EXPECT_EQ(lines[0].text, "Faulty: ended by a fault: no more rooms");
}

TEST_F(Runnable, ConcurrencyOfWakersAndAStopIsSafe) {
    Waiter waiter;
    ASSERT_TRUE(waiter.start(50, true, 0));
    std::vector<std::thread> wakers;
    for (int i = 0; i < 3; ++i) {
        wakers.emplace_back([&] {
            for (int n = 0; n < 200; ++n) {
                waiter.interrupt();
                waiter.Awaken();
                waiter.isRunning();
            }
        });
    }
    waiter.StopThread(nullptr);
    for (std::thread& waker : wakers)
        waker.join();
    EXPECT_FALSE(waiter.isRunning());
}

}  // namespace
