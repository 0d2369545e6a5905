#include "HostBinding.h"

#include "ConfigFile.h"
#include "ControlClient.h"
#include "FileText.h"
#include "Interfaces.h"
#include "JsonLua.h"
#include "LuaBinding.h"
#include "velm/Text.h"
#include "velm/Trace.h"

namespace {

// WhyUnreadable(path): nil, or the reason.
int Unreadable(lua_State* L) {
    const char* path = luaL_checkstring(L, 1);
    auto& reason = PushBox<std::string>(L);
    reason = WhyUnreadable(path);
    return PushReason(L, reason);
}

// WhyUnwritable(directory, name): nil, or the reason.
int Unwritable(lua_State* L) {
    const char* directory = luaL_checkstring(L, 1);
    const char* name = luaL_checkstring(L, 2);
    auto& reason = PushBox<std::string>(L);
    reason = WhyUnwritable(directory, name);
    return PushReason(L, reason);
}

// WhyNoLog(directory, name): nil, or the reason.
int NoLog(lua_State* L) {
    const char* directory = luaL_checkstring(L, 1);
    const char* name = luaL_checkstring(L, 2);
    auto& reason = PushBox<std::string>(L);
    reason = WhyNoLog(directory, name);
    return PushReason(L, reason);
}

// ReadText(path): the file's text, or nil and the reason.
int ReadText(lua_State* L) {
    const char* path = luaL_checkstring(L, 1);
    auto& text = PushBox<std::string>(L);
    auto& reason = PushBox<std::string>(L);
    if (ReadFileText(path, text, reason)) {
        PushString(L, text);
        return 1;
    }
    lua_pushnil(L);
    PushString(L, reason);
    return 2;
}

void SetText(lua_State* L, const char* field, const std::string& text) {
    PushString(L, text);
    lua_setfield(L, -2, field);
}

void PushInterface(lua_State* L, const Interface& interface, const std::string& macText) {
    lua_createtable(L, 0, 5);
    SetText(L, "name", interface.name);
    SetText(L, "mac", interface.mac);
    SetText(L, "macText", macText);
    lua_pushinteger(L, static_cast<lua_Integer>(interface.index));
    lua_setfield(L, -2, "index");
    lua_newtable(L);
    for (size_t i = 0; i < interface.addresses.size(); ++i) {
        PushString(L, interface.addresses[i]);
        lua_rawseti(L, -2, static_cast<int>(i + 1));
    }
    lua_setfield(L, -2, "addresses");
}

// Interfaces(): array of {name=, index=, mac= (raw bytes), macText=, addresses={text...}}.
int Interfaces(lua_State* L) {
    auto& interfaces = PushBox<std::vector<Interface>>(L);
    auto& macText = PushBox<std::string>(L);
    interfaces = ListInterfaces();
    lua_newtable(L);
    for (size_t i = 0; i < interfaces.size(); ++i) {
        macText = VelmCore::toHexString(interfaces[i].mac, false).utf8_string();
        PushInterface(L, interfaces[i], macText);
        lua_rawseti(L, -2, static_cast<int>(i + 1));
    }
    return 1;
}

// ShowTrace(): trace lines go to standard error.
int ShowTrace(lua_State*) {
    VelmCore::SetTraceTarget("-");
    return 0;
}

// Ask(socket, line): the running service's answer, or nil and the reason.
int Ask(lua_State* L) {
    const char* path = luaL_checkstring(L, 1);
    const char* line = luaL_checkstring(L, 2);
    auto& answer = PushBox<std::string>(L);
    auto& reason = PushBox<std::string>(L);
    if (AskService(path, line, answer, reason)) {
        PushString(L, answer);
        return 1;
    }
    lua_pushnil(L);
    PushString(L, reason);
    return 2;
}

const luaL_Reg kFunctions[] = {
    {"LoadTable", Guarded<LoadTable>},      {"WhyUnreadable", Guarded<Unreadable>},
    {"WhyUnwritable", Guarded<Unwritable>}, {"WhyNoLog", Guarded<NoLog>},
    {"ReadText", Guarded<ReadText>},        {"Interfaces", Guarded<Interfaces>},
    {"ShowTrace", Guarded<ShowTrace>},      {"Ask", Guarded<Ask>},
    {"ParseJson", Guarded<ParseJson>},      {nullptr, nullptr},
};

}  // namespace

int OpenHost(lua_State* L) {
    PushLibrary(L, kFunctions, 0);
    lua_pushliteral(L, VELM_VERSION);
    lua_setfield(L, -2, "VERSION");
    return 1;
}
