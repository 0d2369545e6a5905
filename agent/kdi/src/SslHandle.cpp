#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include "Handle.h"
#include "NullSource.h"
#include "kdi/ssl.h"
#include "kdi/testing.h"

using Kdi::OpenHandles;
using Kdi::SslExchange;

namespace {

std::atomic<unsigned int> s_FailOpen{0};
std::atomic<unsigned int> s_FailResponse{0};

thread_local std::string s_OpenFailure;

// Takes one off the count of failures that a test asked for.
bool TakeFailure(std::atomic<unsigned int>& count) {
    unsigned int left = count;
    while (left != 0 && !count.compare_exchange_weak(left, left - 1))
        continue;
    return left != 0;
}

// Notes the error of a call on an open handle.
int Fail(kdi_handle_t handle, int error, const char* text) {
    handle->failure = text;
    return error;
}

int RegisterEvent(kdi_handle_t handle, int kind, unsigned long event) {
    if (kind != KDI_EVENT_SSL_REQUEST) return Fail(handle, EINVAL, "unknown kind of event");
    if (event > INT_MAX) return Fail(handle, EBADF, "the event is no file descriptor");
    const int descriptor = static_cast<int>(event);
    if (descriptor != 0) {
        const int flags = fcntl(descriptor, F_GETFL);
        if (flags < 0) return Fail(handle, EBADF, "the event is no file descriptor");
        if ((flags & O_NONBLOCK) == 0) return Fail(handle, EINVAL, "the event would block");
    }
    SslExchange::Get().SetEvent(handle, descriptor);
    return 0;
}

int TakeRequest(kdi_handle_t handle, ssl_request_st& request, unsigned char*& data,
                unsigned int& dataLen) {
    if (!SslExchange::Get().Take(handle->wakeNumber, handle->request))
        return Fail(handle, ECANCELED, "the readers of SSL requests were told to leave");
    request = handle->request.header;
    data = handle->request.data.data();
    dataLen = static_cast<unsigned int>(handle->request.data.size());
    return 0;
}

bool IsWhole(const ssl_response_st* response, unsigned int size) {
    if (!response || size < sizeof *response) return false;
    uint32_t dataLen;
    std::memcpy(&dataLen, response, sizeof dataLen);
    return dataLen == size - sizeof *response;
}

int Respond(kdi_handle_t handle, const ssl_response_st* response, unsigned int size) {
    if (TakeFailure(s_FailResponse)) return Fail(handle, EIO, "failure asked for by a test");
    if (!IsWhole(response, size)) return Fail(handle, EINVAL, "the response's sizes disagree");
    SslExchange::Get().Answer(reinterpret_cast<const uint8_t*>(response), size);
    return 0;
}

// Runs `operation` on an open handle; no exception leaves it.
template <class Operation>
int OnOpen(kdi_handle_t handle, Operation operation) {
    try {
        return OpenHandles::Get().Has(handle) ? operation() : EBADF;
    } catch (const std::exception&) {
        return ENOMEM;
    }
}

}  // namespace

namespace Kdi {

const char* OpenFailure() {
    return s_OpenFailure.c_str();
}

}  // namespace Kdi

kdi_handle_t kdi_open() {
    try {
        if (!TakeFailure(s_FailOpen)) return Kdi::NewHandle(std::make_unique<Kdi::NullSource>());
        s_OpenFailure = "failure asked for by a test";
    } catch (const std::exception& exception) {
        s_OpenFailure = exception.what();
    }
    return nullptr;
}

int kdi_register_event(kdi_handle_t handle, int kind, unsigned long event) {
    return OnOpen(handle, [&] { return RegisterEvent(handle, kind, event); });
}

int kdi_get_ssl_request(kdi_handle_t handle, ssl_request_st* request, unsigned char** data,
                        unsigned int* data_len) {
    if (!request || !data || !data_len) return EINVAL;
    return OnOpen(handle, [&] { return TakeRequest(handle, *request, *data, *data_len); });
}

int kdi_ssl_response(kdi_handle_t handle, const ssl_response_st* response, unsigned int size) {
    return OnOpen(handle, [&] { return Respond(handle, response, size); });
}

void kdi_wake_ssl_readers() {
    SslExchange::Get().WakeReaders();
}

void kdi_get_ssl_statistics(kdi_ssl_statistics_s* statistics) {
    *statistics = SslExchange::Get().Statistics();
}

void kdi_testing_fail_open(unsigned int count) {
    s_FailOpen = count;
}

void kdi_testing_fail_ssl_response(unsigned int count) {
    s_FailResponse = count;
}

int kdi_testing_post_ssl_request(const ssl_request_st* request, const void* data,
                                 unsigned int data_len) {
    try {
        Kdi::SslRequest copy;
        std::memcpy(&copy.header, request, sizeof copy.header);
        const auto* bytes = static_cast<const uint8_t*>(data);
        copy.data.assign(bytes, bytes + data_len);
        return SslExchange::Get().Post(std::move(copy)) ? 0 : ENOBUFS;
    } catch (const std::exception&) {
        return ENOBUFS;
    }
}

void kdi_testing_keep_ssl_responses(int on) {
    SslExchange::Get().KeepResponses(on != 0);
}

unsigned int kdi_testing_take_ssl_response(void* buffer, unsigned int capacity) {
    return static_cast<unsigned int>(
        SslExchange::Get().TakeResponse(static_cast<uint8_t*>(buffer), capacity));
}
