#pragma once

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Agent.h"

// Options for a module of the agent's scripts: a name and its value.
using ModuleOption =
    std::pair<const char*, std::variant<bool, long, std::string, std::vector<std::string>>>;

// Calls the function that the module returns with a table of the options, and gives the exit status
// that it returns. An error is told on standard error and gives the status that it carries, or 1.
int RunModule(Agent& agent, const char* module, const std::vector<ModuleOption>& options);
