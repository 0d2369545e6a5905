#!/usr/bin/env python3
"""Writes the captures that the replay benchmark reads.

mix      packets from 250,000 sources to closed TCP and UDP ports of one host; a fifth of them
         repeat, byte for byte, one of the 64 distinct packets before them
flood    TCP SYN from sources that are all different to one port
repeats  one TCP SYN, again and again

Packets are 10 to 100 microseconds apart. The same arguments give the same bytes.
"""

import argparse
import itertools
import os
import random
import struct
import sys

HOST_MAC = bytes.fromhex("020000000010")
ROUTER_MAC = bytes.fromhex("0200000000fe")
ETHERNET = HOST_MAC + ROUTER_MAC + b"\x08\x00"
HOST_ADDRESS = (192 << 24) | (2 << 8) | 10  # 192.0.2.10
START_SECONDS = 1767225600  # 2026-01-01 00:00:00 UTC
BATCH = 8 << 20
SOURCES = 250000  # different senders in the mix, about three packets each
TCP, UDP = 6, 17

IP_HEADER = struct.Struct(">BBHHHBBHII")
TCP_HEADER = struct.Struct(">HHIIBBHHH")
UDP_HEADER = struct.Struct(">HHHH")
RECORD_HEADER = struct.Struct("<IIII")

# Payload sizes of UDP packets, in bytes: small queries mostly, some that fill a frame.
UDP_SIZES = (18, 26, 34, 48, 64, 96, 172, 320, 512, 1172, 1400)
# What systems send as TCP options of a SYN: MSS; MSS, window scale, SACK; all with timestamps.
SYN_OPTIONS = (
    bytes.fromhex("020405b4"),
    bytes.fromhex("020405b40103030801010402"),
    bytes.fromhex("020405b40402080a0000000000000000" + "01030307"),
)


def checksum(total):
    """Internet checksum of a sum of 16-bit words."""
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def words(data):
    return sum(struct.unpack(">%dH" % (len(data) // 2), data))


OPTION_SUMS = tuple(words(options) for options in SYN_OPTIONS)


def ip_header(protocol, length, identification, source):
    fixed = (
        0x4500 + length + identification + 0x4000 + (0x4000 | protocol)
        + (source >> 16) + (source & 0xFFFF) + (HOST_ADDRESS >> 16) + (HOST_ADDRESS & 0xFFFF)
    )
    return IP_HEADER.pack(0x45, 0, length, identification, 0x4000, 64, protocol,
                          checksum(fixed), source, HOST_ADDRESS)


def syn(source, source_port, port, sequence, identification, kind):
    """A frame with a TCP SYN."""
    options = SYN_OPTIONS[kind]
    size = 20 + len(options)
    offset = size // 4 << 4
    total = (
        (source >> 16) + (source & 0xFFFF) + (HOST_ADDRESS >> 16) + (HOST_ADDRESS & 0xFFFF)
        + TCP + size + source_port + port + (sequence >> 16) + (sequence & 0xFFFF)
        + (offset << 8 | 0x02) + 64240 + OPTION_SUMS[kind]
    )
    frame = ETHERNET + ip_header(TCP, 20 + size, identification, source) + TCP_HEADER.pack(
        source_port, port, sequence, 0, offset, 0x02, 64240, checksum(total), 0) + options
    return frame.ljust(60, b"\0")


def udp(source, source_port, port, size, identification):
    """A frame with a UDP datagram of `size` bytes and no checksum, which IPv4 allows."""
    frame = ETHERNET + ip_header(UDP, 28 + size, identification, source) + UDP_HEADER.pack(
        source_port, port, 8 + size, 0) + bytes(size)
    return frame.ljust(60, b"\0")


# First octets of sources: unicast, without those that hold private or special blocks.
FIRST_OCTETS = [octet << 24 for octet in range(1, 224)
                if octet not in (10, 100, 127, 169, 172, 192, 198, 203)]


def source_address(number):
    """Spreads numbers below 2^31 over the unicast addresses, one to one. The spread is in favour of
    tcpdump, whose table of addresses hashes the first two octets: a narrow range would make it
    walk long chains."""
    return FIRST_OCTETS[number % len(FIRST_OCTETS)] | number // len(FIRST_OCTETS)


def distinct_frames(rng):
    bits = rng.getrandbits
    sources = [source_address(bits(31)) for _ in range(SOURCES)]
    while True:
        source = sources[bits(32) % SOURCES]
        source_port = 1024 + bits(32) % 64512
        port = 1 + bits(32) % 65535
        if bits(2):
            yield syn(source, source_port, port, bits(32), bits(16), bits(8) % 3)
        else:
            yield udp(source, source_port, port, UDP_SIZES[bits(16) % len(UDP_SIZES)], bits(16))


def mix(rng):
    fresh = distinct_frames(rng)
    recent = [next(fresh) for _ in range(64)]
    yield from recent
    for number in itertools.count():
        if rng.getrandbits(32) % 5 == 0:
            yield recent[rng.getrandbits(6)]
            continue
        frame = next(fresh)
        recent[number % 64] = frame
        yield frame


def flood(rng):
    bits = rng.getrandbits
    for number in itertools.count():
        # An odd factor visits every 31-bit number once before any comes again.
        source = source_address(number * 0x1E3779B1 & 0x7FFFFFFF)
        yield syn(source, 1024 + bits(32) % 64512, 443, bits(32), bits(16), 1)


def repeats(_rng):
    return itertools.repeat(syn(source_address(5), 40000, 445, 1, 7, 2))


KINDS = {"mix": mix, "flood": flood, "repeats": repeats}


def write_capture(path, kind, count):
    rng = random.Random("capture " + kind)
    gap = random.Random("gaps " + kind).getrandbits
    seconds, microseconds = START_SECONDS, 0
    batch = bytearray(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))
    unfinished = path + ".part"
    with open(unfinished, "wb") as file:
        for frame in itertools.islice(KINDS[kind](rng), count):
            batch += RECORD_HEADER.pack(seconds, microseconds, len(frame), len(frame))
            batch += frame
            microseconds += 10 + gap(16) % 91
            if microseconds >= 1000000:
                seconds += 1
                microseconds -= 1000000
            if len(batch) >= BATCH:
                file.write(batch)
                batch.clear()
        file.write(batch)
    os.replace(unfinished, path)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("kind", choices=sorted(KINDS))
    parser.add_argument("path")
    parser.add_argument("--packets", type=int, default=1000000)
    arguments = parser.parse_args()
    write_capture(arguments.path, arguments.kind, arguments.packets)
    return 0


if __name__ == "__main__":
    sys.exit(main())
