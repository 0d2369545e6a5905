#include "Packet.h"

#include <algorithm>
#include <tuple>

#include "Bytes.h"
#include "kdi/log_entry.h"

namespace Kdi {

namespace {

void SetKey(Packet& packet) {
    packet.swapped = std::tie(packet.source.value, packet.sourcePort) >
                     std::tie(packet.destination.value, packet.destinationPort);
    FlowKey& key = packet.key;
    key.low = packet.source.value;
    key.high = packet.destination.value;
    key.lowPort = packet.sourcePort;
    key.highPort = packet.destinationPort;
    if (packet.swapped) {
        std::swap(key.low, key.high);
        std::swap(key.lowPort, key.highPort);
    }
    key.protocol = packet.frame.protocol;
    key.family = packet.frame.family;
}

bool HasPorts(const Frame& frame) {
    return frame.transportLen >= 4 &&
           (frame.protocol == IP_PROTO_TCP || frame.protocol == IP_PROTO_UDP);
}

void SetPorts(Packet& packet) {
    const Frame& frame = packet.frame;
    packet.sourcePort = packet.destinationPort = 0;
    if (HasPorts(frame)) {
        packet.sourcePort = frame.SourcePort();
        packet.destinationPort = frame.DestinationPort();
    } else if (frame.IsEchoRequest() || frame.IsEchoReply()) {
        packet.sourcePort = packet.destinationPort = frame.EchoId();
    }
}

}  // namespace

void SetEnds(Packet& packet) {
    SetPorts(packet);
    SetKey(packet);
}

void Identify(const Frame& frame, AddressBook& book, Packet& packet) {
    packet.frame = frame;
    if (frame.family == 4) {
        packet.source = {Raw32(frame.ip + 12), 4};
        packet.destination = {Raw32(frame.ip + 16), 4};
    } else {
        packet.source = book.Take(frame.ip + 8);
        packet.destination = book.Take(frame.ip + 24);
    }
    SetEnds(packet);
}

FlowKey EmbeddedKey(const Frame& error, const AddressBook& book) {
    Packet packet;
    if (error.transportLen < 8) return {};
    const uint32_t length = error.transportLen - 8;
    if (!ParseIp(error.transport + 8, length, length, packet.frame)) return {};
    const Frame& frame = packet.frame;
    if (frame.family == 4) {
        packet.source = {Raw32(frame.ip + 12), 4};
        packet.destination = {Raw32(frame.ip + 16), 4};
    } else {
        packet.source = book.Find(frame.ip + 8);
        packet.destination = book.Find(frame.ip + 24);
    }
    if (packet.source.family == 0 || packet.destination.family == 0) return {};
    SetEnds(packet);
    return packet.key;
}

}  // namespace Kdi
