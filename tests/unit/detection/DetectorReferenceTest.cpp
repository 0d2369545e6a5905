#include "DetectorSequence.h"

namespace {

TEST(DetectorReferenceTest, RandomSequencesGiveTheSameEventsBlocksAndResults) {
    size_t events = 0;
    size_t blocks = 0;
    const Reference::Seeds seeds(1, 10000);
    for (uint64_t seed = seeds.first; seed < seeds.last; ++seed) {
        Reference::DetectorSequence sequence(seed);
        ASSERT_EQ(sequence.Run(), "") << "seed " << seed;
        events += sequence.Events();
        blocks += sequence.Blocks();
    }
    // The sequences must come to something.
    if (seeds.last - seeds.first < 1000) return;
    EXPECT_GT(events, 20000u);
    EXPECT_GT(blocks, 2000u);
}

}  // namespace
