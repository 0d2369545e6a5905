#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "SyslogLink.h"
#include "SyslogQueue.h"
#include "SyslogTarget.h"

// What the sender's thread does: takes messages from the queue, connects when there is something to
// send, and tries again with growing pauses when it fails.
class SyslogWorker {
public:
    SyslogWorker(SyslogQueue& queue, const SyslogTarget& target);

    // Returns when the queue is closed and everything has arrived, or when its deadline has passed.
    void Run();

private:
    using Clock = SyslogQueue::Clock;

    bool IsDone();
    bool FillLink();
    void Connect();
    void Work();
    void Fail(const std::string& why);
    void Pause();
    void Account();
    bool Wait(int descriptor, short events, std::chrono::milliseconds most);

    SyslogQueue& m_Queue;
    const SyslogTarget m_Target;
    const std::unique_ptr<SyslogLink> m_Link;
    std::chrono::milliseconds m_Delay;
    Clock::time_point m_Connected{};
    Clock::time_point m_Finishing = Clock::time_point::max();
    bool m_WasConnected = false;
    bool m_IsFailing = false;  // has been told
};
