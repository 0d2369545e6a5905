#include "JsonLua.h"

#include <nlohmann/json.hpp>

#include "LuaBinding.h"

namespace {

using Json = nlohmann::json;

constexpr int kMaxDepth = 16;

void Push(lua_State* L, const Json& value, int depth);

void PushObject(lua_State* L, const Json& object, int depth) {
    lua_newtable(L);
    for (auto item = object.begin(); item != object.end(); ++item) {
        PushString(L, item.key());
        Push(L, item.value(), depth);
        lua_rawset(L, -3);
    }
}

void PushArray(lua_State* L, const Json& array, int depth) {
    lua_newtable(L);
    int index = 0;
    for (const Json& item : array) {
        Push(L, item, depth);
        lua_rawseti(L, -2, ++index);
    }
}

void Push(lua_State* L, const Json& value, int depth) {
    if (depth > kMaxDepth) luaL_error(L, "JSON is nested too deeply");
    luaL_checkstack(L, 4, "JSON");
    if (value.is_object())
        PushObject(L, value, depth + 1);
    else if (value.is_array())
        PushArray(L, value, depth + 1);
    else if (value.is_string())
        PushString(L, value.get_ref<const std::string&>());
    else if (value.is_number())
        lua_pushnumber(L, value.get<lua_Number>());
    else if (value.is_boolean())
        lua_pushboolean(L, value.get<bool>());
    else
        lua_pushnil(L);
}

}  // namespace

int ParseJson(lua_State* L) {
    size_t length = 0;
    const char* text = luaL_checklstring(L, 1, &length);
    auto& value = PushBox<Json>(L);
    value = Json::parse(text, text + length, nullptr, false);
    if (value.is_discarded()) {
        lua_pushnil(L);
        lua_pushliteral(L, "no JSON");
        return 2;
    }
    Push(L, value, 0);
    return 1;
}
