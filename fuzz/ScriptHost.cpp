#include "ScriptHost.h"

#include "Input.h"
#include "LogDataScript.h"
#include "velm/ScriptObject.h"

namespace Fuzz {

namespace {

void PushDom(lua_State* L, VelmCore::CDom& dom) {
    auto* object =
        static_cast<VelmCore::ScriptObject*>(lua_newuserdata(L, sizeof(VelmCore::ScriptObject)));
    object->object = &dom;
    object->isConst = false;
    luaL_newmetatable(L, "SLB.Dom");
    lua_pushliteral(L, "SLB.Dom");
    lua_setfield(L, -2, "__class");
    lua_setmetatable(L, -2);
}

}  // namespace

ScriptHost::ScriptHost(VelmCore::CDom& dom, const std::string& directory)
    : m_State(luaL_newstate(), lua_close) {
    lua_State* L = State();
    OSTREL::RegisterLogData(L);
    lua_getglobal(L, "SLB");
    lua_getfield(L, -1, "ostrel");
    lua_getfield(L, -1, "LogData");
    PushDom(L, dom);
    Require(lua_pcall(L, 1, 1, 0) == LUA_OK, "the log is made");
    const auto* object = static_cast<const VelmCore::ScriptObject*>(lua_touserdata(L, -1));
    m_Log = static_cast<OSTREL::LogData*>(object->object);
    m_Reference = luaL_ref(L, LUA_REGISTRYINDEX);
    lua_settop(L, 0);
    m_Log->SetLogFilePath(directory);
    m_Log->SetLogFileName("log");
}

void ScriptHost::PushMethod(const char* name) {
    lua_State* L = State();
    lua_rawgeti(L, LUA_REGISTRYINDEX, m_Reference);
    lua_getfield(L, -1, name);
    lua_insert(L, -2);
}

}  // namespace Fuzz
