#include "KdiBinding.h"

#include <cstdlib>

#include "KdiBlocks.h"
#include "LuaBinding.h"
#include "TlsBinding.h"

namespace {

constexpr size_t kErrorSize = 512;

struct Handle {
    kdi_handle_t handle;
};

// The second key of the handles' metatable in the registry: every entry costs a look-up, and one by
// an address takes little more than half as long as one by the name.
char s_MetatableKey;

bool IsHandle(lua_State* L, int index) {
    if (lua_type(L, index) != LUA_TUSERDATA || !lua_getmetatable(L, index)) return false;
    lua_rawgetp(L, LUA_REGISTRYINDEX, &s_MetatableKey);
    const bool same = lua_rawequal(L, -1, -2) != 0;
    lua_pop(L, 2);
    return same;
}

Handle& CheckUserdata(lua_State* L, int index) {
    if (!IsHandle(L, index)) {
        luaL_argerror(L, index, "kdi handle expected");
        std::abort();  // not reached: the error does not return
    }
    return *static_cast<Handle*>(lua_touserdata(L, index));
}

// The text of the field of the options table at index 2, or null. The table keeps it alive.
const char* OptionText(lua_State* L, const char* field) {
    lua_getfield(L, 2, field);
    if (!lua_isnil(L, -1) && lua_type(L, -1) != LUA_TSTRING)
        luaL_error(L, "bad option '%s' (string expected, got %s)", field, luaL_typename(L, -1));
    const char* text = lua_tostring(L, -1);
    lua_pop(L, 1);
    return text;
}

bool OptionFlag(lua_State* L, const char* field) {
    lua_getfield(L, 2, field);
    if (!lua_isnil(L, -1) && !lua_isboolean(L, -1))
        luaL_error(L, "bad option '%s' (boolean expected, got %s)", field, luaL_typename(L, -1));
    const bool flag = lua_toboolean(L, -1) != 0;
    lua_pop(L, 1);
    return flag;
}

unsigned int OptionUnsigned(lua_State* L, const char* field) {
    lua_getfield(L, 2, field);
    const unsigned int number = lua_isnil(L, -1) ? 0 : CheckUnsigned(L, lua_gettop(L));
    lua_pop(L, 1);
    return number;
}

kdi_open_options_s CheckOptions(lua_State* L) {
    kdi_open_options_s options;
    if (lua_isnoneornil(L, 2)) return options;
    luaL_checktype(L, 2, LUA_TTABLE);
    options.local = OptionText(L, "localAddresses");
    options.allow = OptionText(L, "allow");
    options.dry_run = OptionFlag(L, "dryRun");
    options.receive_buffer = OptionUnsigned(L, "receiveBuffer");
    return options;
}

int Open(lua_State* L) {
    const char* source = luaL_checkstring(L, 1);
    const kdi_open_options_s options = CheckOptions(L);
    auto* block = static_cast<Handle*>(lua_newuserdata(L, sizeof(Handle)));
    block->handle = nullptr;
    luaL_setmetatable(L, kKdiHandleType);
    char error[kErrorSize] = "";
    block->handle = kdi_open_source(source, &options, error, sizeof(error));
    if (block->handle != nullptr) return 1;
    lua_pushnil(L);
    lua_pushstring(L, error);
    return 2;
}

int Close(lua_State* L) {
    Handle& block = CheckUserdata(L, 1);
    if (block.handle != nullptr) kdi_close(block.handle);
    block.handle = nullptr;
    return 0;
}

int NextEntry(lua_State* L) {
    const kdi_handle_t handle = CheckKdiHandle(L, 1);
    const unsigned int timeoutMsec = CheckUnsigned(L, 2);
    kdi_entry_s* entry = nullptr;
    const kdi_next_result result = kdi_next_entry(handle, timeoutMsec, &entry);
    if (result == KDI_ENTRY) return PushEntry(L, *entry);
    lua_pushnil(L);
    if (result != KDI_FAILED) return 1;
    char error[kErrorSize] = "";
    kdi_get_error(handle, error, sizeof(error));
    lua_pushstring(L, error);
    return 2;
}

int TakeBlacklist(lua_State* L) {
    const kdi_handle_t handle = CheckKdiHandle(L, 1);
    kdi_blacklist_s record;
    lua_newtable(L);
    for (int i = 1; kdi_take_blacklist(handle, &record, 1) == 1; ++i) {
        lua_pushlstring(L, reinterpret_cast<const char*>(&record), sizeof(record));
        lua_rawseti(L, -2, i);
    }
    return 1;
}

int TakeMessages(lua_State* L) {
    const kdi_handle_t handle = CheckKdiHandle(L, 1);
    char text[kErrorSize];
    lua_newtable(L);
    for (int i = 1; kdi_take_message(handle, text, sizeof(text)); ++i) {
        lua_pushstring(L, text);
        lua_rawseti(L, -2, i);
    }
    return 1;
}

int Statistics(lua_State* L) {
    kdi_statistics_s numbers;
    kdi_get_statistics(CheckKdiHandle(L, 1), &numbers);
    const struct {
        const char* name;
        uint64_t value;
    } fields[] = {
        {"packets", numbers.packets},
        {"entries", numbers.entries},
        {"dropped", numbers.dropped},
        {"lost", numbers.lost},
        {"unlogged", numbers.unlogged},
        {"overruns", numbers.overruns},
        {"connectionEnds", numbers.connection_ends},
        {"foreignPrefixes", numbers.foreign_prefixes},
        {"unreadable", numbers.unreadable},
        {"blocksNow", numbers.blocks_now},
        {"blocksAccepted", numbers.blocks_accepted},
        {"blocksRefused", numbers.blocks_refused},
        {"blocksFailed", numbers.blocks_failed},
        {"blocksRepaired", numbers.blocks_repaired},
    };
    lua_createtable(L, 0, sizeof(fields) / sizeof(fields[0]));
    for (const auto& field : fields) {
        lua_pushnumber(L, static_cast<lua_Number>(field.value));
        lua_setfield(L, -2, field.name);
    }
    return 1;
}

void PushBytes(lua_State* L, const unsigned char* bytes, unsigned int length) {
    lua_pushlstring(L, reinterpret_cast<const char*>(bytes), length);
}

const luaL_Reg kMethods[] = {
    {"Close", Guarded<Close>},
    {"NextEntry", Guarded<NextEntry>},
    {"TakeBlacklist", Guarded<TakeBlacklist>},
    {"Blocks", Guarded<ListBlocks>},
    {"Unblock", Guarded<Unblock>},
    {"Restore", Guarded<Restore>},
    {"Statistics", Guarded<Statistics>},
    {"TakeMessages", Guarded<TakeMessages>},
    {nullptr, nullptr},
};

const luaL_Reg kFunctions[] = {
    {"Open", Guarded<Open>},
    {"OpenTls", Guarded<OpenTls>},
    {nullptr, nullptr},
};

}  // namespace

kdi_handle_t CheckKdiHandle(lua_State* L, int index) {
    const Handle& block = CheckUserdata(L, index);
    if (block.handle == nullptr) luaL_argerror(L, index, "kdi handle already closed");
    return block.handle;
}

int PushEntry(lua_State* L, const kdi_entry_s& entry) {
    lua_pushlstring(L, reinterpret_cast<const char*>(&entry.entry), sizeof(entry.entry));
    PushBytes(L, entry.packet_data, entry.packet_data_len);
    PushBytes(L, entry.log_data, entry.log_data_len);
    return 3;
}

void RegisterKdi(lua_State* L) {
    luaL_newmetatable(L, kKdiHandleType);
    lua_pushvalue(L, -1);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &s_MetatableKey);
    PushLibrary(L, kMethods, 0);
    lua_setfield(L, -2, "__index");
    lua_pushcfunction(L, Guarded<Close>);
    lua_setfield(L, -2, "__gc");
    lua_pop(L, 1);
    RegisterTls(L);
    PushLibrary(L, kFunctions, 0);
    lua_setglobal(L, "kdi");
}
