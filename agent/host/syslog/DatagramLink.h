#pragma once

#include "SyslogLink.h"

// One message is one datagram. What the system has taken counts as arrived.
class DatagramLink : public SyslogLink {
public:
    void Open(Socket socket) override { m_Socket = std::move(socket); }
    int Descriptor() const override { return m_Socket.Get(); }
    bool HasWork() const override { return m_HasMessage; }
    void Give(std::string message) override;
    Result Step(std::string& why) override;
    uint64_t Held() const override { return m_HasMessage ? 1 : 0; }
    bool IsWaiting() const override { return false; }
    bool Finish() override { return true; }

private:
    bool IsPeerThere(std::string& why);

    Socket m_Socket;
    std::string m_Message;
    bool m_HasMessage = false;
};
