#pragma once

#include <cstdint>
#include <cstring>

#include <wx/string.h>

namespace OSTREL {

// An IPv4 address in network byte order, as dotted decimal.
inline wxString AddressText(uint32_t ip) {
    uint8_t bytes[4];
    memcpy(bytes, &ip, sizeof bytes);
    return wxString::Format("%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
}

}  // namespace OSTREL
