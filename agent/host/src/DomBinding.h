#pragma once

#include <lua.hpp>

#include "velm/Dom.h"

// Registers the class "SLB.Dom" and sets the global `dom`. The object stays the caller's and
// outlives the Lua state.
void RegisterDom(lua_State* L, VelmCore::CDom& dom);
