#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "SyslogQueue.h"
#include "SyslogTarget.h"

// Sends messages to one target on a thread of its own. Used by one thread.
class SyslogSender {
public:
    // `limit` messages at most wait in the queue.
    SyslogSender(const SyslogTarget& target, size_t limit);
    ~SyslogSender() { Close(std::chrono::milliseconds(0)); }
    SyslogSender(const SyslogSender&) = delete;
    SyslogSender& operator=(const SyslogSender&) = delete;

    // See SyslogQueue.
    bool Post(std::string message) { return m_Queue->Put(std::move(message)); }
    bool PostWaiting(std::string message, const std::function<bool()>& stop) {
        return m_Queue->PutWaiting(std::move(message), stop);
    }
    SyslogStatistics Statistics() const { return m_Queue->Statistics(); }
    // Sends what is queued, for at most this long. Messages that are left count as dropped.
    void Close(std::chrono::milliseconds time);

private:
    std::shared_ptr<SyslogQueue> m_Queue;
    std::thread m_Thread;
};
