#pragma once

#include "NetlinkSocket.h"

namespace Kdi {

// Notices that somebody took something away from the agent's table, or made it anew.
class RulesetMonitor {
public:
    // Throws std::system_error.
    RulesetMonitor();

    int Descriptor() const { return m_Socket.Descriptor(); }
    // Reads what waits; whether the table may have lost elements.
    bool Changed();

private:
    NetlinkSocket m_Socket;
};

}  // namespace Kdi
