#pragma once

#include <string>
#include <vector>

struct ReplayOptions {
    std::vector<std::string> captures;
    std::string out;     // empty: a temporary directory
    std::string config;  // empty: the built-in one
    std::string allow;   // empty: what answers in the capture
    std::string local;   // empty: the capture tells
    std::string syslog;  // a target, "-" for standard output; empty: nothing is sent
    bool json = false;
    bool tls = false;
    std::vector<std::string> trace;
};

// Returns the exit status.
int RunReplay(const ReplayOptions& options);
