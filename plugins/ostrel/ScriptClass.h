#pragma once

#include <lua.hpp>

#include "velm/ScriptObject.h"

// The module's classes as scripts see them. All of it runs on the thread of the Lua state, raises
// Lua errors, and keeps no object with a destructor alive.
namespace OSTREL {

// Pushes the table that a dotted name stands for, from the global table down, making what is
// missing.
void PushNamedTable(lua_State* L, const char* fullName);

// Begins a class: registers its metatable under `fullName` and leaves the class table on the stack.
// False, with nothing pushed, if the name is not new. `constructor` may be null.
bool BeginClass(lua_State* L, const char* fullName, lua_CFunction constructor,
                lua_CFunction destructor);
// Adds a method to the class table on top.
void AddMethod(lua_State* L, const char* name, lua_CFunction method);

// Lets the class, whose table lies on top, derive from the class named, besides those that it
// derives from already: their methods are its own as well. The base need not be there yet.
void AddBase(lua_State* L, const char* fullName);

// The object at `index` if it is of the class or of one derived from it, not const and not gone;
// otherwise null.
void* TestObject(lua_State* L, int index, const char* fullName);

// Pushes a new userdata with `size` bytes for an object, and without a metatable. The ScriptObject
// at its beginning names no object yet.
VelmCore::ScriptObject* NewObject(lua_State* L, size_t size);
// The memory for the object of NewObject.
inline void* ObjectMemory(VelmCore::ScriptObject* object) {
    return object + 1;
}

}  // namespace OSTREL
