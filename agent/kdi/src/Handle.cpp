#include "Handle.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>
#include <vector>

#include "kdi/testing.h"

namespace {

std::atomic<int> s_FailBlacklist{0};

// Entries carry headers only; a reader still gets a pointer that may be read from, for 0 bytes.
const unsigned char s_NoData = 0;

kdi_handle_t Open(const char* source, const kdi_open_options_s* options, std::string& error) {
    if (!source) {
        error = "no source was named";
        return nullptr;
    }
    auto opened = Kdi::OpenSource(source, options ? *options : kdi_open_options_s{}, error);
    return opened ? Kdi::NewHandle(std::move(opened)) : nullptr;
}

int AddBlacklist(kdi_handle_ops_s& handle, const void* bytes) {
    kdi_blacklist_s record;
    std::memcpy(&record, bytes, sizeof record);
    if (record.bl_addr_kind != 4) return EINVAL;
    const int result = handle.source->Block(record);
    if (result == 0) handle.blacklist.Keep(record);
    return result;
}

}  // namespace

namespace Kdi {

OpenHandles& OpenHandles::Get() {
    static OpenHandles handles;
    return handles;
}

void OpenHandles::Add(kdi_handle_t handle) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Handles.insert(handle);
}

void OpenHandles::Remove(kdi_handle_t handle) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Handles.erase(handle);
}

bool OpenHandles::Has(kdi_handle_t handle) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Handles.count(handle) != 0;
}

kdi_handle_t NewHandle(std::unique_ptr<Source> source) {
    auto handle = std::make_unique<kdi_handle_ops_s>();
    handle->source = std::move(source);
    handle->entry.packet_data = handle->entry.log_data = &s_NoData;
    handle->entry.packet_data_len = handle->entry.log_data_len = 0;
    handle->wakeNumber = SslExchange::Get().WakeNumber();
    OpenHandles::Get().Add(handle.get());
    return handle.release();
}

void CopyText(const char* text, char* buffer, unsigned int size) {
    if (buffer && size) std::snprintf(buffer, size, "%s", text);
}

}  // namespace Kdi

using Kdi::CopyText;

// No exception leaves an operation: the callers are C.

kdi_handle_t kdi_open_source(const char* source, const kdi_open_options_s* options, char* error,
                             unsigned int error_size) {
    CopyText("", error, error_size);
    try {
        std::string reason;
        kdi_handle_t handle = Open(source, options, reason);
        if (!handle) CopyText(reason.c_str(), error, error_size);
        return handle;
    } catch (const std::exception& exception) {
        CopyText(exception.what(), error, error_size);
        return nullptr;
    }
}

void kdi_close(kdi_handle_t handle) {
    Kdi::SslExchange::Get().SetEvent(handle, 0);
    Kdi::OpenHandles::Get().Remove(handle);
    delete handle;
}

kdi_next_result kdi_next_entry(kdi_handle_t handle, unsigned int timeout_msec,
                               kdi_entry_s** entry) {
    try {
        *entry = &handle->entry;
        return handle->source->Next(timeout_msec, handle->entry.entry);
    } catch (const std::exception& exception) {
        handle->failure = exception.what();
        return KDI_FAILED;
    }
}

void kdi_hold_back(kdi_handle_t handle, int64_t usec) {
    handle->source->HoldBack(usec);
}

void kdi_get_error(kdi_handle_t handle, char* buffer, unsigned int size) {
    if (!handle) return CopyText(Kdi::OpenFailure(), buffer, size);
    const std::string& error = handle->failure.empty() ? handle->source->Error() : handle->failure;
    CopyText(error.c_str(), buffer, size);
}

void kdi_get_statistics(kdi_handle_t handle, kdi_statistics_s* statistics) {
    try {
        handle->source->GetStatistics(*statistics);
    } catch (const std::exception&) {
        *statistics = {};
    }
}

const char* kdi_describe(kdi_handle_t handle) {
    return handle->source->Description().c_str();
}

int kdi_add_blacklist(kdi_handle_t handle, const void* record) {
    const int failure = s_FailBlacklist.exchange(0);
    if (failure != 0) return failure;
    if (!handle || !record) return EINVAL;
    try {
        if (!Kdi::OpenHandles::Get().Has(handle)) return EBADF;
        return AddBlacklist(*handle, record);
    } catch (const std::exception&) {
        return ENOMEM;
    }
}

void kdi_wake(kdi_handle_t handle) {
    handle->source->Wake();
}

int kdi_descriptor(kdi_handle_t handle) {
    return handle->source->Descriptor();
}

bool kdi_take_message(kdi_handle_t handle, char* buffer, unsigned int size) {
    std::string message;
    if (!handle->source->TakeMessage(message)) return false;
    CopyText(message.c_str(), buffer, size);
    return true;
}

unsigned int kdi_list_blocks(kdi_handle_t handle, kdi_block_s* blocks, unsigned int capacity) {
    try {
        const std::vector<kdi_block_s> list = handle->source->ListBlocks();
        std::copy_n(list.begin(), std::min<size_t>(capacity, list.size()), blocks);
        return static_cast<unsigned int>(list.size());
    } catch (const std::exception&) {
        return 0;
    }
}

int kdi_unblock(kdi_handle_t handle, uint32_t ipv4_addr) {
    try {
        return handle->source->Unblock(ipv4_addr);
    } catch (const std::exception&) {
        return ENOMEM;
    }
}

int kdi_restore_blocks(kdi_handle_t handle, const kdi_block_s* blocks, unsigned int count) {
    try {
        return handle->source->RestoreBlocks(blocks, count);
    } catch (const std::exception&) {
        return ENOMEM;
    }
}

unsigned int kdi_take_blacklist(kdi_handle_t handle, kdi_blacklist_s* records,
                                unsigned int capacity) {
    return handle->blacklist.Take(records, capacity);
}

void kdi_testing_fail_blacklist(int error) {
    s_FailBlacklist = error;
}
