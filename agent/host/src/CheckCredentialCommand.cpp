#include "CheckCredentialCommand.h"

#include <cstring>

#include <sys/prctl.h>

#include "AgentModule.h"
#include "HostBinding.h"
#include "LuaBinding.h"
#include "Message.h"
#include "Passphrase.h"

namespace {

// A passphrase on its way to Lua.
struct Secret {
    std::string text;
    ~Secret() { explicit_bzero(text.data(), text.size()); }
};

int PushSecret(lua_State* L, bool isThere, Secret& secret, const std::string& reason) {
    if (isThere) {
        PushString(L, secret.text);
        return 1;
    }
    lua_pushnil(L);
    PushString(L, reason);
    return 2;
}

// Read(path): the passphrase, or nil and the reason.
int Read(lua_State* L) {
    const char* path = luaL_checkstring(L, 1);
    auto& secret = PushBox<Secret>(L);
    auto& reason = PushBox<std::string>(L);
    const bool done = ReadPassphrase(path, secret.text, reason);
    return PushSecret(L, done, secret, reason);
}

// CanAsk(): whether there is a terminal.
int CanAsk(lua_State* L) {
    lua_pushboolean(L, CanAskPassphrase());
    return 1;
}

// Ask(prompt): the passphrase, or nil and the reason.
int Ask(lua_State* L) {
    const char* prompt = luaL_checkstring(L, 1);
    auto& secret = PushBox<Secret>(L);
    auto& reason = PushBox<std::string>(L);
    reason = "no passphrase was given";
    const bool done = AskPassphrase(prompt, secret.text);
    return PushSecret(L, done, secret, reason);
}

const luaL_Reg kFunctions[] = {
    {"Read", Guarded<Read>},
    {"CanAsk", Guarded<CanAsk>},
    {"Ask", Guarded<Ask>},
    {nullptr, nullptr},
};

int OpenPassphrase(lua_State* L) {
    PushLibrary(L, kFunctions, 0);
    return 1;
}

}  // namespace

int RunCheckCredential(const CheckCredentialOptions& options) {
    // Keys and passphrases are in memory: no core file, no debugger of another process.
    prctl(PR_SET_DUMPABLE, 0);
    AgentOptions agentOptions;
    agentOptions.trace = options.trace;
    Agent agent(agentOptions);
    if (!agent.Prepare(agentOptions)) return kBadInput;
    Preload(agent.Lua(), "velm.host", OpenHost);
    Preload(agent.Lua(), "velm.passphrase", OpenPassphrase);
    return CheckOutput(RunModule(agent, "velm.credential",
                                 {{"type", options.type},
                                  {"file", options.file},
                                  {"passphraseFile", options.passphraseFile}}));
}
