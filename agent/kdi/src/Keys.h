#pragma once

#include <cstdint>

#include "FlatMap.h"

namespace Kdi {

// An IP address in five bytes. IPv4 stands as on the wire; an IPv6 address stands as the number
// that the capture's AddressBook gave it.
struct Address {
    uint32_t value = 0;
    uint8_t family = 0;  // 4 or 6; 0: none

    bool operator==(const Address& other) const {
        return value == other.value && family == other.family;
    }
};

// Several small things in one word; 0 is empty.
struct WordKey {
    uint64_t word = 0;

    bool Empty() const { return word == 0; }
    uint64_t Hash() const { return Mix(word, 0); }
    bool operator==(const WordKey& other) const { return word == other.word; }
};

inline WordKey AddressKey(const Address& address) {
    return {address.value | uint64_t{address.family} << 32};
}
inline WordKey PortKey(uint8_t protocol, const Address& address, uint16_t port) {
    return {address.value | uint64_t{port} << 32 | uint64_t{protocol} << 48 |
            uint64_t{address.family} << 56};
}

// A connection's two ends in an order that does not depend on the direction. Ports in host byte
// order; an echo exchange has its identifier in both.
struct FlowKey {
    uint32_t low = 0;
    uint32_t high = 0;
    uint16_t lowPort = 0;
    uint16_t highPort = 0;
    uint8_t protocol = 0;
    uint8_t family = 0;

    bool Empty() const { return family == 0; }
    uint64_t Hash() const {
        return Mix(low | uint64_t{high} << 32, lowPort | uint64_t{highPort} << 16 |
                                                   uint64_t{protocol} << 32 |
                                                   uint64_t{family} << 40);
    }
    bool operator==(const FlowKey& other) const {
        return low == other.low && high == other.high && lowPort == other.lowPort &&
               highPort == other.highPort && protocol == other.protocol && family == other.family;
    }
};

// The fragments of one datagram.
struct DatagramKey {
    uint32_t source = 0;
    uint32_t destination = 0;
    uint32_t id = 0;
    uint8_t protocol = 0;
    uint8_t family = 0;

    bool Empty() const { return family == 0; }
    uint64_t Hash() const {
        return Mix(source | uint64_t{destination} << 32,
                   id | uint64_t{protocol} << 32 | uint64_t{family} << 40);
    }
    bool operator==(const DatagramKey& other) const {
        return source == other.source && destination == other.destination && id == other.id &&
               protocol == other.protocol && family == other.family;
    }
};

}  // namespace Kdi
