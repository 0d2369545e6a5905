#pragma once

#include <cstdint>
#include <list>

namespace OSTREL {

// One entry of an address list. The addresses are in network byte order.
struct IpSpace {
    bool isRange;  // a range from `low` to `high`; otherwise the address `low` with the mask `high`
    uint32_t low;
    uint32_t high;
};

// A null pointer to a list means that none is configured, which differs from an empty one.
using IpSpaceList = std::list<IpSpace>;

// True if `ip` (network byte order) lies in an entry of the list. False for a null list.
bool ListContains(const IpSpaceList* list, uint32_t ip);

}  // namespace OSTREL
