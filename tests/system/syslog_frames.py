"""What a capture itself says about the packets that a host received: nothing of the agent is asked."""

import struct
from collections import namedtuple

VICTIM, ATTACKER = "192.0.2.10", "192.0.2.66"

Packet = namedtuple("Packet", "usec smac dmac source destination length fragment protocol sport "
                              "dport flags")

FLAG_WORDS = ((0x20, "URG"), (0x10, "ACK"), (0x08, "PSH"), (0x04, "RST"), (0x02, "SYN"),
              (0x01, "FIN"))


def words(flags):
    return [word for bit, word in FLAG_WORDS if flags & bit]


def _dotted(data):
    return ".".join(str(byte) for byte in data)


def _mac(data):
    return ":".join("%02x" % byte for byte in data)


def _packet(usec, frame):
    ip = frame[14:]
    if frame[12:14] != b"\x08\x00":
        return None
    header = (ip[0] & 15) * 4
    transport = ip[header:]
    protocol = ip[9]
    sport, dport = struct.unpack(">HH", transport[:4]) if protocol in (6, 17) else (None, None)
    flags = transport[13] if protocol == 6 else None
    return Packet(usec, _mac(frame[6:12]), _mac(frame[:6]), _dotted(ip[12:16]), _dotted(ip[16:20]),
                  struct.unpack(">H", ip[2:4])[0], struct.unpack(">H", ip[6:8])[0], protocol,
                  sport, dport, flags)


def _all(path):
    with open(path, "rb") as file:
        data = file.read()
    assert data[:4] == b"\xd4\xc3\xb2\xa1" and data[20:24] == b"\x01\0\0\0", path
    at = 24
    while at < len(data):
        seconds, usec, captured, _ = struct.unpack("<IIII", data[at:at + 16])
        packet = _packet(seconds * 1000000 + usec, data[at + 16:at + 16 + captured])
        at += 16 + captured
        if packet:
            yield packet


def packets(path):
    """The IPv4 packets from the attacker to the victim, but for those to UDP ports that answer, in a
    little-endian pcap file of Ethernet."""
    every = list(_all(path))
    open_ports = {packet.sport for packet in every
                  if packet.source == VICTIM and packet.protocol == 17}
    return [packet for packet in every
            if (packet.source, packet.destination) == (ATTACKER, VICTIM)
            and not (packet.protocol == 17 and packet.dport in open_ports)]
