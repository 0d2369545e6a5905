#pragma once

#include <cstdint>

#include "FrameParser.h"
#include "kdi/log_entry.h"

namespace Kdi {

// What an entry shows of a packet: its headers as on the wire, what the capture cut off as zeros.
struct EntryHeaders {
    pk_eth_hdr_s ethernet;
    velm_log_ip_u ip;
    velm_log_transport_u transport;
    uint8_t flags;       // LOG_FLAG_*
    uint32_t packetLen;  // bytes
};

// `direction`: LOG_FLAG_OUTGOING, LOG_FLAG_FORWARD. `frame` must be IP.
void CopyHeaders(const Frame& frame, uint8_t direction, EntryHeaders& headers);

// An entry to be, without what is the same for all of a source. Times in microseconds since the
// epoch.
struct Record {
    EntryHeaders headers;
    int64_t first;
    int64_t last;
    uint16_t action;
    int16_t reason;
    uint32_t filter;
};

// `hardware`: the interface's 6 bytes, or null.
void FillEntry(const Record& record, const uint8_t* hardware, velm_log_entry_s& entry);

}  // namespace Kdi
