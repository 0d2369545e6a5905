#pragma once

#include <lua.hpp>

// LoadTable(path): runs a Lua file in a state of its own, with no library and nothing in its
// environment, and returns a copy of the table that the file returns; or nil and a text that names
// the file and, where there is one, the line. Limits on memory, instructions, depth and size make a
// file that runs away an error. Lua text only; functions are no configuration.
int LoadTable(lua_State* L);
