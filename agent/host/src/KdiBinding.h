#pragma once

#include <lua.hpp>

#include "kdi/kdi.h"

// Name of the metatable of driver handles. The userdata's first word is the handle, null once
// closed.
constexpr const char* kKdiHandleType = "kdi_handle_t*";

// Registers the handle type and sets the global `kdi`.
void RegisterKdi(lua_State* L);

// The open handle at the index; raises if it is none or closed.
kdi_handle_t CheckKdiHandle(lua_State* L, int index);
// Pushes the three strings of an entry.
int PushEntry(lua_State* L, const kdi_entry_s& entry);
