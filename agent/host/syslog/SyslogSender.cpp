#include "SyslogSender.h"

#include "SyslogWorker.h"

namespace {

// What the thread may need to come back from whatever it does; only a look-up takes longer.
constexpr std::chrono::seconds kGrace(1);

}  // namespace

SyslogSender::SyslogSender(const SyslogTarget& target, size_t limit)
    : m_Queue(std::make_shared<SyslogQueue>(target.text, limit)),
      m_Thread([queue = m_Queue, target] { SyslogWorker(*queue, target).Run(); }) {}

void SyslogSender::Close(std::chrono::milliseconds time) {
    if (!m_Thread.joinable()) return;
    const auto deadline = SyslogQueue::Clock::now() + time;
    m_Queue->Close(deadline);
    if (m_Queue->WaitForEnd(deadline + kGrace)) {
        m_Thread.join();
    } else {
        // It hangs in the resolver, shares nothing but the queue, and ends when it comes back.
        m_Thread.detach();
    }
}
