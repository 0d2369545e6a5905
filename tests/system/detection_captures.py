#!/usr/bin/env python3
"""What a replay finds in each capture, with the built-in configuration.

Usage: detection_captures.py VELM_AGENT [CAPTURE-NAME...]

The table was written down from what the captures hold and from the rules: a crafted packet is
reported at once; ports and addresses are counted by bins of ten seconds; more than 64 ports of one
address in a bin are reported when it closes; from four ports of one address, or four addresses on
one port, a bin is scan-like, and the fourth such bin in a row is reported; three are harmless. Only
packets that the host refused, and connections that did not end in the ordinary way, count.
"""

import json
import pathlib
import subprocess
import sys

CAPTURES = pathlib.Path(__file__).resolve().parent.parent / "captures"

FINGERPRINT, SCAN, NULL, SYN_FIN, XMAS = 7000, 7001, 7002, 7003, 7004
NMAP = "192.0.2.66"
NOTHING = []

# capture: (findings, why)
TABLE = {
    # One address, so many ports within one bin that the source is reported when the bin closes.
    "nmap-sS-1000": ([(SCAN, NMAP)], "1000 ports of one address"),
    "nmap-sS-1000-filtered": ([(SCAN, NMAP)], "1000 ports within 5 seconds, no answers"),
    "nmap-sT-1000": ([(SCAN, NMAP)], "1000 ports, nearly all refused"),
    "nmap-sF-1000": ([(SCAN, NMAP)], "FIN alone is no signature; 1000 ports without connection"),
    "nmap-sA-1000": ([(SCAN, NMAP)], "ACK to 1000 ports without connection"),
    "nmap-sW-100": ([(SCAN, NMAP)], "ACK to 100 ports without connection"),
    "nmap-sM-1000": ([(SCAN, NMAP)], "FIN+ACK is no signature; 1000 ports without connection"),
    "nmap-sU-100": ([(SCAN, NMAP)], "99 closed UDP ports within 4 seconds"),
    "nmap-sU-100-filtered": ([(SCAN, NMAP)], "99 closed UDP ports, no answers"),
    "nmap-frag-f": ([(SCAN, NMAP)], "200 ports; fragments are put together first, and show SYN"),
    "nmap-frag-ff": ([(SCAN, NMAP)], "100 ports in fragments"),
    "nmap-sourceport80-syn": ([(SCAN, NMAP)], "100 ports; the source port does not matter"),
    "nmap-decoy": (
        [(SCAN, NMAP), (SCAN, "192.0.2.101"), (SCAN, "192.0.2.102"), (SCAN, "192.0.2.103")],
        "four sources, 200 ports each; nothing tells the forged ones"),
    "masscan-1000": ([(SCAN, NMAP)], "1000 ports within 4 seconds"),
    "masscan-udp": ([(SCAN, NMAP)], "199 closed UDP ports within 5 seconds"),
    "bash-connect-scan": ([(SCAN, NMAP)], "connect() to 80 ports, 76 of them refused"),
    "mixed-http-and-sS": ([(SCAN, NMAP)], "200 ports; the client of the pages is harmless"),
    "mixed-two-scanners": ([(SCAN, NMAP), (XMAS, "192.0.2.59")],
                           "100 ports by one source, flags 0x29 by another"),

    # Slow, but scan-like in bin after bin.
    "nmap-slow-1500ms": ([(SCAN, NMAP)], "7 ports a bin for six bins: the fourth reports"),

    # Crafted flags.
    "nmap-sX-1000": ([(XMAS, NMAP)], "all probes have flags 0x29, and so are no flows"),
    "nmap-sN-1000": ([(NULL, NMAP)], "all probes have no flags, DF clear"),
    "nmap-scanflags-SYNFIN": ([(SYN_FIN, NMAP)], "all probes have flags 0x03"),
    "nmap-scanflags-0x3F": ([(SYN_FIN, NMAP)], "0x3F holds SYN and FIN and is no other signature"),
    "nmap-scanflags-0xFF": ([(XMAS, NMAP)], "all flags come before SYN with FIN"),
    "nmap-scanflags-0x2B": ([(FINGERPRINT, NMAP)], "0x2B comes before SYN with FIN"),
    "nmap-O": ([(FINGERPRINT, NMAP)], "no flags with DF first; it covers the 0x29 behind it"),
    "nmap-O-F": ([(FINGERPRINT, NMAP), (SCAN, NMAP)], "100 ports, then the fingerprint probes"),
    "hping-0x2B": ([(FINGERPRINT, NMAP)], "20 packets, one event"),
    "hping-0xFF": ([(XMAS, NMAP)], "20 packets, one event"),
    "hping-0x29": ([(XMAS, NMAP)], "20 packets, one event"),
    "hping-null-df": ([(FINGERPRINT, NMAP)], "no flags, DF set"),
    "hping-null-nodf": ([(NULL, NMAP)], "no flags, DF clear"),
    "hping-synfin": ([(SYN_FIN, NMAP)], "20 packets, one event"),
    "hping-single-each": ([(FINGERPRINT, NMAP), (SYN_FIN, NMAP)],
                          "0x2B is first and covers 0xFF, 0x29 and the packets without flags"),

    # Scans that stay below the limits, or that show no ports.
    "nmap-sS-3ports": (NOTHING, "3 ports of one address are harmless"),
    "nmap-sS-10ports": (NOTHING, "one scan-like bin makes a candidate, no report"),
    "nmap-sV-3ports": (NOTHING, "3 ports of one address"),
    "nmap-badsum": (NOTHING, "30 ports, one scan-like bin"),
    "nmap-slow-400ms": (NOTHING, "two scan-like bins of about 25 ports"),
    "nmap-slow-T2": (NOTHING, "two scan-like bins of about 25 ports"),
    "nmap-slow-T1": (NOTHING, "at most one port a bin"),
    "nmap-host-sweep-445": (NOTHING, "11 addresses on one port, one scan-like bin"),
    "nmap-host-sweep-22-T2": (NOTHING, "11 addresses on one port, one scan-like bin"),
    "nmap-sweep-5ports-11hosts": (NOTHING, "11 addresses on 5 ports: 2.2 are harmless"),
    "nmap-ping-sweep": (NOTHING, "ICMP has no ports; two packets to one address"),
    "nmap-sourceport53-udp": (NOTHING, "40 ports, one scan-like bin"),
    "nmap-sO": (NOTHING, "protocols without ports"),
    "nmap-sY": (NOTHING, "SCTP is not looked at"),
    "hping-port-walk": (NOTHING, "60 ports are not more than 64; one scan-like bin"),
    "hping-udp-walk": (NOTHING, "60 ports are not more than 64; one scan-like bin"),
    "hping-synrst": (NOTHING, "SYN with RST is no signature; one port"),
    "masscan-range-port80": (NOTHING, "11 addresses on 3 ports, one scan-like bin"),
    "mixed-distributed-scan": (NOTHING, "ten sources, 5 ports each, one scan-like bin"),

    # IPv6 is not looked at.
    "nmap6-sS-1000": (NOTHING, "IPv6"),
    "nmap6-sX-200": (NOTHING, "IPv6"),
    "nmap6-sN-200": (NOTHING, "IPv6"),
    "nmap6-sU-40": (NOTHING, "IPv6"),
    "nmap6-O": (NOTHING, "IPv6"),
    "nmap6-sweep-22": (NOTHING, "IPv6"),

    # Floods: many packets, one port.
    "hping-syn-flood-random-source": (NOTHING, "400 sources, one port each"),
    "hping-syn-flood-one-source": (NOTHING, "one source, one port"),

    # Ordinary traffic.
    "benign-http-120-small": (NOTHING, "closed connections to one port"),
    "benign-http-parallel": (NOTHING, "closed connections to one port"),
    "benign-http-keepalive-download": (NOTHING, "one connection"),
    "benign-http-5hosts": (NOTHING, "closed connections"),
    "benign-http-ipv6": (NOTHING, "IPv6"),
    "benign-dns-udp": (NOTHING, "answered datagrams to one port"),
    "benign-dns-mixed-tcp": (NOTHING, "answered datagrams, closed connections"),
    "benign-ssh-session": (NOTHING, "one connection"),
    "benign-ssh-10-logins": (NOTHING, "closed connections to one port"),
    "benign-ping": (NOTHING, "ICMP"),
    "benign-3ports-parallel": (NOTHING, "closed connections to 3 ports"),
    "benign-ftp-passive-40": (NOTHING, "41 ports, but every connection closed in the ordinary way"),
    "benign-tftp-25": (NOTHING, "the many ports are of the host's own flows, which go outward"),
    "benign-traceroute": (NOTHING, "16 UDP ports, one scan-like bin"),
    "benign-refused-retries": (NOTHING, "one closed port"),
    "benign-8-clients": (NOTHING, "closed connections to one port"),
    "benign-monitoring": (NOTHING, "what does not close in the ordinary way are 3 ports a bin"),
    "benign-icmp-unreach-udp": (NOTHING, "one closed port"),
    "benign-server-resets": (NOTHING, "one port"),
    "benign-port-knock": (NOTHING, "3 closed ports"),
    "benign-broadcast-multicast": (NOTHING, "the only host that is seen announces: outbound"),
}


def replay(agent, name):
    result = subprocess.run([agent, "replay", "--json", CAPTURES / (name + ".pcap")],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=120,
                            check=False)
    if result.returncode != 0:
        raise SystemExit(f"{name}: exit status {result.returncode}: {result.stderr}")
    return [json.loads(line) for line in result.stdout.splitlines()]


def differences(agent, name):
    objects = replay(agent, name)
    expected, why = TABLE[name]
    found = [(one["number"], one["source"]) for one in objects if one["kind"] == "finding"]
    if sorted(found) != sorted(expected):
        yield f"{name}: found {sorted(found)} instead of {sorted(expected)} ({why})"
    for one in objects:
        if one["kind"] in ("block", "event"):
            yield f"{name}: unexpected {one}"
    summary = objects[-1] if objects else {}
    if summary.get("kind") != "summary" or summary.get("findings") != len(expected):
        yield f"{name}: summary {summary}"


def main():
    agent, names = sys.argv[1], sys.argv[2:] or sorted(TABLE)
    present = {path.stem for path in CAPTURES.glob("*.pcap")}
    wrong = [f"{name}: no such capture" for name in sorted(set(TABLE) - present)]
    wrong += [f"{name}: not in the table" for name in sorted(present - set(TABLE))]
    for name in names:
        wrong += differences(agent, name)
    for line in wrong:
        print(line)
    print(f"{len(names)} captures, {len(wrong)} differences")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
