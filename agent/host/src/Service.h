#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "ControlServer.h"
#include "LineCounter.h"
#include "SourceRound.h"
#include "StateDirectory.h"
#include "velm/Dom.h"

// What the service keeps outside of Lua.
struct Service {
    using Clock = std::chrono::steady_clock;

    explicit Service(VelmCore::CDom& agentDom) : dom(agentDom) {}

    VelmCore::CDom& dom;
    StateDirectory state;
    ControlServer control;
    ControlServer::Request request;  // the one that was taken last
    LineCounter lines;
    SourceRound sources;
    uint64_t entries = 0;
    std::vector<pollfd> waiting;  // of the last wait
    Clock::time_point nextSecond = Clock::now();
    Clock::time_point nextControl = Clock::now();
    Clock::time_point nextAlive = Clock::now();
    std::optional<std::chrono::microseconds> watchdog;  // the interval that the manager expects
};
