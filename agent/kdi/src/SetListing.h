#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Kdi {

// An element of a set of IPv4 addresses.
struct SetElement {
    uint32_t address;      // network byte order
    uint32_t expires_sec;  // what remains, rounded down; UINT32_MAX: it stays for good
};

// Reads nftables' JSON listing of a set. What is no single address (a network, a range) is left
// out. False, with the reason in `error`, if the text is no such listing.
bool ParseSetListing(const std::string& json, std::vector<SetElement>& elements,
                     std::string& error);

}  // namespace Kdi
