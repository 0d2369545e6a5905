#include "NetlinkSocket.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>

namespace Kdi {

namespace {

// More than the kernel puts into one piece: its log batches up to 128 KiB.
constexpr size_t PIECE_WORDS = size_t{256} * 1024 / sizeof(uint32_t);

std::system_error Failure(const char* what) {
    return {errno, std::generic_category(), what};
}

}  // namespace

NetlinkSocket::NetlinkSocket(int bus, unsigned int receiveBuffer)
    : m_Socket(mnl_socket_open2(bus, SOCK_CLOEXEC | SOCK_NONBLOCK)), m_Buffer(PIECE_WORDS) {
    if (!m_Socket) throw Failure("cannot open a netlink socket");
    if (receiveBuffer != 0) SizeBuffer(receiveBuffer);
    if (mnl_socket_bind(m_Socket.get(), 0, MNL_SOCKET_AUTOPID) != 0)
        throw Failure("cannot bind a netlink socket");
}

// The kernel doubles the number for what it needs beside the messages.
void NetlinkSocket::SizeBuffer(unsigned int bytes) {
    const int half = static_cast<int>(std::min<unsigned int>(bytes, INT_MAX) / 2);
    if (setsockopt(Descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &half, sizeof half) == 0) return;
    if (setsockopt(Descriptor(), SOL_SOCKET, SO_RCVBUF, &half, sizeof half) != 0)
        throw Failure("cannot size a netlink socket");
}

void NetlinkSocket::Join(unsigned int group) {
    int number = static_cast<int>(group);
    if (mnl_socket_setsockopt(m_Socket.get(), NETLINK_ADD_MEMBERSHIP, &number, sizeof number) != 0)
        throw Failure("cannot join a netlink group");
}

// The kernel has answered when the sending returns, so the answer waits, perhaps behind others.
int NetlinkSocket::Request(nlmsghdr& request) {
    if (mnl_socket_sendto(m_Socket.get(), &request, request.nlmsg_len) < 0) return errno;
    for (;;) {
        const Received received = Receive();
        if (received == Received::Nothing) return ENOMSG;
        while (const nlmsghdr* message = NextMessage()) {
            if (message->nlmsg_type != NLMSG_ERROR || message->nlmsg_seq != request.nlmsg_seq)
                continue;
            if (message->nlmsg_len < mnl_nlmsg_size(sizeof(nlmsgerr))) return EBADMSG;
            return -static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(message))->error;
        }
    }
}

NetlinkSocket::Received NetlinkSocket::Receive() {
    m_Next = nullptr;
    const ssize_t length =
        mnl_socket_recvfrom(m_Socket.get(), m_Buffer.data(), m_Buffer.size() * sizeof(uint32_t));
    if (length < 0) {
        if (errno == ENOBUFS || errno == ENOSPC) return Received::Overrun;
        if (errno == EAGAIN || errno == EINTR) return Received::Nothing;
        throw Failure("cannot read from a netlink socket");
    }
    m_Next = reinterpret_cast<const nlmsghdr*>(m_Buffer.data());
    m_Rest = static_cast<int>(length);
    return Received::Messages;
}

const nlmsghdr* NetlinkSocket::NextMessage() {
    if (!m_Next || !mnl_nlmsg_ok(m_Next, m_Rest)) return nullptr;
    const nlmsghdr* message = m_Next;
    m_Next = mnl_nlmsg_next(message, &m_Rest);
    return message;
}

}  // namespace Kdi
