// What stands in front of a message's text, and what becomes of the text.

#include "SyslogHeader.h"

#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

namespace {

// 2026-11-13 21:30:00 UTC.
constexpr int64_t kTime = 1794605400000000;

// Local time of a zone, for as long as the object lives.
class Zone {
public:
    explicit Zone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    ~Zone() {
        unsetenv("TZ");
        tzset();
    }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;
};

std::string Written(SyslogHeader& header, int64_t usec, const std::string& text) {
    std::string out = "what was there before";
    header.Write(out, usec, kSyslogWarning, "packet", text);
    return out;
}

std::string Pid() {
    return std::to_string(getpid());
}

std::string Clean(const std::string& text) {
    std::string out;
    AppendClean(out, text);
    return out;
}

TEST(SyslogHeader, Rfc5424HasPriorityVersionTimeHostProgramProcessAndKind) {
    const Zone zone("UTC0");
    SyslogHeader header(SyslogHeader::Rfc5424, 16, "web1");
    EXPECT_EQ(
        Written(header, kTime + 42, "text"),
        "<132>1 2026-11-13T21:30:00.000042+00:00 web1 velm_agent " + Pid() + " packet - text");
}

TEST(SyslogHeader, TimeIsLocalWithItsOffset) {
    SyslogHeader header(SyslogHeader::Rfc5424, 0, "web1");
    {
        const Zone zone("IST-5:30");
        EXPECT_EQ(Written(header, kTime + 999999, "").substr(0, 38),
                  "<4>1 2026-11-14T03:00:00.999999+05:30 ");
    }
    const Zone zone("NST3:30");
    EXPECT_EQ(Written(header, kTime + 1000000, "").substr(0, 38),
              "<4>1 2026-11-13T18:00:01.000000-03:30 ");
}

TEST(SyslogHeader, LocalFormIsDateProgramAndProcess) {
    const Zone zone("UTC0");
    SyslogHeader header(SyslogHeader::Local, 23, "web1");
    EXPECT_EQ(Written(header, kTime, "text"),
              "<188>Nov 13 21:30:00 velm_agent[" + Pid() + "]: text");
    EXPECT_EQ(Written(header, kTime - 10 * 86400 * int64_t{1000000}, "text"),
              "<188>Nov  3 21:30:00 velm_agent[" + Pid() + "]: text");
}

TEST(SyslogHeader, HostIsAsciiWithoutBlanksAndOfLimitedLength) {
    const auto host = [](const std::string& name) {
        SyslogHeader header(SyslogHeader::Rfc5424, 0, name);
        const std::string text = Written(header, kTime, "");
        const size_t begin = text.find(' ', text.find(' ') + 1) + 1;
        return text.substr(begin, text.find(' ', begin) - begin);
    };
    EXPECT_EQ(host("we b\n1\xC3\xA4\x7F"), "web1");
    EXPECT_EQ(host(""), "-");
    EXPECT_EQ(host(" \xFF"), "-");
    EXPECT_EQ(host(std::string(300, 'h')), std::string(255, 'h'));
}

TEST(SyslogHeader, FacilitiesHaveTheNumbersOfTheStandard) {
    EXPECT_EQ(FacilityNumber("kern"), 0);
    EXPECT_EQ(FacilityNumber("daemon"), 3);
    EXPECT_EQ(FacilityNumber("authpriv"), 10);
    EXPECT_EQ(FacilityNumber("local0"), 16);
    EXPECT_EQ(FacilityNumber("local7"), 23);
    EXPECT_EQ(FacilityNumber("local8"), -1);
    EXPECT_EQ(FacilityNumber("Kern"), -1);
    EXPECT_EQ(FacilityNumber(""), -1);
}

TEST(SyslogText, ControlCharactersAreBlanks) {
    EXPECT_EQ(Clean("a\r\nb\tc\x7F"
                    "d\x1b[2J"),
              "a  b c d [2J");
    EXPECT_EQ(Clean(std::string("a\0b", 3)), "a b");
    EXPECT_EQ(Clean(""), "");
    // Those of the upper half: next line, the start of a terminal's command, the last one.
    EXPECT_EQ(Clean("a\xC2\x85z\xC2\x9B"
                    "2J\xC2\x80\xC2\x9F"),
              "a z 2J  ");
    EXPECT_EQ(Clean("\xC2\xA0"), "\xC2\xA0");
}

TEST(SyslogText, Utf8StaysAndOtherBytesAreQuestionMarks) {
    EXPECT_EQ(Clean("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"),
              "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(Clean("a\xFFz"), "a?z");
    EXPECT_EQ(Clean("a\xE2\x82"), "a??");  // cut inside a character
    EXPECT_EQ(Clean("\xED\xA0\x80"), "???");
    EXPECT_EQ(Clean("\xC3\n"), "? ");
}

}  // namespace
