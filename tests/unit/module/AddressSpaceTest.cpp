// Address texts, and which addresses lie in them.

#include <cstddef>

#include "LogDataFixture.h"
#include "Tokenize.h"

namespace {

using OSTREL::ConfigUtils;
using OSTREL::IpSpace;
using OSTREL::IpSpaceList;

class AddressSpaceTest : public ::testing::Test {
protected:
    bool Parse(const char* items, const wxString& name = "Office") {
        return ConfigUtils::ParseIpRange(items, name, L"ipList", list);
    }
    bool Contains(const char* address) {
        OSTREL::LogData log(dom);
        return log.HostIsInList(Address(address), &list);
    }
    void ExpectEntry(bool isRange, const char* low, const char* high) {
        ASSERT_EQ(list.size(), 1u);
        EXPECT_EQ(list.front().isRange, isRange);
        EXPECT_EQ(list.front().low, Address(low));
        EXPECT_EQ(list.front().high, Address(high));
    }
    Texts Events() { return TakeEvents(dom); }

    VelmCore::CDom dom;
    IpSpaceList list;
};

TEST_F(AddressSpaceTest, PrefixLengthMakesAMask) {
    EXPECT_TRUE(Parse("10.0.0.0/8"));
    ExpectEntry(false, "10.0.0.0", "255.0.0.0");
    EXPECT_TRUE(Contains("10.200.1.1"));
    EXPECT_FALSE(Contains("11.0.0.1"));
}

TEST_F(AddressSpaceTest, HostBitsBehindAPrefixDoNotMatter) {
    EXPECT_TRUE(Parse("10.0.0.5/8"));
    EXPECT_TRUE(Contains("10.200.1.1"));
    EXPECT_FALSE(Contains("11.0.0.5"));
}

TEST_F(AddressSpaceTest, PrefixOf32IsOneAddress) {
    EXPECT_TRUE(Parse("1.2.3.4/32"));
    ExpectEntry(false, "1.2.3.4", "255.255.255.255");
    EXPECT_TRUE(Contains("1.2.3.4"));
    EXPECT_FALSE(Contains("1.2.3.5"));
}

TEST_F(AddressSpaceTest, PrefixOf1IsHalfOfAll) {
    EXPECT_TRUE(Parse("128.0.0.0/1"));
    ExpectEntry(false, "128.0.0.0", "128.0.0.0");
    EXPECT_TRUE(Contains("255.0.0.1"));
    EXPECT_FALSE(Contains("127.255.255.255"));
}

TEST_F(AddressSpaceTest, PrefixOutside1To32IsABadToken) {
    for (const char* token : {"1.2.3.4/33", "1.2.3.4/0", "1.2.3.4/x"}) {
        EXPECT_FALSE(Parse(token));
        EXPECT_TRUE(list.empty());
        EXPECT_EQ(Events(), Texts({std::string("2019: ") + token + "|Office|${ipList}"}));
    }
}

TEST_F(AddressSpaceTest, PrefixIsReadUpToTheFirstOtherCharacter) {
    EXPECT_TRUE(Parse("10.0.0.0/8x"));
    ExpectEntry(false, "10.0.0.0", "255.0.0.0");
}

TEST_F(AddressSpaceTest, DottedMaskNeedNotBeContiguous) {
    EXPECT_TRUE(Parse("10.1.2.3/255.0.255.0"));
    ExpectEntry(false, "10.1.2.3", "255.0.255.0");
    EXPECT_TRUE(Contains("10.99.2.1"));
    EXPECT_FALSE(Contains("10.1.3.3"));
}

TEST_F(AddressSpaceTest, DottedMaskThatDoesNotParseIsAllOnes) {
    EXPECT_TRUE(Parse("10.1.2.3/x.y"));
    ExpectEntry(false, "10.1.2.3", "255.255.255.255");
    EXPECT_EQ(Events(), Texts());
}

TEST_F(AddressSpaceTest, EmptyPartIsABadToken) {
    for (const char* token : {"1.2.3.4/", "/24", "1.2.3.4-", "-1.2.3.4", "-", "/"}) {
        EXPECT_FALSE(Parse(token));
        EXPECT_TRUE(list.empty());
        EXPECT_EQ(Events(), Texts({std::string("2019: ") + token + "|Office|${ipList}"}));
    }
}

TEST_F(AddressSpaceTest, GoodTokensStayBesideABadOne) {
    EXPECT_FALSE(Parse("1.1.1.1, /8, 2.2.2.2, 3.3.3.3/99, 4.4.4.4"));
    EXPECT_EQ(list.size(), 3u);
    EXPECT_TRUE(Contains("4.4.4.4"));
    EXPECT_EQ(Events(), Texts({"2019: /8|Office|${ipList}", "2019: 3.3.3.3/99|Office|${ipList}"}));
}

TEST_F(AddressSpaceTest, BarsInTheListNameAreReplaced) {
    EXPECT_FALSE(Parse("/8", "a|b"));
    EXPECT_EQ(Events(), Texts({"2019: /8|a/b|${ipList}"}));
}

TEST_F(AddressSpaceTest, BadTokenIsCutTo64CharactersAndABadPrefixTo128) {
    const std::string longToken = std::string(200, '1') + "/";
    EXPECT_FALSE(Parse(longToken.c_str()));
    EXPECT_EQ(Events(), Texts({"2019: " + std::string(64, '1') + "|Office|${ipList}"}));
    const std::string longPrefix = std::string(200, '1') + "/99";
    EXPECT_FALSE(Parse(longPrefix.c_str()));
    EXPECT_EQ(Events(), Texts({"2019: " + std::string(128, '1') + "|Office|${ipList}"}));
}

TEST_F(AddressSpaceTest, ListNameIsCutTo128CharactersAndKindTo64) {
    EXPECT_FALSE(
        ConfigUtils::ParseIpRange("/8", wxString('n', 200), std::wstring(100, L'k').c_str(), list));
    EXPECT_EQ(Events(),
              Texts({"2019: /8|" + std::string(128, 'n') + "|${" + std::string(64, 'k') + "}"}));
}

TEST_F(AddressSpaceTest, RangeCrossesTheFirstOctet) {
    EXPECT_TRUE(Parse("9.255.255.255-10.0.0.1"));
    ExpectEntry(true, "9.255.255.255", "10.0.0.1");
    EXPECT_TRUE(Contains("9.255.255.255"));
    EXPECT_TRUE(Contains("10.0.0.0"));
    EXPECT_TRUE(Contains("10.0.0.1"));
    EXPECT_FALSE(Contains("10.0.0.2"));
    EXPECT_FALSE(Contains("9.255.255.254"));
}

TEST_F(AddressSpaceTest, RangeAboveTheSignBitIsUnsigned) {
    EXPECT_TRUE(Parse("127.0.0.1-200.0.0.1"));
    EXPECT_TRUE(Contains("128.0.0.0"));
    EXPECT_FALSE(Contains("200.0.0.2"));
}

TEST_F(AddressSpaceTest, RangeTheWrongWayRoundMatchesNothing) {
    EXPECT_TRUE(Parse("10.0.0.9-10.0.0.1"));
    EXPECT_FALSE(Contains("10.0.0.5"));
    EXPECT_FALSE(Contains("10.0.0.9"));
}

TEST_F(AddressSpaceTest, HyphenWinsOverSlash) {
    EXPECT_TRUE(Parse("1.1.1.1-2.2.2.2/8"));
    ExpectEntry(true, "1.1.1.1", "255.255.255.255");
}

TEST_F(AddressSpaceTest, WildcardsStandAnywhere) {
    EXPECT_TRUE(Parse("10.*.3.*"));
    ExpectEntry(false, "10.0.3.0", "255.0.255.0");
    EXPECT_TRUE(Contains("10.7.3.9"));
    EXPECT_FALSE(Contains("10.7.4.9"));
}

TEST_F(AddressSpaceTest, LoneStarMatchesEveryAddress) {
    EXPECT_TRUE(Parse("*"));
    ExpectEntry(false, "0.0.0.0", "0.0.0.0");
    EXPECT_TRUE(Contains("1.2.3.4"));
    EXPECT_TRUE(Contains("255.255.255.255"));
}

TEST_F(AddressSpaceTest, LoneDotMatchesEveryAddress) {
    EXPECT_TRUE(Parse("."));
    ExpectEntry(false, "0.0.0.0", "0.0.0.0");
}

TEST_F(AddressSpaceTest, MissingOctetsAreWildcards) {
    EXPECT_TRUE(Parse("10"));
    ExpectEntry(false, "10.0.0.0", "255.0.0.0");
    EXPECT_TRUE(Parse("10.1"));
    ExpectEntry(false, "10.1.0.0", "255.255.0.0");
}

TEST_F(AddressSpaceTest, FourOctetsAreOneAddress) {
    EXPECT_TRUE(Parse("10.1.2.3"));
    ExpectEntry(false, "10.1.2.3", "255.255.255.255");
}

TEST_F(AddressSpaceTest, FiveOctetsMatchOnlyAllOnes) {
    EXPECT_TRUE(Parse("1.2.3.4.5"));
    ExpectEntry(false, "255.255.255.255", "255.255.255.255");
    EXPECT_TRUE(Contains("255.255.255.255"));
    EXPECT_FALSE(Contains("1.2.3.4"));
}

TEST_F(AddressSpaceTest, OctetThatIsNoneIsNoError) {
    EXPECT_TRUE(Parse("300.1.1.1"));
    ExpectEntry(false, "255.255.255.255", "255.255.255.255");
    EXPECT_TRUE(Parse("300.1.1.1-1.2.3.4"));
    ExpectEntry(true, "255.255.255.255", "1.2.3.4");
    EXPECT_EQ(Events(), Texts());
}

TEST_F(AddressSpaceTest, WordsAreUselessEntriesAndNoErrors) {
    EXPECT_TRUE(Parse("hello,world"));
    EXPECT_EQ(list.size(), 2u);
    EXPECT_EQ(Events(), Texts());
}

TEST_F(AddressSpaceTest, StarIsOnlyAWholeOctet) {
    EXPECT_TRUE(Parse("10.1*.0.0"));
    ExpectEntry(false, "255.255.255.255", "255.255.255.255");
}

TEST_F(AddressSpaceTest, AnyRunOfCommasAndBlanksSeparates) {
    EXPECT_TRUE(Parse(",, 1.1.1.1,  2.2.2.2 3.3.3.3, "));
    EXPECT_EQ(list.size(), 3u);
    EXPECT_TRUE(Contains("1.1.1.1"));
    EXPECT_TRUE(Contains("2.2.2.2"));
    EXPECT_TRUE(Contains("3.3.3.3"));
}

TEST_F(AddressSpaceTest, EntriesKeepTheirOrder) {
    EXPECT_TRUE(Parse("3.3.3.3 1.1.1.1"));
    EXPECT_EQ(list.front().low, Address("3.3.3.3"));
    EXPECT_EQ(list.back().low, Address("1.1.1.1"));
}

TEST_F(AddressSpaceTest, EmptyTextEmptiesTheList) {
    Parse("1.1.1.1");
    EXPECT_TRUE(Parse(""));
    EXPECT_TRUE(list.empty());
    EXPECT_FALSE(Contains("1.1.1.1"));
}

TEST_F(AddressSpaceTest, NullListContainsNothing) {
    OSTREL::LogData log(dom);
    EXPECT_FALSE(log.HostIsInList(Address("1.1.1.1"), nullptr));
}

TEST_F(AddressSpaceTest, NoIpv6AddressIsInAnyList) {
    Parse("*");
    OSTREL::LogData log(dom);
    EXPECT_FALSE(log.HostIsInList(pk_ipv6_addr_u{}, &list));
}

TEST_F(AddressSpaceTest, FailedMaskIsZero) {
    unsigned int mask = 5;
    EXPECT_FALSE(ConfigUtils::ToIPMask("33", "t", "n", L"ipList", mask));
    EXPECT_EQ(mask, 0u);
}

TEST_F(AddressSpaceTest, MemoryOrderOfAnEntry) {
    EXPECT_EQ(offsetof(IpSpace, isRange), 0u);
    EXPECT_LT(offsetof(IpSpace, low), offsetof(IpSpace, high));
}

Texts Tokens(const char* text, const wchar_t* delimiters) {
    std::list<wxString> tokens;
    OSTREL::Tokenize(tokens, text, delimiters);
    Texts result;
    for (const wxString& token : tokens)
        result.push_back(Utf8(token));
    return result;
}

TEST(TokenizeTest, NoTokenIsEmpty) {
    EXPECT_EQ(Tokens("", L", "), Texts());
    EXPECT_EQ(Tokens(", ,", L", "), Texts());
    EXPECT_EQ(Tokens(",a,,b c,", L", "), Texts({"a", "b", "c"}));
}

TEST(TokenizeTest, LastTokenNeedsNoDelimiter) {
    EXPECT_EQ(Tokens("a;b", L";"), Texts({"a", "b"}));
}

TEST(TokenizeTest, TokensAreAppended) {
    std::list<wxString> tokens = {"former"};
    OSTREL::Tokenize(tokens, "a", L",");
    EXPECT_EQ(tokens.size(), 2u);
}

}  // namespace
