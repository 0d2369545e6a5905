#include "TestingBinding.h"

#include "LuaBinding.h"
#include "kdi/testing.h"
#include "velm/Clock.h"

namespace {

int SetTickCount(lua_State* L) {
    VelmCore::SetTickCount(CheckUnsigned(L, 1));
    return 0;
}

int AdvanceTicks(lua_State* L) {
    VelmCore::AdvanceTickCount(CheckUnsigned(L, 1));
    return 0;
}

int UseSystemClock(lua_State*) {
    VelmCore::UseSystemClock();
    return 0;
}

int FailBlacklist(lua_State* L) {
    const lua_Number error = luaL_checknumber(L, 1);
    if (!(error >= 0 && error <= 4095)) luaL_argerror(L, 1, "error number from 0 to 4095 expected");
    kdi_testing_fail_blacklist(static_cast<int>(error));
    return 0;
}

const luaL_Reg kFunctions[] = {
    {"SetTickCount", Guarded<SetTickCount>},
    {"AdvanceTicks", Guarded<AdvanceTicks>},
    {"UseSystemClock", Guarded<UseSystemClock>},
    {"FailBlacklist", Guarded<FailBlacklist>},
    {nullptr, nullptr},
};

}  // namespace

int OpenTesting(lua_State* L) {
    PushLibrary(L, kFunctions, 0);
    return 1;
}
