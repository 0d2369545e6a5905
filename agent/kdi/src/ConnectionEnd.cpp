#include "ConnectionEnd.h"

#include <libnetfilter_conntrack/libnetfilter_conntrack.h>
#include <libnetfilter_conntrack/libnetfilter_conntrack_tcp.h>
#include <linux/netfilter/nfnetlink.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <memory>

#include "Bytes.h"
#include "FrameParser.h"

namespace Kdi {

namespace {

struct Destroyer {
    void operator()(nf_conntrack* connection) const { nfct_destroy(connection); }
};

void ReadAddresses(const nf_conntrack* from, EndedConnection& to) {
    const bool isIpv4 = nfct_get_attr_u8(from, ATTR_ORIG_L3PROTO) == AF_INET;
    const size_t size = isIpv4 ? 4 : 16;
    to.family = isIpv4 ? 4 : 6;
    const void* source = nfct_get_attr(from, isIpv4 ? ATTR_ORIG_IPV4_SRC : ATTR_ORIG_IPV6_SRC);
    const void* destination = nfct_get_attr(from, isIpv4 ? ATTR_ORIG_IPV4_DST : ATTR_ORIG_IPV6_DST);
    if (source) std::memcpy(to.source, source, size);
    if (destination) std::memcpy(to.destination, destination, size);
}

void ReadPorts(const nf_conntrack* from, EndedConnection& to) {
    to.protocol = nfct_get_attr_u8(from, ATTR_ORIG_L4PROTO);
    if (to.protocol == IP_PROTO_TCP || to.protocol == IP_PROTO_UDP) {
        to.sourcePort = nfct_get_attr_u16(from, ATTR_ORIG_PORT_SRC);
        to.destinationPort = nfct_get_attr_u16(from, ATTR_ORIG_PORT_DST);
    } else if (nfct_attr_is_set(from, ATTR_ICMP_TYPE) > 0) {
        to.icmpType = nfct_get_attr_u8(from, ATTR_ICMP_TYPE);
        to.icmpCode = nfct_get_attr_u8(from, ATTR_ICMP_CODE);
        to.icmpId = nfct_get_attr_u16(from, ATTR_ICMP_ID);
    }
}

// In LAST_ACK and TIME_WAIT both sides have sent their FIN. Kernels that tell no state at the end
// tell whether there was an exchange.
bool IsClosedNormally(const nf_conntrack* connection) {
    if (nfct_get_attr_u8(connection, ATTR_ORIG_L4PROTO) != IP_PROTO_TCP) return false;
    if (nfct_attr_is_set(connection, ATTR_TCP_STATE) <= 0)
        return nfct_get_attr_u32(connection, ATTR_STATUS) & IPS_ASSURED;
    const uint8_t state = nfct_get_attr_u8(connection, ATTR_TCP_STATE);
    return state == TCP_CONNTRACK_TIME_WAIT || state == TCP_CONNTRACK_LAST_ACK;
}

// The kernel tells times, in nanoseconds, only while nf_conntrack_timestamp is set.
int64_t ReadTime(const nf_conntrack* connection, nf_conntrack_attr attribute) {
    if (nfct_attr_is_set(connection, attribute) <= 0) return -1;
    const uint64_t time = nfct_get_attr_u64(connection, attribute);
    return time == 0 ? -1 : static_cast<int64_t>(time / 1000);
}

bool IsGroup(const EndedConnection& connection, const HostAddresses& host) {
    const uint8_t* address = connection.destination;
    if (connection.family == 6) return address[0] == 0xFF;
    return (address[0] & 0xF0) == 0xE0 || Raw32(address) == UINT32_MAX ||
           host.IsBroadcast(Raw32(address));
}

// The headers of a packet from the side that began it. What tracking does not keep is zero.
class Headers {
public:
    explicit Headers(const EndedConnection& connection) {
        connection.family == 4 ? PutIpv4(connection) : PutIpv6(connection);
        PutTransport(connection);
    }
    void CopyTo(uint8_t direction, EntryHeaders& headers) const {
        Frame frame;
        ParseIp(m_Bytes, m_Length, m_Length, frame);
        CopyHeaders(frame, direction, headers);
        headers.packetLen = 0;
    }

private:
    void PutIpv4(const EndedConnection& connection) {
        m_Bytes[0] = 0x45;
        m_Bytes[9] = connection.protocol;
        std::memcpy(m_Bytes + 12, connection.source, 4);
        std::memcpy(m_Bytes + 16, connection.destination, 4);
        m_Length = 20;
    }
    void PutIpv6(const EndedConnection& connection) {
        m_Bytes[0] = 0x60;
        m_Bytes[6] = connection.protocol;
        std::memcpy(m_Bytes + 8, connection.source, 16);
        std::memcpy(m_Bytes + 24, connection.destination, 16);
        m_Length = 40;
    }
    void PutTransport(const EndedConnection& connection) {
        uint8_t* transport = m_Bytes + m_Length;
        if (connection.protocol == IP_PROTO_TCP || connection.protocol == IP_PROTO_UDP) {
            std::memcpy(transport, &connection.sourcePort, 2);
            std::memcpy(transport + 2, &connection.destinationPort, 2);
            m_Length += connection.protocol == IP_PROTO_TCP ? 20 : 8;
        } else if (connection.protocol == IP_PROTO_ICMP || connection.protocol == IP_PROTO_ICMPV6) {
            transport[0] = connection.icmpType;
            transport[1] = connection.icmpCode;
            std::memcpy(transport + 4, &connection.icmpId, 2);
            m_Length += 8;
        }
    }

    uint8_t m_Bytes[60] = {};
    uint32_t m_Length = 0;
};

}  // namespace

bool AreConnectionEventsOff() {
    std::ifstream setting("/proc/sys/net/netfilter/nf_conntrack_events");
    return setting.get() == '0';
}

bool IsConnectionEnd(const nlmsghdr& message) {
    return message.nlmsg_type == (NFNL_SUBSYS_CTNETLINK << 8 | IPCTNL_MSG_CT_DELETE);
}

bool ReadConnectionEnd(const nlmsghdr& message, EndedConnection& connection) {
    const std::unique_ptr<nf_conntrack, Destroyer> parsed(nfct_new());
    if (!parsed || nfct_nlmsg_parse(&message, parsed.get()) < 0) return false;
    connection = {};
    ReadAddresses(parsed.get(), connection);
    ReadPorts(parsed.get(), connection);
    connection.closedNormally = IsClosedNormally(parsed.get());
    connection.begun = ReadTime(parsed.get(), ATTR_TIMESTAMP_START);
    connection.ended = ReadTime(parsed.get(), ATTR_TIMESTAMP_STOP);
    return true;
}

bool ToFlowEnd(const EndedConnection& connection, const HostAddresses& host, int64_t now,
               Record& record, uint32_t& device) {
    const bool outbound = host.IsOwn(connection.family, connection.source);
    const bool towardsHost = host.IsOwn(connection.family, connection.destination);
    if (outbound ? towardsHost : !towardsHost && !IsGroup(connection, host)) return false;
    device =
        host.DeviceOf(connection.family, outbound ? connection.source : connection.destination);
    Headers(connection)
        .CopyTo(static_cast<uint8_t>(LOG_FLAG_FORWARD | (outbound ? LOG_FLAG_OUTGOING : 0)),
                record.headers);
    record.last = connection.ended < 0 ? now : connection.ended;
    record.first = connection.begun < 0 ? record.last : std::min(connection.begun, record.last);
    record.action = 0;
    record.reason = connection.closedNormally ? LOG_REASON_CONNTRACK_CLOSED_NORMAL
                                              : LOG_REASON_CONNTRACK_CLOSED;
    record.filter = 0;
    return true;
}

}  // namespace Kdi
