#pragma once

#include <wx/string.h>

#include "kdi/ssl.h"

namespace OSTREL {

// Closes a driver handle at the end of a scope.
class DriverHandle {
public:
    explicit DriverHandle(kdi_handle_t handle) : m_Handle(handle) {}
    ~DriverHandle() { kdi_close(m_Handle); }
    DriverHandle(const DriverHandle&) = delete;
    DriverHandle& operator=(const DriverHandle&) = delete;

private:
    const kdi_handle_t m_Handle;
};

// The text of the handle's last error; of the thread's last kdi_open that failed for a null handle.
inline wxString DriverError(kdi_handle_t handle) {
    char text[128] = "";
    kdi_get_error(handle, text, sizeof text);
    return wxString::FromUTF8(text);
}

}  // namespace OSTREL
