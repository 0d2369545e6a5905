#pragma once

#include <cstdint>
#include <cstring>

namespace Kdi {

inline uint16_t BigEndian16(const uint8_t* bytes) {
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}
inline uint32_t BigEndian32(const uint8_t* bytes) {
    return uint32_t{BigEndian16(bytes)} << 16 | BigEndian16(bytes + 2);
}
// Four bytes as they stand, for values that stay in network byte order.
inline uint32_t Raw32(const uint8_t* bytes) {
    uint32_t value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

}  // namespace Kdi
