#pragma once

#include <cstdint>

namespace Kdi {

// The link types that are understood.
enum class LinkType : uint8_t { Ethernet, Cooked, Cooked2, RawIp, BsdLoopback };

// What the link says about a packet's way, where it says so.
enum class LinkWay : uint8_t { Unknown, Incoming, Outgoing };

enum : uint8_t { ICMP_ECHO_REPLY = 0, ICMP_ECHO = 8, ICMPV6_ECHO = 128, ICMPV6_ECHO_REPLY = 129 };

// A view of one frame. Pointers refer to the frame's bytes; multi-byte numbers are in host order.
struct Frame {
    const uint8_t* ethernet = nullptr;             // 12 bytes: destination, source; Ethernet only
    const uint8_t* sourceHardware = nullptr;       // 6 bytes
    const uint8_t* destinationHardware = nullptr;  // 6 bytes
    uint16_t type = 0;                             // what lies behind any VLAN tags
    LinkWay way = LinkWay::Unknown;
    bool linkGroup = false;  // sent to a broadcast or multicast address of the link

    uint8_t family = 0;    // 4, 6, or 0: not IP, and nothing below is set
    uint8_t protocol = 0;  // the upper layer's
    bool fragment = false;
    bool moreFragments = false;
    uint32_t fragmentOffset = 0;  // bytes
    uint32_t fragmentId = 0;
    uint32_t packetLen = 0;       // the wire's frame length less the link header
    const uint8_t* ip = nullptr;  // 20 bytes of IPv4 or 40 of IPv6 are there
    const uint8_t* transport = nullptr;
    uint32_t transportLen = 0;            // bytes that are there, without the link's padding
    const uint8_t* laterBytes = nullptr;  // what a fragment other than the first carries
    uint32_t laterLen = 0;

    bool IsFirstFragment() const { return fragment && fragmentOffset == 0; }
    bool IsLaterFragment() const { return fragment && fragmentOffset != 0; }
    // To a multicast address or the limited broadcast address.
    bool IsForIpGroup() const;
    // From a host that has no address yet.
    bool HasUnspecifiedSource() const;
    // Whether the bytes of the transport header that readers use are there.
    bool HasTransport() const;
    // TCP and UDP only, with HasTransport.
    uint16_t SourcePort() const;
    uint16_t DestinationPort() const;
    // TCP only, with HasTransport.
    uint8_t TcpFlags() const { return transport[13]; }
    bool IsIcmp() const;
    // ICMP with its identifier there.
    bool IsEchoRequest() const;
    bool IsEchoReply() const;
    uint16_t EchoId() const;
    // ICMP that carries the start of the packet that caused it.
    bool IsIcmpError() const;
    // Neighbour discovery, router messages, multicast listeners: how an IPv6 link keeps itself.
    bool IsLinkHousekeeping() const;
};

// Reads the `captured` bytes of a frame that had `wireLen` bytes. Never reads beyond them.
Frame ParseFrame(LinkType linkType, const uint8_t* bytes, uint32_t captured, uint32_t wireLen);

// Reads an IP packet, as ParseFrame does behind the link header. False if it is none or its fixed
// header is not there.
bool ParseIp(const uint8_t* bytes, uint32_t captured, uint32_t wireLen, Frame& frame);

}  // namespace Kdi
