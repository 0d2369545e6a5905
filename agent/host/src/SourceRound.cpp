#include "SourceRound.h"

SourceRound::Result SourceRound::Next() {
    for (size_t asked = 0; asked < m_Handles.size(); ++asked) {
        const Result result = Ask(m_Turn % m_Handles.size());
        if (result.result != KDI_TIMEOUT) return result;
    }
    return {KDI_TIMEOUT, nullptr, nullptr};
}

SourceRound::Result SourceRound::Ask(size_t index) {
    const kdi_handle_t handle = m_Handles[index];
    m_Turn = index + 1;
    kdi_entry_s* entry = nullptr;
    const kdi_next_result result = kdi_next_entry(handle, 0, &entry);
    if (result == KDI_TIMEOUT) return {result, nullptr, nullptr};
    if (result != KDI_ENTRY) {
        m_Handles.erase(m_Handles.begin() + static_cast<std::ptrdiff_t>(index));
        m_Turn = index;
    }
    return {result, handle, entry};
}

void SourceRound::AppendDescriptors(std::vector<pollfd>& descriptors) const {
    for (const kdi_handle_t handle : m_Handles) {
        const int descriptor = kdi_descriptor(handle);
        if (descriptor >= 0) descriptors.push_back({descriptor, POLLIN, 0});
    }
}
