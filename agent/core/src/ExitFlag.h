#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace VelmCore {

// Set once, when the shutdown begins. Any thread.
class ExitFlag {
public:
    void Set() {
        {
            std::lock_guard<std::mutex> lock(m_Mutex);
            m_Set = true;
        }
        m_Changed.notify_all();
    }

    bool Wait(std::chrono::milliseconds atMost) const {
        if (m_Set || atMost.count() == 0) return m_Set;
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Changed.wait_for(lock, atMost, [this] { return m_Set.load(); });
    }

private:
    mutable std::mutex m_Mutex;
    mutable std::condition_variable m_Changed;
    std::atomic<bool> m_Set{false};  // written under m_Mutex
};

}  // namespace VelmCore
