#include "Record.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace Kdi {

namespace {

constexpr int64_t USEC = 1000000;

void CopyEthernet(const Frame& frame, EntryHeaders& headers) {
    if (!frame.ethernet) return;
    headers.flags |= LOG_FLAG_ETH;
    std::memcpy(&headers.ethernet, frame.ethernet, 12);
    headers.ethernet.eth_type = htons(frame.type);
}

// Readers take the protocol from ipv6h_next and the transport header from behind it, so the copy
// names the upper layer where the wire names an extension header.
void CopyIp(const Frame& frame, EntryHeaders& headers) {
    if (frame.family == 4) {
        headers.flags |= LOG_FLAG_IPV4;
        std::memcpy(&headers.ip.v4, frame.ip, sizeof headers.ip.v4);
    } else {
        headers.flags |= LOG_FLAG_IPV6;
        std::memcpy(&headers.ip.v6, frame.ip, sizeof headers.ip.v6);
        headers.ip.v6.ipv6h_next = frame.protocol;
    }
}

void CopyTransport(const Frame& frame, EntryHeaders& headers) {
    if (!frame.HasTransport()) return;
    headers.flags |= LOG_FLAG_TRANSPORT;
    const uint32_t length = frame.protocol == IP_PROTO_TCP ? 20 : 8;
    std::memcpy(&headers.transport, frame.transport, std::min(frame.transportLen, length));
}

}  // namespace

void CopyHeaders(const Frame& frame, uint8_t direction, EntryHeaders& headers) {
    std::memset(&headers, 0, sizeof headers);
    headers.flags = direction;
    headers.packetLen = frame.packetLen;
    CopyEthernet(frame, headers);
    CopyIp(frame, headers);
    CopyTransport(frame, headers);
}

void FillEntry(const Record& record, const uint8_t* hardware, velm_log_entry_s& entry) {
    std::memset(&entry, 0, sizeof entry);
    entry.log_first_sec = static_cast<uint32_t>(record.first / USEC);
    entry.log_first_usec = static_cast<uint32_t>(record.first % USEC);
    entry.log_last_sec = static_cast<uint32_t>(record.last / USEC);
    entry.log_last_usec = static_cast<uint32_t>(record.last % USEC);
    entry.log_action = record.action;
    entry.log_reason = record.reason;
    entry.log_filter_id = record.filter;
    entry.log_repeat_count = 1;
    entry.log_flags = record.headers.flags;
    entry.log_packet_len = record.headers.packetLen;
    entry.log_eth = record.headers.ethernet;
    entry.log_ip = record.headers.ip;
    entry.log_transport = record.headers.transport;
    if (hardware) {
        entry.log_if_addr_len = 6;
        std::memcpy(entry.log_if_addr, hardware, 6);
    }
}

}  // namespace Kdi
