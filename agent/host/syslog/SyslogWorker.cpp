#include "SyslogWorker.h"

#include <poll.h>

#include <algorithm>

#include "DatagramLink.h"
#include "StreamLink.h"
#include "SyslogConnect.h"
#include "velm/Log.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstDelay(100);
constexpr milliseconds kLongestDelay(5000);
constexpr milliseconds kConnectTime(10000);
// A connection that lived as long was a good one: the next failure is a new one.
constexpr milliseconds kGoodLife(2000);
// How often to ask whether messages have arrived, and to try a socket that poll can't watch.
constexpr milliseconds kAskAgain(20);
constexpr milliseconds kLongWait(60000);
// How long a receiver that has everything may take to close its end.
constexpr milliseconds kFinishTime(2000);

}  // namespace

std::unique_ptr<SyslogLink> MakeSyslogLink(SyslogTarget::Kind kind) {
    if (kind == SyslogTarget::Tcp) return std::make_unique<StreamLink>();
    return std::make_unique<DatagramLink>();
}

SyslogWorker::SyslogWorker(SyslogQueue& queue, const SyslogTarget& target)
    : m_Queue(queue), m_Target(target), m_Link(MakeSyslogLink(target.kind)), m_Delay(kFirstDelay) {}

void SyslogWorker::Run() {
    VelmCore::AttachThreadToLog();
    while (!IsDone()) {
        const bool hasWork = FillLink();
        if (m_Link->Descriptor() >= 0) {
            Work();
        } else if (hasWork) {
            Connect();
        } else if (!m_Queue.IsClosed()) {
            Wait(-1, 0, kLongWait);
        }
    }
    Account();
    m_Queue.End();
}

bool SyslogWorker::IsDone() {
    if (m_Queue.IsOver()) return true;
    if (!m_Queue.IsClosed() || FillLink()) return false;
    if (m_Link->Finish()) return true;
    if (m_Link->Held() > 0) return false;
    m_Finishing = std::min(m_Finishing, Clock::now());
    return Clock::now() - m_Finishing > kFinishTime;
}

// True if there is something to write.
bool SyslogWorker::FillLink() {
    std::string message;
    if (!m_Link->HasWork() && m_Queue.Take(message)) m_Link->Give(std::move(message));
    return m_Link->HasWork();
}

void SyslogWorker::Connect() {
    std::string why;
    // Each address of a name has its own time: the first may be one that nobody answers at.
    const auto wait = [this](int descriptor) {
        const Clock::time_point giveUp = Clock::now() + kConnectTime;
        while (!m_Queue.IsOver() && Clock::now() < giveUp) {
            const auto left = std::chrono::duration_cast<milliseconds>(giveUp - Clock::now());
            if (Wait(descriptor, POLLOUT, left + milliseconds(1))) return true;
        }
        return false;
    };
    Socket socket = ConnectTo(m_Target, wait, why);
    if (!socket.IsOpen()) {
        Fail(why);
        return;
    }
    m_Link->Open(std::move(socket));
    m_Connected = Clock::now();
    if (m_WasConnected) m_Queue.CountReconnect();
    if (m_IsFailing && m_Target.kind == SyslogTarget::Tcp) {
        m_Queue.Note("connected again");
        m_IsFailing = false;
    }
    m_WasConnected = true;
}

void SyslogWorker::Work() {
    std::string why;
    const SyslogLink::Result result = m_Link->Step(why);
    Account();
    if (result == SyslogLink::Lost) {
        if (Clock::now() - m_Connected > kGoodLife) m_Delay = kFirstDelay;
        // A stream that ends when all is sent costs nothing; a datagram was lost in any case.
        if (m_Link->HasWork() || m_Target.kind != SyslogTarget::Tcp) Fail(why);
        return;
    }
    if (result == SyslogLink::Blocked) {
        Wait(m_Link->Descriptor(), POLLIN | POLLOUT, kAskAgain);
    } else if (!FillLink()) {
        const bool soon = m_Link->IsWaiting() || m_Queue.IsClosed();
        Wait(m_Link->Descriptor(), POLLIN, soon ? kAskAgain : kLongWait);
    }
}

// Told once for a row of failures.
void SyslogWorker::Fail(const std::string& why) {
    if (!m_IsFailing) m_Queue.Warn(why + "; trying again");
    m_IsFailing = true;
    Pause();
}

void SyslogWorker::Pause() {
    const Clock::time_point end = Clock::now() + m_Queue.Limit(m_Delay);
    m_Delay = std::min(m_Delay * 2, kLongestDelay);
    while (Clock::now() < end && !m_Queue.IsOver()) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
        Wait(-1, 0, left + milliseconds(1));
    }
}

void SyslogWorker::Account() {
    const uint64_t sent = m_Link->TakeSent();
    m_Queue.Account(sent, m_Link->TakeDropped(), m_Link->Held());
    if (sent > 0 && Clock::now() - m_Connected > kGoodLife) m_IsFailing = false;
}

// True if the descriptor has one of the events, or an error. Ends early when the queue has news.
bool SyslogWorker::Wait(int descriptor, short events, milliseconds most) {
    pollfd watched[] = {{m_Queue.WakeDescriptor(), POLLIN, 0}, {descriptor, events, 0}};
    const auto msec = static_cast<int>(m_Queue.Limit(most).count());
    if (poll(watched, descriptor < 0 ? 1 : 2, msec) <= 0) return false;
    if (watched[0].revents != 0) m_Queue.ClearWake();
    return descriptor >= 0 && watched[1].revents != 0;
}
