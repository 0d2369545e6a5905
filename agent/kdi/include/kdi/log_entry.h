#pragma once

#include <cstddef>
#include <cstdint>

// The driver's log entry, as it stands in memory on a 32-bit little-endian host. Fields named log_*
// are in host byte order; copies of wire headers stay in network byte order.

#pragma pack(push, 1)

struct pk_eth_hdr_s {
    uint8_t eth_dest[6];
    uint8_t eth_src[6];
    uint16_t eth_type;  // big-endian
};

union pk_ipv6_addr_u {
    uint8_t bytes[16];
    uint16_t words[8];   // big-endian
    uint32_t dwords[4];  // big-endian
};

// All fields big-endian.
struct pk_iph_s {
    uint8_t iph_vhl;
    uint8_t iph_tos;
    uint16_t iph_len;
    uint16_t iph_id;
    uint16_t iph_frag;
    uint8_t iph_ttl;
    uint8_t iph_proto;
    uint16_t iph_sum;
    uint32_t iph_src;
    uint32_t iph_dest;
};

struct pk_ipv6h_s {
    uint32_t ipv6h_flow;
    uint16_t ipv6h_plen;
    uint8_t ipv6h_next;
    uint8_t ipv6h_hops;
    pk_ipv6_addr_u ipv6h_src;
    pk_ipv6_addr_u ipv6h_dest;
};

struct pk_tcph_s {
    uint16_t tcph_sport;
    uint16_t tcph_dport;
    uint32_t tcph_seq;
    uint32_t tcph_ack;
    uint8_t tcph_off;
    uint8_t tcph_flags;
    uint8_t rest[6];
};

struct pk_udph_s {
    uint16_t udph_sport;
    uint16_t udph_dport;
};

struct pk_icmph_s {
    uint8_t icmph_type;
    uint8_t icmph_code;
};

union velm_log_ip_u {
    pk_iph_s v4;
    pk_ipv6h_s v6;
};

union velm_log_transport_u {
    pk_tcph_s tcp;
    pk_udph_s udp;
    pk_icmph_s icmp;
    uint8_t bytes[20];
};

struct velm_log_entry_s {
    uint32_t log_first_sec;
    uint32_t log_first_usec;
    uint8_t reserved1[12];
    uint16_t log_action;      // low 7 bits; 0x80: detect only
    int16_t log_reason;       // negative: payload log
    uint32_t log_filter_id;   // 0: no filter
    uint32_t log_if_index;    // the driver's
    uint32_t log_stream_pos;  // bytes
    uint16_t log_packet_pos;  // bytes
    uint8_t log_flags;
    uint8_t log_flags2;
    uint32_t log_if_addr_len;
    uint8_t log_if_addr[8];
    uint32_t log_packet_len;
    uint16_t log_note_len;
    uint16_t log_data_len;
    uint8_t log_note[16];
    uint16_t log_packet_data_len;
    uint16_t log_data_tag;
    uint8_t reserved2[4];
    uint8_t log_dpi_flags;
    uint8_t reserved3[3];
    uint32_t log_last_sec;
    uint32_t log_last_usec;
    uint32_t log_repeat_count;
    uint16_t log_extra_value;
    pk_eth_hdr_s log_eth;
    velm_log_ip_u log_ip;
    velm_log_transport_u log_transport;
    uint32_t log_data_ptr;  // used on a host with 32-bit pointers only
};

#pragma pack(pop)

// log_flags
enum : uint8_t {
    LOG_FLAG_OUTGOING = 0x01,
    LOG_FLAG_FORWARD = 0x02,  // the direction in which the connection began
    LOG_FLAG_ETH = 0x08,
    LOG_FLAG_IPV4 = 0x10,  // tested before LOG_FLAG_IPV6
    LOG_FLAG_IPV6 = 0x20,
    LOG_FLAG_TRANSPORT = 0x40,
};

// log_flags2
enum : uint8_t { LOG_FLAG2_SRC_IN_HISTORY = 0x01 };

// log_dpi_flags
enum : uint8_t {
    LOG_DPI_PACKET_DATA = 0x02,
    LOG_DPI_TAG = 0x04,
    LOG_DPI_ANALYSIS_ONLY = 0x40,
};

// tcph_flags
enum : uint8_t {
    TCP_FLAG_FIN = 0x01,
    TCP_FLAG_SYN = 0x02,
    TCP_FLAG_RST = 0x04,
    TCP_FLAG_PSH = 0x08,
    TCP_FLAG_ACK = 0x10,
    TCP_FLAG_URG = 0x20,
    TCP_FLAG_ECE = 0x40,
    TCP_FLAG_CWR = 0x80,
};

enum : uint8_t { IP_PROTO_ICMP = 1, IP_PROTO_TCP = 6, IP_PROTO_UDP = 17, IP_PROTO_ICMPV6 = 58 };

// log_action
enum : uint16_t { LOG_ACTION_DENY = 1, LOG_ACTION_LOG = 6, LOG_ACTION_DETECT_ONLY = 0x80 };

// log_reason
enum : int16_t {
    LOG_REASON_FILTER = 0,
    LOG_REASON_OUT_OF_CONNECTION = 100,
    LOG_REASON_INVALID_FLAGS = 101,
    LOG_REASON_FRAGMENTED = 108,
    LOG_REASON_FIRST_FRAGMENT_TOO_SMALL = 110,
    LOG_REASON_FRAGMENT_OFFSET_TOO_SMALL = 112,
    LOG_REASON_DROPPED_RETRANSMIT = 139,
    LOG_REASON_CONNTRACK_CLOSED_NORMAL = 10000,
    LOG_REASON_CONNTRACK_CLOSED = 10001,
    LOG_REASON_ENGINE_STATE_1 = -5000,
    LOG_REASON_ENGINE_STATE_2 = -5010,
};

static_assert(sizeof(pk_eth_hdr_s) == 14, "Ethernet header");
static_assert(sizeof(pk_ipv6_addr_u) == 16, "IPv6 address");
static_assert(sizeof(pk_iph_s) == 20, "IPv4 header");
static_assert(sizeof(pk_ipv6h_s) == 40, "IPv6 header");
static_assert(offsetof(pk_tcph_s, tcph_flags) == 13, "TCP flags");
static_assert(sizeof(velm_log_entry_s) == 180, "log entry");
static_assert(offsetof(velm_log_entry_s, log_action) == 0x14);
static_assert(offsetof(velm_log_entry_s, log_filter_id) == 0x18);
static_assert(offsetof(velm_log_entry_s, log_flags) == 0x26);
static_assert(offsetof(velm_log_entry_s, log_if_addr) == 0x2C);
static_assert(offsetof(velm_log_entry_s, log_packet_len) == 0x34);
static_assert(offsetof(velm_log_entry_s, log_note) == 0x3C);
static_assert(offsetof(velm_log_entry_s, log_packet_data_len) == 0x4C);
static_assert(offsetof(velm_log_entry_s, log_dpi_flags) == 0x54);
static_assert(offsetof(velm_log_entry_s, log_last_sec) == 0x58);
static_assert(offsetof(velm_log_entry_s, log_extra_value) == 0x64);
static_assert(offsetof(velm_log_entry_s, log_eth) == 0x66);
static_assert(offsetof(velm_log_entry_s, log_ip) == 0x74);
static_assert(offsetof(velm_log_entry_s, log_transport) == 0x9C);
static_assert(offsetof(velm_log_entry_s, log_data_ptr) == 0xB0);
