// Bytes as a configuration table, with wrong types and metamethods that raise or change the table:
// every reader of the configuration is called on it, and entries are written with it.

#include <cstdint>
#include <iterator>
#include <memory>
#include <string>

#include "ConfigUtils.h"
#include "Input.h"
#include "LogDataPeer.h"
#include "ScriptGuard.h"
#include "ScriptHost.h"
#include "TempDirectory.h"
#include "kdi/kdi.h"
#include "velm/Clock.h"
#include "velm/Dom.h"
#include "velm/Log.h"

namespace {

using Fuzz::Input;
using Fuzz::Require;

constexpr int kDeepest = 5;
constexpr uint8_t kMostFields = 12;
const char* const kKeys[] = {"agentConfiguration",
                             "hostID",
                             "hostname",
                             "packetFilterMap",
                             "name",
                             "filterAction",
                             "payloadFilterMap",
                             "severity",
                             "identifier",
                             "incoming",
                             "interfaceMap",
                             "id",
                             "driverInterfaceMap",
                             "mac",
                             "platformInterfaceMap",
                             "packetFilterLog",
                             "size",
                             "keep",
                             "cacheSize",
                             "cacheLifetime",
                             "cacheStaletime",
                             "ignoreIpList",
                             "items",
                             "trafficAnalysisConfiguration",
                             "destIpList",
                             "whitelistIpList",
                             "probeConfigurationMap",
                             "blockAttackerSeconds",
                             "notifyImmediately",
                             "10.0.0.1",
                             "01",
                             "01:02"};

int RaiseText(lua_State* L) {
    return luaL_error(L, "raised by a field");
}
int RaiseTable(lua_State* L) {
    lua_newtable(L);
    return lua_error(L);
}
int GiveNumber(lua_State* L) {
    lua_pushnumber(L, 3);
    return 1;
}
// Takes every field out of the configuration's tables, and puts others in, while it is walked.
int Rebuild(lua_State* L) {
    lua_getglobal(L, "configuration");
    for (const char* map : {"driverInterfaceMap", "probeConfigurationMap"}) {
        if (!lua_istable(L, -1)) break;
        lua_pushstring(L, map);
        lua_rawget(L, -2);
        if (lua_istable(L, -1)) {
            for (int key = -2; key < 14; ++key) {
                lua_pushnil(L);
                lua_rawseti(L, -2, key);
            }
            for (int key = 100; key < 140; ++key) {
                lua_newtable(L);
                lua_rawseti(L, -2, key);
            }
        }
        lua_pop(L, 1);
    }
    lua_gc(L, LUA_GCCOLLECT, 0);
    return 0;
}

void PushValue(lua_State* L, Input& input, int depth);

void PushKey(lua_State* L, Input& input) {
    const uint8_t choice = input.Take<uint8_t>();
    if (choice < 0xA0) {
        lua_pushstring(L, kKeys[choice % std::size(kKeys)]);
    } else if (choice < 0xE0) {
        lua_pushinteger(L, choice % 16 - 4);
    } else {
        lua_pushlstring(L, reinterpret_cast<const char*>(&choice), 1);
    }
}

// A table, as a value of another one or as the configuration itself.
void PushTable(lua_State* L, Input& input, int depth) {
    luaL_checkstack(L, 8, nullptr);
    lua_newtable(L);
    for (uint8_t fields = input.Take<uint8_t>() % kMostFields; fields > 0; --fields) {
        PushKey(L, input);
        PushValue(L, input, depth + 1);
        lua_rawset(L, -3);
    }
    static const lua_CFunction kMetamethods[] = {RaiseText, RaiseTable, GiveNumber, Rebuild};
    const uint8_t choice = input.Take<uint8_t>();
    if (choice % 4 != 3) return;
    lua_newtable(L);
    lua_pushcfunction(L, kMetamethods[choice / 4 % std::size(kMetamethods)]);
    lua_setfield(L, -2, "__index");
    lua_setmetatable(L, -2);
}

void PushValue(lua_State* L, Input& input, int depth) {
    switch (input.Take<uint8_t>() % 10) {
        case 0:
            return lua_pushnil(L);
        case 1:
            return lua_pushboolean(L, input.Take<uint8_t>() & 1);
        case 2:
            return lua_pushnumber(L, input.Take<int8_t>());
        case 3: {
            double number;
            const uint64_t bits = input.Take<uint64_t>();
            memcpy(&number, &bits, sizeof number);
            return lua_pushnumber(L, number);
        }
        case 4: {
            const std::string bytes = input.TakeBytes(input.Take<uint8_t>());
            lua_pushlstring(L, bytes.data(), bytes.size());
            return;
        }
        case 5:
            return lua_pushcfunction(L, GiveNumber);
        case 6:
            return lua_pushlightuserdata(L, nullptr);
        default:
            if (depth > kDeepest) return lua_pushnil(L);
            return PushTable(L, input, depth);
    }
}

// Frees the lists that a reader made.
struct Lists {
    OSTREL::IpSpaceList* first = nullptr;
    OSTREL::IpSpaceList* second = nullptr;
    ~Lists() {
        delete first;
        delete second;
    }
};

void CallReader(OSTREL::ConfigUtils& utils, unsigned int which, int number) {
    wxString text;
    wxString other;
    int ints[5] = {};
    bool flag;
    unsigned int cacheSize;
    std::bitset<5> sets[2];
    Lists lists;
    switch (which % 8) {
        case 0:
            utils.getPacketFilterInfo(number, text, ints[0]);
            break;
        case 1:
            utils.getPayloadFilterInfo(number, text, flag, ints[0], other);
            break;
        case 2:
            utils.getAgentConfigurationHostIdentity(text, ints[0]);
            break;
        case 3:
            utils.getInterfaceName("01", text);
            break;
        case 4:
            utils.getInterfaceID(number, ints[0]);
            break;
        case 5:
            utils.getAgentConfigurationPacketFilterLog(ints[0], ints[1], lists.first, cacheSize,
                                                       ints[2], ints[3]);
            break;
        case 6:
            utils.getAgentConfigurationTrafficAnalysis(lists.first, lists.second, ints, sets[0],
                                                       sets[1]);
            break;
        default:
            static const kdi_handle_t driver = kdi_open_source("null", nullptr, nullptr, 0);
            utils.BlacklistIp(driver, 0x0100000A, "10.0.0.1", number, flag);
    }
}

constexpr unsigned int kReaders = 8;

// Counts the frames that hold objects: none may be left behind by a long jump.
struct Frame {
    Frame() { ++s_Alive; }
    ~Frame() { --s_Alive; }
    static int s_Alive;
};
int Frame::s_Alive = 0;

// One script call that brings the configuration: the reader's number, a number, the table.
int ReaderCall(lua_State* L) {
    const Frame frame;
    OSTREL::ConfigUtils utils(L, 3);
    // Far more failures than the stack has room for what they leave.
    for (int repeat = 0; repeat < 3; ++repeat) {
        CallReader(utils, static_cast<unsigned int>(lua_tointeger(L, 1)),
                   static_cast<int>(lua_tointeger(L, 2)));
    }
    return 0;
}

// Each call gets a table of its own: metamethods may have changed the last one.
void MakeConfiguration(lua_State* L, Input input) {
    PushTable(L, input, 0);
    lua_setglobal(L, "configuration");
}

void CallReaders(lua_State* L, const Input& input, int number) {
    for (unsigned int which = 0; which < kReaders; ++which) {
        MakeConfiguration(L, input);
        lua_pushcfunction(L, OSTREL::Guarded<ReaderCall>);
        lua_pushinteger(L, static_cast<lua_Integer>(which));
        lua_pushinteger(L, number);
        lua_getglobal(L, "configuration");
        lua_pcall(L, 3, 0, 0);
        lua_settop(L, 0);
        Require(Frame::s_Alive == 0, "no frame with objects is jumped over");
    }
}

void WriteEntry(Fuzz::ScriptHost& host, const velm_log_entry_s& entry) {
    lua_State* L = host.State();
    host.PushMethod("WriteLogData");
    lua_pushlstring(L, reinterpret_cast<const char*>(&entry), sizeof entry);
    lua_pushnil(L);
    lua_getglobal(L, "configuration");
    lua_pushnil(L);
    lua_pcall(L, 5, 1, 0);
    lua_settop(L, 0);
    Require(!OSTREL::LogDataPeer::HasConfiguration(host.Log()), "the configuration is given back");
    OSTREL::LogDataPeer::FreeLists(host.Log());
}

struct World {
    World() { VelmCore::InstallLog(""); }
    VelmCore::CDom dom;
    Reference::TempDirectory directory;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static World world;
    Input input(data, size);
    const int number = input.Take<int8_t>();
    Fuzz::ScriptHost host(world.dom, world.directory.Path());
    CallReaders(host.State(), input, number);

    velm_log_entry_s entry = {};
    entry.log_flags = LOG_FLAG_IPV4 | LOG_FLAG_TRANSPORT;
    entry.log_ip.v4.iph_proto = IP_PROTO_TCP;
    entry.log_ip.v4.iph_src = 0x0100000A;
    entry.log_transport.tcp.tcph_dport = 80;
    entry.log_if_index = static_cast<uint32_t>(number);
    for (int16_t reason : {0, -1, 101}) {
        MakeConfiguration(host.State(), input);
        world.dom.ConditionRaise("app.configUpdated");
        entry.log_reason = reason;
        WriteEntry(host, entry);
    }
    host.Log().FlushBufferedData(true);
    world.dom.TakeEvents();
    VelmCore::TakeLog();
    return 0;
}
