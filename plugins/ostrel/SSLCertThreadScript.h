#pragma once

#include <lua.hpp>

namespace OSTREL {

// Registers the class "SLB.ostrel.SSLCertThread", unless the state has it.
void RegisterSSLCertThread(lua_State* L);

}  // namespace OSTREL
