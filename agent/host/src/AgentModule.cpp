#include "AgentModule.h"

#include "LuaBinding.h"
#include "Message.h"

namespace {

struct Call {
    const char* module;
    const std::vector<ModuleOption>& options;
};

void Push(lua_State* L, bool value) {
    lua_pushboolean(L, value);
}
void Push(lua_State* L, long value) {
    lua_pushnumber(L, static_cast<lua_Number>(value));
}
void Push(lua_State* L, const std::string& value) {
    PushString(L, value);
}
void Push(lua_State* L, const std::vector<std::string>& values) {
    lua_newtable(L);
    for (size_t i = 0; i < values.size(); ++i) {
        PushString(L, values[i]);
        lua_rawseti(L, -2, static_cast<int>(i + 1));
    }
}

int CallModule(lua_State* L) {
    const auto& call = *static_cast<const Call*>(lua_touserdata(L, 1));
    lua_getglobal(L, "require");
    lua_pushstring(L, call.module);
    lua_call(L, 1, 1);
    lua_newtable(L);
    for (const ModuleOption& option : call.options) {
        std::visit([L](const auto& value) { Push(L, value); }, option.second);
        lua_setfield(L, -2, option.first);
    }
    lua_call(L, 1, 1);
    return 1;
}

// The field of the error table on top of the stack, as text.
std::string Field(lua_State* L, const char* name) {
    lua_getfield(L, -1, name);
    const char* text = lua_tostring(L, -1);
    std::string copy = text == nullptr ? "" : text;
    lua_pop(L, 1);
    return copy;
}

int TellError(lua_State* L, const char* module) {
    if (!lua_istable(L, -1)) {
        PrintError(module, lua_tostring(L, -1));
        return kFailed;
    }
    PrintError(Field(L, "what"), Field(L, "why"));
    lua_getfield(L, -1, "status");
    return static_cast<int>(lua_tointeger(L, -1));
}

}  // namespace

int RunModule(Agent& agent, const char* module, const std::vector<ModuleOption>& options) {
    lua_State* L = agent.Lua();
    Call call{module, options};
    lua_pushcfunction(L, AddTraceback);
    lua_pushcfunction(L, CallModule);
    lua_pushlightuserdata(L, &call);
    if (lua_pcall(L, 1, 1, -3) != LUA_OK) return TellError(L, module);
    return static_cast<int>(lua_tointeger(L, -1));
}
