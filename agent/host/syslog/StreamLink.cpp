#include "StreamLink.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace {

// More than a receiver's buffer holds with the system's usual limits.
constexpr size_t kMaxKept = 4u << 20;
constexpr std::chrono::seconds kMoment(1);
// Reads at a time: what a receiver sends without end must not keep messages from it.
constexpr int kMostReads = 16;

}  // namespace

void StreamLink::Open(Socket socket) {
    m_Socket = std::move(socket);
    m_Written = 0;
    m_IsFinishing = false;
}

void StreamLink::Give(std::string message) {
    Frame frame;
    frame.bytes = std::to_string(message.size()) + " ";
    frame.bytes += message;
    m_Frames.push_back(std::move(frame));
    ++m_Uncounted;
    m_IsFinished = false;
}

uint64_t StreamLink::Held() const {
    return m_Uncounted;
}

SyslogLink::Result StreamLink::Step(std::string& why) {
    bool isBlocked = false;
    // A stream that the receiver has closed takes bytes all the same, and loses them.
    if (!IsPeerThere(why) || !WriteFrames(why, isBlocked)) return Lost;
    NoteArrivals();
    Forget();
    return isBlocked ? Blocked : Ready;
}

// Receivers have nothing to send: what is readable is the stream's end.
bool StreamLink::IsPeerThere(std::string& why) {
    char ignored[16384];
    ssize_t got = 1;
    for (int reads = 0; got > 0 && reads < kMostReads; ++reads) {
        got = recv(m_Socket.Get(), ignored, sizeof(ignored), MSG_DONTWAIT);
    }
    if (got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR))) return true;
    why = got == 0 ? "the receiver has closed the connection" : strerror(errno);
    if (got == 0) NoteArrivals();
    m_IsFinished = got == 0 && m_IsFinishing;
    Lose(got == 0);
    return false;
}

bool StreamLink::WriteFrames(std::string& why, bool& isBlocked) {
    while (m_Next < m_Frames.size()) {
        Frame& frame = m_Frames[m_Next];
        const ssize_t sent = send(m_Socket.Get(), frame.bytes.data() + m_Offset,
                                  frame.bytes.size() - m_Offset, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0 && errno == EAGAIN) {
            isBlocked = true;
            return true;
        }
        if (sent < 0) {
            why = strerror(errno);
            // A broken pipe: the receiver's end of the stream came before the reset.
            Lose(errno == EPIPE);
            return false;
        }
        m_Offset += static_cast<size_t>(sent);
        m_Written += static_cast<size_t>(sent);
        if (m_Offset < frame.bytes.size()) continue;
        frame.end = m_Written;
        m_Offset = 0;
        ++m_Next;
    }
    return true;
}

// What the receiver's system has acknowledged has left the socket's own queue.
void StreamLink::NoteArrivals() {
    int waiting = 0;
    if (m_Arrived == m_Next || ioctl(m_Socket.Get(), SIOCOUTQ, &waiting) != 0) return;
    const uint64_t acknowledged = m_Written - static_cast<unsigned int>(waiting);
    const Clock::time_point now = Clock::now();
    for (; m_Arrived < m_Next && m_Frames[m_Arrived].end <= acknowledged; ++m_Arrived) {
        Frame& frame = m_Frames[m_Arrived];
        frame.arrived = now;
        m_ArrivedBytes += frame.bytes.size();
        if (frame.isCounted) continue;
        frame.isCounted = true;
        ++m_Sent;
        --m_Uncounted;
    }
}

void StreamLink::Forget() {
    while (m_Arrived > 0 && m_ArrivedBytes > kMaxKept) {
        m_ArrivedBytes -= m_Frames.front().bytes.size();
        m_Frames.pop_front();
        --m_Arrived;
        --m_Next;
    }
}

void StreamLink::Lose(bool inOrder) {
    const Clock::time_point old = Clock::now() - kMoment;
    while (m_Arrived > 0 && (m_IsFinished || (inOrder && m_Frames.front().arrived < old))) {
        m_Frames.pop_front();
        --m_Arrived;
    }
    m_Arrived = 0;
    m_ArrivedBytes = 0;
    m_Next = 0;
    m_Offset = 0;
    m_Socket.Close();
}

// The receiver answers the end of our stream with its own once it has read everything.
bool StreamLink::Finish() {
    if (!m_Socket.IsOpen()) return m_IsFinished || m_Frames.empty();
    if (!m_IsFinishing && m_Arrived == m_Frames.size()) {
        shutdown(m_Socket.Get(), SHUT_WR);
        m_IsFinishing = true;
    }
    return false;
}
