#include "KdiBlocks.h"

#include <arpa/inet.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <vector>

#include "KdiBinding.h"
#include "LuaBinding.h"

namespace {

using Blocks = std::vector<kdi_block_s>;

constexpr lua_Number kMaxSeconds = 4294967;

bool ReadAddress(lua_State* L, int index, uint32_t& address) {
    in_addr parsed{};
    if (lua_type(L, index) != LUA_TSTRING) return false;
    if (inet_pton(AF_INET, lua_tostring(L, index), &parsed) != 1) return false;
    address = parsed.s_addr;
    return true;
}

bool ReadMsec(lua_State* L, int index, uint32_t& msec) {
    if (lua_type(L, index) != LUA_TNUMBER) return false;
    const lua_Number seconds = lua_tonumber(L, index);
    if (!(seconds > 0 && seconds <= kMaxSeconds)) return false;
    msec = static_cast<uint32_t>(std::ceil(seconds * 1000));
    return true;
}

// The block on the stack's top, which is the `number`-th of the list.
kdi_block_s CheckBlock(lua_State* L, int number) {
    kdi_block_s block{};
    if (!lua_istable(L, -1)) luaL_error(L, "block %d: table expected", number);
    lua_getfield(L, -1, "address");
    if (!ReadAddress(L, -1, block.ipv4_addr))
        luaL_error(L, "block %d: address: IPv4 address expected", number);
    lua_getfield(L, -2, "seconds");
    if (!ReadMsec(L, -1, block.remaining_msec))
        luaL_error(L, "block %d: seconds: number above 0 and up to 4294967 expected", number);
    lua_pop(L, 2);
    return block;
}

void CheckBlocks(lua_State* L, int index, Blocks& blocks) {
    luaL_checktype(L, index, LUA_TTABLE);
    const auto count = static_cast<int>(lua_rawlen(L, index));
    blocks.reserve(static_cast<size_t>(count));
    for (int i = 1; i <= count; ++i) {
        lua_rawgeti(L, index, i);
        blocks.push_back(CheckBlock(L, i));
        lua_pop(L, 1);
    }
}

// What kdi_list_blocks gives, whatever its number.
void ListAll(kdi_handle_t handle, Blocks& blocks) {
    blocks.resize(kdi_list_blocks(handle, nullptr, 0));
    const unsigned int count =
        kdi_list_blocks(handle, blocks.data(), static_cast<unsigned int>(blocks.size()));
    if (count < blocks.size()) blocks.resize(count);
}

void PushBlock(lua_State* L, const kdi_block_s& block) {
    char text[INET_ADDRSTRLEN];
    lua_createtable(L, 0, 2);
    lua_pushstring(L, inet_ntop(AF_INET, &block.ipv4_addr, text, sizeof(text)));
    lua_setfield(L, -2, "address");
    lua_pushnumber(L, static_cast<lua_Number>(block.remaining_msec) / 1000);
    lua_setfield(L, -2, "seconds");
}

int Result(lua_State* L, kdi_handle_t handle, int error) {
    if (error == 0) {
        lua_pushboolean(L, 1);
        return 1;
    }
    char reason[512] = "";
    kdi_get_error(handle, reason, sizeof(reason));
    lua_pushnil(L);
    lua_pushstring(L, reason[0] != '\0' ? reason : std::strerror(error));
    return 2;
}

}  // namespace

int ListBlocks(lua_State* L) {
    const kdi_handle_t handle = CheckKdiHandle(L, 1);
    auto& blocks = PushBox<Blocks>(L);
    ListAll(handle, blocks);
    lua_createtable(L, static_cast<int>(blocks.size()), 0);
    for (size_t i = 0; i < blocks.size(); ++i) {
        PushBlock(L, blocks[i]);
        lua_rawseti(L, -2, static_cast<int>(i) + 1);
    }
    return 1;
}

int Unblock(lua_State* L) {
    const kdi_handle_t handle = CheckKdiHandle(L, 1);
    const char* text = luaL_checkstring(L, 2);
    uint32_t address = 0;
    if (!ReadAddress(L, 2, address)) return luaL_argerror(L, 2, "IPv4 address expected");
    const int error = kdi_unblock(handle, address);
    if (error != ENOENT) return Result(L, handle, error);
    lua_pushnil(L);
    lua_pushfstring(L, "%s: not blocked", text);
    return 2;
}

int Restore(lua_State* L) {
    const kdi_handle_t handle = CheckKdiHandle(L, 1);
    auto& blocks = PushBox<Blocks>(L);
    CheckBlocks(L, 2, blocks);
    return Result(
        L, handle,
        kdi_restore_blocks(handle, blocks.data(), static_cast<unsigned int>(blocks.size())));
}
