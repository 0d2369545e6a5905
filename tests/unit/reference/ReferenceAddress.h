#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ReferenceEvents.h"

// Address texts, read character by character.
namespace Reference {

struct AddressEntry {
    bool isRange;
    uint32_t low;   // network order
    uint32_t high;  // network order
};

// Fills `entries` with those of the good tokens. False if a token was bad.
bool ParseAddresses(const std::string& items, const std::string& listName,
                    std::vector<AddressEntry>& entries, std::vector<Event>& events);

// `address` is in network order.
bool Contains(const std::vector<AddressEntry>& entries, uint32_t address);

}  // namespace Reference
