#include "RunCommand.h"

#include <sys/stat.h>

#include "AgentModule.h"
#include "HostBinding.h"
#include "Message.h"
#include "Service.h"
#include "ServiceBinding.h"
#include "ServiceSignals.h"

int RunService(const RunOptions& options) {
    umask(0027);
    CatchServiceSignals();
    AgentOptions agentOptions;
    agentOptions.trace = options.trace;
    Agent agent(agentOptions);
    if (!agent.Prepare(agentOptions)) return kBadInput;
    Service service(agent.Dom());
    Preload(agent.Lua(), "velm.host", OpenHost);
    lua_pushlightuserdata(agent.Lua(), &service);
    Preload(agent.Lua(), "velm.service", OpenService, 1);
    const int status = RunModule(
        agent, "velm.run",
        {{"config", options.config}, {"check", options.check}, {"dryRun", options.dryRun}});
    agent.Shutdown();
    return status;
}
