#pragma once

#include <lua.hpp>

// Registers the classes "SLB.wx.Thread" and "SLB.Runnable", the second with the thread operations.
// An object whose thread runs is kept alive, whether or not the script still refers to it.
void RegisterThreads(lua_State* L);
