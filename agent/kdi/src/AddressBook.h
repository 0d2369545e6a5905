#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "Keys.h"

namespace Kdi {

using V6Bytes = std::array<uint8_t, 16>;

// Numbers the IPv6 addresses of a capture in the order in which they are first seen. About 60 bytes
// for an address.
class AddressBook {
public:
    AddressBook();

    // Numbers the address if it is new.
    Address Take(const uint8_t* bytes);
    // Family 0 if the address was never taken.
    Address Find(const uint8_t* bytes) const;
    const V6Bytes& Bytes(const Address& address) const { return m_Addresses[address.value]; }
    size_t Size() const { return m_Addresses.size(); }

private:
    struct Key {
        uint64_t first = 0;
        uint64_t second = 0;

        bool Empty() const { return (first | second) == 0; }
        uint64_t Hash() const { return Mix(first, second); }
        bool operator==(const Key& other) const {
            return first == other.first && second == other.second;
        }
    };
    static Key ToKey(const uint8_t* bytes);

    FlatMap<Key, uint32_t> m_Numbers;
    std::vector<V6Bytes> m_Addresses;  // number 0 is the unspecified address, an empty key
};

}  // namespace Kdi
