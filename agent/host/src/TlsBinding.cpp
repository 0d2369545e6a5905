#include "TlsBinding.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "LuaBinding.h"
#include "kdi/tls.h"

namespace {

constexpr const char* kTlsType = "kdi_tls_t*";
constexpr size_t kErrorSize = 512;
constexpr int kMaxServers = 10000;

struct Handle {
    kdi_tls_t tls;
};

kdi_tls_t CheckTls(lua_State* L) {
    auto* block = static_cast<Handle*>(luaL_checkudata(L, 1, kTlsType));
    if (block->tls == nullptr) {
        luaL_argerror(L, 1, "TLS source already closed");
        std::abort();  // not reached: the error does not return
    }
    return block->tls;
}

// The field of the table on top of the stack, a whole number in the range.
double CheckField(lua_State* L, int index, const char* field, double low, double high) {
    lua_getfield(L, -1, field);
    const lua_Number value = lua_tonumber(L, -1);
    if (lua_type(L, -1) != LUA_TNUMBER || !(value >= low && value <= high) ||
        std::floor(value) != value)
        luaL_error(L, "bad server %d (%s: integer from %f to %f expected)", index, field, low,
                   high);
    lua_pop(L, 1);
    return value;
}

// The text of a field of the table on top of the stack, or null. The table keeps it alive.
const char* FieldText(lua_State* L, const char* field) {
    lua_getfield(L, -1, field);
    const char* text = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : nullptr;
    if (text == nullptr && !lua_isnil(L, -1))
        luaL_error(L, "bad option '%s' (string expected, got %s)", field, luaL_typename(L, -1));
    if (text != nullptr && std::strlen(text) != lua_rawlen(L, -1))
        luaL_error(L, "bad option '%s' (it holds a zero byte)", field);
    lua_pop(L, 1);
    return text;
}

// The server that the table on top of the stack tells.
kdi_tls_server_s CheckServer(lua_State* L, int index) {
    if (!lua_istable(L, -1)) luaL_error(L, "bad server %d (table expected)", index);
    kdi_tls_server_s server{};
    server.address = FieldText(L, "address");
    server.port = static_cast<uint16_t>(CheckField(L, index, "port", 1, 65535));
    server.host_configuration = static_cast<int32_t>(
        CheckField(L, index, "hostConfiguration", -2147483648.0, 2147483647.0));
    return server;
}

unsigned int CheckTimeout(lua_State* L, unsigned int otherwise) {
    lua_getfield(L, 2, "answerTimeout");
    if (!lua_isnil(L, -1)) {
        const lua_Number value = lua_tonumber(L, -1);
        if (lua_type(L, -1) != LUA_TNUMBER || !(value >= 0 && value <= 4294967295.0) ||
            std::floor(value) != value)
            luaL_error(L,
                       "bad option 'answerTimeout' (integer from 0 to 4294967295 expected, in "
                       "milliseconds)");
        otherwise = static_cast<unsigned int>(value);
    }
    lua_pop(L, 1);
    return otherwise;
}

// Pushes a box with the servers of the options at index 2.
std::vector<kdi_tls_server_s>& PushServers(lua_State* L) {
    auto& servers = PushBox<std::vector<kdi_tls_server_s>>(L);
    lua_getfield(L, 2, "servers");
    if (!lua_istable(L, -1)) luaL_error(L, "bad option 'servers' (table expected)");
    const size_t count = lua_rawlen(L, -1);
    if (count > kMaxServers) luaL_error(L, "bad option 'servers' (at most %d)", kMaxServers);
    for (int i = 1; i <= static_cast<int>(count); ++i) {
        lua_rawgeti(L, -1, i);
        servers.push_back(CheckServer(L, i));
        lua_pop(L, 1);
    }
    lua_pop(L, 1);
    return servers;
}

int Close(lua_State* L) {
    auto* block = static_cast<Handle*>(luaL_checkudata(L, 1, kTlsType));
    if (block->tls != nullptr) kdi_tls_close(block->tls);
    block->tls = nullptr;
    return 0;
}

int Wait(lua_State* L) {
    const kdi_tls_t tls = CheckTls(L);
    const kdi_tls_state state = kdi_tls_wait(tls, CheckUnsigned(L, 2));
    if (state != KDI_TLS_FAILED) {
        lua_pushboolean(L, state == KDI_TLS_DONE);
        return 1;
    }
    char error[kErrorSize] = "";
    kdi_tls_get_error(tls, error, sizeof(error));
    lua_pushnil(L);
    lua_pushstring(L, error);
    return 2;
}

void SetCount(lua_State* L, const char* field, uint64_t value) {
    lua_pushnumber(L, static_cast<lua_Number>(value));
    lua_setfield(L, -2, field);
}

// {name = count} of the kinds of key exchange that were seen, RSA left out.
void PushOthers(lua_State* L, kdi_tls_t tls) {
    lua_newtable(L);
    uint64_t count = 0;
    for (unsigned int i = 0; const char* name = kdi_tls_get_other(tls, i, &count); ++i) {
        if (count != 0) SetCount(L, name, count);
    }
}

int Statistics(lua_State* L) {
    const kdi_tls_t tls = CheckTls(L);
    kdi_tls_statistics_s numbers;
    kdi_tls_get_statistics(tls, &numbers);
    const struct {
        const char* name;
        uint64_t value;
    } fields[] = {
        {"packets", numbers.packets},
        {"connections", numbers.connections},
        {"handshakes", numbers.handshakes},
        {"rsa", numbers.rsa},
        {"resumed", numbers.resumed},
        {"other", numbers.other},
        {"incomplete", numbers.incomplete},
        {"malformed", numbers.malformed},
        {"decrypted", numbers.decrypted},
        {"failed", numbers.failed},
        {"unanswered", numbers.unanswered},
        {"dropped", numbers.dropped},
        {"keyLogFailures", numbers.key_log_failures},
        {"renegotiations", numbers.renegotiations},
        {"notTls", numbers.not_tls},
        {"gaps", numbers.gaps},
        {"evicted", numbers.evicted},
        {"fragments", numbers.fragments},
        {"lost", numbers.lost},
    };
    lua_newtable(L);
    for (const auto& field : fields)
        SetCount(L, field.name, field.value);
    PushOthers(L, tls);
    lua_setfield(L, -2, "others");
    return 1;
}

const luaL_Reg kMethods[] = {
    {"Close", Guarded<Close>},
    {"Wait", Guarded<Wait>},
    {"Statistics", Guarded<Statistics>},
    {nullptr, nullptr},
};

}  // namespace

int OpenTls(lua_State* L) {
    kdi_tls_options_s options;
    options.source = luaL_checkstring(L, 1);
    luaL_checktype(L, 2, LUA_TTABLE);
    lua_settop(L, 2);
    options.key_log = FieldText(L, "keyLog");
    options.answer_timeout_msec = CheckTimeout(L, options.answer_timeout_msec);
    const std::vector<kdi_tls_server_s>& servers = PushServers(L);
    options.servers = servers.data();
    options.server_count = static_cast<unsigned int>(servers.size());
    auto* block = static_cast<Handle*>(lua_newuserdata(L, sizeof(Handle)));
    block->tls = nullptr;
    luaL_setmetatable(L, kTlsType);
    char error[kErrorSize] = "";
    block->tls = kdi_tls_open(&options, error, sizeof(error));
    if (block->tls != nullptr) return 1;
    lua_pushnil(L);
    lua_pushstring(L, error);
    return 2;
}

void RegisterTls(lua_State* L) {
    luaL_newmetatable(L, kTlsType);
    PushLibrary(L, kMethods, 0);
    lua_setfield(L, -2, "__index");
    lua_pushcfunction(L, Guarded<Close>);
    lua_setfield(L, -2, "__gc");
    lua_pop(L, 1);
}
