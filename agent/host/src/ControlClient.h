#pragma once

#include <string>

// Sends a line to the service that listens at `path` and reads the answer to its end. False with
// the reason if there is no service, or it does not answer within some seconds.
bool AskService(const std::string& path, const std::string& line, std::string& answer,
                std::string& reason);
