#pragma once

#include <string>

// Exit statuses of the program.
enum ExitStatus : int { kDone = 0, kFailed = 1, kBadInput = 2 };

// Writes "velm_agent: what: why" to standard error; without `why`, "velm_agent: what".
void PrintError(const std::string& what, const std::string& why = {});

// Exit status of a command that printed results: what was printed may have met a full disk or a
// closed pipe, which is told and makes a failure of success.
int CheckOutput(int status);
