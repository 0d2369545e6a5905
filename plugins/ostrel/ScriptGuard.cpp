#include "ScriptGuard.h"

#include <cstdio>
#include <exception>

namespace OSTREL {

namespace {

struct Bytes {
    const char* data;
    size_t length;
};

int PushBytes(lua_State* L) {
    const Bytes* bytes = static_cast<const Bytes*>(lua_touserdata(L, 1));
    lua_pushlstring(L, bytes->data, bytes->length);
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

void PushStringSafely(lua_State* L, const char* data, size_t length) {
    Bytes bytes = {data, length};
    lua_pushcfunction(L, PushBytes);
    lua_pushlightuserdata(L, &bytes);
    if (lua_pcall(L, 1, 1, 0) != LUA_OK) throw ScriptError();
}

}  // namespace OSTREL
