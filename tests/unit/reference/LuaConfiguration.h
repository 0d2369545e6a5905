#pragma once

#include <lua.hpp>

#include "ReferenceLog.h"

namespace Reference {

// Pushes the configuration as the table that script calls bring.
void PushConfiguration(lua_State* L, const Configuration& configuration);

}  // namespace Reference
