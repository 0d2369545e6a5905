#pragma once

#include <string>

// The directory in which the service keeps what outlives it. It belongs to one service at a time.
class StateDirectory {
public:
    StateDirectory() = default;
    ~StateDirectory();
    StateDirectory(const StateDirectory&) = delete;
    StateDirectory& operator=(const StateDirectory&) = delete;

    // Makes the directory if it is missing (mode 0700) and takes its lock. Empty, or why not: it
    // can't be made, everybody may write to it, or another service holds it.
    std::string Take(const std::string& path);

private:
    std::string Lock(const std::string& file);

    int m_Lock = -1;
};
