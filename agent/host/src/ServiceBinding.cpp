#include "ServiceBinding.h"

#include <ctime>

#include "KdiBinding.h"
#include "LuaBinding.h"
#include "Privileges.h"
#include "ReplaceFile.h"
#include "Service.h"
#include "ServiceManager.h"
#include "ServiceNext.h"

namespace {

Service& Self(lua_State* L) {
    return *static_cast<Service*>(lua_touserdata(L, lua_upvalueindex(1)));
}

// TakeState(directory): makes the state directory its own. Nil, or why not.
int TakeState(lua_State* L) {
    Service& service = Self(L);
    const char* path = luaL_checkstring(L, 1);
    auto& reason = PushBox<std::string>(L);
    reason = service.state.Take(path);
    return PushReason(L, reason);
}

// OpenSettings(file), OpenEvents(file): nil, or why not. The second may be called again, after the
// file was moved away.
int OpenSettings(lua_State* L) {
    auto& reason = PushBox<std::string>(L);
    reason = Self(L).dom.OpenSettings(wxString::FromUTF8(luaL_checkstring(L, 1))).utf8_string();
    return PushReason(L, reason);
}

int OpenEvents(lua_State* L) {
    auto& reason = PushBox<std::string>(L);
    reason = Self(L).dom.OpenEventFile(wxString::FromUTF8(luaL_checkstring(L, 1))).utf8_string();
    return PushReason(L, reason);
}

// Listen(path): opens the control socket. Nil, or why not.
int Listen(lua_State* L) {
    Service& service = Self(L);
    const char* path = luaL_checkstring(L, 1);
    auto& reason = PushBox<std::string>(L);
    reason = service.control.Open(path);
    return PushReason(L, reason);
}

// Answer(id, text): ends a request.
int Answer(lua_State* L) {
    Service& service = Self(L);
    const unsigned int id = CheckUnsigned(L, 1);
    size_t length = 0;
    const char* text = luaL_checklstring(L, 2, &length);
    service.control.Answer(id, std::string(text, length));
    return 0;
}

// Drop(rawSockets): gives up what privileges are not needed. Nil, or why it failed.
int Drop(lua_State* L) {
    const bool rawSockets = CheckBoolean(L, 1);
    auto& reason = PushBox<std::string>(L);
    reason = DropPrivileges(rawSockets);
    return PushReason(L, reason);
}

// SetSources(handles): whose entries Next returns. The caller keeps the array, and so the handles.
int SetSources(lua_State* L) {
    luaL_checktype(L, 1, LUA_TTABLE);
    auto& handles = PushBox<std::vector<kdi_handle_t>>(L);
    const int count = static_cast<int>(lua_rawlen(L, 1));
    for (int i = 1; i <= count; ++i) {
        lua_rawgeti(L, 1, i);
        handles.push_back(CheckKdiHandle(L, -1));
        lua_pop(L, 1);
    }
    Self(L).sources.Set(handles);
    return 0;
}

// Entries(): how many Next has returned.
int Entries(lua_State* L) {
    lua_pushnumber(L, static_cast<lua_Number>(Self(L).entries));
    return 1;
}

// CountLines(path): false if the log file can't be followed.
int CountLines(lua_State* L) {
    lua_pushboolean(L, Self(L).lines.Begin(luaL_checkstring(L, 1)));
    return 1;
}

// Lines(): lines written to the log since CountLines.
int Lines(lua_State* L) {
    lua_pushnumber(L, static_cast<lua_Number>(Self(L).lines.Count()));
    return 1;
}

// Replace(path, text, mode, durable): see ReplaceFile. Nil, or why it failed.
int Replace(lua_State* L) {
    const char* path = luaL_checkstring(L, 1);
    size_t length = 0;
    const char* text = luaL_checklstring(L, 2, &length);
    const unsigned int mode = CheckUnsigned(L, 3);
    const bool durable = CheckBoolean(L, 4);
    auto& reason = PushBox<std::string>(L);
    reason = ReplaceFile(path, std::string(text, length), mode, durable);
    return PushReason(L, reason);
}

// EndTornLine(path): see there. Nil, or why it failed.
int EndTorn(lua_State* L) {
    const char* path = luaL_checkstring(L, 1);
    auto& reason = PushBox<std::string>(L);
    reason = EndTornLine(path);
    return PushReason(L, reason);
}

int TellReady(lua_State* L) {
    Service& service = Self(L);
    service.watchdog = ServiceManager::WatchdogInterval();
    ServiceManager::TellReady(luaL_checkstring(L, 1));
    return 0;
}

int TellReloading(lua_State*) {
    ServiceManager::TellReloading();
    return 0;
}

int TellStopping(lua_State*) {
    ServiceManager::TellStopping();
    return 0;
}

lua_Number Seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<lua_Number>(now.tv_sec) + static_cast<lua_Number>(now.tv_nsec) / 1e9;
}

// WallTime(): seconds since the epoch. Uptime(): seconds since the machine's start, which also run
// while it sleeps and never jump.
int WallTime(lua_State* L) {
    lua_pushnumber(L, Seconds(CLOCK_REALTIME));
    return 1;
}

int Uptime(lua_State* L) {
    lua_pushnumber(L, Seconds(CLOCK_BOOTTIME));
    return 1;
}

const luaL_Reg kFunctions[] = {
    {"TakeState", Guarded<TakeState>},
    {"OpenSettings", Guarded<OpenSettings>},
    {"OpenEvents", Guarded<OpenEvents>},
    {"Listen", Guarded<Listen>},
    {"Answer", Guarded<Answer>},
    {"Drop", Guarded<Drop>},
    {"SetSources", Guarded<SetSources>},
    {"Next", Guarded<NextOfService>},
    {"Entries", Guarded<Entries>},
    {"CountLines", Guarded<CountLines>},
    {"Lines", Guarded<Lines>},
    {"Replace", Guarded<Replace>},
    {"EndTornLine", Guarded<EndTorn>},
    {"TellReady", Guarded<TellReady>},
    {"TellReloading", Guarded<TellReloading>},
    {"TellStopping", Guarded<TellStopping>},
    {"WallTime", Guarded<WallTime>},
    {"Uptime", Guarded<Uptime>},
    {nullptr, nullptr},
};

}  // namespace

int OpenService(lua_State* L) {
    lua_pushvalue(L, lua_upvalueindex(1));
    PushLibrary(L, kFunctions, 1);
    return 1;
}
