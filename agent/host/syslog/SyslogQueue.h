#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "Socket.h"

// Counts since the beginning, but for `queued`: messages that have been taken and not yet sent.
struct SyslogStatistics {
    uint64_t sent = 0;
    uint64_t dropped = 0;
    uint64_t queued = 0;
    uint64_t reconnects = 0;  // connections made after one was lost
};

// What the thread that writes messages and the one that sends them share: a bounded queue, the
// counts, and the way to an end. Locks itself.
class SyslogQueue {
public:
    using Clock = std::chrono::steady_clock;

    SyslogQueue(std::string target, size_t limit);

    // The writer's side. Both return false if the message was dropped, which is counted. The first
    // never waits. The second waits while the queue is full, though not for a receiver that takes
    // nothing for half a minute, and not once `stop` says so.
    bool Put(std::string message);
    bool PutWaiting(std::string message, const std::function<bool()>& stop);
    SyslogStatistics Statistics() const;
    // No message is taken from now on; the sender goes on until the deadline.
    void Close(Clock::time_point deadline);
    // Waits for the sender's end. False if it has not come by then; whatever the sender does later
    // goes unheard.
    bool WaitForEnd(Clock::time_point deadline);

    // The sender's side.
    bool Take(std::string& message);
    bool IsClosed() const;
    bool IsOver() const;  // closed, and the deadline has passed
    // Time left until the deadline, at most `most`.
    std::chrono::milliseconds Limit(std::chrono::milliseconds most) const;
    // `held` messages have been taken off and are not known to have arrived.
    void Account(uint64_t sent, uint64_t dropped, uint64_t held);
    void CountReconnect();
    // The sender will do nothing more. What is left counts as dropped.
    void End();
    // A line for the log, unless nobody listens any more.
    void Warn(const std::string& text);
    void Note(const std::string& text);

    // Readable after Put and Close until ClearWake.
    int WakeDescriptor() const { return m_Wake.Get(); }
    void ClearWake() const;

private:
    void Wake() const;
    bool DropLocked();
    void PushLocked(std::string message);

    const std::string m_Target;
    const size_t m_Limit;
    const Socket m_Wake;

    mutable std::mutex m_Mutex;
    std::condition_variable m_Room;
    std::condition_variable m_Ended;
    // Guarded by m_Mutex.
    std::deque<std::string> m_Messages;
    SyslogStatistics m_Counts;
    uint64_t m_Held = 0;
    Clock::time_point m_NextWarning{};
    Clock::time_point m_Deadline = Clock::time_point::max();
    bool m_IsClosed = false;
    bool m_IsEnded = false;
    bool m_IsAbandoned = false;
    bool m_IsHopeless = false;  // a writer has waited in vain
};
