#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "LineCounter.h"
#include "Progress.h"
#include "ReplayClock.h"
#include "TempDirectory.h"
#include "kdi/kdi.h"
#include "velm/Dom.h"

struct Event {
    int number;
    std::string text;  // UTF-8
};

// What a replay keeps outside of Lua.
struct Player {
    Player(VelmCore::CDom& agentDom, size_t captureCount)
        : dom(agentDom), captures(static_cast<double>(captureCount)) {}

    VelmCore::CDom& dom;
    TempDirectory temp;
    LineCounter lines;
    ReplayClock clock;
    Progress progress;
    const double captures;           // how many there are
    double done = 0;                 // and how many have been read
    kdi_handle_t current = nullptr;  // the capture whose beginning the clock knows
    int64_t nextTick = 0;        // capture time of the next second, microseconds since the epoch
    unsigned int idleTicks = 0;  // seconds since the last entry
    std::vector<Event> events;   // taken, being told
};
