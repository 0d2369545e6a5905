#pragma once

#include <lua.hpp>

// The methods of driver handles that tell and change what is blocked.

// handle:Blocks(): array of {address=, seconds=}, by address; seconds are what remains.
int ListBlocks(lua_State* L);
// handle:Unblock(address): true; or nil and why not.
int Unblock(lua_State* L);
// handle:Restore(list): blocks as Blocks() lists them; true, or nil and why not.
int Restore(lua_State* L);
