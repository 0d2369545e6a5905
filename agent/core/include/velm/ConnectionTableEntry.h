#pragma once

#include <cstdint>

namespace VelmCore {

// A row of the connection table, as far as it is used: who reached what.
struct CConnectionTableEntry {
    uint32_t destAddress = 0;  // network byte order
    uint32_t srcAddress = 0;   // network byte order
    uint16_t destPort = 0;     // host byte order
    uint16_t srcPort = 0;      // host byte order
};

}  // namespace VelmCore
