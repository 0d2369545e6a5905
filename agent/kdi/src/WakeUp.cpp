#include "WakeUp.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace Kdi {

WakeUp::WakeUp() : m_Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_Descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "cannot make a wake-up");
}

WakeUp::~WakeUp() {
    close(m_Descriptor);
}

// A handler's interrupted code must not see another errno.
void WakeUp::Raise() const {
    const int kept = errno;
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_Descriptor, &one, sizeof one);
    errno = kept;
}

bool WakeUp::Take() const {
    uint64_t count = 0;
    return read(m_Descriptor, &count, sizeof count) == sizeof count;
}

}  // namespace Kdi
