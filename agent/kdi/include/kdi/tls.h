#pragma once

#include <cstdint>

#include "kdi/kdi.h"

// Takes the encrypted pre-master secrets out of the TLS handshakes of chosen servers, posts them to
// the readers of SSL requests (kdi/ssl.h), and notes the decrypted ones in a key log. Watches only:
// the traffic is not touched.

struct kdi_tls_s;
typedef kdi_tls_s* kdi_tls_t;

struct kdi_tls_server_s {
    const char* address;         // IPv4 or IPv6
    uint16_t port;               // host byte order
    int32_t host_configuration;  // id of the SSLHostConfiguration that names the server's key
};

struct kdi_tls_options_s {
    const char* source = nullptr;  // "pcap:FILE" or "interface:NAME"
    const kdi_tls_server_s* servers = nullptr;
    unsigned int server_count = 0;
    const char* key_log = nullptr;  // file; null: none
    // How long the whole may go without an answer to the requests that wait.
    unsigned int answer_timeout_msec = 30000;
};

struct kdi_tls_statistics_s {
    uint64_t packets;      // TCP segments of the servers
    uint64_t connections;  // on which a client sent something
    uint64_t handshakes;   // that began with a ClientHello

    // What the handshakes came to.
    uint64_t rsa;         // RSA key exchange
    uint64_t resumed;     // with the keys of an earlier connection
    uint64_t other;       // key exchanges of other kinds; kdi_tls_get_other names them
    uint64_t incomplete;  // ended before the keys were agreed on, or not wholly seen
    uint64_t malformed;

    // What the RSA key exchanges came to. The rest waits for its answer.
    uint64_t decrypted;
    uint64_t failed;      // the key was not there, or did not fit
    uint64_t unanswered;  // no answer in time
    uint64_t dropped;     // not posted for lack of room

    uint64_t key_log_failures;  // decrypted secrets that could not be noted
    uint64_t renegotiations;    // handshakes behind a connection's first: encrypted, not followed
    uint64_t not_tls;           // connections that speak something else
    uint64_t gaps;              // connections given up since segments are missing
    uint64_t evicted;           // connections given up for lack of room
    uint64_t fragments;         // IP fragments of TCP, which are not put together
    uint64_t lost;              // packets that the kernel had no room for; interface only
};

// Results of kdi_tls_wait.
enum kdi_tls_state { KDI_TLS_RUNNING = 0, KDI_TLS_DONE = 1, KDI_TLS_FAILED = 2 };

extern "C" {

// Opens the source, makes or opens the key log, and begins to read on a thread of its own. Null on
// failure, with the reason, naming the thing, in `error` (terminated, cut to `error_size`). What
// `options` points to is not kept.
KDI_API kdi_tls_t kdi_tls_open(const kdi_tls_options_s* options, char* error,
                               unsigned int error_size);
// Ends the reading; answers that come later are nobody's.
KDI_API void kdi_tls_close(kdi_tls_t tls);

// The rest may be called on any thread.

// Waits at most `timeout_msec` for the end: a capture was read and its requests were answered or
// given up (DONE), or the source cannot be read any more (FAILED). An interface never is DONE.
KDI_API kdi_tls_state kdi_tls_wait(kdi_tls_t tls, unsigned int timeout_msec);
// Why the source FAILED, else "".
KDI_API void kdi_tls_get_error(kdi_tls_t tls, char* buffer, unsigned int size);
KDI_API void kdi_tls_get_statistics(kdi_tls_t tls, kdi_tls_statistics_s* statistics);
// The name of the kind of key exchange with this index, from 0, and how many handshakes had it;
// null behind the last. The name stays valid.
KDI_API const char* kdi_tls_get_other(kdi_tls_t tls, unsigned int index, uint64_t* count);
}
