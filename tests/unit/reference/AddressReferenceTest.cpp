// Address texts of every kind against a plain reader.

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include "ConfigUtils.h"
#include "IpSpace.h"
#include "LogData.h"
#include "Random.h"
#include "ReferenceAddress.h"
#include "velm/Dom.h"

namespace {

using Reference::AddressEntry;
using Reference::Random;

constexpr uint64_t kBase = 5200000;
constexpr uint64_t kCases = 20000;

std::string RandomOctet(Random& random) {
    switch (random.Below(12)) {
        case 0:
            return "*";
        case 1:
            return random.Pick({"", "0x7", "010", "256", "999", "x", "-1", "**"});
        case 2:
            return std::to_string(random.Below(256));
        default:
            return std::to_string(random.Below(4));
    }
}

std::string RandomAddress(Random& random) {
    const uint32_t octets = random.OneIn(4) ? random.Below(7) : 4;
    std::string text;
    for (uint32_t i = 0; i < octets; ++i)
        text += (i > 0 ? "." : "") + RandomOctet(random);
    return text;
}

std::string RandomNoise(Random& random) {
    static const char kCharacters[] = "0123456789.*-/, .x|\t";
    std::string text;
    for (uint32_t length = random.Below(random.OneIn(20) ? 200 : 12); length > 0; --length)
        text += kCharacters[random.Below(sizeof kCharacters - 1)];
    return text;
}

std::string RandomToken(Random& random) {
    switch (random.Below(8)) {
        case 0:
            return RandomNoise(random);
        case 1:
        case 2:
            return RandomAddress(random) + "-" + RandomAddress(random);
        case 3:
        case 4:
            return RandomAddress(random) + "/" + std::to_string(random.Between(-1, 34));
        case 5:
            return RandomAddress(random) + "/" + RandomAddress(random);
        default:
            return RandomAddress(random);
    }
}

std::string RandomItems(Random& random) {
    std::string items;
    for (uint32_t tokens = random.Below(6); tokens > 0; --tokens)
        items += RandomToken(random) + random.Pick({",", " ", ", ", ",,  "});
    return items;
}

uint32_t RandomHost(Random& random, const std::vector<AddressEntry>& entries) {
    if (entries.empty() || random.OneIn(3)) return static_cast<uint32_t>(random.Bits());
    const AddressEntry& entry = entries[random.Below(static_cast<uint32_t>(entries.size()))];
    const uint32_t near = ntohl(random.OneIn(2) ? entry.low : entry.high);
    return htonl(near + static_cast<uint32_t>(random.Between(-2, 2)));
}

TEST(AddressReference, RandomTextsGiveTheSameListsEventsAndAnswers) {
    VelmCore::CDom dom;
    OSTREL::LogData log(dom);
    const Reference::Seeds seeds(kBase, kCases);
    for (uint64_t seed = seeds.first; seed < seeds.last && !HasFailure(); ++seed) {
        Random random(seed);
        const std::string items = RandomItems(random);
        SCOPED_TRACE("OSTREL_REFERENCE_SEED=" + std::to_string(seed) + ": \"" + items + "\"");
        std::vector<AddressEntry> expected;
        std::vector<Reference::Event> events;
        const bool good = Reference::ParseAddresses(items, "a|list", expected, events);

        OSTREL::IpSpaceList list(1);
        EXPECT_EQ(OSTREL::ConfigUtils::ParseIpRange(wxString(items), "a|list", L"ipList", list),
                  good);
        EXPECT_EQ(Reference::TakeEvents(dom), events);
        ASSERT_EQ(list.size(), expected.size());
        size_t i = 0;
        for (const OSTREL::IpSpace& entry : list) {
            EXPECT_EQ(entry.isRange, expected[i].isRange);
            EXPECT_EQ(entry.low, expected[i].low);
            EXPECT_EQ(entry.high, expected[i].high);
            ++i;
        }
        for (int host = 0; host < 10; ++host) {
            const uint32_t address = RandomHost(random, expected);
            EXPECT_EQ(log.HostIsInList(address, &list), Reference::Contains(expected, address))
                << std::hex << ntohl(address);
        }
    }
}

}  // namespace
