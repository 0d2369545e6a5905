#pragma once

#include <poll.h>

#include <cstddef>
#include <utility>
#include <vector>

#include "kdi/kdi.h"

// Takes entries from several sources in turn, so that a busy one does not starve the others.
class SourceRound {
public:
    struct Result {
        kdi_next_result result;
        kdi_handle_t handle;  // whose result it is; null for a time-out
        const kdi_entry_s* entry;
    };

    // The handles stay the caller's, and stay open while they are here.
    void Set(std::vector<kdi_handle_t> handles) { m_Handles = std::move(handles); }
    // The next entry, or KDI_TIMEOUT if there is none now. A source that has ended or failed is
    // told once and asked no more.
    Result Next();
    // Appends what becomes readable when there may be an entry.
    void AppendDescriptors(std::vector<pollfd>& descriptors) const;

private:
    Result Ask(size_t index);

    std::vector<kdi_handle_t> m_Handles;
    size_t m_Turn = 0;  // whom to ask first
};
