#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "Blacklist.h"
#include "Source.h"
#include "SslExchange.h"
#include "kdi/kdi.h"

// What the opaque word points to.
struct kdi_handle_ops_s {
    std::unique_ptr<Kdi::Source> source;
    Kdi::BlacklistRecords blacklist;
    kdi_entry_s entry;
    std::string failure;      // of the last failed call; of a source's, only an exception's text
    Kdi::SslRequest request;  // the one that its reader works on
    uint64_t wakeNumber;      // of the SSL exchange, when the handle was opened
};

namespace Kdi {

// The open handles. The module keeps a handle that its script may close, so an operation that can
// do harm must not trust it.
class OpenHandles {
public:
    static OpenHandles& Get();

    void Add(kdi_handle_t handle);
    void Remove(kdi_handle_t handle);
    bool Has(kdi_handle_t handle);

private:
    std::mutex m_Mutex;
    std::set<kdi_handle_t> m_Handles;
};

// A registered handle on the source.
kdi_handle_t NewHandle(std::unique_ptr<Source> source);

void CopyText(const char* text, char* buffer, unsigned int size);

// Why the calling thread's last kdi_open failed; "" if none did.
const char* OpenFailure();

}  // namespace Kdi
