#include "FlowBin.h"

#include <map>

#include <gtest/gtest.h>

#include "reference/Random.h"

// The flows of a bin, beside one pair of sets for each source.
namespace {

using OSTREL::FlowBin;
using OSTREL::FlowSets;

TEST(FlowBinTest, RepeatsOfOneFlowStayOneFlow) {
    FlowBin bin;
    for (int i = 0; i < 100000; ++i)
        bin.Add(1, 6, 2, 80);
    EXPECT_EQ(bin.CountSources(), 1u);
    EXPECT_EQ(bin.TouchedBy(1, 6), FlowSets({2}, {80}));
    bin.EraseFirst();
    EXPECT_TRUE(bin.IsEmpty());
}

TEST(FlowBinTest, AddressAndPortKeepTheirHighestBits) {
    FlowBin bin;
    bin.Add(0xFFFFFFFFu, 255, 0xFFFFFFFEu, 65535);
    const FlowBin::Source source = bin.First();
    EXPECT_EQ(source.address, 0xFFFFFFFFu);
    EXPECT_EQ(source.protocol, 255);
    EXPECT_EQ(source.Touched(), FlowSets({0xFFFFFFFEu}, {65535}));
}

TEST(FlowBinTest, FlowsThatComeWhileABinIsTakenApartAreKept) {
    FlowBin bin;
    bin.Add(5, 6, 1, 1);
    bin.Add(7, 6, 1, 1);
    bin.First();
    bin.EraseFirst();
    bin.Add(6, 6, 1, 1);
    EXPECT_EQ(bin.First().address, 6u);
    bin.EraseFirst();
    EXPECT_EQ(bin.First().address, 7u);
    bin.EraseFirst();
    EXPECT_TRUE(bin.IsEmpty());
}

// Enough flows that repeats are dropped on the way, several times.
TEST(FlowBinTest, SourcesComeInOrderWithAllThatTheyTouched) {
    Reference::Random random(7);
    FlowBin bin;
    std::map<std::pair<uint32_t, uint8_t>, FlowSets> plain;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 60000; ++i) {
            const uint32_t source = random.Below(500) << 20;
            const uint8_t protocol = random.Pick<uint8_t>({6, 17});
            const uint32_t destination = random.Below(20) << 24;
            const uint16_t port = static_cast<uint16_t>(random.Below(40) << 8);
            bin.Add(source, protocol, destination, port);
            FlowSets& sets = plain[{source, protocol}];
            sets.first.insert(destination);
            sets.second.insert(port);
        }
        EXPECT_EQ(bin.CountSources(), plain.size());
        for (const auto& [key, sets] : plain) {
            const FlowBin::Source source = bin.First();
            ASSERT_EQ(source.address, key.first);
            ASSERT_EQ(source.protocol, key.second);
            ASSERT_EQ(source.Touched(), sets);
            bin.EraseFirst();
        }
        ASSERT_TRUE(bin.IsEmpty());
        plain.clear();
    }
}

}  // namespace
