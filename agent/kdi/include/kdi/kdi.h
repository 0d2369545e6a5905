#pragma once

#include <cstdint>

#include "kdi/log_entry.h"

#define KDI_API __attribute__((visibility("default")))

// The driver interface. A handle is an opaque word, null is never one, and each is used by one
// thread at a time. Operations that return int give 0 on success or an errno value.

struct kdi_handle_ops_s;
typedef kdi_handle_ops_s* kdi_handle_t;

// What a source hands out for one log entry. The memory stays the handle's, until the next call on
// it.
struct kdi_entry_s {
    velm_log_entry_s entry;
    const unsigned char* packet_data;
    unsigned int packet_data_len;  // bytes
    const unsigned char* log_data;
    unsigned int log_data_len;  // bytes
};

#pragma pack(push, 1)
// Asks the driver to block an address for a time.
struct kdi_blacklist_s {
    uint8_t bl_flags;           // 0
    uint8_t bl_addr_kind;       // 4: IPv4
    uint8_t reserved[2];        // 0
    uint32_t bl_duration_msec;  // host byte order
    uint32_t bl_ipv4_addr;      // network byte order
};
#pragma pack(pop)
static_assert(sizeof(kdi_blacklist_s) == 12, "blacklist record");

// Results of kdi_next_entry.
enum kdi_next_result { KDI_ENTRY = 0, KDI_TIMEOUT = 1, KDI_END = 2, KDI_FAILED = 3 };

// How a capture is read.
struct kdi_capture_options_s {
    const char* local;  // "CIDR[,CIDR...]", or null: the capture tells
    const char* allow;  // "tcp/80,udp/53", or null: what answers in the capture is open
};

// What a source has seen so far.
struct kdi_statistics_s {
    uint64_t packets;
    uint64_t entries;
    uint64_t sources;    // different source addresses of entries
    uint64_t dropped;    // packets of blocked sources
    int64_t first_usec;  // time of the first packet since the epoch; -1 before it
    int64_t last_usec;
    uint64_t total_packets;  // of the whole capture; 0 if the source cannot tell
};

extern "C" {

// Opens a source: "null", "pcap:FILE" or "nflog:GROUP". `options` may be null. Null on failure,
// with the reason, naming the thing, in `error` (terminated, cut to `error_size`).
KDI_API kdi_handle_t kdi_open_source(const char* source, const kdi_capture_options_s* options,
                                     char* error, unsigned int error_size);
KDI_API void kdi_close(kdi_handle_t handle);

// Takes the next entry; waits at most `timeout_msec` for it. A capture file never waits. After
// KDI_FAILED kdi_get_error has the reason.
KDI_API kdi_next_result kdi_next_entry(kdi_handle_t handle, unsigned int timeout_msec,
                                       kdi_entry_s** entry);
// Plays a capture up to a moment, in microseconds since the epoch: what is of that time and later
// is held back, and kdi_next_entry gives KDI_TIMEOUT once the capture has come so far. Without
// effect on a source that follows the system's clock.
KDI_API void kdi_hold_back(kdi_handle_t handle, int64_t usec);
KDI_API void kdi_get_error(kdi_handle_t handle, char* buffer, unsigned int size);
KDI_API void kdi_get_statistics(kdi_handle_t handle, kdi_statistics_s* statistics);
// Words for people on how the source understands its capture (the local addresses), "" if there is
// nothing to say. Valid until the handle is closed.
KDI_API const char* kdi_describe(kdi_handle_t handle);

// Blocks an address. `record` is a kdi_blacklist_s and stays the caller's. A handle that was closed
// gives EBADF. A capture drops the address's later packets, on its own clock, until the time is
// over.
KDI_API int kdi_add_blacklist(kdi_handle_t handle, const void* record);
// Records that kdi_add_blacklist got since the last call: copies at most `capacity` of the oldest
// and returns how many; the others stay.
KDI_API unsigned int kdi_take_blacklist(kdi_handle_t handle, kdi_blacklist_s* records,
                                        unsigned int capacity);
}
