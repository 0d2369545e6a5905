#include "TestingBinding.h"

#include <cstring>
#include <string>

#include "LuaBinding.h"
#include "kdi/testing.h"
#include "velm/Clock.h"

namespace {

// More than any reader of requests takes, so that a test can post what is to be refused.
constexpr size_t kMaxData = 1u << 20;

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

int FailKdiOpen(lua_State* L) {
    kdi_testing_fail_open(CheckUnsigned(L, 1));
    return 0;
}

int FailSslResponse(lua_State* L) {
    kdi_testing_fail_ssl_response(CheckUnsigned(L, 1));
    return 0;
}

int PostSslRequest(lua_State* L) {
    size_t headerLength = 0, length = 0;
    const char* header = luaL_checklstring(L, 1, &headerLength);
    const char* data = luaL_checklstring(L, 2, &length);
    if (headerLength != sizeof(ssl_request_st)) luaL_argerror(L, 1, "header of 72 bytes expected");
    if (length > kMaxData) luaL_argerror(L, 2, "data of at most 1048576 bytes expected");
    ssl_request_st request;
    std::memcpy(&request, header, sizeof(request));
    if (kdi_testing_post_ssl_request(&request, data, static_cast<unsigned int>(length)) != 0)
        return luaL_error(L, "the queue of SSL requests has no room");
    return 0;
}

int TakeSslResponses(lua_State* L) {
    auto& record = PushBox<std::string>(L);
    lua_newtable(L);
    for (int i = 1;; ++i) {
        const unsigned int size = kdi_testing_take_ssl_response(nullptr, 0);
        if (size == 0) return 1;
        record.resize(size);
        kdi_testing_take_ssl_response(&record[0], size);
        PushString(L, record);
        lua_rawseti(L, -2, i);
    }
}

const luaL_Reg kFunctions[] = {
    {"SetTickCount", Guarded<SetTickCount>},
    {"AdvanceTicks", Guarded<AdvanceTicks>},
    {"UseSystemClock", Guarded<UseSystemClock>},
    {"FailBlacklist", Guarded<FailBlacklist>},
    {"FailKdiOpen", Guarded<FailKdiOpen>},
    {"FailSslResponse", Guarded<FailSslResponse>},
    {"PostSslRequest", Guarded<PostSslRequest>},
    {"TakeSslResponses", Guarded<TakeSslResponses>},
    {nullptr, nullptr},
};

}  // namespace

int OpenTesting(lua_State* L) {
    kdi_testing_keep_ssl_responses(1);
    PushLibrary(L, kFunctions, 0);
    return 1;
}
