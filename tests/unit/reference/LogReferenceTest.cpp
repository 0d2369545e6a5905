// The record cache and the log file set against a plain reference, by random sequences of calls.

#include <gtest/gtest.h>

#include <cstdlib>

#include "LogSequence.h"
#include "velm/Dom.h"
#include "velm/Log.h"

namespace {

using Reference::LogSequence;
using Reference::Seeds;

constexpr uint64_t kBase = 2300000;
constexpr uint64_t kSequencesOfShard = 1000;

// Shards let the runner spread the work.
class LogReference : public testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite() {
        VelmCore::InstallLog("");
        // A zone with daylight saving that needs no zone files.
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
};

TEST_P(LogReference, RandomSequencesGiveTheSameFilesResultsAndEvents) {
    const bool isSingle = getenv("OSTREL_REFERENCE_SEED") != nullptr;
    const Seeds seeds(kBase + kSequencesOfShard * static_cast<uint64_t>(GetParam()),
                      kSequencesOfShard);
    VelmCore::CDom dom;
    for (uint64_t seed = seeds.first; seed < seeds.last && !HasFailure(); ++seed) {
        LogSequence(dom, seed, isSingle).Run();
        if (HasFailure()) ADD_FAILURE() << "OSTREL_REFERENCE_SEED=" << seed;
    }
}

INSTANTIATE_TEST_SUITE_P(Shards, LogReference, testing::Range(0, 10));

}  // namespace
