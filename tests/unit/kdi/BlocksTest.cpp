#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "Blacklist.h"
#include "Listing.h"
#include "LogGroup.h"

using namespace Kdi;

namespace {

constexpr int64_t SECOND = 1'000'000;

TEST(BlocksTest, ListIsInTheOrderOfAddressesAndRoundsUp) {
    Blocks blocks;
    blocks.Block(inet_addr("192.0.2.200"), 10 * SECOND);
    blocks.Block(inet_addr("192.0.2.3"), 5 * SECOND + 1);
    blocks.Block(inet_addr("10.9.0.1"), 20 * SECOND);
    const std::vector<kdi_block_s> list = blocks.List(5 * SECOND);
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0].ipv4_addr, inet_addr("10.9.0.1"));
    EXPECT_EQ(list[0].remaining_msec, 15000u);
    EXPECT_EQ(list[1].ipv4_addr, inet_addr("192.0.2.3"));
    EXPECT_EQ(list[1].remaining_msec, 1u);
    EXPECT_EQ(list[2].remaining_msec, 5000u);
}

TEST(BlocksTest, BlockThatIsOverIsNoneAndIsForgotten) {
    Blocks blocks;
    blocks.Block(inet_addr("192.0.2.3"), 5 * SECOND);
    EXPECT_TRUE(blocks.List(5 * SECOND).empty());
    EXPECT_FALSE(blocks.Unblock(inet_addr("192.0.2.3"), 5 * SECOND));
    blocks.Block(inet_addr("192.0.2.4"), 5 * SECOND);
    blocks.Block(inet_addr("192.0.2.5"), 6 * SECOND);
    blocks.Expire(5 * SECOND);
    EXPECT_EQ(blocks.Size(), 1u);
    EXPECT_EQ(blocks.Until(inet_addr("192.0.2.5")), 6 * SECOND);
}

TEST(BlocksTest, RestoringDoesNotShorten) {
    Blocks blocks;
    blocks.Block(inet_addr("192.0.2.3"), 50 * SECOND);
    const kdi_block_s list[] = {{inet_addr("192.0.2.3"), 1000}, {inet_addr("192.0.2.4"), 1000}};
    blocks.Restore(list, 2, 10 * SECOND);
    EXPECT_EQ(blocks.Until(inet_addr("192.0.2.3")), 50 * SECOND);
    EXPECT_EQ(blocks.Until(inet_addr("192.0.2.4")), 11 * SECOND);
}

TEST(SequenceCounterTest, GapsAreCountedFromZeroOnAndAcrossTheWrap) {
    SequenceCounter counter;
    EXPECT_EQ(counter.Note(0), 0u);
    EXPECT_EQ(counter.Note(1), 0u);
    EXPECT_EQ(counter.Note(5), 3u);
    EXPECT_EQ(counter.Note(0xFFFFFFFF), 0xFFFFFFF9u);
    EXPECT_EQ(counter.Note(0), 0u);
    EXPECT_EQ(SequenceCounter().Note(4), 4u);
}

std::vector<SetElement> Listing(const std::string& json) {
    std::vector<SetElement> elements;
    std::string error;
    EXPECT_TRUE(ParseSetListing(json, elements, error)) << error;
    return elements;
}

std::string ListingError(const std::string& json) {
    std::vector<SetElement> elements;
    std::string error;
    EXPECT_FALSE(ParseSetListing(json, elements, error)) << json;
    return error;
}

TEST(SetListingTest, ElementsWithAndWithoutTime) {
    const std::vector<SetElement> elements = Listing(
        R"({"nftables": [{"metainfo": {"version": "1.0.6"}}, {"set": {"family": "inet",
        "name": "b", "elem": [{"elem": {"val": "1.2.3.4", "timeout": 10, "expires": 9}}, "5.6.7.8"]}}]})");
    ASSERT_EQ(elements.size(), 2u);
    EXPECT_EQ(elements[0].address, inet_addr("1.2.3.4"));
    EXPECT_EQ(elements[0].expires_sec, 9u);
    EXPECT_EQ(elements[1].address, inet_addr("5.6.7.8"));
    EXPECT_EQ(elements[1].expires_sec, UINT32_MAX);
}

TEST(SetListingTest, EmptySetHasNoList) {
    EXPECT_TRUE(Listing(R"({"nftables": [{"set": {"name": "b"}}]})").empty());
}

TEST(SetListingTest, NetworksAndRangesAreLeftOut) {
    EXPECT_TRUE(Listing(R"({"nftables": [{"set": {"elem": [{"prefix": {"addr": "10.0.0.0",
        "len": 8}}, {"range": ["1.1.1.1", "1.1.1.9"]}, {"elem": {"val": {"prefix": {}}}}, 7,
        null, "2001:db8::1"]}}]})")
                    .empty());
}

TEST(SetListingTest, LongTimesStayTimes) {
    const std::vector<SetElement> elements = Listing(
        R"({"nftables": [{"set": {"elem": [{"elem": {"val": "1.2.3.4", "expires": 99999999999}}]}}]})");
    ASSERT_EQ(elements.size(), 1u);
    EXPECT_EQ(elements[0].expires_sec, UINT32_MAX - 1);
}

TEST(SetListingTest, OtherTextsAreRefusedWithTheReason) {
    EXPECT_EQ(ListingError(""), "it is no JSON");
    EXPECT_EQ(ListingError("{\"nftables\": [{\"set\""), "it is no JSON");
    EXPECT_EQ(ListingError("[]"), "it has no set");
    EXPECT_EQ(ListingError("7"), "it has no set");
    EXPECT_EQ(ListingError(R"({"nftables": [{"set": 7}]})"), "it has no set");
    EXPECT_EQ(ListingError(R"({"nftables": {"set": []}})"), "it has no set");
}

TEST(CounterListingTest, PacketsByName) {
    const auto counters = ParseCounterListing(
        R"({"nftables": [{"metainfo": {}}, {"counter": {"name": "blocked", "packets": 7, "bytes": 280}},
        {"counter": {"name": "unlogged", "packets": 18446744073709551615}}]})");
    ASSERT_EQ(counters.size(), 2u);
    EXPECT_EQ(counters.at("blocked"), 7u);
    EXPECT_EQ(counters.at("unlogged"), UINT64_MAX);
}

TEST(CounterListingTest, WhatIsNoCounterIsLeftOut) {
    for (const char* text :
         {"", "7", "[]", R"({"nftables": 7})", R"({"nftables": [{"counter": 7}]})",
          R"({"nftables": [{"counter": {"name": 1, "packets": 2}}]})",
          R"({"nftables": [{"counter": {"name": "x", "packets": -2}}]})"}) {
        EXPECT_TRUE(ParseCounterListing(text).empty()) << text;
    }
}

}  // namespace
