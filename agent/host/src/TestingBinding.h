#pragma once

#include <lua.hpp>

// Opener of the module "velm.testing": the clock that tests move, failures on demand,
// and the driver's side of the SSL exchange. From then on SSL responses are kept.
int OpenTesting(lua_State* L);
