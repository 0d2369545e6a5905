#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "TestDirectory.h"
#include "velm/Dom.h"
#include "velm/Syslogger.h"
#include "velm/Trace.h"
#include "velm/XmlObject.h"

namespace {

using namespace VelmCore;

constexpr int ROUNDS = 500;

class Concurrency : public ::testing::Test {
protected:
    // Runs each job in a thread of its own, ROUNDS times, all at once.
    static void RunTogether(const std::vector<std::function<void(int)>>& jobs) {
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (const auto& job : jobs) {
            threads.emplace_back([&go, &job] {
                while (!go)
                    std::this_thread::yield();
                for (int i = 0; i < ROUNDS; ++i)
                    job(i);
            });
        }
        go = true;
        for (std::thread& thread : threads)
            thread.join();
    }

    TestDirectory m_Directory;
    CDom m_Dom;
};

TEST_F(Concurrency, SettingsOfSeveralThreadsAllReachTheFile) {
    const std::string file = m_Directory.Path("settings");
    ASSERT_EQ(m_Dom.OpenSettings(file), "");
    std::atomic<int> wrong{0};
    const auto writer = [this](const char* key) {
        return [this, key](int i) { m_Dom.Set(key, i); };
    };
    const auto reader = [&](int) {
        long long value = 0;
        m_Dom.Get("a", value);
        if (value < 0 || value >= ROUNDS) ++wrong;
    };
    const auto flusher = [&](int i) {
        if (i % 50 == 0 && !m_Dom.FlushSettings()) ++wrong;
    };
    RunTogether({writer("a"), writer("b"), writer("c"), reader, reader, flusher});
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(m_Dom.FlushSettings());
    CDom next;
    ASSERT_EQ(next.OpenSettings(file), "");
    EXPECT_EQ(next.Get("a") + next.Get("b") + next.Get("c"), "499499499");
}

TEST_F(Concurrency, NoRaiseOfAConditionIsLost) {
    unsigned long long before = 0;
    m_Dom.ConditionQuery("a", before, nullptr, nullptr);
    std::atomic<bool> backwards{false};
    unsigned long long last = 0;
    const auto query = [&](int) {
        unsigned long long value = 0;
        m_Dom.ConditionQuery("a", value, nullptr, nullptr);
        if (value < last) backwards = true;
        last = value;
    };
    const auto raise = [this](int) { m_Dom.ConditionRaise("a"); };
    RunTogether({raise, raise, raise, query});
    unsigned long long after = 0;
    m_Dom.ConditionQuery("a", after, nullptr, nullptr);
    EXPECT_FALSE(backwards);
    EXPECT_EQ(after - before, 3u * ROUNDS);
}

TEST_F(Concurrency, EveryEventIsTakenOnceAndWrittenWhole) {
    const std::string file = m_Directory.Path("events");
    ASSERT_EQ(m_Dom.OpenEventFile(file), "");
    size_t taken = 0;
    const auto member = [this](int i) { m_Dom.AgentEventWrite(1, "%d", i); };
    const auto outside = [](int i) { CDom::LogAgentEvent(0, 1, "%d", i); };
    const auto taker = [&](int) { taken += m_Dom.TakeEvents().size(); };
    RunTogether({member, member, outside, taker});
    taken += m_Dom.TakeEvents().size();
    EXPECT_EQ(taken, 3u * ROUNDS);
    size_t lines = 0;
    const std::string text = ReadFile(file);
    for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
        EXPECT_EQ(text.compare(at, 8, "{\"time\":"), 0);
        ++lines;
    }
    EXPECT_EQ(lines, 3u * ROUNDS);
}

TEST_F(Concurrency, TraceIsSwitchedWhileItIsAsked) {
    size_t taken = 0;
    std::atomic<size_t> written{0};
    const auto trace = [&](int) {
        if (!LogTraceIsEnabled(L"ostrel")) return;
        LogTrace("ostrel", __FILE__, __LINE__, __FUNCTION__, "message");
        ++written;
    };
    RunTogether({trace, trace, [](int i) { EnableTrace("ostrel", i % 2 == 0); },
                 [&](int) { taken += TakeTrace().size(); }});
    EnableTrace("ostrel", false);
    taken += TakeTrace().size();
    EXPECT_EQ(taken, written);
}

class Element : public CIdObject {
public:
    Element() : CIdObject(true) {}
    const wchar_t* GetElementName() const override { return L"Element"; }
};

TEST_F(Concurrency, APolicyIsReadWholeWhileItIsReplaced) {
    const auto replace = [this](int i) {
        const std::string number = std::to_string(i);
        m_Dom.ConfigSetXml("<SecurityConfiguration><Element id=\"" + number +
                           "\"/></SecurityConfiguration>");
    };
    std::atomic<int> wrong{0};
    const auto read = [&](int) {
        Element element;
        if (!m_Dom.ConfigGetXml("/SecurityConfiguration/Element", element)) ++wrong;
        if (element.m_Id < 0 || element.m_Id >= ROUNDS) ++wrong;
    };
    replace(0);
    RunTogether({replace, read, read});
    EXPECT_EQ(wrong, 0);
}

TEST_F(Concurrency, TheSyslogSettingsAreReadWhileTheyChange) {
    CSyslogger syslogger("pnp");
    RunTogether({[this](int i) { m_Dom.Set("velm.syslog.format", i % 3); },
                 [&](int) { syslogger.UpdateConfig(); }});
    syslogger.UpdateConfig();
    EXPECT_EQ(syslogger.m_Format, (ROUNDS - 1) % 3);
}

}  // namespace
