#pragma once

#include <string>
#include <vector>

#include "Agent.h"

// Runs a script; returns the exit status.
int RunScript(const AgentOptions& options, const std::string& file,
              const std::vector<std::string>& arguments);
