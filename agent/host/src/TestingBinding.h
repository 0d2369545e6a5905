#pragma once

#include <lua.hpp>

// Opener of the module "velm.testing": the clock that tests move, and failures on demand.
int OpenTesting(lua_State* L);
