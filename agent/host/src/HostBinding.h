#pragma once

#include <lua.hpp>

// Opener of "velm.host": what the agent's own scripts need of the host. Not for users' scripts.
int OpenHost(lua_State* L);
