#include <poll.h>
#include <sys/time.h>

#include <csignal>
#include <thread>

#include "Live.h"

// What does not fit is counted, and who waits can be woken.
namespace LiveTest {

using LiveLossTest = Live;
using LiveConcurrencyTest = Live;

static kdi_open_options_s SmallBuffer() {
    kdi_open_options_s options;
    options.receive_buffer = 64 * 1024;
    return options;
}

static void LogEverything() {
    Shell(
        "nft 'table ip t { chain c { type filter hook input priority 0; "
        "log prefix \"velm f=1 a=1 \" group 5 drop; }; }'");
}

TEST_F(LiveLossTest, EachPacketOfABurstIsEitherAnEntryOrCountedAsLost) {
    LogEverything();
    LiveHandle handle(SmallBuffer());
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    constexpr uint64_t SENT = 20000;
    for (uint64_t i = 0; i < SENT; ++i)
        Send(Udp(40000, 1000 + i % 10000));
    uint64_t entries = handle.TakeAll().size();
    EXPECT_LT(entries, SENT);
    Send(Udp(40000, 9));  // what was lost at the end shows in the number of the next
    entries += handle.Take(1).size();
    const kdi_statistics_s statistics = handle.Statistics();
    EXPECT_EQ(statistics.packets, entries);
    EXPECT_EQ(entries + statistics.lost, SENT + 1);
    EXPECT_GT(statistics.overruns, 0u);
}

TEST_F(LiveLossTest, LossesAreTold) {
    LogEverything();
    LiveHandle handle(SmallBuffer());
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    ASSERT_EQ(handle.Message(), std::string("blocks do not reach the kernel: ") +
                                    "set inet velm blocked4: No such file or directory");
    for (int i = 0; i < 20000; ++i)
        Send(Udp(40000, 9));
    std::string message;
    EXPECT_TRUE(handle.WorkUntil([&] { return !(message = handle.Message()).empty(); }));
    EXPECT_EQ(message.find("group 5: "), 0u) << message;
    EXPECT_NE(message.find(" packets were lost, a socket's buffer was full "), std::string::npos)
        << message;
}

TEST_F(LiveLossTest, NothingIsLostWithTheUsualBuffer) {
    LogEverything();
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    constexpr size_t SENT = 5000;
    for (size_t i = 0; i < SENT; ++i)
        Send(Udp(40000, 1000 + i % 10000));
    EXPECT_EQ(handle.Take(SENT).size(), SENT);
    EXPECT_EQ(handle.Statistics().lost, 0u);
    EXPECT_EQ(handle.Statistics().overruns, 0u);
}

TEST_F(LiveConcurrencyTest, WakeUpEndsTheWaitingOfAnotherThread) {
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    velm_log_entry_s entry;
    std::thread waker([&] { kdi_wake(handle.Get()); });
    EXPECT_FALSE(handle.Next(entry, 600'000));  // the test's own time limit is less
    waker.join();
}

TEST_F(LiveLossTest, WakeUpBeforeTheWaitingIsNotForgotten) {
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    kdi_wake(handle.Get());
    velm_log_entry_s entry;
    EXPECT_FALSE(handle.Next(entry, 600'000));
}

TEST_F(LiveLossTest, SignalEndsTheWaiting) {
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    sigaction(SIGALRM, &action, &before);
    // It goes off again and again, so one that comes before the waiting does no harm.
    const itimerval often{{0, 50'000}, {0, 50'000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    velm_log_entry_s entry;
    EXPECT_FALSE(handle.Next(entry, 600'000));
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
}

TEST_F(LiveLossTest, DescriptorIsReadableWhenThereIsWork) {
    LogEverything();
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    handle.TakeAll();
    pollfd wait{kdi_descriptor(handle.Get()), POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, 0), 0);
    Send(Udp(40000, 9));
    EXPECT_EQ(poll(&wait, 1, 60'000), 1);
    EXPECT_EQ(handle.Take(1).size(), 1u);
}

}  // namespace LiveTest
