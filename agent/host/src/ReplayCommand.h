#pragma once

#include <string>
#include <vector>

struct ReplayOptions {
    std::vector<std::string> captures;
    std::string out;     // empty: a temporary directory
    std::string config;  // empty: the built-in one
    std::string allow;   // empty: what answers in the capture
    std::string local;   // empty: the capture tells
    bool json = false;
    std::vector<std::string> trace;
};

// Returns the exit status.
int RunReplay(const ReplayOptions& options);
