// The parts that the library hides.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "CaptureBuilder.h"
#include "FlatMap.h"
#include "FrameParser.h"
#include "Keys.h"
#include "Packet.h"

using namespace Kdi;
using namespace KdiTest;

namespace {

// The frame refers to the bytes.
Frame Parse(const Bytes& bytes, LinkType link = LinkType::Ethernet) {
    return ParseFrame(link, bytes.data(), static_cast<uint32_t>(bytes.size()),
                      static_cast<uint32_t>(bytes.size()));
}

// Every read goes to a block of exactly the captured size, so that the sanitizer sees one too many.
void ParseEveryPrefix(const Bytes& frame, LinkType link) {
    for (size_t length = 0; length <= frame.size(); ++length) {
        const Bytes prefix(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length));
        const std::vector<uint8_t> exact(prefix);
        const Frame parsed = ParseFrame(link, exact.data(), static_cast<uint32_t>(length),
                                        static_cast<uint32_t>(frame.size()));
        if (parsed.family == 0) continue;
        AddressBook book;
        Kdi::Packet packet;
        Identify(parsed, book, packet);
        if (parsed.IsIcmpError()) EmbeddedKey(parsed, book);
        ASSERT_LE(parsed.transportLen, length);
    }
}

}  // namespace

TEST(FrameParser, ReadsNothingBeyondAFrameThatIsCutAnywhere) {
    const Bytes error = Icmp(3, 3, Bytes(4, 0) + Ipv4("192.0.2.10", "192.0.2.66", Udp(1, 2))).bytes;
    const Bytes frame = Ethernet(HOST_HW, PEER_HW, Ipv4("192.0.2.66", "192.0.2.10", {1, error}));
    const Bytes chain = Ethernet(HOST_HW, PEER_HW,
                                 Ipv6("2001:db8::66", "2001:db8::10",
                                      {0, Bytes{44, 0, 1, 4, 0, 0, 0, 0} +
                                              Bytes{6, 0, 0, 1, 0, 0, 0, 9} + Tcp(1, 2, 2).bytes}));
    const Bytes tagged = HOST_HW + PEER_HW + Big16(0x8100) + Big16(1) + Big16(0x0800) + error;
    for (const Bytes& bytes : {frame, chain, tagged}) {
        for (const LinkType link : {LinkType::Ethernet, LinkType::Cooked, LinkType::Cooked2,
                                    LinkType::RawIp, LinkType::BsdLoopback}) {
            ParseEveryPrefix(bytes, link);
        }
    }
}

TEST(FrameParser, ReadsNothingBeyondRandomBytes) {
    std::mt19937 random(1);
    for (int round = 0; round < 2000; ++round) {
        Bytes bytes = Ethernet(HOST_HW, PEER_HW,
                               round % 2 ? Ipv6("2001:db8::66", "2001:db8::10", Tcp(1, 2, 2))
                                         : Ipv4("192.0.2.66", "192.0.2.10", Tcp(1, 2, 2)));
        for (int i = 0; i < 6; ++i)
            bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
        bytes[14 + 6] = round % 2 ? static_cast<uint8_t>(random() % 64) : bytes[20];
        ParseEveryPrefix(bytes, LinkType::Ethernet);
    }
}

TEST(FrameParser, HeaderLengthBelowTheMinimumIsNoIp) {
    Bytes frame = Ethernet(HOST_HW, PEER_HW, Ipv4("192.0.2.66", "192.0.2.10", Tcp(1, 2, 2)));
    frame[14] = 0x44;
    EXPECT_EQ(Parse(frame).family, 0);
}

TEST(FrameParser, OptionsAreSkipped) {
    Bytes ip = Ipv4("192.0.2.66", "192.0.2.10", {6, Bytes(4, 1) + Tcp(4000, 23, 2).bytes});
    ip[0] = 0x46;
    const Bytes bytes = Ethernet(HOST_HW, PEER_HW, ip);
    const Frame frame = Parse(bytes);
    ASSERT_TRUE(frame.HasTransport());
    EXPECT_EQ(frame.SourcePort(), 4000);
    EXPECT_EQ(frame.DestinationPort(), 23);
    EXPECT_EQ(frame.TcpFlags(), 2);
}

TEST(FrameParser, TotalLengthOfZeroIsFilledInByTheCard) {
    Bytes ip = Ipv4("192.0.2.66", "192.0.2.10", Tcp(4000, 23, 2));
    ip[2] = ip[3] = 0;
    EXPECT_TRUE(Parse(Ethernet(HOST_HW, PEER_HW, ip)).HasTransport());
}

TEST(FrameParser, TotalLengthShorterThanTheHeaderHasNoTransport) {
    Bytes ip = Ipv4("192.0.2.66", "192.0.2.10", Tcp(4000, 23, 2));
    ip[2] = 0;
    ip[3] = 19;
    const Frame frame = Parse(Ethernet(HOST_HW, PEER_HW, ip));
    EXPECT_EQ(frame.family, 4);
    EXPECT_FALSE(frame.HasTransport());
}

TEST(FrameParser, EndlessExtensionHeadersAreGivenUp) {
    Bytes chain;
    for (int i = 0; i < 40; ++i)
        chain = chain + Bytes{60, 0, 1, 4, 0, 0, 0, 0};
    const Frame frame =
        Parse(Ethernet(HOST_HW, PEER_HW, Ipv6("2001:db8::66", "2001:db8::10", {60, chain})));
    EXPECT_EQ(frame.family, 6);
    EXPECT_EQ(frame.transport, nullptr);
}

TEST(FrameParser, VersionThatIsNotTheFrameTypesIsNoIp) {
    Bytes frame = Ethernet(HOST_HW, PEER_HW, Ipv4("192.0.2.66", "192.0.2.10", Tcp(1, 2, 2)));
    frame[12] = 0x86;
    frame[13] = 0xDD;
    EXPECT_EQ(Parse(frame).family, 0);
}

TEST(FlowKeys, BothDirectionsHaveOneKey) {
    AddressBook book;
    Kdi::Packet there, back;
    const Bytes a = Ipv4("192.0.2.66", "192.0.2.10", Udp(4000, 53));
    const Bytes b = Ipv4("192.0.2.10", "192.0.2.66", Udp(53, 4000));
    Identify(Parse(a, LinkType::RawIp), book, there);
    Identify(Parse(b, LinkType::RawIp), book, back);
    EXPECT_TRUE(there.key == back.key);
    EXPECT_NE(there.swapped, back.swapped);
}

TEST(FlatMap, HoldsWhatAnOrderedMapHolds) {
    std::mt19937 random(1);
    FlatMap<WordKey, uint32_t> map;
    std::map<uint64_t, uint32_t> reference;
    for (uint32_t step = 0; step < 200000; ++step) {
        const WordKey key{random() % 3000 + 1};
        if (random() % 3 == 0) {
            map.Erase(key);
            reference.erase(key.word);
        } else {
            const bool isNew = reference.count(key.word) == 0;
            const auto [value, inserted] = map.Insert(key);
            ASSERT_EQ(inserted, isNew);
            reference[key.word] = *value = step;
        }
    }
    ASSERT_EQ(map.Size(), reference.size());
    for (uint64_t word = 1; word <= 3000; ++word) {
        const uint32_t* value = map.Find({word});
        const auto expected = reference.find(word);
        ASSERT_EQ(value != nullptr, expected != reference.end());
        if (value) {
            ASSERT_EQ(*value, expected->second);
        }
    }
}
