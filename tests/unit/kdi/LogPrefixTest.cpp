#include "LogPrefix.h"

#include <gtest/gtest.h>

#include <string>

using Kdi::LogPrefix;
using Kdi::ParseLogPrefix;

namespace {

void ExpectPrefix(const std::string& text, uint32_t filter, uint16_t action, int16_t reason) {
    LogPrefix prefix{1, 2, 3};
    EXPECT_TRUE(ParseLogPrefix(text, prefix)) << text;
    EXPECT_EQ(prefix.filter, filter) << text;
    EXPECT_EQ(prefix.action, action) << text;
    EXPECT_EQ(prefix.reason, reason) << text;
}

void ExpectForeign(const std::string& text) {
    LogPrefix prefix{1, 2, 3};
    EXPECT_FALSE(ParseLogPrefix(text, prefix)) << text;
    EXPECT_EQ(prefix.filter, 0u) << text;
    EXPECT_EQ(prefix.action, LOG_ACTION_LOG) << text;
    EXPECT_EQ(prefix.reason, 0) << text;
}

TEST(LogPrefixTest, TellsFilterActionAndReason) {
    ExpectPrefix("velm f=1 a=1 r=100 ", 1, 1, 100);
}

TEST(LogPrefixTest, FieldsMayStandInAnyOrderAndBeLeftOut) {
    ExpectPrefix("velm r=101 f=7", 7, LOG_ACTION_LOG, 101);
    ExpectPrefix("velm a=1", 0, 1, 0);
    ExpectPrefix("velm", 0, LOG_ACTION_LOG, 0);
    ExpectPrefix("velm ", 0, LOG_ACTION_LOG, 0);
}

TEST(LogPrefixTest, SeveralBlanksAreAsOne) {
    ExpectPrefix("velm   f=1  a=1   r=2  ", 1, 1, 2);
}

TEST(LogPrefixTest, LimitsAreTheFields) {
    ExpectPrefix("velm f=4294967295 a=255 r=9999", 4294967295u, 255, 9999);
    ExpectForeign("velm f=4294967296");
    ExpectForeign("velm a=256");
    ExpectForeign("velm r=10000");  // what tells of connections cannot come from a rule
}

TEST(LogPrefixTest, OtherTextsAreForeign) {
    for (const char* text :
         {"", " ", "DROP ", "velmf=1", "Velm f=1", " velm f=1", "velm x=1", "velm f",
          "velm f=", "velm f= 1", "velm f=-1", "velm f=+1", "velm r=-5000", "velm f=1x",
          "velm f=0x1", "velm f=1,a=1", "velm f=1 a=1 r=100 more", "velm\tf=1"}) {
        ExpectForeign(text);
    }
}

TEST(LogPrefixTest, FieldThatStandsTwiceIsForeign) {
    ExpectForeign("velm f=1 f=1");
    ExpectForeign("velm a=1 r=0 a=1");
}

TEST(LogPrefixTest, ZeroByteIsNoBlank) {
    ExpectForeign(std::string("velm f=1\0a=1", 12));
}

}  // namespace
