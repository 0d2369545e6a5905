#include <gtest/gtest.h>

#include "TestDirectory.h"
#include "velm/Trace.h"

namespace {

using namespace VelmCore;

class Trace : public ::testing::Test {
protected:
    Trace() { TakeTrace(); }
    ~Trace() override {
        EnableTrace("ostrel", false);
        SetTraceTarget("");
        TakeTrace();
    }

    TestDirectory m_Directory;
};

TEST_F(Trace, IsOffUntilItsComponentIsOn) {
    EXPECT_FALSE(LogTraceIsEnabled(L"ostrel"));
    EnableTrace("ostrel", true);
    EXPECT_TRUE(LogTraceIsEnabled(L"ostrel"));
    EXPECT_FALSE(LogTraceIsEnabled(L"LogScan"));
    EXPECT_FALSE(LogTraceIsEnabled(L"ostre"));
    EnableTrace("ostrel", false);
    EXPECT_FALSE(LogTraceIsEnabled(L"ostrel"));
}

TEST_F(Trace, KeepsLinesInOrderUntilTheyAreTaken) {
    LogTrace("ostrel", "a.cpp", 1, "F", "one");
    LogTrace("LogScan", "a.cpp", 2, "F", "two");
    const std::vector<TraceLine> lines = TakeTrace();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].component, "ostrel");
    EXPECT_EQ(lines[0].message, "one");
    EXPECT_EQ(lines[1].component, "LogScan");
    EXPECT_TRUE(TakeTrace().empty());
}

TEST_F(Trace, KeepsTheNewest10000) {
    for (int i = 0; i < 10001; ++i)
        LogTrace("ostrel", "a.cpp", 1, "F", wxString() << i);
    const std::vector<TraceLine> lines = TakeTrace();
    ASSERT_EQ(lines.size(), 10000u);
    EXPECT_EQ(lines.front().message, "1");
    EXPECT_EQ(lines.back().message, "10000");
}

TEST_F(Trace, AppendsEachLineToItsFile) {
    const std::string path = m_Directory.Path("trace");
    WriteFile(path, "before\n");
    ASSERT_TRUE(SetTraceTarget(path));
    LogTrace("ostrel", "/src/dir/File.cpp", 12, "Function", "first\nsecond");
    SetTraceTarget("");
    LogTrace("ostrel", "x", 1, "F", "not written");
    const std::string text = ReadFile(path);
    EXPECT_EQ(text.substr(0, 7), "before\n");
    const std::string line = text.substr(7);
    const std::string tail = " ostrel File.cpp:12 Function: first second\n";
    ASSERT_GE(line.size(), tail.size());
    EXPECT_EQ(line.substr(line.size() - tail.size()), tail);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
}

TEST_F(Trace, AFileThatCannotBeOpenedLeavesTheFormerTarget) {
    const std::string path = m_Directory.Path("trace");
    ASSERT_TRUE(SetTraceTarget(path));
    EXPECT_FALSE(SetTraceTarget(m_Directory.Path("missing/trace")));
    LogTrace("ostrel", "x", 1, "F", "message");
    EXPECT_NE(ReadFile(path).find("message"), std::string::npos);
    EXPECT_EQ(ModeOf(path), 0600u);
}

TEST_F(Trace, WritesToStandardError) {
    ::testing::internal::CaptureStderr();
    ASSERT_TRUE(SetTraceTarget("-"));
    LogTrace("ostrel", "x", 1, "F", "message");
    SetTraceTarget("");
    const std::string text = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find(" ostrel x:1 F: message\n"), std::string::npos);
}

}  // namespace
