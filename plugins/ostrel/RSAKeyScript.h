#pragma once

#include <lua.hpp>

namespace OSTREL {

// Registers the class "SLB.ostrel.RSAKey", unless the state has it.
void RegisterRSAKey(lua_State* L);
// Sets the function GetPlatformCredentials in "SLB.ostrel".
void RegisterPlatformCredentials(lua_State* L);

}  // namespace OSTREL
