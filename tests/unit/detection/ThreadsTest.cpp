#include <atomic>
#include <thread>

#include "DetectionFixture.h"

// Flows arrive on one thread while another, that of the scripts, closes bins. What counts here is
// that a thread sanitizer has nothing to say; the sums show that no flow was lost.
namespace {

constexpr int kRounds = 200;
constexpr uint32_t kSourcesPerRound = 20;

class ThreadsTest : public DetectionTest {
protected:
    // Sources, each a scanner of 65 ports, until all have been through.
    void ArriveAsFlows() {
        VelmCore::CConnectionTableEntry flow;
        flow.destAddress = Address(kHost);
        for (uint32_t source = 0; source < kRounds * kSourcesPerRound; ++source) {
            flow.srcAddress = htonl(0x0A000000u + source);
            for (uint16_t port = 1; port <= 65; ++port) {
                flow.destPort = port;
                Log().HandleTerminatedFlow(flow, 6);
            }
        }
    }
    // The same as entries, with a crafted packet of each source.
    void ArriveAsEntries() {
        auto record = std::make_unique<OSTREL::WorkingRecord>();
        for (uint32_t source = 0; source < 500; ++source) {
            velm_log_entry_s entry = Crafted(0x29);
            entry.log_ip.v4.iph_src = htonl(0x0B000000u + source);
            record->Assign(entry, nullptr, 0, nullptr, 0);
            Log().AnalyzeLogEntry("", 0, record.get());
            entry.log_transport.tcp.tcph_flags = 0x02;
            for (uint16_t port = 1; port <= 65; ++port) {
                entry.log_transport.tcp.tcph_dport = htons(port);
                record->Assign(entry, nullptr, 0, nullptr, 0);
                Log().AnalyzeLogEntry("", 0, record.get());
            }
        }
    }
    // Closes bins until the other thread has ended, and one more for the last flows.
    template <class Arrive>
    void CloseBinsWhile(Arrive arrive) {
        std::atomic<bool> done{false};
        std::thread arriving([&] {
            arrive();
            done = true;
        });
        while (!done) {
            VelmCore::AdvanceTickCount(10001);
            Log().CacheMaintenance();
            Count();
        }
        arriving.join();
        VelmCore::AdvanceTickCount(10001);
        Log().CacheMaintenance();
        Count();
    }
    void Count() {
        for (const VelmCore::AgentEvent& event : dom.TakeEvents())
            ++counts[event.number];
    }

    std::map<int, int> counts;  // events by number
};

// A bin may close between the ports of a source, which then is a candidate at most. So each source
// is reported at most once, and nearly all of them are.
TEST_F(ThreadsTest, FlowsArriveWhileBinsClose) {
    Take(Syn("192.0.2.1", kHost, 1));
    CloseBinsWhile([this] { ArriveAsFlows(); });
    EXPECT_GT(counts[7001], 0);
    EXPECT_LE(counts[7001], kRounds * static_cast<int>(kSourcesPerRound));
    EXPECT_TRUE(Inside().flows.IsEmpty());
}

TEST_F(ThreadsTest, EntriesAreAnalysedWhileBinsClose) {
    Take(Syn("192.0.2.1", kHost, 1));
    CloseBinsWhile([this] { ArriveAsEntries(); });
    EXPECT_EQ(counts[7004], 500);
    EXPECT_LE(counts[7001], 500);
    EXPECT_TRUE(Inside().flows.IsEmpty());
}

// With a bin that never closes in between, every single flow must be there in the end.
TEST_F(ThreadsTest, NoFlowIsLostBetweenTwoThreadsThatBringThem) {
    Take(Syn("192.0.2.1", kHost, 1));
    CloseBin();
    std::thread other([this] { ArriveAsFlows(); });
    ArriveAsEntries();
    other.join();
    CloseBin();
    Count();
    EXPECT_EQ(counts[7001], kRounds * static_cast<int>(kSourcesPerRound) + 500);
    EXPECT_EQ(counts[7004], 500);
}

// Two threads that find the same host at once may both report it, but it is remembered once.
TEST_F(ThreadsTest, AHostFoundByTwoThreadsAtOnceIsRememberedOnce) {
    Take(Syn("192.0.2.1", kHost, 1));
    const auto probe = [this] {
        for (uint32_t source = 0; source < 1000; ++source) {
            Log().WriteProbeEvent(OSTREL::CProbeConfiguration::XmasScan,
                                  htonl(0x0C000000u + source), 6, nullptr);
        }
    };
    std::thread other(probe);
    probe();
    other.join();
    Count();
    EXPECT_EQ(Inside().knownProbers.size(), 1000u);
    EXPECT_GE(counts[7004], 1000);
    EXPECT_LE(counts[7004], 2000);
}

}  // namespace
