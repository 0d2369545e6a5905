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

// How a source is opened. Texts may be null.
struct kdi_open_options_s {
    // pcap: "CIDR[,CIDR...]", the host's addresses; null: the capture tells.
    const char* local = nullptr;
    // pcap: "tcp/80,udp/53", the open ports; null: what answers in the capture is open.
    // nflog: "CIDR[,CIDR...]", addresses that are never blocked.
    const char* allow = nullptr;
    // nflog: blocks are recorded, and the kernel's set stays as it is.
    bool dry_run = false;
    // nflog: bytes of room for what waits to be read, on each socket; 0: 8 MiB.
    unsigned int receive_buffer = 0;
};

// An address that is blocked.
struct kdi_block_s {
    uint32_t ipv4_addr;       // network byte order
    uint32_t remaining_msec;  // above 0
};

// What a source has seen so far. What a source cannot tell stays as it is here.
struct kdi_statistics_s {
    uint64_t packets = 0;
    uint64_t entries = 0;
    uint64_t dropped = 0;     // packets of blocked sources; nflog: the ruleset's counter `blocked`
    int64_t first_usec = -1;  // time of the first packet since the epoch; -1 before it
    int64_t last_usec = -1;
    uint64_t total_packets = 0;  // of the whole capture

    // nflog only.
    uint64_t lost = 0;              // packets that the kernel numbered and that never came
    uint64_t unlogged = 0;          // denied beyond the ruleset's limits: its counter `unlogged`
    uint64_t overruns = 0;          // times that a socket's buffer was full
    uint64_t connection_ends = 0;   // entries of connection tracking, among `entries`
    uint64_t foreign_prefixes = 0;  // packets whose log prefix is not of the documented form
    uint64_t unreadable = 0;        // messages that held no IP packet or no connection of use

    // Of kdi_add_blacklist; nflog and null.
    uint64_t blocks_now = 0;
    uint64_t blocks_accepted = 0;
    uint64_t blocks_refused = 0;   // addresses that are never blocked
    uint64_t blocks_failed = 0;    // what the kernel would not do
    uint64_t blocks_repaired = 0;  // put back into the kernel's set
};

extern "C" {

// Opens a source: "null", "pcap:FILE" or "nflog:GROUP". `options` may be null. Null on failure,
// with the reason, naming the thing, in `error` (terminated, cut to `error_size`).
KDI_API kdi_handle_t kdi_open_source(const char* source, const kdi_open_options_s* options,
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
// Lets the kdi_next_entry that waits now, or else the next one, give KDI_TIMEOUT at once. The one
// operation for any thread and for a signal handler. Captures never wait.
KDI_API void kdi_wake(kdi_handle_t handle);
// A descriptor for poll: readable when kdi_next_entry has work to do, an entry or not. -1: the
// source has none. Stays the handle's.
KDI_API int kdi_descriptor(kdi_handle_t handle);
// Copies the oldest message to people (losses, a set that went missing and came back) and returns
// true, or false if there is none. At most 100 wait, each a line of text.
KDI_API bool kdi_take_message(kdi_handle_t handle, char* buffer, unsigned int size);
KDI_API void kdi_get_error(kdi_handle_t handle, char* buffer, unsigned int size);
KDI_API void kdi_get_statistics(kdi_handle_t handle, kdi_statistics_s* statistics);
// Words for people on how the source understands its capture (the local addresses), "" if there is
// nothing to say. Valid until the handle is closed.
KDI_API const char* kdi_describe(kdi_handle_t handle);

// Blocks an address. `record` is a kdi_blacklist_s and stays the caller's. A handle that was closed
// gives EBADF. A capture drops the address's later packets, on its own clock, until the time is
// over. nflog puts the address into the kernel's set. The longest of several blocks stands.
// ECANCELED: the address is never blocked (loopback, 0.0.0.0/8, the host's own, allowed);
// kdi_get_error says which. EPERM: the process may not change the set. ENOENT: there is no such
// set; the block is kept and takes effect when the set is there. Other values are the kernel's.
KDI_API int kdi_add_blacklist(kdi_handle_t handle, const void* record);
// Records that kdi_add_blacklist got since the last call: copies at most `capacity` of the oldest
// and returns how many; the others stay.
KDI_API unsigned int kdi_take_blacklist(kdi_handle_t handle, kdi_blacklist_s* records,
                                        unsigned int capacity);

// Copies at most `capacity` of the blocks that are in force, in the order of their addresses, and
// returns how many there are.
KDI_API unsigned int kdi_list_blocks(kdi_handle_t handle, kdi_block_s* blocks,
                                     unsigned int capacity);
// Lifts a block. ENOENT: the address is not blocked.
KDI_API int kdi_unblock(kdi_handle_t handle, uint32_t ipv4_addr);
// Brings back blocks that were listed earlier: all in one change of the kernel's set. Addresses
// that are never blocked are left out and counted; kdi_take_blacklist tells nothing of restored
// blocks.
KDI_API int kdi_restore_blocks(kdi_handle_t handle, const kdi_block_s* blocks, unsigned int count);
}
