#pragma once

#include <cstdint>

#include "AddressBook.h"
#include "FrameParser.h"
#include "Keys.h"

namespace Kdi {

// A frame that holds an IP packet, with what the tables need of it.
struct Packet {
    Frame frame;
    Address source;
    Address destination;
    uint16_t sourcePort = 0;  // 0 where there are none; the identifier of an echo
    uint16_t destinationPort = 0;
    FlowKey key;
    bool swapped = false;  // the source is the key's high end
    int64_t time = 0;      // microseconds since the epoch
    uint64_t number = 0;   // of the packet in its capture, from 1
};

// Fills in the ports and the key from the frame and the addresses.
void SetEnds(Packet& packet);
// Fills in the addresses and ends. `frame` must be IP.
void Identify(const Frame& frame, AddressBook& book, Packet& packet);

// The key of the packet that an ICMP error carries; empty if it cannot be told.
FlowKey EmbeddedKey(const Frame& error, const AddressBook& book);

}  // namespace Kdi
