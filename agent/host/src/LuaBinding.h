#pragma once

#include <exception>
#include <new>
#include <string>

#include <lua.hpp>

#include "velm/BoundedText.h"

// Rules of a binding. A Lua error is a longjmp, so a frame that calls Lua holds nothing with a
// destructor: such values live in a box, which is a userdata, or in an object that outlives the
// call. C++ exceptions end in Guarded, so bindings are registered through it alone.

// Turns a C++ exception into a Lua error with its text.
template <lua_CFunction Function>
int Guarded(lua_State* L) {
    char text[512];
    try {
        return Function(L);
    } catch (const std::exception& error) {
        strcpy_safe(text, sizeof(text), error.what());
    } catch (...) {
        strcpy_safe(text, sizeof(text), "unknown failure");
    }
    return luaL_error(L, "%s", text);
}

template <typename T>
int DestroyBox(lua_State* L) {
    static_cast<T*>(lua_touserdata(L, 1))->~T();
    return 0;
}

// Pushes a userdata that holds an empty T; the collector destroys it.
template <typename T>
T& PushBox(lua_State* L) {
    static char metatableKey;
    void* memory = lua_newuserdata(L, sizeof(T));
    lua_rawgetp(L, LUA_REGISTRYINDEX, &metatableKey);
    if (lua_isnil(L, -1)) {
        lua_pop(L, 1);
        lua_createtable(L, 0, 1);
        lua_pushcfunction(L, DestroyBox<T>);
        lua_setfield(L, -2, "__gc");
        lua_pushvalue(L, -1);
        lua_rawsetp(L, LUA_REGISTRYINDEX, &metatableKey);
    }
    T* value = new (memory) T();
    lua_setmetatable(L, -2);
    return *value;
}

// Pushes a table of the functions, each with copies of the `upvalues` topmost values, which it
// pops.
void PushLibrary(lua_State* L, const luaL_Reg* functions, int upvalues);

// Makes the class `name`: its metatable in the registry and its table at the dotted path from the
// global table. See velm/ScriptObject.h.
void RegisterClass(lua_State* L, const char* name, const luaL_Reg* methods);

// Lets the class `name` derive from `base`, besides those that it derives from already. For checks
// only: it does not inherit methods by this.
void AddBaseClass(lua_State* L, const char* name, const char* base);
// The object at the index if it is of the class, or of one that derives from it, and is neither
// const nor gone; otherwise null.
void* TestScriptObject(lua_State* L, int index, const char* name);

// Arguments that scripts pass; all raise a Lua error that says what was expected.
// An integer from 0 to 2^32 - 1.
unsigned int CheckUnsigned(lua_State* L, int index);
// Text that is valid UTF-8. The memory is Lua's.
const char* CheckUtf8(lua_State* L, int index, size_t& length);
bool CheckBoolean(lua_State* L, int index);

inline void PushString(lua_State* L, const std::string& text) {
    lua_pushlstring(L, text.data(), text.size());
}
// Pushes nil for an empty text, where the text tells why something failed. Gives 1.
int PushReason(lua_State* L, const std::string& reason);
