#!/usr/bin/env python3
"""Writes a set of log files for the retrieval benchmark: 1 GiB by default, both kinds of record.

One line in about 10,000 lies in the window that is printed at the end ("FROM TO", seconds since the
epoch); all others are a day older. No file can be passed over as a whole: each begins with an old
line and was last modified behind the window. The same arguments give the same bytes.
"""

import argparse
import os
import random
import sys
import time

FROM = 1767225600  # 2026-01-01 00:00:00 UTC
TO = FROM + 3600
BLOCK_LINES = 20000
WINDOW_LINES = 2  # at the end of each block
MAC = "02 00 00 00 00 10"
ROUTER_MAC = "02 00 00 00 00 FE"


def stamp(microseconds):
    return time.strftime("%Y/%m/%d, %H:%M:%S", time.localtime(microseconds // 1000000))


def packet_line(rng, microseconds):
    source = "%d.%d.%d.%d" % tuple(rng.randrange(1, 224) for _ in range(4))
    return "%s, f, 0, 1, %s, IP, %s, %s, TCP, SYN DF=1, %s, %d, 192.0.2.10, %d, 60, 1, 0, 1, 2, , " \
        "0, 0, 0, 0, , , , 1, %d, %d\n" % (
            stamp(microseconds), MAC, ROUTER_MAC, MAC, source, rng.randrange(1024, 65536),
            rng.randrange(1, 65536), microseconds, microseconds)


def payload_line(rng, microseconds):
    source = "%d.%d.%d.%d" % tuple(rng.randrange(1, 224) for _ in range(4))
    return "%s, d, 0, 0, %s, IP, %s, %s, TCP, ACK PSH , %s, %d, 192.0.2.10, 80, 1500, 1, -1, %d, 2, " \
        "%s, %d, %d, 8, 0, 2, , , 1, %d, %d\n" % (
            stamp(microseconds), MAC, ROUTER_MAC, MAC, source, rng.randrange(1024, 65536),
            rng.randrange(1000, 2000), rng.randbytes(8).hex().upper(), rng.randrange(1500),
            rng.randrange(100000), microseconds, microseconds)


def block(rng):
    lines = []
    for number in range(BLOCK_LINES):
        recent = number >= BLOCK_LINES - WINDOW_LINES
        seconds = FROM + 60 if recent else FROM - 86400 + number // 10
        line = (packet_line, payload_line)[number % 2]
        lines.append(line(rng, seconds * 1000000 + rng.randrange(1000000)))
    return "".join(lines).encode()


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("directory")
    parser.add_argument("--name", default="velm_mpnp")
    parser.add_argument("--megabytes", type=int, default=1024)
    parser.add_argument("--files", type=int, default=8)
    arguments = parser.parse_args()

    os.makedirs(arguments.directory, exist_ok=True)
    size = (arguments.megabytes << 20) // arguments.files
    for number in range(arguments.files):
        extension = ".%d" % number if number else ""
        path = os.path.join(arguments.directory, arguments.name + extension)
        data = block(random.Random("log %d" % number))
        with open(path, "wb") as file:
            for _ in range(max(1, round(size / len(data)))):
                file.write(data)
        os.utime(path, (TO, TO))
    print(FROM, TO)
    return 0


if __name__ == "__main__":
    sys.exit(main())
