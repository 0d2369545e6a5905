#include "HostAddresses.h"

#include <ifaddrs.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>

namespace Kdi {

HostAddresses::Key HostAddresses::ToKey(uint8_t family, const uint8_t* bytes) {
    Key key = {family};
    std::copy_n(bytes, family == 4 ? 4 : 16, key.begin() + 1);
    return key;
}

// Changes are awaited before the first reading, so that none falls between.
HostAddresses::HostAddresses() : m_Changes(NETLINK_ROUTE, 0) {
    m_Changes.Join(RTNLGRP_LINK);
    m_Changes.Join(RTNLGRP_IPV4_IFADDR);
    m_Changes.Join(RTNLGRP_IPV6_IFADDR);
    Read();
}

// What changed is not looked at: whatever it was, all is read again.
bool HostAddresses::Refresh() {
    bool changed = false;
    while (m_Changes.Receive() != NetlinkSocket::Received::Nothing)
        changed = true;
    if (changed) Read();
    return changed;
}

void HostAddresses::Read() {
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0)
        throw std::system_error(errno, std::generic_category(),
                                "cannot read this host's addresses");
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, freeifaddrs);
    m_Devices.clear();
    m_Broadcasts.clear();
    m_Hardware.clear();
    for (const ifaddrs* entry = first; entry; entry = entry->ifa_next) {
        if (entry->ifa_addr) Add(*entry, if_nametoindex(entry->ifa_name));
    }
}

// The kernel gives one entry for each address and one for the hardware.
void HostAddresses::Add(const ifaddrs& entry, uint32_t device) {
    if (entry.ifa_addr->sa_family == AF_INET) {
        const auto& address = *reinterpret_cast<const sockaddr_in*>(entry.ifa_addr);
        m_Devices[ToKey(4, reinterpret_cast<const uint8_t*>(&address.sin_addr))] = device;
        if (!(entry.ifa_flags & IFF_BROADCAST) || !entry.ifa_broadaddr) return;
        const auto& group = *reinterpret_cast<const sockaddr_in*>(entry.ifa_broadaddr);
        m_Broadcasts.insert(group.sin_addr.s_addr);
    } else if (entry.ifa_addr->sa_family == AF_INET6) {
        const auto& address = *reinterpret_cast<const sockaddr_in6*>(entry.ifa_addr);
        m_Devices[ToKey(6, address.sin6_addr.s6_addr)] = device;
    } else if (entry.ifa_addr->sa_family == AF_PACKET) {
        const auto& link = *reinterpret_cast<const sockaddr_ll*>(entry.ifa_addr);
        if (link.sll_halen == 6) std::copy_n(link.sll_addr, 6, m_Hardware[device].begin());
    }
}

bool HostAddresses::IsOwn(uint8_t family, const uint8_t* bytes) const {
    const bool isLoopbackNet = family == 4 && bytes[0] == 127;
    return isLoopbackNet || m_Devices.count(ToKey(family, bytes)) != 0;
}

uint32_t HostAddresses::DeviceOf(uint8_t family, const uint8_t* bytes) const {
    const auto found = m_Devices.find(ToKey(family, bytes));
    return found == m_Devices.end() ? 0 : found->second;
}

const uint8_t* HostAddresses::Hardware(uint32_t device) const {
    const auto found = m_Hardware.find(device);
    return found == m_Hardware.end() ? nullptr : found->second.data();
}

}  // namespace Kdi
