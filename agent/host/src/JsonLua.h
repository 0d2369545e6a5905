#pragma once

#include <lua.hpp>

// ParseJson(text): the Lua value of a JSON text, or nil and why it is none. An object becomes a
// table by name, an array one by number, null becomes nil.
int ParseJson(lua_State* L);
