#include "LogMessage.h"

#include <libmnl/libmnl.h>
#include <linux/if_arp.h>
#include <linux/if_ether.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_log.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "Bytes.h"
#include "LogPrefix.h"

namespace Kdi {

namespace {

// A view of an attribute's bytes, empty if the message has it not.
struct Bytes {
    const uint8_t* data = nullptr;
    uint32_t size = 0;
};

class Attributes {
public:
    // False if the message is cut short or an attribute is not sound. The kernel fills up the last
    // attribute, and libmnl takes that for granted.
    bool Read(const nlmsghdr& message) {
        return message.nlmsg_len >= sizeof(nlmsghdr) + sizeof(nfgenmsg) &&
               message.nlmsg_len % NLMSG_ALIGNTO == 0 &&
               mnl_attr_parse(&message, sizeof(nfgenmsg), Keep, this) == MNL_CB_OK;
    }
    Bytes Get(uint16_t type) const { return m_Attributes[type]; }
    // The attribute, if it has this many bytes at least.
    const uint8_t* Get(uint16_t type, uint32_t size) const {
        return m_Attributes[type].size >= size ? m_Attributes[type].data : nullptr;
    }
    uint32_t Number(uint16_t type) const {
        const uint8_t* bytes = Get(type, 4);
        return bytes ? BigEndian32(bytes) : 0;
    }

private:
    static int Keep(const nlattr* attribute, void* self) {
        const uint16_t type = mnl_attr_get_type(attribute);
        auto& kept = static_cast<Attributes*>(self)->m_Attributes;
        if (type < kept.size()) {
            kept[type] = {static_cast<const uint8_t*>(mnl_attr_get_payload(attribute)),
                          mnl_attr_get_payload_len(attribute)};
        }
        return MNL_CB_OK;
    }

    std::array<Bytes, NFULA_MAX + 1> m_Attributes;
};

uint64_t BigEndian64(const uint8_t* bytes) {
    return uint64_t{BigEndian32(bytes)} << 32 | BigEndian32(bytes + 4);
}

int64_t ReadTime(const Attributes& attributes, int64_t now) {
    const uint8_t* stamp = attributes.Get(NFULA_TIMESTAMP, sizeof(nfulnl_msg_packet_timestamp));
    if (!stamp) return now;
    const uint64_t sec = BigEndian64(stamp);
    const uint64_t usec = BigEndian64(stamp + 8);
    if (sec > UINT32_MAX || usec >= 1000000) return now;
    return static_cast<int64_t>(sec * 1000000 + usec);
}

// The rule's snaplen cuts the packet, so its length is what its own header tells. A packet that the
// network card is yet to divide tells nothing there.
uint32_t WireLength(const Bytes& payload) {
    uint32_t told = 0;
    if (payload.size >= 20) {
        const bool isIpv4 = payload.data[0] >> 4 == 4;
        const uint16_t payloadLen = BigEndian16(payload.data + 4);
        told = isIpv4 ? BigEndian16(payload.data + 2) : payloadLen ? payloadLen + 40u : 0;
    }
    return std::max(told, payload.size);
}

// A netdev chain sees the link's header in its place; elsewhere it stands in front of the packet.
void ReadLink(const Attributes& attributes, uint16_t type, Frame& frame) {
    const uint8_t* hardwareType = attributes.Get(NFULA_HWTYPE, 2);
    if (!hardwareType || BigEndian16(hardwareType) != ARPHRD_ETHER) return;
    const uint8_t* header = attributes.Get(NFULA_HWHEADER, ETH_HLEN);
    if (!header) header = attributes.Get(NFULA_L2HDR, ETH_HLEN);
    frame.ethernet = header;
    frame.type = type;
}

bool ReadFrame(const Attributes& attributes, Frame& frame) {
    const uint8_t* header = attributes.Get(NFULA_PACKET_HDR, sizeof(nfulnl_msg_packet_hdr));
    const Bytes payload = attributes.Get(NFULA_PAYLOAD);
    if (!header || payload.size == 0) return false;
    const uint16_t type = BigEndian16(header);
    const int version = payload.data[0] >> 4;
    if (!(type == ETH_P_IP && version == 4) && !(type == ETH_P_IPV6 && version == 6)) return false;
    ReadLink(attributes, type, frame);
    return ParseIp(payload.data, payload.size, WireLength(payload), frame);
}

std::string_view ReadPrefix(const Attributes& attributes) {
    const Bytes prefix = attributes.Get(NFULA_PREFIX);
    const auto* text = reinterpret_cast<const char*>(prefix.data);
    return prefix.size ? std::string_view(text, strnlen(text, prefix.size)) : std::string_view();
}

}  // namespace

bool ReadLogMessage(const nlmsghdr& message, int64_t now, LoggedPacket& packet,
                    std::optional<uint32_t>& sequence) {
    Attributes attributes;
    sequence.reset();
    if (!attributes.Read(message)) return false;
    if (const uint8_t* number = attributes.Get(NFULA_SEQ, 4)) sequence = BigEndian32(number);
    Frame frame;
    if (!ReadFrame(attributes, frame)) return false;
    packet.inDevice = attributes.Number(NFULA_IFINDEX_INDEV);
    packet.outDevice = attributes.Number(NFULA_IFINDEX_OUTDEV);
    const bool outgoing = packet.inDevice == 0 && packet.outDevice != 0;
    CopyHeaders(frame, static_cast<uint8_t>(LOG_FLAG_FORWARD | (outgoing ? LOG_FLAG_OUTGOING : 0)),
                packet.record.headers);
    LogPrefix prefix;
    packet.foreignPrefix = !ParseLogPrefix(ReadPrefix(attributes), prefix);
    packet.record.first = packet.record.last = ReadTime(attributes, now);
    packet.record.action = prefix.action;
    packet.record.reason = prefix.reason;
    packet.record.filter = prefix.filter;
    return true;
}

}  // namespace Kdi
