#include "FrameParser.h"

#include <algorithm>

#include "Bytes.h"
#include "kdi/log_entry.h"

namespace Kdi {

namespace {

enum : uint16_t { TYPE_IPV4 = 0x0800, TYPE_IPV6 = 0x86DD, TYPE_VLAN = 0x8100, TYPE_QINQ = 0x88A8 };
enum : uint8_t {
    NEXT_HOP_BY_HOP = 0,
    NEXT_ROUTING = 43,
    NEXT_FRAGMENT = 44,
    NEXT_AUTHENTICATION = 51,
    NEXT_DESTINATION = 60,
};
// More extension headers than any real packet has; behind them the walk ends without a transport.
constexpr int MAX_EXTENSIONS = 16;

// The bytes that are still to be read.
struct Rest {
    const uint8_t* bytes;
    uint32_t captured;
    uint32_t wire;

    void Skip(uint32_t count) {
        bytes += count;
        captured -= count;
        wire -= std::min(count, wire);
    }
    void CutTo(uint32_t length) {
        captured = std::min(captured, length);
        wire = std::min(wire, length);
    }
};

void SetPayload(const Rest& rest, Frame& frame) {
    if (frame.IsLaterFragment()) {
        frame.laterBytes = rest.bytes;
        frame.laterLen = rest.captured;
    } else {
        frame.transport = rest.bytes;
        frame.transportLen = rest.captured;
    }
}

bool ParseIpv4(Rest rest, Frame& frame) {
    const uint8_t* ip = rest.bytes;
    const uint32_t headerLen = (ip[0] & 0x0Fu) * 4;
    if (headerLen < 20) return false;
    frame.family = 4;
    frame.ip = ip;
    frame.protocol = ip[9];
    const uint16_t bits = BigEndian16(ip + 6);
    frame.fragmentOffset = (bits & 0x1FFFu) * 8;
    frame.moreFragments = (bits & 0x2000) != 0;
    frame.fragment = frame.moreFragments || frame.fragmentOffset != 0;
    frame.fragmentId = BigEndian16(ip + 4);
    const uint16_t totalLen = BigEndian16(ip + 2);
    if (totalLen != 0) rest.CutTo(totalLen);  // 0: the sender's card was left to fill it in
    if (rest.captured < headerLen) return true;
    rest.Skip(headerLen);
    SetPayload(rest, frame);
    return true;
}

bool IsExtension(uint8_t next) {
    return next == NEXT_HOP_BY_HOP || next == NEXT_ROUTING || next == NEXT_FRAGMENT ||
           next == NEXT_AUTHENTICATION || next == NEXT_DESTINATION;
}

uint32_t ExtensionLength(uint8_t kind, const uint8_t* header) {
    if (kind == NEXT_FRAGMENT) return 8;
    if (kind == NEXT_AUTHENTICATION) return (header[1] + 2u) * 4;
    return (header[1] + 1u) * 8;
}

void ReadFragmentHeader(const uint8_t* header, Frame& frame) {
    const uint16_t bits = BigEndian16(header + 2);
    frame.fragmentOffset = bits & 0xFFF8u;
    frame.moreFragments = (bits & 1) != 0;
    frame.fragment = frame.moreFragments || frame.fragmentOffset != 0;
    frame.fragmentId = BigEndian32(header + 4);
}

bool ParseIpv6(Rest rest, Frame& frame) {
    if (rest.captured < 40) return false;
    frame.family = 6;
    frame.ip = rest.bytes;
    frame.protocol = rest.bytes[6];
    const uint16_t payloadLen = BigEndian16(rest.bytes + 4);
    rest.Skip(40);
    if (payloadLen != 0) rest.CutTo(payloadLen);
    for (int count = 0; IsExtension(frame.protocol) && !frame.IsLaterFragment(); ++count) {
        if (count == MAX_EXTENSIONS || rest.captured < 8) return true;
        const uint8_t* header = rest.bytes;
        const uint8_t kind = frame.protocol;
        const uint32_t length = ExtensionLength(kind, header);
        frame.protocol = header[0];
        if (kind == NEXT_FRAGMENT) ReadFragmentHeader(header, frame);
        if (rest.captured < length) return true;
        rest.Skip(length);
    }
    SetPayload(rest, frame);
    return true;
}

// Skips VLAN tags in front of the packet. False if the capture ends within them.
bool SkipTags(Rest& rest, uint16_t& type) {
    while (type == TYPE_VLAN || type == TYPE_QINQ) {
        if (rest.captured < 4) return false;
        type = BigEndian16(rest.bytes + 2);
        rest.Skip(4);
    }
    return true;
}

bool ReadEthernet(Rest& rest, Frame& frame) {
    if (rest.captured < 14) return false;
    frame.ethernet = frame.destinationHardware = rest.bytes;
    frame.sourceHardware = rest.bytes + 6;
    frame.linkGroup = (rest.bytes[0] & 1) != 0;
    frame.type = BigEndian16(rest.bytes + 12);
    rest.Skip(14);
    return SkipTags(rest, frame.type);
}

void ReadPacketType(uint16_t packetType, Frame& frame) {
    frame.linkGroup = packetType == 1 || packetType == 2;
    if (packetType == 4) frame.way = LinkWay::Outgoing;
    if (packetType <= 2) frame.way = LinkWay::Incoming;
}

bool ReadCooked(Rest& rest, Frame& frame) {
    if (rest.captured < 16) return false;
    ReadPacketType(BigEndian16(rest.bytes), frame);
    if (BigEndian16(rest.bytes + 4) == 6) frame.sourceHardware = rest.bytes + 6;
    frame.type = BigEndian16(rest.bytes + 14);
    rest.Skip(16);
    return SkipTags(rest, frame.type);
}

bool ReadCooked2(Rest& rest, Frame& frame) {
    if (rest.captured < 20) return false;
    ReadPacketType(rest.bytes[10], frame);
    if (rest.bytes[11] == 6) frame.sourceHardware = rest.bytes + 12;
    frame.type = BigEndian16(rest.bytes);
    rest.Skip(20);
    return SkipTags(rest, frame.type);
}

// Without a type of its own, the packet's version says what it is.
void TypeFromVersion(const Rest& rest, Frame& frame) {
    if (rest.captured == 0) return;
    const int version = rest.bytes[0] >> 4;
    frame.type = version == 4 ? TYPE_IPV4 : version == 6 ? TYPE_IPV6 : 0;
}

// Four bytes with the address family, in the byte order of whichever host made the capture.
bool ReadBsdLoopback(Rest& rest, Frame& frame) {
    if (rest.captured < 4) return false;
    const uint8_t family = rest.bytes[0] | rest.bytes[3];
    rest.Skip(4);
    if (family == 2 || family == 10 || family == 24 || family == 28 || family == 30) {
        TypeFromVersion(rest, frame);
    }
    return true;
}

bool ReadLink(LinkType linkType, Rest& rest, Frame& frame) {
    switch (linkType) {
        case LinkType::Ethernet:
            return ReadEthernet(rest, frame);
        case LinkType::Cooked:
            return ReadCooked(rest, frame);
        case LinkType::Cooked2:
            return ReadCooked2(rest, frame);
        case LinkType::BsdLoopback:
            return ReadBsdLoopback(rest, frame);
        case LinkType::RawIp:
            break;
    }
    TypeFromVersion(rest, frame);
    return true;
}

}  // namespace

bool ParseIp(const uint8_t* bytes, uint32_t captured, uint32_t wireLen, Frame& frame) {
    if (captured < 20) return false;
    frame.packetLen = wireLen;
    const Rest rest{bytes, captured, wireLen};
    const int version = bytes[0] >> 4;
    if (version == 4) return ParseIpv4(rest, frame);
    return version == 6 && ParseIpv6(rest, frame);
}

Frame ParseFrame(LinkType linkType, const uint8_t* bytes, uint32_t captured, uint32_t wireLen) {
    Frame frame;
    Rest rest{bytes, captured, std::max(captured, wireLen)};
    if (!ReadLink(linkType, rest, frame)) return frame;
    const bool isIpv4 = frame.type == TYPE_IPV4;
    if (!isIpv4 && frame.type != TYPE_IPV6) return frame;
    if (rest.captured == 0 || rest.bytes[0] >> 4 != (isIpv4 ? 4 : 6)) return frame;
    ParseIp(rest.bytes, rest.captured, rest.wire, frame);
    return frame;
}

bool Frame::IsForIpGroup() const {
    if (family == 6) return ip[24] == 0xFF;
    return (ip[16] & 0xF0) == 0xE0 || Raw32(ip + 16) == UINT32_MAX;
}

bool Frame::HasUnspecifiedSource() const {
    if (family == 4) return Raw32(ip + 12) == 0;
    return std::all_of(ip + 8, ip + 24, [](uint8_t byte) { return byte == 0; });
}

bool Frame::HasTransport() const {
    switch (protocol) {
        case IP_PROTO_TCP:
            return transportLen >= 14;
        case IP_PROTO_UDP:
            return transportLen >= 4;
        default:
            return IsIcmp() && transportLen >= 2;
    }
}

uint16_t Frame::SourcePort() const {
    return BigEndian16(transport);
}
uint16_t Frame::DestinationPort() const {
    return BigEndian16(transport + 2);
}

bool Frame::IsIcmp() const {
    return protocol == (family == 4 ? uint8_t{IP_PROTO_ICMP} : uint8_t{IP_PROTO_ICMPV6});
}

bool Frame::IsEchoRequest() const {
    return IsIcmp() && transportLen >= 6 && transport[0] == (family == 4 ? ICMP_ECHO : ICMPV6_ECHO);
}

bool Frame::IsEchoReply() const {
    return IsIcmp() && transportLen >= 6 &&
           transport[0] == (family == 4 ? ICMP_ECHO_REPLY : ICMPV6_ECHO_REPLY);
}

uint16_t Frame::EchoId() const {
    return BigEndian16(transport + 4);
}

bool Frame::IsIcmpError() const {
    if (!IsIcmp() || transportLen < 1) return false;
    const uint8_t kind = transport[0];
    if (family == 6) return kind >= 1 && kind <= 4;
    return kind == 3 || kind == 4 || kind == 5 || kind == 11 || kind == 12;
}

bool Frame::IsLinkHousekeeping() const {
    if (family != 6 || !IsIcmp() || transportLen < 1) return false;
    return (transport[0] >= 130 && transport[0] <= 137) || transport[0] == 143;
}

}  // namespace Kdi
