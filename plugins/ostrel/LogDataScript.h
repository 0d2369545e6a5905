#pragma once

#include <lua.hpp>

namespace OSTREL {

// Registers the class "SLB.ostrel.LogData", unless the state has it.
void RegisterLogData(lua_State* L);

}  // namespace OSTREL
