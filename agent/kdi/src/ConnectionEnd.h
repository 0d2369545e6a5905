#pragma once

#include <cstdint>

#include "HostAddresses.h"
#include "Record.h"

struct nf_conntrack;
struct nlmsghdr;

namespace Kdi {

// A connection that the kernel has forgotten. Addresses and ports are those of the packet that
// began it, in network byte order.
struct EndedConnection {
    uint8_t family;  // 4 or 6
    uint8_t protocol;
    uint8_t source[16];
    uint8_t destination[16];
    uint16_t sourcePort;  // TCP and UDP
    uint16_t destinationPort;
    uint8_t icmpType;  // ICMP of both families
    uint8_t icmpCode;
    uint16_t icmpId;
    bool closedNormally;  // both sides closed it
    int64_t begun;        // microseconds since the epoch; -1: not known
    int64_t ended;        // the same
};

// Whether the kernel tells nobody of connections.
bool AreConnectionEventsOff();

bool IsConnectionEnd(const nlmsghdr& message);
// False if the message tells of no connection, or memory is short.
bool ReadConnectionEnd(const nlmsghdr& message, EndedConnection& connection);

// Makes the flow end. False if the connection is none between this host and another. `device` gets
// the interface that has the host's address; 0: none. `now` stands in for times that are not known.
bool ToFlowEnd(const EndedConnection& connection, const HostAddresses& host, int64_t now,
               Record& record, uint32_t& device);

}  // namespace Kdi
