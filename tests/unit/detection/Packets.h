#pragma once

#include <arpa/inet.h>

#include <cstdint>

#include "kdi/log_entry.h"

// Entries that the driver makes of packets against this host. A test changes the fields that it is
// about.

constexpr const char* kAttacker = "192.0.2.7";
constexpr const char* kHost = "198.51.100.1";

inline uint32_t Address(const char* dotted) {
    return inet_addr(dotted);
}

// An inbound packet that a filter denied.
inline velm_log_entry_s Denied(const char* source, const char* destination, uint8_t protocol,
                               uint16_t port) {
    velm_log_entry_s entry = {};
    entry.log_repeat_count = 1;
    entry.log_action = 1;
    entry.log_filter_id = 1;
    entry.log_flags = 0x10 | 0x40;
    entry.log_ip.v4.iph_proto = protocol;
    entry.log_ip.v4.iph_src = Address(source);
    entry.log_ip.v4.iph_dest = Address(destination);
    entry.log_transport.tcp.tcph_sport = htons(40000);
    entry.log_transport.tcp.tcph_dport = htons(port);
    return entry;
}

inline velm_log_entry_s Syn(const char* source, const char* destination, uint16_t port) {
    velm_log_entry_s entry = Denied(source, destination, 6, port);
    entry.log_transport.tcp.tcph_flags = 0x02;
    return entry;
}

inline velm_log_entry_s Datagram(const char* source, const char* destination, uint16_t port) {
    return Denied(source, destination, 17, port);
}

// A TCP packet of the attacker with this flag byte.
inline velm_log_entry_s Crafted(uint8_t flags, bool dontFragment = false) {
    velm_log_entry_s entry = Syn(kAttacker, kHost, 80);
    entry.log_transport.tcp.tcph_flags = flags;
    entry.log_ip.v4.iph_frag = htons(dontFragment ? 0x4000 : 0);
    return entry;
}

// A TCP packet over IPv6, from 2001:db8::7 to 2001:db8::1.
inline velm_log_entry_s CraftedV6(uint8_t flags) {
    velm_log_entry_s entry = Syn(kAttacker, kHost, 80);
    entry.log_flags = 0x20 | 0x40;
    entry.log_ip = {};
    entry.log_ip.v6.ipv6h_next = 6;
    entry.log_ip.v6.ipv6h_src.bytes[0] = entry.log_ip.v6.ipv6h_dest.bytes[0] = 0x20;
    entry.log_ip.v6.ipv6h_src.bytes[15] = 7;
    entry.log_ip.v6.ipv6h_dest.bytes[15] = 1;
    entry.log_transport.tcp.tcph_flags = flags;
    return entry;
}
