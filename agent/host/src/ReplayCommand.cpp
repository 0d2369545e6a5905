#include "ReplayCommand.h"

#include "AgentModule.h"
#include "HostBinding.h"
#include "Interrupt.h"
#include "Message.h"
#include "Player.h"
#include "PlayerBinding.h"

int RunReplay(const ReplayOptions& options) {
    CatchInterrupts();
    AgentOptions agentOptions;
    agentOptions.trace = options.trace;
    Agent agent(agentOptions);
    if (!agent.Prepare(agentOptions)) return kBadInput;
    Player player(agent.Dom(), options.captures.size());
    Preload(agent.Lua(), "velm.host", OpenHost);
    lua_pushlightuserdata(agent.Lua(), &player);
    Preload(agent.Lua(), "velm.player", OpenPlayer, 1);
    const int status = RunModule(agent, "velm.replay",
                                 {{"captures", options.captures},
                                  {"out", options.out},
                                  {"config", options.config},
                                  {"allow", options.allow},
                                  {"localAddresses", options.local},
                                  {"syslog", options.syslog},
                                  {"json", options.json},
                                  {"tls", options.tls}});
    agent.Shutdown();
    return CheckOutput(status);
}
