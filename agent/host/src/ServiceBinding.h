#pragma once

#include <lua.hpp>

// Opener of "velm.service": what the service's script needs. Its one upvalue is a light userdata,
// the Service, which outlives the Lua state.
int OpenService(lua_State* L);
