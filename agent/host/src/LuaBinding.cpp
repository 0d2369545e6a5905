#include "LuaBinding.h"

#include <cmath>
#include <cstring>

#include <wx/string.h>

namespace {

// Pushes the table at the dotted path from the global table, making what is missing.
void PushTableAt(lua_State* L, const char* path) {
    lua_pushglobaltable(L);
    for (const char* part = path; *part != '\0';) {
        const size_t length = std::strcspn(part, ".");
        lua_pushlstring(L, part, length);
        lua_pushvalue(L, -1);
        lua_rawget(L, -3);
        if (!lua_istable(L, -1)) {
            lua_pop(L, 1);
            lua_newtable(L);
            lua_pushvalue(L, -2);
            lua_pushvalue(L, -2);
            lua_rawset(L, -5);
        }
        lua_replace(L, -3);
        lua_pop(L, 1);
        part += length + (part[length] == '.' ? 1 : 0);
    }
}

bool IsUtf8(const char* text, size_t length) {
    return length == 0 || !wxString::FromUTF8(text, length).empty();
}

}  // namespace

void PushLibrary(lua_State* L, const luaL_Reg* functions, int upvalues) {
    lua_newtable(L);
    lua_insert(L, -(upvalues + 1));
    luaL_setfuncs(L, functions, upvalues);
}

void RegisterClass(lua_State* L, const char* name, const luaL_Reg* methods) {
    PushTableAt(L, name);
    luaL_setfuncs(L, methods, 0);
    lua_newtable(L);
    lua_setmetatable(L, -2);
    luaL_newmetatable(L, name);
    lua_insert(L, -2);
    lua_setfield(L, -2, "__index");
    lua_pushstring(L, name);
    lua_setfield(L, -2, "__class");
    lua_pop(L, 1);
}

unsigned int CheckUnsigned(lua_State* L, int index) {
    const lua_Number value = luaL_checknumber(L, index);
    if (!(value >= 0 && value <= 4294967295.0 && std::floor(value) == value))
        luaL_argerror(L, index, "integer from 0 to 4294967295 expected");
    return static_cast<unsigned int>(value);
}

const char* CheckUtf8(lua_State* L, int index, size_t& length) {
    const char* text = luaL_checklstring(L, index, &length);
    if (!IsUtf8(text, length)) luaL_argerror(L, index, "UTF-8 text expected");
    return text;
}

bool CheckBoolean(lua_State* L, int index) {
    luaL_checktype(L, index, LUA_TBOOLEAN);
    return lua_toboolean(L, index) != 0;
}
