#pragma once

#include <string>

struct ControlOptions {
    std::string request;   // "status", "blocks" or "unblock"
    std::string argument;  // the address to unblock
    std::string config;    // empty: the built-in one
    bool json = false;
};

// Asks the running service and prints its answer. Returns the exit status.
int RunControl(const ControlOptions& options);
