#include "PlayerBinding.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

#include "Interrupt.h"
#include "KdiBinding.h"
#include "LuaBinding.h"
#include "Player.h"

namespace {

constexpr int64_t kTickUsec = 1'000'000;
// A longer silence is passed over at once: by then nothing is left that a second could change.
constexpr unsigned int kMaxIdleTicks = 3600;

char s_ReporterKey;  // the registry's key of the function that OnNews got

Player& Self(lua_State* L) {
    return *static_cast<Player*>(lua_touserdata(L, lua_upvalueindex(1)));
}

// Pushes the reporter and its first two arguments.
void PushReporter(lua_State* L, const char* kind, int64_t usec) {
    lua_rawgetp(L, LUA_REGISTRYINDEX, &s_ReporterKey);
    lua_pushstring(L, kind);
    lua_pushnumber(L, static_cast<lua_Number>(usec));
}

void TellEvents(lua_State* L, Player& player) {
    player.progress.Erase();
    for (const Event& event : player.events) {
        PushReporter(L, "event", player.clock.CaptureUsec());
        lua_pushinteger(L, event.number);
        PushString(L, event.text);
        lua_call(L, 4, 0);
    }
}

void TellBlocks(lua_State* L, Player& player, kdi_handle_t handle) {
    kdi_blacklist_s record;
    while (kdi_take_blacklist(handle, &record, 1) == 1) {
        in_addr address{};
        std::memcpy(&address, &record.bl_ipv4_addr, sizeof(address));
        char text[INET_ADDRSTRLEN];
        PushReporter(L, "block", player.clock.CaptureUsec());
        lua_pushstring(L, inet_ntop(AF_INET, &address, text, sizeof(text)));
        lua_pushnumber(L, static_cast<lua_Number>(record.bl_duration_msec));
        lua_call(L, 4, 0);
    }
}

void TakeEvents(Player& player) {
    player.events.clear();
    for (const VelmCore::AgentEvent& event : player.dom.TakeEvents())
        player.events.push_back({event.number, event.text.utf8_string()});
}

void TellNews(lua_State* L, Player& player, kdi_handle_t handle) {
    TakeEvents(player);
    if (!player.events.empty()) TellEvents(L, player);
    TellBlocks(L, player, handle);
}

// OnNews(function(kind, usec, ...)): gets "event", time, number, text and "block", time, address,
// milliseconds; the time is the capture's, in microseconds.
int OnNews(lua_State* L) {
    luaL_checktype(L, 1, LUA_TFUNCTION);
    lua_settop(L, 1);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &s_ReporterKey);
    return 0;
}

// ReportNews([handle]): tells what has come since the last entry.
int ReportNews(lua_State* L) {
    Player& player = Self(L);
    TakeEvents(player);
    TellEvents(L, player);
    if (!lua_isnoneornil(L, 1)) TellBlocks(L, player, CheckKdiHandle(L, 1));
    return 0;
}

void MoveClock(Player& player, kdi_handle_t handle, const velm_log_entry_s& entry) {
    if (handle != player.current) {
        kdi_statistics_s statistics{};
        kdi_get_statistics(handle, &statistics);
        player.clock.BeginCapture(statistics.first_usec);
        player.current = handle;
        player.nextTick = statistics.first_usec;
    }
    const int64_t time = int64_t{entry.log_last_sec} * 1'000'000 + entry.log_last_usec;
    player.clock.MoveTo(time);
    player.idleTicks = 0;
    if (time < player.nextTick) return;
    player.nextTick += ((time - player.nextTick) / kTickUsec + 1) * kTickUsec;
    kdi_hold_back(handle, player.nextTick);
}

// The capture has come to the next second.
void Tick(Player& player, kdi_handle_t handle) {
    player.clock.MoveTo(player.nextTick);
    player.nextTick += kTickUsec;
    if (++player.idleTicks > kMaxIdleTicks) {
        kdi_statistics_s statistics{};
        kdi_get_statistics(handle, &statistics);
        player.nextTick = std::max(player.nextTick, statistics.last_usec);
        player.idleTicks = 0;
    }
    kdi_hold_back(handle, player.nextTick);
}

void DrawProgress(Player& player, kdi_handle_t handle) {
    kdi_statistics_s statistics{};
    kdi_get_statistics(handle, &statistics);
    const double share = statistics.total_packets == 0
                             ? 0
                             : static_cast<double>(statistics.packets) /
                                   static_cast<double>(statistics.total_packets);
    player.progress.Draw((player.done + share) / player.captures);
}

int PushEnd(lua_State* L, const char* state) {
    lua_pushnil(L);
    lua_pushstring(L, state);
    return 2;
}

// Next(handle): tells the news of the entry before, moves the clock to the next and returns its
// three strings; or nil and "tick" when a second of capture time has passed, "end", "interrupted",
// or "failed" with the reason.
int Next(lua_State* L) {
    Player& player = Self(L);
    const kdi_handle_t handle = CheckKdiHandle(L, 1);
    TellNews(L, player, handle);
    if (Interrupted()) return PushEnd(L, "interrupted");
    if (player.progress.IsDue()) DrawProgress(player, handle);
    kdi_entry_s* entry = nullptr;
    const kdi_next_result result = kdi_next_entry(handle, 0, &entry);
    if (result == KDI_ENTRY) {
        MoveClock(player, handle, entry->entry);
        return PushEntry(L, *entry);
    }
    if (result == KDI_TIMEOUT) {
        Tick(player, handle);
        return PushEnd(L, "tick");
    }
    if (result != KDI_FAILED) return PushEnd(L, "end");
    char error[512] = "";
    kdi_get_error(handle, error, sizeof(error));
    PushEnd(L, "failed");
    lua_pushstring(L, error);
    return 3;
}

void SetCount(lua_State* L, const char* field, uint64_t value) {
    lua_pushnumber(L, static_cast<lua_Number>(value));
    lua_setfield(L, -2, field);
}

// Finish(handle): the capture's end. The clock moves to its last packet. Returns {packets=,
// entries=, dropped=, usec=}, the last the capture time covered.
int Finish(lua_State* L) {
    Player& player = Self(L);
    const kdi_handle_t handle = CheckKdiHandle(L, 1);
    kdi_statistics_s statistics{};
    kdi_get_statistics(handle, &statistics);
    const bool hasPackets = statistics.first_usec >= 0;
    if (hasPackets) {
        if (handle != player.current) player.clock.BeginCapture(statistics.first_usec);
        player.clock.MoveTo(statistics.last_usec);
    }
    player.current = nullptr;
    ++player.done;
    lua_createtable(L, 0, 5);
    SetCount(L, "packets", statistics.packets);
    SetCount(L, "entries", statistics.entries);
    SetCount(L, "dropped", statistics.dropped);
    const int64_t covered = statistics.last_usec - statistics.first_usec;
    SetCount(L, "usec", hasPackets && covered > 0 ? static_cast<uint64_t>(covered) : 0);
    return 1;
}

// RunOn(): one second without packets.
int RunOn(lua_State* L) {
    Self(L).clock.RunOn(kTickUsec);
    return 0;
}

// Interrupted(): whether the user asked the replay to end.
int IsInterrupted(lua_State* L) {
    lua_pushboolean(L, Interrupted());
    return 1;
}

// Describe(handle): how the source understands its capture; "" if there is nothing to say.
int Describe(lua_State* L) {
    lua_pushstring(L, kdi_describe(CheckKdiHandle(L, 1)));
    return 1;
}

// TempDirectory(): a directory that goes when the program ends.
int MakeTempDirectory(lua_State* L) {
    PushString(L, Self(L).temp.Path());
    return 1;
}

// CountLines(path): false if the log file can't be followed.
int CountLines(lua_State* L) {
    lua_pushboolean(L, Self(L).lines.Begin(luaL_checkstring(L, 1)));
    return 1;
}

// Lines(): lines written since CountLines, and whether that is all of them. Ends the counting.
int Lines(lua_State* L) {
    LineCounter& lines = Self(L).lines;
    lua_pushnumber(L, static_cast<lua_Number>(lines.Finish()));
    lua_pushboolean(L, lines.IsComplete());
    return 2;
}

const luaL_Reg kFunctions[] = {
    {"OnNews", Guarded<OnNews>},
    {"ReportNews", Guarded<ReportNews>},
    {"Next", Guarded<Next>},
    {"Finish", Guarded<Finish>},
    {"RunOn", Guarded<RunOn>},
    {"Interrupted", Guarded<IsInterrupted>},
    {"Describe", Guarded<Describe>},
    {"TempDirectory", Guarded<MakeTempDirectory>},
    {"CountLines", Guarded<CountLines>},
    {"Lines", Guarded<Lines>},
    {nullptr, nullptr},
};

}  // namespace

int OpenPlayer(lua_State* L) {
    lua_pushvalue(L, lua_upvalueindex(1));
    PushLibrary(L, kFunctions, 1);
    return 1;
}
