#include "DatagramLink.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace {

// The most that a UDP datagram over IPv4 holds.
constexpr size_t kMaxDatagram = 65507;
// Reads at a time: what a receiver sends without end must not keep messages from it.
constexpr int kMostReads = 64;

// Cuts between characters.
void Cut(std::string& message) {
    if (message.size() <= kMaxDatagram) return;
    size_t length = kMaxDatagram;
    while (length > 0 && (static_cast<unsigned char>(message[length]) & 0xC0) == 0x80)
        --length;
    message.resize(length);
}

}  // namespace

void DatagramLink::Give(std::string message) {
    m_Message = std::move(message);
    Cut(m_Message);
    m_HasMessage = true;
}

// A host without a receiver answers a datagram with a refusal, which comes with the next call.
bool DatagramLink::IsPeerThere(std::string& why) {
    char ignored[64];
    ssize_t got = 0;
    for (int reads = 0; got >= 0 && reads < kMostReads; ++reads) {
        got = recv(m_Socket.Get(), ignored, sizeof(ignored), MSG_DONTWAIT);
    }
    if (got >= 0 || errno == EAGAIN || errno == EINTR) return true;
    why = strerror(errno);
    m_Socket.Close();
    return false;
}

SyslogLink::Result DatagramLink::Step(std::string& why) {
    if (!IsPeerThere(why)) return Lost;
    if (!m_HasMessage) return Ready;
    if (send(m_Socket.Get(), m_Message.data(), m_Message.size(), MSG_NOSIGNAL | MSG_DONTWAIT) >=
        0) {
        ++m_Sent;
        m_HasMessage = false;
        return Ready;
    }
    if (errno == EAGAIN || errno == EINTR) return Blocked;
    if (errno == EMSGSIZE) {
        ++m_Dropped;
        m_HasMessage = false;
        return Ready;
    }
    why = strerror(errno);
    m_Socket.Close();
    return Lost;
}
