#pragma once

#include <arpa/inet.h>

#include <cstdint>

#include "kdi/log_entry.h"

namespace Bench {

// Gives the entry another source: entries with different numbers have different texts.
inline void SetSource(velm_log_entry_s& entry, uint32_t number) {
    entry.log_ip.v4.iph_src = htonl(0x0A000000 + number / 50000);
    entry.log_transport.tcp.tcph_sport = htons(static_cast<uint16_t>(1024 + number % 50000));
}

// A denied TCP packet of a typical host.
inline velm_log_entry_s MakeEntry(uint32_t number) {
    velm_log_entry_s entry = {};
    entry.log_first_sec = entry.log_last_sec = 1763069729;
    entry.log_first_usec = entry.log_last_usec = 500;
    entry.log_action = LOG_ACTION_DENY;
    entry.log_filter_id = 17;
    entry.log_if_index = ~0u;
    entry.log_flags = LOG_FLAG_FORWARD | LOG_FLAG_ETH | LOG_FLAG_IPV4 | LOG_FLAG_TRANSPORT;
    entry.log_if_addr_len = 6;
    entry.log_packet_len = 60;
    entry.log_repeat_count = 1;
    for (uint8_t i = 0; i < 6; ++i) {
        entry.log_if_addr[i] = static_cast<uint8_t>(0x0C + 17 * i);
        entry.log_eth.eth_dest[i] = entry.log_if_addr[i];
        entry.log_eth.eth_src[i] = static_cast<uint8_t>(0x4A + 9 * i);
    }
    entry.log_eth.eth_type = htons(0x0800);
    entry.log_ip.v4.iph_proto = IP_PROTO_TCP;
    entry.log_ip.v4.iph_frag = htons(0x4000);
    entry.log_ip.v4.iph_dest = htonl(0xC0A80109);
    entry.log_transport.tcp.tcph_dport = htons(443);
    entry.log_transport.tcp.tcph_flags = TCP_FLAG_SYN;
    SetSource(entry, number);
    return entry;
}

}  // namespace Bench
