#pragma once

#include "kdi/kdi.h"
#include "kdi/ssl.h"

// For tests only: faults that the real driver may show, and the driver's side of the SSL exchange.
extern "C" {

// Lets the next kdi_add_blacklist of the process return `error`, whatever its handle, and keep
// nothing. 0 takes it back.
KDI_API void kdi_testing_fail_blacklist(int error);

// Lets the next `count` calls of kdi_open fail, on whatever thread. 0 takes it back.
KDI_API void kdi_testing_fail_open(unsigned int count);

// Lets the next `count` calls of kdi_ssl_response return EIO and deliver nothing.
KDI_API void kdi_testing_fail_ssl_response(unsigned int count);

// Queues a request as it stands, sound or not. 0, or ENOBUFS if the queue has no room.
KDI_API int kdi_testing_post_ssl_request(const ssl_request_st* request, const void* data,
                                         unsigned int data_len);

// Whether responses are kept for the call below; off at first. Turning it off forgets them.
KDI_API void kdi_testing_keep_ssl_responses(int on);

// The size in bytes of the oldest response kept, 0 if there is none. If `capacity` allows, it is
// copied to `buffer` and forgotten. At most 10,000 are kept, the newest.
KDI_API unsigned int kdi_testing_take_ssl_response(void* buffer, unsigned int capacity);
}
