#pragma once

#include <cstddef>

#include <lua.hpp>

// Lua errors are long jumps and must not leave a frame that holds objects with destructors; C++
// exceptions must not reach the interpreter. This is the border between the two.
namespace OSTREL {

// A Lua error was raised inside a native operation. Its value lies on top of the Lua stack.
struct ScriptError {};

// Runs `body` as a Lua C function. `body` may throw; a ScriptError becomes the Lua error that it
// stands for, any other exception a Lua error with its text.
int Guard(lua_State* L, int (*body)(lua_State*));

// Template form, to be registered: Guarded<Body>.
template <int (*Body)(lua_State*)>
int Guarded(lua_State* L) {
    return Guard(L, Body);
}

// Calls `function(L, context)` where objects with destructors are alive: it may raise, and leaves
// one value on the stack. Throws ScriptError for the error that it raised.
void PushSafely(lua_State* L, void (*function)(lua_State*, const void*), const void* context);
// Pushes a string, where objects with destructors are alive. Throws ScriptError when out of memory.
void PushStringSafely(lua_State* L, const char* data, size_t length);

}  // namespace OSTREL
