#pragma once

#include <string>
#include <vector>

struct QueryOptions {
    std::string from;  // empty: no bound
    std::string to;
    std::string kind = "packet";
    std::string config;     // empty: the built-in one
    std::string directory;  // empty: the configuration's
    std::string name;
    bool time = false;
    std::vector<std::string> trace;
};

// Returns the exit status.
int RunQuery(const QueryOptions& options);
