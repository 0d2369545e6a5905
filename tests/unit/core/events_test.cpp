#include <csignal>
#include <cstdio>
#include <ctime>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "TestDirectory.h"
#include "velm/Dom.h"
#include "velm/Trace.h"

namespace {

using namespace VelmCore;

class Events : public ::testing::Test {
protected:
    // The text of the one event that there is.
    wxString Text() {
        const std::vector<AgentEvent> events = m_Dom.TakeEvents();
        EXPECT_EQ(events.size(), 1u);
        return events.empty() ? wxString() : events[0].text;
    }

    // The file's lines, each from its number on.
    std::string WrittenWithoutTimes() {
        std::string result;
        std::string text = ReadFile(m_File);
        for (size_t at = 0; at < text.size();) {
            const size_t end = text.find('\n', at);
            const size_t number = text.find("\"number\"", at);
            result += text.substr(number, end - number) + "\n";
            at = end + 1;
        }
        return result;
    }

    TestDirectory m_Directory;
    const std::string m_File = m_Directory.Path("events");
    CDom m_Dom;
};

TEST_F(Events, AreKeptInOrderUntilTheyAreTaken) {
    m_Dom.AgentEventWrite(6001, "%d|%s", 3, "x");
    m_Dom.AgentEventWrite(6003, "second");
    const std::vector<AgentEvent> events = m_Dom.TakeEvents();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].number, 6001);
    EXPECT_EQ(events[0].text, "3|x");
    EXPECT_EQ(events[1].number, 6003);
    EXPECT_EQ(events[1].text, "second");
    EXPECT_TRUE(m_Dom.TakeEvents().empty());
}

TEST_F(Events, TakeAnyKindOfText) {
    m_Dom.AgentEventWrite(1, "%s|%s|%s", wxString("w"), std::string("s"), L"\u00e9");
    EXPECT_EQ(Text(), L"w|s|\u00e9");
}

TEST_F(Events, CutFieldsAtTheirPrecision) {
    m_Dom.AgentEventWrite(1, "%.4s|", wxString(L"\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9"));
    EXPECT_EQ(Text(), L"\u00e9\u00e9\u00e9\u00e9|");
}

TEST_F(Events, TakeATextInPlaceOfAFormat) {
    const wxString text = "FingerprintScan|10.0.0.1|6|0";
    m_Dom.AgentEventWrite(7000, text);
    EXPECT_EQ(Text(), text);
}

TEST_F(Events, OfTheWideForm) {
    m_Dom.DoAgentEventWrite(1, L"%d|%ls", 7, L"wide");
    EXPECT_EQ(Text(), "7|wide");
}

TEST_F(Events, OfTheUtf8Form) {
    m_Dom.DoAgentEventWriteUtf8(1, "%d|%s", 7, "\xC3\xA9");
    EXPECT_EQ(Text(), L"7|\u00e9");
}

TEST_F(Events, InvalidUtf8IsReplacedAndNothingElseLost) {
    m_Dom.DoAgentEventWriteUtf8(1, "a\xFFz|%.1s|", "\xC3\xA9");
    EXPECT_EQ(Text(), L"a\uFFFDz|\uFFFD|");
}

TEST_F(Events, OfCallersWithoutADomGoToTheProcessesOne) {
    CDom::LogAgentEvent(0, 2019, "%.64s|%s|${%.64s}", "tok", wxString("list"), "ip");
    EXPECT_EQ(Text(), "tok|list|${ip}");
    CDom::LogAgentEvent(0, 2019, "plain");
    EXPECT_EQ(Text(), "plain");
    CDom::DoLogAgentEvent(0, 1, L"%d", 5);
    EXPECT_EQ(Text(), "5");
    CDom::DoLogAgentEventUtf8(0, 1, "%s", "six");
    EXPECT_EQ(Text(), "six");
}

TEST(EventsAlone, AreDroppedWithoutADom) {
    CDom::LogAgentEvent(0, 2019, "%s", "lost");
    CDom dom;
    EXPECT_TRUE(dom.TakeEvents().empty());
}

TEST_F(Events, TheNewest10000AreKept) {
    for (int i = 0; i < 10002; ++i)
        m_Dom.AgentEventWrite(i, "x");
    const std::vector<AgentEvent> events = m_Dom.TakeEvents();
    ASSERT_EQ(events.size(), 10000u);
    EXPECT_EQ(events.front().number, 2);
    EXPECT_EQ(events.back().number, 10001);
}

TEST_F(Events, AreAppendedToTheFileAsJsonLines) {
    WriteFile(m_File, "{\"number\":1}\n");
    ASSERT_EQ(m_Dom.OpenEventFile(m_File), "");
    m_Dom.AgentEventWrite(6001, "first|1");
    m_Dom.AgentEventWrite(-5, "");
    EXPECT_EQ(WrittenWithoutTimes(),
              "\"number\":1}\n"
              "\"number\":6001,\"text\":\"first|1\"}\n"
              "\"number\":-5,\"text\":\"\"}\n");
}

TEST_F(Events, CarryTheTimeInSecondsWithItsFraction) {
    ASSERT_EQ(m_Dom.OpenEventFile(m_File), "");
    const long long before = time(nullptr);
    m_Dom.AgentEventWrite(1, "x");
    const long long after = time(nullptr);
    long long seconds = 0;
    char digits[8] = "";
    ASSERT_EQ(
        sscanf(ReadFile(m_File).c_str(), "{\"time\":%lld.%6[0-9],\"number\":1,", &seconds, digits),
        2);
    EXPECT_EQ(std::string(digits).size(), 6u);
    EXPECT_GE(seconds, before - 1);  // the coarse clock may lag behind
    EXPECT_LE(seconds, after + 1);
}

TEST_F(Events, EscapeWhatJsonDemands) {
    ASSERT_EQ(m_Dom.OpenEventFile(m_File), "");
    m_Dom.AgentEventWrite(1, "%s", wxString(L"\"\\/\n\r\t\u0001\u001f\u007f\u00e9\U0001F600"));
    EXPECT_EQ(WrittenWithoutTimes(),
              "\"number\":1,\"text\":\"\\\"\\\\/\\n\\r\\t\\u0001\\u001f\\u007f"
              "\xC3\xA9\xF0\x9F\x98\x80\"}\n");
}

TEST_F(Events, ReplaceWhatUtf8CannotCarry) {
    ASSERT_EQ(m_Dom.OpenEventFile(m_File), "");
    wxString text("a");
    text += wxUniChar(0xD800);
    text += "z";
    m_Dom.AgentEventWrite(1, "%s", text);
    EXPECT_EQ(WrittenWithoutTimes(), "\"number\":1,\"text\":\"a\xEF\xBF\xBDz\"}\n");
}

TEST_F(Events, FileIsTheOwnersOnly) {
    const mode_t before = umask(0);
    EXPECT_EQ(m_Dom.OpenEventFile(m_File), "");
    umask(before);
    EXPECT_EQ(ModeOf(m_File), 0600u);
}

TEST_F(Events, FileThatCannotBeOpenedIsAnErrorWithItsPath) {
    const std::string path = m_Directory.Path("missing/events");
    EXPECT_EQ(m_Dom.OpenEventFile(path), "event file " + path + ": No such file or directory");
}

TEST_F(Events, APipeThatNobodyReadsIsAnErrorAndDoesNotBlock) {
    ASSERT_EQ(mkfifo(m_File.c_str(), 0600), 0);
    EXPECT_EQ(m_Dom.OpenEventFile(m_File), "event file " + m_File + ": No such device or address");
}

TEST_F(Events, AFullDiskIsTracedAndTheEventIsKept) {
    ASSERT_EQ(m_Dom.OpenEventFile("/dev/full"), "");
    EnableTrace("velm.core", true);
    TakeTrace();
    m_Dom.AgentEventWrite(6001, "x");
    EnableTrace("velm.core", false);
    const std::vector<TraceLine> lines = TakeTrace();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "cannot write event 6001: No space left on device");
    EXPECT_EQ(Text(), "x");
}

TEST_F(Events, ATornLineDoesNotSpoilTheNext) {
    ASSERT_EQ(m_Dom.OpenEventFile(m_File), "");
    struct rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    struct rlimit tight = before;
    tight.rlim_cur = 20;
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &tight);
    m_Dom.AgentEventWrite(1, "torn");
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, handler);
    m_Dom.AgentEventWrite(2, "whole");
    const std::string text = ReadFile(m_File);
    EXPECT_EQ(text.find('\n'), 20u);
    EXPECT_EQ(text.substr(21, 8), "{\"time\":");
    EXPECT_NE(text.find("\"number\":2,\"text\":\"whole\"}\n"), std::string::npos);
}

}  // namespace
