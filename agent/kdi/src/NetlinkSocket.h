#pragma once

#include <libmnl/libmnl.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Kdi {

// A netlink socket that never blocks. The operations throw std::system_error.
class NetlinkSocket {
public:
    enum class Received : uint8_t { Messages, Nothing, Overrun };

    // `bus`: NETLINK_*. `receiveBuffer`: bytes, 0 for the system's own size; more than the system
    // allows takes CAP_NET_ADMIN, and without it there is what the system allows.
    NetlinkSocket(int bus, unsigned int receiveBuffer);

    int Descriptor() const { return mnl_socket_get_fd(m_Socket.get()); }
    // Takes part in a group of messages, by its number.
    void Join(unsigned int group);
    // Sends a request that asks for an acknowledgement, and awaits it. 0 or an errno value. Other
    // messages that come meanwhile are dropped.
    int Request(nlmsghdr& request);

    // Reads what came in one piece. Overrun: the kernel had no room, and some was dropped.
    Received Receive();
    // The next message of what was read; null if there is none. Valid until Receive.
    const nlmsghdr* NextMessage();

private:
    struct Closer {
        void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
    };

    void SizeBuffer(unsigned int bytes);

    std::unique_ptr<mnl_socket, Closer> m_Socket;
    std::vector<uint32_t> m_Buffer;  // of words, as messages are aligned
    const nlmsghdr* m_Next = nullptr;
    int m_Rest = 0;  // bytes from m_Next on
};

}  // namespace Kdi
