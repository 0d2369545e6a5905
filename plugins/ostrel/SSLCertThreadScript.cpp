// The script face of the SSL key service: argument handling, and nothing else. What starts and
// stops a thread is bound by the agent, for the base classes.

#include "SSLCertThreadScript.h"

#include <cstdlib>
#include <new>

#include "SSLCertThread.h"
#include "ScriptClass.h"
#include "ScriptGuard.h"
#include "velm/Dom.h"

namespace OSTREL {

namespace {

constexpr const char* kClassName = "SLB.ostrel.SSLCertThread";
constexpr const char* kDomClassName = "SLB.Dom";

static_assert(alignof(CSSLCertThread) <= alignof(VelmCore::ScriptObject),
              "the object lies right behind the ScriptObject in its userdata");

CSSLCertThread& CheckSelf(lua_State* L) {
    void* object = TestObject(L, 1, kClassName);
    if (object == nullptr) {
        luaL_error(L, "Expected non-null object(%s) as first argument to method call", kClassName);
        abort();  // not reached: the error does not return
    }
    return *static_cast<CSSLCertThread*>(object);
}

int Construct(lua_State* L) {
    void* dom = TestObject(L, 2, kDomClassName);
    if (dom == nullptr) return luaL_error(L, "Expected (non-const) Object %s", kDomClassName);
    VelmCore::ScriptObject* object = NewObject(L, sizeof(CSSLCertThread));
    luaL_getmetatable(L, kClassName);
    object->object = new (ObjectMemory(object)) CSSLCertThread(*static_cast<VelmCore::CDom*>(dom));
    lua_setmetatable(L, -2);
    return 1;
}

int Destroy(lua_State* L) {
    // A script can reach this function with any value.
    void* object = TestObject(L, 1, kClassName);
    if (object == nullptr) return 0;
    static_cast<VelmCore::ScriptObject*>(lua_touserdata(L, 1))->object = nullptr;
    auto* thread = static_cast<CSSLCertThread*>(object);
    // Lua frees the memory next, so a thread that runs must end first. It does when the agent
    // ends, which an agent that closes its Lua state has begun.
    thread->StopThread(nullptr);
    thread->~CSSLCertThread();
    return 0;
}

int OnSecurityConfigurationChanged(lua_State* L) {
    CheckSelf(L).OnSecurityConfigurationChanged();
    return 0;
}

}  // namespace

void RegisterSSLCertThread(lua_State* L) {
    if (!BeginClass(L, kClassName, Guarded<Construct>, Guarded<Destroy>)) return;
    AddBase(L, "SLB.Runnable");
    AddBase(L, "SLB.wx.Thread");
    AddMethod(L, "OnSecurityConfigurationChanged", Guarded<OnSecurityConfigurationChanged>);
    lua_pop(L, 1);
}

}  // namespace OSTREL
