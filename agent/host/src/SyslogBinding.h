#pragma once

#include <lua.hpp>

// Opens the module velm.syslog: messages for syslog receivers, and their sending.
int OpenSyslog(lua_State* L);
