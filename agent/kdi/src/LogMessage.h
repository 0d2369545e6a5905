#pragma once

#include <cstdint>
#include <optional>

#include "Record.h"

struct nlmsghdr;

namespace Kdi {

// A packet that an nftables rule logged.
struct LoggedPacket {
    Record record;
    uint32_t inDevice = 0;   // the kernel's index; 0: none
    uint32_t outDevice = 0;  // the same
    bool foreignPrefix = false;

    // What the packet came in by or, if the host sent it, went out by.
    uint32_t Device() const { return inDevice ? inDevice : outDevice; }
};

// Reads a packet message of the kernel's log. `now`, in microseconds since the epoch, stands in for
// a time stamp that is missing. False if there is no IP packet in it. `sequence` gets the message's
// number in its group in any case, if it has one. Nothing is read beyond the message's own length.
bool ReadLogMessage(const nlmsghdr& message, int64_t now, LoggedPacket& packet,
                    std::optional<uint32_t>& sequence);

}  // namespace Kdi
