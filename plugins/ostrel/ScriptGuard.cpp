#include "ScriptGuard.h"

#include <cstdio>
#include <exception>

namespace OSTREL {

namespace {

struct Bytes {
    const char* data;
    size_t length;
};

void PushBytes(lua_State* L, const void* context) {
    const Bytes* bytes = static_cast<const Bytes*>(context);
    lua_pushlstring(L, bytes->data, bytes->length);
}

struct Push {
    void (*function)(lua_State*, const void*);
    const void* context;
};

int CallPush(lua_State* L) {
    const Push* push = static_cast<const Push*>(lua_touserdata(L, 1));
    push->function(L, push->context);
    return 1;
}

}  // namespace

int Guard(lua_State* L, int (*body)(lua_State*)) {
    // The text is carried out of the handlers by value: raising inside one would leak the
    // exception.
    char message[256] = "";
    bool isScriptError = false;
    try {
        return body(L);
    } catch (const ScriptError&) {
        isScriptError = true;
    } catch (const std::exception& error) {
        snprintf(message, sizeof message, "%s", error.what());
    }
    if (isScriptError) return lua_error(L);
    return luaL_error(L, "%s", message);
}

void PushSafely(lua_State* L, void (*function)(lua_State*, const void*), const void* context) {
    Push push = {function, context};
    lua_pushcfunction(L, Guarded<CallPush>);
    lua_pushlightuserdata(L, &push);
    if (lua_pcall(L, 1, 1, 0) != LUA_OK) throw ScriptError();
}

void PushStringSafely(lua_State* L, const char* data, size_t length) {
    const Bytes bytes = {data, length};
    PushSafely(L, PushBytes, &bytes);
}

}  // namespace OSTREL
