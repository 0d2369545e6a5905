#pragma once

#include <chrono>
#include <deque>

#include "SyslogLink.h"

// Messages in a TCP stream, each behind its length in octets and a blank (RFC 6587). A message is
// kept until it is sure enough that the receiver has read it, and written again over the next
// connection otherwise. So a message may arrive twice, but none is lost between receivers:
// - one that the receiver's system has not acknowledged is written again;
// - if the connection was reset, the receiver had not read all that was acknowledged: what may
//   have stood in its buffer is written again as well;
// - if it was closed in order, all acknowledged messages were read; only those of the last moment
//   are written again, since a receiver that was killed may not have handled them.
class StreamLink : public SyslogLink {
public:
    void Open(Socket socket) override;
    int Descriptor() const override { return m_Socket.Get(); }
    bool HasWork() const override { return m_Next < m_Frames.size(); }
    void Give(std::string message) override;
    Result Step(std::string& why) override;
    uint64_t Held() const override;
    bool IsWaiting() const override { return m_Arrived < m_Next || m_IsFinishing; }
    bool Finish() override;

private:
    using Clock = std::chrono::steady_clock;

    struct Frame {
        std::string bytes;
        uint64_t end = 0;        // position in the connection's stream, once written
        bool isCounted = false;  // as sent, over this connection or one before
        Clock::time_point arrived{};
    };

    bool IsPeerThere(std::string& why);
    bool WriteFrames(std::string& why, bool& isBlocked);
    void NoteArrivals();
    void Forget();
    void Lose(bool inOrder);

    Socket m_Socket;
    // Oldest first: [0, m_Arrived) have arrived, [m_Arrived, m_Next) are written.
    std::deque<Frame> m_Frames;
    size_t m_Arrived = 0;
    size_t m_Next = 0;
    size_t m_Offset = 0;  // bytes of frame m_Next that are written
    size_t m_ArrivedBytes = 0;
    size_t m_Uncounted = 0;
    uint64_t m_Written = 0;  // bytes of this connection's stream
    bool m_IsFinishing = false;
    bool m_IsFinished = false;
};
