#include "Poller.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Kdi {

Poller::Poller() : m_Descriptor(epoll_create1(EPOLL_CLOEXEC)) {
    if (m_Descriptor < 0) throw std::system_error(errno, std::generic_category(), "cannot poll");
}

Poller::~Poller() {
    close(m_Descriptor);
}

void Poller::Add(int descriptor, uint32_t number) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u32 = number;
    if (epoll_ctl(m_Descriptor, EPOLL_CTL_ADD, descriptor, &event) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot poll");
}

bool Poller::Wait(int timeoutMsec, Ready& ready) {
    std::array<epoll_event, 32> events;
    ready = {};
    const int count =
        epoll_wait(m_Descriptor, events.data(), static_cast<int>(events.size()), timeoutMsec);
    if (count < 0 && errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "cannot poll");
    for (int i = 0; i < count; ++i)
        ready.Add(events[static_cast<size_t>(i)].data.u32);
    return count >= 0;
}

}  // namespace Kdi
