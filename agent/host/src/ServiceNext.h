#pragma once

#include <lua.hpp>

// Next(): the three strings of the next entry; or nil and "second" when one has passed, "stop" and
// "reload" when a signal asked for it, "request" with {id=, line=}, "ended" when a source has, or
// "failed" with the reason. Its upvalue is the Service.
int NextOfService(lua_State* L);
