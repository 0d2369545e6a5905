#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>

#include "NetlinkSocket.h"

struct ifaddrs;

namespace Kdi {

// This host's own addresses, of all interfaces, as they are now.
class HostAddresses {
public:
    // Throws std::system_error if the kernel tells nothing.
    HostAddresses();

    // Readable when something changed.
    int Descriptor() const { return m_Changes.Descriptor(); }
    // Reads the addresses again if they changed; whether they did.
    bool Refresh();

    // The loopback net is the host's own as a whole. `bytes`: 4 or 16 in network byte order, by
    // `family`, which is 4 or 6.
    bool IsOwn(uint8_t family, const uint8_t* bytes) const;
    // The index of the interface that has the address; 0: none.
    uint32_t DeviceOf(uint8_t family, const uint8_t* bytes) const;
    bool IsBroadcast(uint32_t address) const { return m_Broadcasts.count(address) != 0; }
    // The interface's 6 bytes; null if it has no such address.
    const uint8_t* Hardware(uint32_t device) const;

private:
    using Key = std::array<uint8_t, 17>;  // family and bytes
    static Key ToKey(uint8_t family, const uint8_t* bytes);
    void Read();
    void Add(const ifaddrs& entry, uint32_t device);

    NetlinkSocket m_Changes;
    std::map<Key, uint32_t> m_Devices;
    std::set<uint32_t> m_Broadcasts;  // IPv4, in network byte order
    std::map<uint32_t, std::array<uint8_t, 6>> m_Hardware;
};

}  // namespace Kdi
