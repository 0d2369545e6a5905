// The service in a Lua state whose agent neither keeps nor stops what it started.

#include "SSLFixture.h"
#include "velm/ScriptObject.h"

#include <lua.hpp>

extern "C" int luaopen_ostrel(lua_State* L);

namespace {

class SSLServiceScript : public SSLServiceTest {
protected:
    SSLServiceScript() : L(luaL_newstate()) {
        luaL_openlibs(L);
        luaL_newmetatable(L, "SLB.Dom");
        lua_pushliteral(L, "SLB.Dom");
        lua_setfield(L, -2, "__class");
        auto* reference = static_cast<VelmCore::ScriptObject*>(
            lua_newuserdata(L, sizeof(VelmCore::ScriptObject)));
        *reference = {&m_Dom, false};
        lua_insert(L, -2);
        lua_setmetatable(L, -2);
        lua_setglobal(L, "dom");
        luaL_requiref(L, "ostrel", luaopen_ostrel, 0);
        EXPECT_EQ(luaL_dostring(L, "service = SLB.ostrel.SSLCertThread(dom)"), 0);
        lua_getglobal(L, "service");
        m_Thread = static_cast<VelmCore::CRunnable*>(
            static_cast<VelmCore::ScriptObject*>(lua_touserdata(L, -1))->object);
        lua_settop(L, 0);
    }
    ~SSLServiceScript() override {
        if (L != nullptr) lua_close(L);
    }
    void Close() {
        lua_close(L);
        L = nullptr;
    }

    lua_State* L;
    VelmCore::CRunnable* m_Thread;  // the script's object, by its base
};

TEST_F(SSLServiceScript, AServiceThatWasNeverStartedIsDestroyedAtOnce) {
    Close();
}

TEST_F(SSLServiceScript, ClosingTheStateWaitsForAServiceThatIsEnding) {
    ASSERT_TRUE(m_Thread->start(50, true, 0));
    const Vector good = FindVector("made-rsa2048-good");
    const Request request = Request::Tls(1, good.encrypted);
    Post(request);
    EXPECT_EQ(NextResponse(), request.Response(good.secret));
    m_Dom.RequestExit();
    kdi_wake_ssl_readers();
    Close();  // would free the memory of a thread that runs
}

TEST_F(SSLServiceScript, ADroppedServiceIsCollectedWhenItsThreadHasEnded) {
    ASSERT_TRUE(m_Thread->start(50, true, 0));
    m_Dom.RequestExit();
    kdi_wake_ssl_readers();
    EXPECT_EQ(luaL_dostring(L, "service = nil collectgarbage() collectgarbage()"), 0);
}

TEST_F(SSLServiceScript, WithoutTheAgentsClassesTheServiceHasItsOwnMethodsOnly) {
    EXPECT_EQ(luaL_dostring(L,
                            "assert(service.Start == nil)"
                            "assert(service.OnSecurityConfigurationChanged ~= nil)"
                            "service:OnSecurityConfigurationChanged()"),
              0);
}

}  // namespace
