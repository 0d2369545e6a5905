#pragma once

#include <lua.hpp>

// Opener of "velm.player": what the replay script needs. Its one upvalue is a light userdata, the
// Player, which outlives the Lua state.
int OpenPlayer(lua_State* L);
