#include "ControlCommand.h"

#include "AgentModule.h"
#include "HostBinding.h"
#include "Message.h"

int RunControl(const ControlOptions& options) {
    Agent agent({});
    Preload(agent.Lua(), "velm.host", OpenHost);
    return CheckOutput(RunModule(agent, "velm.ask",
                                 {{"request", options.request},
                                  {"argument", options.argument},
                                  {"config", options.config},
                                  {"json", options.json}}));
}
