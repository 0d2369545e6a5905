#include "LogGroup.h"

#include <arpa/inet.h>
#include <libnetfilter_log/libnetfilter_log.h>
#include <linux/netfilter/nfnetlink.h>

#include <cerrno>
#include <system_error>

namespace Kdi {

namespace {

// Enough for every header; a rule's own snaplen may be less.
constexpr uint32_t COPY_RANGE = 256;  // bytes of a packet
// A batch is sent when it has this many packets or is this old, so a scan of one packet is seen at
// once and a flood costs few wake-ups.
constexpr uint32_t BATCH_PACKETS = 128;
constexpr uint32_t BATCH_AGE = 10;           // hundredths of a second
constexpr uint32_t BATCH_ROOM = 128 * 1024;  // bytes; the kernel's limit

}  // namespace

LogGroup::LogGroup(uint16_t group, unsigned int receiveBuffer)
    : m_Socket(NETLINK_NETFILTER, receiveBuffer) {
    alignas(nlmsghdr) char buffer[512];
    nlmsghdr* request = nflog_nlmsg_put_header(buffer, NFULNL_MSG_CONFIG, AF_UNSPEC, group);
    request->nlmsg_flags |= NLM_F_ACK;
    request->nlmsg_seq = 1;
    nflog_attr_put_cfg_cmd(request, NFULNL_CFG_CMD_BIND);
    nflog_attr_put_cfg_mode(request, NFULNL_COPY_PACKET, COPY_RANGE);
    mnl_attr_put_u16(request, NFULA_CFG_FLAGS, htons(NFULNL_CFG_F_SEQ));
    mnl_attr_put_u32(request, NFULA_CFG_NLBUFSIZ, htonl(BATCH_ROOM));
    mnl_attr_put_u32(request, NFULA_CFG_TIMEOUT, htonl(BATCH_AGE));
    mnl_attr_put_u32(request, NFULA_CFG_QTHRESH, htonl(BATCH_PACKETS));
    const int error = m_Socket.Request(*request);
    if (error == 0) return;
    // The privilege was there to open the other sockets, so it is not what is missing.
    if (error == EPERM || error == EBUSY)
        throw std::system_error(EBUSY, std::generic_category(), "another program has the group");
    throw std::system_error(error, std::generic_category(), "cannot bind the group");
}

bool LogGroup::IsPacket(const nlmsghdr& message) {
    return message.nlmsg_type == (NFNL_SUBSYS_ULOG << 8 | NFULNL_MSG_PACKET);
}

}  // namespace Kdi
