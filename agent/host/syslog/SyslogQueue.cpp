#include "SyslogQueue.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <wx/log.h>
#include <wx/string.h>

namespace {

constexpr std::chrono::seconds kPatience(30);
constexpr std::chrono::minutes kWarningPause(1);
// How often a waiting writer looks whether it shall stop.
constexpr std::chrono::milliseconds kSlice(100);

Socket MakeWake() {
    Socket wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake.IsOpen()) throw std::system_error(errno, std::generic_category(), "eventfd");
    return wake;
}

}  // namespace

SyslogQueue::SyslogQueue(std::string target, size_t limit)
    : m_Target(std::move(target)), m_Limit(limit), m_Wake(MakeWake()) {}

void SyslogQueue::Wake() const {
    const uint64_t one = 1;
    // Fails only when the counter is full, and then the descriptor is readable anyway.
    [[maybe_unused]] const ssize_t written = write(m_Wake.Get(), &one, sizeof(one));
}

void SyslogQueue::ClearWake() const {
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = read(m_Wake.Get(), &count, sizeof(count));
}

// Told from time to time only: a queue that is full is so again and again.
bool SyslogQueue::DropLocked() {
    ++m_Counts.dropped;
    const Clock::time_point now = Clock::now();
    if (m_IsClosed || now < m_NextWarning) return false;
    m_NextWarning = now + kWarningPause;
    wxLogWarning("syslog %s: the queue of %zu messages is full; messages are dropped",
                 wxString::FromUTF8(m_Target), m_Limit);
    return false;
}

void SyslogQueue::PushLocked(std::string message) {
    m_IsHopeless = false;
    m_Messages.push_back(std::move(message));
    if (m_Messages.size() == 1) Wake();
}

bool SyslogQueue::Put(std::string message) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_IsClosed || m_Messages.size() >= m_Limit) return DropLocked();
    PushLocked(std::move(message));
    return true;
}

bool SyslogQueue::PutWaiting(std::string message, const std::function<bool()>& stop) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    size_t least = m_Messages.size();
    auto giveUp = Clock::now() + kPatience;
    while (!m_IsClosed && m_Messages.size() >= m_Limit && !m_IsHopeless && !stop()) {
        m_Room.wait_for(lock, kSlice);
        if (m_Messages.size() < least) giveUp = Clock::now() + kPatience;
        least = m_Messages.size();
        m_IsHopeless = Clock::now() >= giveUp;
    }
    if (m_IsClosed || m_Messages.size() >= m_Limit) return DropLocked();
    PushLocked(std::move(message));
    return true;
}

SyslogStatistics SyslogQueue::Statistics() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    SyslogStatistics counts = m_Counts;
    counts.queued = m_Messages.size() + m_Held;
    return counts;
}

void SyslogQueue::Close(Clock::time_point deadline) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_IsClosed = true;
    m_Deadline = std::min(m_Deadline, deadline);
    Wake();
}

bool SyslogQueue::WaitForEnd(Clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Ended.wait_until(lock, deadline, [this] { return m_IsEnded; });
    if (!m_IsEnded) {
        m_IsAbandoned = true;
        m_Counts.dropped += m_Messages.size() + m_Held;
        m_Messages.clear();
        m_Held = 0;
    }
    return m_IsEnded;
}

bool SyslogQueue::Take(std::string& message) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Messages.empty()) return false;
    message = std::move(m_Messages.front());
    m_Messages.pop_front();
    ++m_Held;
    m_Room.notify_one();
    return true;
}

bool SyslogQueue::IsClosed() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_IsClosed;
}

bool SyslogQueue::IsOver() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_IsAbandoned || (m_IsClosed && Clock::now() >= m_Deadline);
}

std::chrono::milliseconds SyslogQueue::Limit(std::chrono::milliseconds most) const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_IsClosed) return most;
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(m_Deadline - Clock::now());
    return std::max(std::chrono::milliseconds(0), std::min(most, left));
}

void SyslogQueue::Account(uint64_t sent, uint64_t dropped, uint64_t held) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_IsAbandoned) return;
    m_Counts.sent += sent;
    m_Counts.dropped += dropped;
    m_Held = held;
}

void SyslogQueue::CountReconnect() {
    std::lock_guard<std::mutex> lock(m_Mutex);
    ++m_Counts.reconnects;
}

void SyslogQueue::End() {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_IsAbandoned) m_Counts.dropped += m_Messages.size() + m_Held;
    m_Messages.clear();
    m_Held = 0;
    m_IsClosed = true;
    m_IsEnded = true;
    m_Room.notify_all();
    m_Ended.notify_all();
}

// The lock is held, so that a thread that is left behind does not log while the log goes away.
void SyslogQueue::Warn(const std::string& text) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_IsAbandoned) return;
    wxLogWarning("syslog %s: %s", wxString::FromUTF8(m_Target), wxString::FromUTF8(text));
}

void SyslogQueue::Note(const std::string& text) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_IsAbandoned) return;
    wxLogMessage("syslog %s: %s", wxString::FromUTF8(m_Target), wxString::FromUTF8(text));
}
