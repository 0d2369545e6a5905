#pragma once

#include <cstddef>
#include <cstdint>

#include "kdi/kdi.h"

// How the encrypted pre-master secrets of inspected handshakes reach whoever holds the servers'
// keys, and how the decrypted ones come back. Numbers are little-endian, as the host's are. Any
// handle of the process may answer any request; a handle is used by one thread at a time.

#pragma pack(push, 1)

// One encrypted pre-master secret, whose bytes travel beside it.
struct ssl_request_st {
    uint32_t preMasterLen;       // bytes; includes the two-byte length prefix under TLS
    int32_t sslConfigurationId;  // of the SSLHostConfiguration that names the key
    uint8_t connectionContext[52];
    uint32_t keyExchangeMethod;
    uint16_t protocolVersion;  // the two version bytes in wire order: major, minor
    uint8_t reserved[6];
};

// The answer. A record takes 60 + dataLen bytes: the decrypted secret stands at `data`, and four
// zero bytes behind it. dataLen 0 says that the request failed.
struct ssl_response_st {
    uint32_t dataLen;  // bytes
    uint8_t connectionContext[52];
    uint8_t data[4];
};

#pragma pack(pop)

static_assert(sizeof(ssl_request_st) == 72, "SSL request");
static_assert(offsetof(ssl_request_st, preMasterLen) == 0);
static_assert(offsetof(ssl_request_st, sslConfigurationId) == 4);
static_assert(offsetof(ssl_request_st, connectionContext) == 8);
static_assert(offsetof(ssl_request_st, keyExchangeMethod) == 60);
static_assert(offsetof(ssl_request_st, protocolVersion) == 64);
static_assert(offsetof(ssl_request_st, reserved) == 66);
static_assert(sizeof(ssl_response_st) == 60, "SSL response");
static_assert(offsetof(ssl_response_st, connectionContext) == 4);
static_assert(offsetof(ssl_response_st, data) == 56);

// keyExchangeMethod
enum : uint32_t { SSL_KEY_EXCHANGE_RSA = 1 };

// Kinds of event.
enum { KDI_EVENT_SSL_REQUEST = 1 };

// What has gone through the exchange since the process began.
struct kdi_ssl_statistics_s {
    uint64_t posted;     // requests that were queued
    uint64_t dropped;    // requests that the queue had no room for
    uint64_t taken;      // requests that a reader got
    uint64_t answered;   // responses with a secret
    uint64_t failed;     // responses without one
    uint64_t unclaimed;  // responses, of either kind, that nobody waited for any more
};

extern "C" {

// A new handle, null on failure; kdi_get_error with a null handle then has the calling thread's
// reason. kdi_close closes it. It never has a log entry.
KDI_API kdi_handle_t kdi_open(void);

// Has one added to the counter of an eventfd whenever a request is posted, until the handle is
// closed. `event` is the descriptor; it must be non-blocking and stays the caller's, to be closed
// after the handle. One for a handle: a later call replaces it, 0 takes it back. `kind` is
// KDI_EVENT_SSL_REQUEST.
KDI_API int kdi_register_event(kdi_handle_t handle, int kind, unsigned long event);

// Waits for a request and takes it. `data` and `data_len` (bytes) get what travels beside it; the
// memory stays the handle's, until the next call on it. ECANCELED, and no more waiting on this
// handle, once kdi_wake_ssl_readers was called after the handle was opened.
KDI_API int kdi_get_ssl_request(kdi_handle_t handle, ssl_request_st* request, unsigned char** data,
                                unsigned int* data_len);

// Hands an answer to whoever posted the request with this connection context. `size`: the whole
// record's, in bytes. An answer that nobody waits for any more is no error.
KDI_API int kdi_ssl_response(kdi_handle_t handle, const ssl_response_st* response,
                             unsigned int size);

// For the host: ends every kdi_get_ssl_request that waits, and the waiting of every handle that is
// open now. To be called after whatever tells the readers to leave has been set. Handles that are
// opened later wait as usual. Any thread.
KDI_API void kdi_wake_ssl_readers(void);

// Any thread.
KDI_API void kdi_get_ssl_statistics(kdi_ssl_statistics_s* statistics);
}
