#include <cerrno>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <wx/debug.h>
#include <wx/init.h>
#include <wx/log.h>

#include "velm/Log.h"

namespace {

using namespace VelmCore;

class Log : public ::testing::Test {
protected:
    Log() {
        InstallLog("");
        TakeLog();
    }

    // "level: text" of each line.
    std::vector<std::string> Take() {
        std::vector<std::string> lines;
        for (const LogLine& line : TakeLog())
            lines.push_back((line.level + ": " + line.text).ToStdString());
        return lines;
    }

    using Lines = std::vector<std::string>;

    wxInitializer m_Wx;  // so that wx tells the main thread from others
};

TEST_F(Log, KeepsLinesWithTheirLevelInOrder) {
    wxLogError("bad %d", 1);
    wxLogWarning("odd");
    wxLogMessage("said");
    EXPECT_EQ(Take(), (Lines{"error: bad 1", "warning: odd", "message: said"}));
    EXPECT_TRUE(TakeLog().empty());
}

TEST_F(Log, HasTheTextOfASystemError) {
    errno = ENOENT;
    wxLogSysError("cannot read");
    EXPECT_EQ(Take(), (Lines{"error: cannot read (error 2: No such file or directory)"}));
}

TEST_F(Log, SeesTheLinesOfAnyThread) {
    std::thread([] { wxLogError("from a thread"); }).join();
    EXPECT_EQ(Take(), (Lines{"error: from a thread"}));
}

TEST_F(Log, ALineOfAnotherThreadComesBeforeTheNextOfTheMainThread) {
    std::thread([] { wxLogError("from a thread"); }).join();
    wxLogError("from main");
    EXPECT_EQ(Take(), (Lines{"error: from a thread", "error: from main"}));
}

TEST_F(Log, ALineOfAnAttachedThreadIsThereAtOnce) {
    Lines lines;
    std::thread([&] {
        AttachThreadToLog();
        wxLogError("from a thread");
        lines = Take();  // on this thread, which cannot make wx hand over its own
    }).join();
    EXPECT_EQ(lines, (Lines{"error: from a thread"}));
}

TEST_F(Log, WritesLinesToStandardErrorIfAProgramIsNamed) {
    InstallLog("velm_agent");
    ::testing::internal::CaptureStderr();
    wxLogError("policy.xml: bad");
    std::thread([] {
        AttachThreadToLog();
        wxLogWarning("odd");
    }).join();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "velm_agent: policy.xml: bad\nvelm_agent: odd\n");
    InstallLog("");
    ::testing::internal::CaptureStderr();
    wxLogError("quiet");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(Log, KeepsTheNewest10000) {
    for (int i = 0; i < 10001; ++i)
        wxLogMessage("%d", i);
    const std::vector<LogLine> lines = TakeLog();
    ASSERT_EQ(lines.size(), 10000u);
    EXPECT_EQ(lines.front().text, "1");
    EXPECT_EQ(lines.back().text, "10000");
}

TEST_F(Log, AFailedAssertionIsReportedCountedAndPassed) {
    const unsigned int before = FailedAssertions();
    int size = 1;
    wxASSERT_MSG(size == 2, "why it matters");
    EXPECT_EQ(FailedAssertions(), before + 1);
    const Lines lines = Take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].find("error: assertion \"size == 2\" failed at "), 0u) << lines[0];
    EXPECT_NE(lines[0].find("log_test.cpp:"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find(": why it matters"), std::string::npos) << lines[0];
}

TEST_F(Log, AssertionsOfSeveralThreadsAreAllCounted) {
    const unsigned int before = FailedAssertions();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 100; ++k)
                wxASSERT(k < 0);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(FailedAssertions(), before + 400);
    EXPECT_EQ(TakeLog().size(), 400u);
}

TEST_F(Log, AttachedThreadsLogTogether) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            AttachThreadToLog();
            for (int k = 0; k < 100; ++k)
                wxLogError("%d", k);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(TakeLog().size(), 400u);
}

}  // namespace
