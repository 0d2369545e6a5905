#pragma once

#include <arpa/inet.h>

#include <cstring>

#include "kdi/log_entry.h"

// Log entries as the driver would make them. A test changes the fields that it is about.

inline uint32_t Address(const char* dotted) {
    return inet_addr(dotted);
}

// A denied TCP packet, incoming and in the reverse direction, with ACK, PSH and DF.
inline velm_log_entry_s TcpEntry() {
    static const uint8_t kOwn[6] = {0x00, 0x0C, 0x29, 0x11, 0x22, 0x33};
    static const uint8_t kOther[6] = {0x00, 0x0C, 0x29, 0x44, 0x55, 0x66};
    velm_log_entry_s entry = {};
    entry.log_first_sec = 1763069729;
    entry.log_first_usec = 500;
    entry.log_last_sec = 1763069729;
    entry.log_last_usec = 500;
    entry.log_repeat_count = 1;
    entry.log_action = 1;
    entry.log_filter_id = 17;
    entry.log_if_index = 2;
    entry.log_if_addr_len = 6;
    memcpy(entry.log_if_addr, kOwn, sizeof kOwn);
    entry.log_packet_len = 60;
    entry.log_flags = 0x08 | 0x10 | 0x40;
    memcpy(entry.log_eth.eth_dest, kOwn, sizeof kOwn);
    memcpy(entry.log_eth.eth_src, kOther, sizeof kOther);
    entry.log_eth.eth_type = htons(0x0800);
    entry.log_ip.v4.iph_proto = 6;
    entry.log_ip.v4.iph_len = htons(1500);
    entry.log_ip.v4.iph_frag = htons(0x4000);
    entry.log_ip.v4.iph_src = Address("10.0.0.5");
    entry.log_ip.v4.iph_dest = Address("10.0.0.9");
    entry.log_transport.tcp.tcph_sport = htons(51000);
    entry.log_transport.tcp.tcph_dport = htons(443);
    entry.log_transport.tcp.tcph_flags = 0x18;
    return entry;
}

// The same, told apart from others by its destination port.
inline velm_log_entry_s TcpEntryToPort(uint16_t port) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_transport.tcp.tcph_dport = htons(port);
    return entry;
}

// A payload log with an 8-byte note and packet data, whose 4 bytes travel beside it.
inline velm_log_entry_s PayloadEntry() {
    velm_log_entry_s entry = TcpEntry();
    entry.log_first_sec = 1763069730;
    entry.log_first_usec = 200;
    entry.log_last_sec = 1763069731;
    entry.log_last_usec = 100;
    entry.log_repeat_count = 2;
    entry.log_reason = -1;
    entry.log_filter_id = 1004;
    entry.log_flags |= 0x02;
    entry.log_packet_len = 1500;
    entry.log_ip.v4.iph_frag = 0;
    entry.log_transport.tcp.tcph_dport = htons(80);
    entry.log_transport.tcp.tcph_flags = 0x10;
    entry.log_note_len = 8;
    memcpy(entry.log_note, "/etc/pas", 8);
    entry.log_packet_pos = 120;
    entry.log_stream_pos = 8840;
    entry.log_dpi_flags = 0x02;
    entry.log_data_tag = 2;
    entry.log_packet_data_len = 4;
    return entry;
}

// An IPv6 packet from 2001:db8::5 to fe80::1.
inline velm_log_entry_s Ipv6Entry(uint8_t protocol) {
    static const uint8_t kSource[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5};
    static const uint8_t kDest[16] = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xAB, 1};
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags = 0x08 | 0x20 | 0x40;
    entry.log_eth.eth_type = htons(0x86DD);
    entry.log_ip = {};
    entry.log_ip.v6.ipv6h_next = protocol;
    memcpy(entry.log_ip.v6.ipv6h_src.bytes, kSource, sizeof kSource);
    memcpy(entry.log_ip.v6.ipv6h_dest.bytes, kDest, sizeof kDest);
    return entry;
}
