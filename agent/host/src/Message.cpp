#include "Message.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

void PrintError(const std::string& what, const std::string& why) {
    std::fflush(stdout);
    if (why.empty())
        std::fprintf(stderr, "velm_agent: %s\n", what.c_str());
    else
        std::fprintf(stderr, "velm_agent: %s: %s\n", what.c_str(), why.c_str());
}

int CheckOutput(int status) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    PrintError("standard output", std::strerror(errno));
    return status == kDone ? kFailed : status;
}
