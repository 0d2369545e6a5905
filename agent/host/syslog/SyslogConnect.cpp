#include "SyslogConnect.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace {

constexpr int kSocketFlags = SOCK_NONBLOCK | SOCK_CLOEXEC;
// How long data may stay unacknowledged, milliseconds: a receiver whose machine is gone says
// nothing.
constexpr unsigned int kUserTimeout = 30000;
constexpr int kKeepIdle = 30;
constexpr int kKeepInterval = 10;

// Outcomes other than an open socket leave the reason in `why`.
Socket Fail(int error, std::string& why) {
    why = strerror(error);
    return Socket();
}

Socket ConnectUnix(const std::string& path, std::string& why) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    Socket made(socket(AF_UNIX, SOCK_DGRAM | kSocketFlags, 0));
    if (!made.IsOpen()) return Fail(errno, why);
    if (connect(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        return Fail(errno, why);
    return made;
}

// A dead receiver is noticed also while there is nothing to send. What the system refuses here
// only makes that slower.
void WatchPeer(int descriptor) {
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on));
    setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, &kKeepIdle, sizeof(kKeepIdle));
    setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, &kKeepInterval, sizeof(kKeepInterval));
    setsockopt(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, &kUserTimeout, sizeof(kUserTimeout));
}

Socket ConnectAddress(const addrinfo& address, const WritableWait& wait, std::string& why) {
    Socket made(socket(address.ai_family, address.ai_socktype | kSocketFlags, address.ai_protocol));
    if (!made.IsOpen()) return Fail(errno, why);
    if (address.ai_socktype == SOCK_STREAM) WatchPeer(made.Get());
    if (connect(made.Get(), address.ai_addr, address.ai_addrlen) == 0) return made;
    if (errno != EINPROGRESS) return Fail(errno, why);
    if (!wait(made.Get())) return Fail(ETIMEDOUT, why);
    int error = 0;
    socklen_t size = sizeof(error);
    if (getsockopt(made.Get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
    return error == 0 ? std::move(made) : Fail(error, why);
}

struct FreeAddresses {
    void operator()(addrinfo* addresses) const { freeaddrinfo(addresses); }
};

}  // namespace

Socket ConnectTo(const SyslogTarget& target, const WritableWait& wait, std::string& why) {
    if (target.kind == SyslogTarget::Unix) return ConnectUnix(target.path, why);
    addrinfo hints{};
    hints.ai_socktype = target.kind == SyslogTarget::Tcp ? SOCK_STREAM : SOCK_DGRAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int result = getaddrinfo(target.host.c_str(), target.port.c_str(), &hints, &found);
    if (result != 0) {
        why = result == EAI_SYSTEM ? strerror(errno) : gai_strerror(result);
        return Socket();
    }
    const std::unique_ptr<addrinfo, FreeAddresses> addresses(found);
    for (const addrinfo* address = found; address != nullptr; address = address->ai_next) {
        Socket made = ConnectAddress(*address, wait, why);
        if (made.IsOpen()) return made;
    }
    return Socket();
}
