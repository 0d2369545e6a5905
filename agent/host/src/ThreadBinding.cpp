#include "ThreadBinding.h"

#include <cstdlib>

#include "LuaBinding.h"
#include "velm/Runnable.h"
#include "velm/ScriptObject.h"

using VelmCore::CRunnable;

namespace {

constexpr const char* kRunnableClass = "SLB.Runnable";
constexpr const char* kThreadClass = "SLB.wx.Thread";
constexpr unsigned int kPriority = 50;

// The key of the table of objects that were started, by address.
char s_StartedKey;

CRunnable& CheckRunnable(lua_State* L) {
    void* object = TestScriptObject(L, 1, kRunnableClass);
    if (object == nullptr) {
        luaL_error(L, "Expected non-null object(%s) as first argument to method call",
                   kRunnableClass);
        std::abort();  // not reached: the error does not return
    }
    return *static_cast<CRunnable*>(object);
}

bool IsRunning(lua_State* L, int index) {
    const void* object = TestScriptObject(L, index, kRunnableClass);
    return object != nullptr && static_cast<const CRunnable*>(object)->isRunning();
}

// Lets go of the objects whose threads have ended.
void ForgetEnded(lua_State* L) {
    lua_rawgetp(L, LUA_REGISTRYINDEX, &s_StartedKey);
    lua_pushnil(L);
    while (lua_next(L, -2) != 0) {
        if (!IsRunning(L, lua_gettop(L))) {
            lua_pushvalue(L, -2);
            lua_pushnil(L);
            lua_rawset(L, -5);
        }
        lua_pop(L, 1);
    }
    lua_pop(L, 1);
}

// Refers to the object at index 1, so that the collector leaves it alone.
void KeepAlive(lua_State* L, CRunnable* runnable) {
    lua_rawgetp(L, LUA_REGISTRYINDEX, &s_StartedKey);
    lua_pushvalue(L, 1);
    lua_rawsetp(L, -2, runnable);
    lua_pop(L, 1);
}

int Start(lua_State* L) {
    CRunnable& runnable = CheckRunnable(L);
    ForgetEnded(L);
    KeepAlive(L, &runnable);
    if (!runnable.start(kPriority, true, 0))
        return luaL_error(L, "the thread cannot be started, or was started before");
    return 0;
}

int IsRunningMethod(lua_State* L) {
    lua_pushboolean(L, CheckRunnable(L).isRunning());
    return 1;
}

int RequestExit(lua_State* L) {
    CheckRunnable(L).requestExit();
    return 0;
}

int Join(lua_State* L) {
    CheckRunnable(L).join();
    ForgetEnded(L);
    return 0;
}

const luaL_Reg kMethods[] = {
    {"Start", Guarded<Start>},
    {"IsRunning", Guarded<IsRunningMethod>},
    {"RequestExit", Guarded<RequestExit>},
    {"Join", Guarded<Join>},
    {nullptr, nullptr},
};

const luaL_Reg kNoMethods[] = {{nullptr, nullptr}};

}  // namespace

void RegisterThreads(lua_State* L) {
    lua_newtable(L);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &s_StartedKey);
    RegisterClass(L, kThreadClass, kNoMethods);
    RegisterClass(L, kRunnableClass, kMethods);
    AddBaseClass(L, kRunnableClass, kThreadClass);
}
