#pragma once

#include <cstdint>

#include "NetlinkSocket.h"

namespace Kdi {

// A group of the kernel's packet log, bound to this process until the object goes.
class LogGroup {
public:
    // Throws std::system_error.
    LogGroup(uint16_t group, unsigned int receiveBuffer);

    NetlinkSocket& Socket() { return m_Socket; }
    const NetlinkSocket& Socket() const { return m_Socket; }
    static bool IsPacket(const nlmsghdr& message);

private:
    NetlinkSocket m_Socket;
};

// Counts what is missing in the kernel's numbering of a group's packets, which begins with 0 and
// wraps.
class SequenceCounter {
public:
    // The number of packets that were lost in front of this one.
    uint32_t Note(uint32_t number) {
        const uint32_t lost = number - m_Expected;
        m_Expected = number + 1;
        return lost;
    }

private:
    uint32_t m_Expected = 0;
};

}  // namespace Kdi
