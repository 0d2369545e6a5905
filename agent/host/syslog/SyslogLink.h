#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Socket.h"
#include "SyslogTarget.h"

// The messages that are on their way over one connection after another, in the form that the
// receiver takes them. Used by the sender's thread only.
class SyslogLink {
public:
    enum Result {
        Ready,    // all is written
        Blocked,  // the socket must become writable first
        Lost,     // the connection is gone; what may not have arrived will be written again
    };

    SyslogLink() = default;
    virtual ~SyslogLink() = default;
    SyslogLink(const SyslogLink&) = delete;
    SyslogLink& operator=(const SyslogLink&) = delete;

    // A new connection, non-blocking.
    virtual void Open(Socket socket) = 0;
    virtual int Descriptor() const = 0;  // -1: no connection
    // True if something waits to be written. Only without it another message may be given.
    virtual bool HasWork() const = 0;
    virtual void Give(std::string message) = 0;
    // Writes what can be written now, and looks at what has arrived. Lost gives the reason.
    virtual Result Step(std::string& why) = 0;
    // Messages that have not arrived yet, as far as can be known.
    virtual uint64_t Held() const = 0;
    // True if it is worth asking again before long whether messages have arrived.
    virtual bool IsWaiting() const = 0;
    // All has been written and nothing more will come: true once the receiver has everything, as
    // far as can be known.
    virtual bool Finish() = 0;

    // Messages that have arrived, and that can't be sent at all, since the last call.
    uint64_t TakeSent() { return std::exchange(m_Sent, 0); }
    uint64_t TakeDropped() { return std::exchange(m_Dropped, 0); }

protected:
    uint64_t m_Sent = 0;
    uint64_t m_Dropped = 0;
};

std::unique_ptr<SyslogLink> MakeSyslogLink(SyslogTarget::Kind kind);
