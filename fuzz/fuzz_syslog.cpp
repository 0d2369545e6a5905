// Bytes as an entry, and as the texts of the configuration, through a script's SyslogFormat with
// every combination of family and format. A CEF message must be one that a strict reader takes
// apart, whatever the texts hold.

#include <cstdint>
#include <stdexcept>
#include <string>

#include "CefParser.h"
#include "Input.h"
#include "ScriptHost.h"
#include "velm/Dom.h"
#include "velm/Log.h"

namespace {

using Fuzz::Input;
using Fuzz::Require;

constexpr int kFormats = 4;

struct World {
    World() { VelmCore::InstallLog(""); }
    VelmCore::CDom dom;
    Fuzz::ScriptHost host{dom, ""};
};

World& TheWorld() {
    static World world;
    return world;
}

std::string TakeText(Input& input) {
    return input.TakeBytes(input.Take<uint8_t>());
}

struct Call {
    std::string entry;
    std::string packetData;
    uint32_t filter;
    std::string name;
    std::string identifier;
    std::string interface;
    int number;
};

Call TakeCall(Input& input) {
    Call call;
    call.number = input.Take<int8_t>();
    call.filter = input.Take<uint32_t>();
    call.name = TakeText(input);
    call.identifier = TakeText(input);
    call.interface = TakeText(input);
    const uint8_t length = input.Take<uint8_t>();
    call.entry = input.TakeBytes(length == 0 ? sizeof(velm_log_entry_s) : length);
    call.packetData = input.TakeRest();
    // The configured filter is that of the entry.
    constexpr size_t kOffset = offsetof(velm_log_entry_s, log_filter_id);
    if (call.entry.size() >= kOffset + sizeof call.filter) {
        memcpy(&call.entry[kOffset], &call.filter, sizeof call.filter);
    }
    return call;
}

void SetText(lua_State* L, const char* key, const std::string& text) {
    lua_pushlstring(L, text.data(), text.size());
    lua_setfield(L, -2, key);
}

void SetNumber(lua_State* L, const char* key, int number) {
    lua_pushinteger(L, number);
    lua_setfield(L, -2, key);
}

// Both maps have the filter.
void PushFilters(lua_State* L, const Call& call) {
    lua_newtable(L);
    SetText(L, "name", call.name);
    SetText(L, "identifier", call.identifier);
    SetNumber(L, "severity", call.number);
    SetNumber(L, "filterAction", call.number);
    lua_newtable(L);
    lua_pushvalue(L, -2);
    lua_rawseti(L, -2, static_cast<int>(call.filter));
    lua_remove(L, -2);
}

// Any interface has the name.
void PushInterfaces(lua_State* L, const Call& call) {
    lua_newtable(L);
    lua_newtable(L);
    lua_newtable(L);
    SetText(L, "name", call.interface);
    lua_pushcclosure(
        L,
        [](lua_State* state) {
            lua_pushvalue(state, lua_upvalueindex(1));
            return 1;
        },
        1);
    lua_setfield(L, -2, "__index");
    lua_setmetatable(L, -2);
}

void PushConfiguration(lua_State* L, const Call& call) {
    lua_newtable(L);
    PushFilters(L, call);
    lua_pushvalue(L, -1);
    lua_setfield(L, -3, "packetFilterMap");
    lua_setfield(L, -2, "payloadFilterMap");
    PushInterfaces(L, call);
    lua_setfield(L, -2, "interfaceMap");
    lua_newtable(L);
    SetNumber(L, "hostID", call.number);
    lua_setfield(L, -2, "agentConfiguration");
}

std::string Format(World& world, const Call& call) {
    lua_State* L = world.host.State();
    world.host.PushMethod("SyslogFormat");
    lua_pushlstring(L, call.entry.data(), call.entry.size());
    lua_pushlstring(L, call.packetData.data(), call.packetData.size());
    PushConfiguration(L, call);
    Require(lua_pcall(L, 4, 1, 0) == LUA_OK, "no error is raised");
    Require(lua_type(L, -1) == LUA_TSTRING, "a string is returned");
    size_t length;
    const char* data = lua_tolstring(L, -1, &length);
    const std::string message(data, length);
    lua_settop(L, 0);
    return message;
}

void CheckCef(const std::string& text) {
    try {
        const CefMessage message = CefParser::Parse(text);
        Require(message.header[1] == "Zellora" && message.header[2] == "Velm Agent",
                "the header has its columns");
        Require(message.extension.size() >= 4, "the extension has its items");
        Require(message.extension[0].first == "cn1", "the host comes first");
    } catch (const std::runtime_error& error) {
        fprintf(stderr, "%s: %s\n", error.what(), text.c_str());
        Require(false, "the message is CEF");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    World& world = TheWorld();
    Input input(data, size);
    world.dom.SetText("velm.host.name", TakeText(input));
    const Call call = TakeCall(input);
    for (int format = 0; format < kFormats; ++format) {
        world.dom.Set("velm.syslog.format", format);
        world.dom.SetText("velm.syslog.cef", "true");
        CheckCef(Format(world, call));
        world.dom.SetText("velm.syslog.cef", "false");
        const std::string plain = Format(world, call);
        Require(plain.compare(0, 7, "REASON=") == 0, "the plain form begins with its reason");
        Require(plain.find('\0') == std::string::npos, "no message has a zero byte");
    }
    VelmCore::TakeLog();
    return 0;
}
