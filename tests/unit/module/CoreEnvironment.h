#pragma once

#include <string>
#include <vector>

#include <stdlib.h>
#include <time.h>

#include <gtest/gtest.h>
#include <wx/init.h>

#include "velm/Clock.h"
#include "velm/Dom.h"
#include "velm/Log.h"
#include "velm/Trace.h"

// What every test of the module stands on: wx, the agent's log, UTC.

using Texts = std::vector<std::string>;

inline std::string Utf8(const wxString& text) {
    return std::string(text.utf8_str());
}

inline void SetTimeZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

// The agent events since the last look, as "number: text".
inline Texts TakeEvents(VelmCore::CDom& dom) {
    Texts events;
    for (const VelmCore::AgentEvent& event : dom.TakeEvents()) {
        events.push_back(std::to_string(event.number) + ": " + Utf8(event.text));
    }
    return events;
}

// The log lines since the last look, as "level: text".
inline Texts TakeLogLines() {
    Texts lines;
    for (const VelmCore::LogLine& line : VelmCore::TakeLog()) {
        lines.push_back(Utf8(line.level) + ": " + Utf8(line.text));
    }
    return lines;
}

// Switches the module's trace on for a test and hands out its messages.
class TraceScope {
public:
    TraceScope() {
        VelmCore::EnableTrace("ostrel", true);
        VelmCore::TakeTrace();
    }
    ~TraceScope() { VelmCore::EnableTrace("ostrel", false); }

    Texts Take() {
        Texts messages;
        for (const VelmCore::TraceLine& line : VelmCore::TakeTrace()) {
            messages.push_back(Utf8(line.message));
        }
        return messages;
    }
    bool Has(const std::string& message) {
        for (const std::string& taken : Take()) {
            if (taken == message) return true;
        }
        return false;
    }
};

class CoreEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        VelmCore::InstallLog("");
        SetTimeZone("UTC");
    }

private:
    wxInitializer m_Wx;
};

inline ::testing::Environment* const s_CoreEnvironment =
    ::testing::AddGlobalTestEnvironment(new CoreEnvironment);
