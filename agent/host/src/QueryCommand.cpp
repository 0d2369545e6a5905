#include "QueryCommand.h"

#include "AgentModule.h"
#include "HostBinding.h"
#include "Message.h"
#include "TimeText.h"

namespace {

// 0 stands for no bound, in the log as well.
bool ReadBound(const char* option, const std::string& text, long& seconds) {
    if (text.empty()) return true;
    const auto parsed = ParseTime(text);
    if (parsed) {
        seconds = *parsed;
        return true;
    }
    PrintError(std::string(option) + " " + text,
               "expected seconds since the epoch or YYYY-MM-DD[ HH:MM[:SS]][Z|+hh:mm]");
    return false;
}

}  // namespace

int RunQuery(const QueryOptions& options) {
    long from = 0, to = 0;
    if (!ReadBound("--from", options.from, from) || !ReadBound("--to", options.to, to))
        return kBadInput;
    AgentOptions agentOptions;
    agentOptions.trace = options.trace;
    Agent agent(agentOptions);
    if (!agent.Prepare(agentOptions)) return kBadInput;
    Preload(agent.Lua(), "velm.host", OpenHost);
    return CheckOutput(RunModule(agent, "velm.query",
                                 {{"from", from},
                                  {"to", to},
                                  {"payload", options.kind == "payload"},
                                  {"config", options.config},
                                  {"directory", options.directory},
                                  {"name", options.name},
                                  {"time", options.time}}));
}
