#include <exception>
#include <memory>
#include <string>

#include "Handle.h"
#include "TlsSource.h"
#include "kdi/tls.h"

struct kdi_tls_s {
    std::unique_ptr<Kdi::TlsSource> source;
};

// No exception leaves an operation: the callers are C.

kdi_tls_t kdi_tls_open(const kdi_tls_options_s* options, char* error, unsigned int error_size) {
    Kdi::CopyText("", error, error_size);
    try {
        std::string reason;
        auto tls = std::make_unique<kdi_tls_s>();
        tls->source = Kdi::TlsSource::Open(*options, reason);
        if (tls->source) return tls.release();
        Kdi::CopyText(reason.c_str(), error, error_size);
    } catch (const std::exception& exception) {
        Kdi::CopyText(exception.what(), error, error_size);
    }
    return nullptr;
}

void kdi_tls_close(kdi_tls_t tls) {
    delete tls;
}

kdi_tls_state kdi_tls_wait(kdi_tls_t tls, unsigned int timeout_msec) {
    return tls->source->Wait(timeout_msec);
}

void kdi_tls_get_error(kdi_tls_t tls, char* buffer, unsigned int size) {
    try {
        Kdi::CopyText(tls->source->Error().c_str(), buffer, size);
    } catch (const std::exception& exception) {
        Kdi::CopyText(exception.what(), buffer, size);
    }
}

void kdi_tls_get_statistics(kdi_tls_t tls, kdi_tls_statistics_s* statistics) {
    tls->source->GetStatistics(*statistics);
}

const char* kdi_tls_get_other(kdi_tls_t tls, unsigned int index, uint64_t* count) {
    return tls->source->Other(index, *count);
}
