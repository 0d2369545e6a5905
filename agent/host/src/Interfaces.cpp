#include "Interfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

#include <algorithm>
#include <map>
#include <memory>

namespace {

void AddAddress(Interface& to, int family, const void* address) {
    char text[INET6_ADDRSTRLEN];
    if (inet_ntop(family, address, text, sizeof(text)) != nullptr) to.addresses.emplace_back(text);
}

// The kernel gives one such entry for each address and one for the hardware.
void Add(Interface& to, const sockaddr* address) {
    switch (address->sa_family) {
        case AF_PACKET: {
            const auto* link = reinterpret_cast<const sockaddr_ll*>(address);
            const size_t length = std::min<size_t>(link->sll_halen, sizeof(link->sll_addr));
            to.mac.assign(reinterpret_cast<const char*>(link->sll_addr), length);
            break;
        }
        case AF_INET:
            AddAddress(to, AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr);
            break;
        case AF_INET6:
            AddAddress(to, AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
            break;
        default:
            break;
    }
}

}  // namespace

std::vector<Interface> ListInterfaces() {
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) return {};
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, freeifaddrs);
    std::map<unsigned int, Interface> byIndex;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        const unsigned int index = if_nametoindex(entry->ifa_name);
        if (index == 0 || entry->ifa_addr == nullptr) continue;
        Interface& found = byIndex[index];
        if (found.name.empty()) found.name = entry->ifa_name;
        found.index = index;
        Add(found, entry->ifa_addr);
    }
    std::vector<Interface> interfaces;
    interfaces.reserve(byIndex.size());
    for (auto& item : byIndex)
        interfaces.push_back(std::move(item.second));
    return interfaces;
}
