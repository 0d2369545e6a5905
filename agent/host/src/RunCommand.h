#pragma once

#include <string>
#include <vector>

struct RunOptions {
    std::string config;   // empty: the built-in one
    bool check = false;   // look at the configuration and leave
    bool dryRun = false;  // block nobody
    std::vector<std::string> trace;
};

// The service. Returns the exit status.
int RunService(const RunOptions& options);
