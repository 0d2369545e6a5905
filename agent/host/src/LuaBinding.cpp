#include "LuaBinding.h"

#include <cmath>
#include <cstring>

#include <wx/string.h>

#include "velm/ScriptObject.h"

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

// Class trees that are deeper than this, or circles, end here.
constexpr int kClassDepth = 16;

// Pushes the table that holds the names of the bases of the class with that metatable, or nothing.
bool PushBaseNames(lua_State* L, int metatable) {
    lua_getfield(L, metatable, "__index");
    if (lua_istable(L, -1) && lua_getmetatable(L, -1)) {
        lua_remove(L, -2);
        return true;
    }
    lua_pop(L, 1);
    return false;
}

// True if the class with the metatable on top is the one named or derives from it. Takes the
// metatable off the stack.
bool PopIsClass(lua_State* L, const char* name, int depth) {
    luaL_checkstack(L, 8, "class tree too deep");
    const int metatable = lua_gettop(L);
    lua_getfield(L, metatable, "__class");
    const char* own = lua_tostring(L, -1);
    bool is = own != nullptr && std::strcmp(own, name) == 0;
    if (!is && depth > 0 && PushBaseNames(L, metatable)) {
        const int count = static_cast<int>(lua_rawlen(L, -1));
        for (int i = 1; i <= count && !is; ++i) {
            lua_rawgeti(L, -1, i);
            lua_rawget(L, LUA_REGISTRYINDEX);
            is = lua_istable(L, -1) && PopIsClass(L, name, depth - 1);
        }
    }
    lua_settop(L, metatable - 1);
    return is;
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

void AddBaseClass(lua_State* L, const char* name, const char* base) {
    luaL_getmetatable(L, name);
    if (PushBaseNames(L, lua_gettop(L))) {
        lua_pushstring(L, base);
        lua_rawseti(L, -2, static_cast<int>(lua_rawlen(L, -2)) + 1);
        lua_pop(L, 1);
    }
    lua_pop(L, 1);
}

void* TestScriptObject(lua_State* L, int index, const char* name) {
    if (lua_type(L, index) != LUA_TUSERDATA || !lua_getmetatable(L, index)) return nullptr;
    if (!PopIsClass(L, name, kClassDepth)) return nullptr;
    const auto* object = static_cast<const VelmCore::ScriptObject*>(lua_touserdata(L, index));
    return object->isConst ? nullptr : object->object;
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

int PushReason(lua_State* L, const std::string& reason) {
    if (reason.empty())
        lua_pushnil(L);
    else
        PushString(L, reason);
    return 1;
}
