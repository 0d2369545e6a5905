#pragma once

#include <cstdint>
#include <map>
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

// Reads nftables' JSON listing of counters: their packets, by name. What is no counter is left out.
std::map<std::string, uint64_t> ParseCounterListing(const std::string& json);

}  // namespace Kdi
