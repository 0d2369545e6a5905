#!/usr/bin/env python3
"""The work of compare-detectors.sh: see there. Usage: compare_detectors.py VELM_AGENT CAPTURE..."""

import collections
import json
import os
import pathlib
import re
import socket
import struct
import subprocess
import sys
import tempfile
import time

LONGEST_SECONDS = 90  # of a replay on the wire
NAMES = {7000: "fingerprint", 7001: "scan", 7002: "NULL", 7003: "SYN-FIN", 7004: "Xmas"}
FLAGS = [(0x20, "URG"), (0x10, "ACK"), (0x08, "PSH"), (0x04, "RST"), (0x02, "SYN"), (0x01, "FIN")]
SYN, RST, ACK, FIN = 0x02, 0x04, 0x10, 0x01

Packet = collections.namedtuple(
    "Packet", "time frame wire_length source destination protocol source_port destination_port "
    "flags dont_fragment ttl")


# --- Captures -------------------------------------------------------------------------------------

def read_frames(path):
    """The capture's frames as (seconds, bytes, length on the wire). Plain pcap, Ethernet."""
    data = pathlib.Path(path).read_bytes()
    order = "<" if data[:4] == b"\xd4\xc3\xb2\xa1" else ">"
    if struct.unpack(order + "I", data[20:24])[0] != 1:
        raise SystemExit(f"{path}: not an Ethernet capture")
    position = 24
    while position + 16 <= len(data):
        seconds, micros, kept, whole = struct.unpack_from(order + "IIII", data, position)
        position += 16
        yield seconds + micros / 1e6, data[position:position + kept], whole
        position += kept


def dotted(address):
    return ".".join(str(byte) for byte in address)


def parse(when, frame, whole):
    """An IPv4 packet with ports, or None."""
    if frame[12:14] != b"\x08\x00" or len(frame) < 34:
        return None
    ip = frame[14:]
    fragment = struct.unpack(">H", ip[6:8])[0]
    rest = ip[(ip[0] & 15) * 4:]
    if ip[9] not in (6, 17) or fragment & 0x1FFF or len(rest) < 4:
        return None
    ports = struct.unpack(">HH", rest[:4])
    flags = rest[13] if ip[9] == 6 and len(rest) > 13 else 0
    return Packet(when, frame, whole, dotted(ip[12:16]), dotted(ip[16:20]), ip[9], *ports, flags,
                  bool(fragment & 0x4000), ip[8])


def host_of(agent, path):
    """The addresses that the program takes for the host's own: all are to look at one host."""
    words = subprocess.run([agent, "replay", "--json", path], stdout=subprocess.DEVNULL,
                           stderr=subprocess.PIPE, text=True, check=False).stderr
    return set(re.findall(r"\b\d+\.\d+\.\d+\.\d+\b", words))


def refused(packets, local):
    """The packets that a host which serves the answering ports, and drops the rest, would log."""
    serves = set()
    begun = {}
    for packet in packets:
        pair = tuple(sorted([(packet.source, packet.source_port),
                             (packet.destination, packet.destination_port)])) + (packet.protocol,)
        begun.setdefault(pair, packet.source)
        answers = (packet.flags & (SYN | ACK | RST) == SYN | ACK if packet.protocol == 6
                   else begun[pair] != packet.source)
        if packet.source in local and answers:
            serves.add((packet.protocol, packet.source, packet.source_port))
    accepted = set()
    for packet in packets:
        pair = tuple(sorted([(packet.source, packet.source_port),
                             (packet.destination, packet.destination_port)])) + (packet.protocol,)
        if packet.source in local:
            if not packet.flags & RST:
                accepted.add(pair)
        elif packet.destination in local and pair not in accepted:
            port = (packet.protocol, packet.destination, packet.destination_port)
            opens = packet.protocol == 17 or packet.flags & (SYN | ACK | RST | FIN) == SYN
            if port in serves and opens:
                accepted.add(pair)
            else:
                yield packet


def kernel_line(packet):
    """A packet as the kernel's own firewall log prints it."""
    stamp = time.strftime("%b %d %H:%M:%S", time.gmtime(packet.time))
    ip = packet.frame[14:34]
    text = (f"{stamp} host kernel: [{packet.time % 1e6:13.6f}] DROP IN=eth0 OUT= "
            f"MAC={packet.frame[:14].hex(':')} SRC={packet.source} DST={packet.destination} "
            f"LEN={struct.unpack('>H', ip[2:4])[0]} TOS=0x{ip[1] & 0xFC:02X} PREC=0x00 "
            f"TTL={packet.ttl} ID={struct.unpack('>H', ip[4:6])[0]} "
            f"{'DF ' if packet.dont_fragment else ''}"
            f"PROTO={'TCP' if packet.protocol == 6 else 'UDP'} "
            f"SPT={packet.source_port} DPT={packet.destination_port} ")
    if packet.protocol == 17:
        return text + f"LEN={max(packet.wire_length - 34, 8)}"
    names = "".join(name + " " for bit, name in FLAGS if packet.flags & bit)
    return text + f"WINDOW=1024 RES=0x00 {names}URGP=0"


# --- The three detectors --------------------------------------------------------------------------

def ask_ours(agent, path, times):
    result = subprocess.run([agent, "replay", "--json", path], stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, text=True, check=True)
    for line in result.stdout.splitlines():
        finding = json.loads(line)
        if finding["kind"] == "finding":
            count = sum(one <= finding["time"] + 1e-6 for one in times)
            yield (f"{NAMES[finding['number']]} {finding['source']} after {count} packets, "
                   f"{finding['time'] - times[0]:.1f} s")


def psad_configuration(folder):
    text = pathlib.Path("/etc/psad/psad.conf").read_text()
    for name, value in {"HOSTNAME": "host", "PSAD_DIR": folder, "PSAD_RUN_DIR": folder,
                        "PSAD_FIFO_DIR": folder, "ENABLE_DNS_LOOKUPS": "N",
                        "ENABLE_WHOIS_LOOKUPS": "N", "IPTABLES_PREREQ_CHECK": "0"}.items():
        text = re.sub(rf"(?m)^{name}\s.*$", f"{name} {value};", text)
    path = pathlib.Path(folder, "psad.conf")
    path.write_text(text)
    return path


def psad_levels(folder, configuration, lines):
    """The danger level of each source in these lines."""
    messages = pathlib.Path(folder, "messages")
    messages.write_text("".join(line + "\n" for line in lines))
    result = subprocess.run(["psad", "-A", "-m", messages, "-c", configuration], timeout=120,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            check=False)
    found = re.findall(r"(?m)^\s+(\d+\.\d+\.\d+\.\d+)\s+DL: (\d), Packets", result.stdout)
    return {address: int(level) for address, level in found if int(level) > 0}


def ask_psad(folder, packets, local):
    lines = [(packet, kernel_line(packet)) for packet in refused(packets, local)]
    configuration = psad_configuration(folder)
    texts = [text for _, text in lines]
    for address, level in sorted(psad_levels(folder, configuration, texts).items()):
        low, high = 1, len(texts)
        while low < high:  # the fewest lines with which the source gets a level
            middle = (low + high) // 2
            if address in psad_levels(folder, configuration, texts[:middle]):
                high = middle
            else:
                low = middle + 1
        yield f"level {level} {address}, the first after {low} lines"


def ask_scanlogd(path, packets, local):
    inbound = [packet for packet in packets if packet.destination in local]
    if not inbound or not any(packet.protocol == 6 for packet in inbound):
        return
    if inbound[-1].time - inbound[0].time > LONGEST_SECONDS:
        yield f"not asked: longer than {LONGEST_SECONDS} s"
        return
    # The first process of the namespaces takes all others, and the namespaces, with it.
    result = subprocess.run(["unshare", "--net", "--mount", "--pid", "--fork", "--kill-child",
                             "--mount-proc", sys.executable, __file__, "--wire", path,
                             ",".join(sorted(local))], stdout=subprocess.PIPE, text=True,
                            timeout=LONGEST_SECONDS + 60, check=True)
    times = [packet.time - inbound[0].time for packet in inbound]
    for line in result.stdout.splitlines():
        passed, text = line.split(" ", 1)
        count = sum(one <= float(passed) for one in times)
        yield f"{text} after about {count} packets, {float(passed):.1f} s"


# --- Inside the namespaces ------------------------------------------------------------------------

def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def make_dev(folder):
    """A /dev of our own, so that /dev/log is ours."""
    run("mount", "--make-rprivate", "/")
    run("mount", "-t", "tmpfs", "tmpfs", folder)
    for name in ("null", "zero", "random", "urandom"):
        pathlib.Path(folder, name).touch()
        run("mount", "--bind", "/dev/" + name, f"{folder}/{name}")
    run("mount", "--rbind", folder, "/dev")
    log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    log.bind("/dev/log")
    os.chmod("/dev/log", 0o666)
    return log


def make_veth(hardware, local):
    run("ip", "link", "set", "lo", "up")
    run("ip", "link", "add", "sender", "type", "veth", "peer", "name", "host0")
    for name in ("all", "default", "host0"):
        pathlib.Path(f"/proc/sys/net/ipv4/conf/{name}/rp_filter").write_text("0")
        pathlib.Path(f"/proc/sys/net/ipv6/conf/{name}/disable_ipv6").write_text("1")
    run("ip", "link", "set", "host0", "address", hardware)
    for address in local:
        run("ip", "address", "add", address + "/24", "dev", "host0")
    run("ip", "link", "set", "sender", "up")
    run("ip", "link", "set", "host0", "up")
    run("ip", "route", "replace", "default", "dev", "host0")


def write_capture(path, frames):
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))
        for when, frame, _ in frames:
            micros = round(when * 1e6)
            file.write(struct.pack("<IIII", micros // 10**6, micros % 10**6, len(frame),
                                   len(frame)) + frame)


def whole_frame(frame, length):
    """A frame that the capture cut, with zeroes for what is missing."""
    return frame + bytes(length - len(frame))


def frames_to(path, local):
    for when, frame, length in read_frames(path):
        if frame[12:14] == b"\x08\x00" and dotted(frame[30:34]) in local:
            yield when, whole_frame(frame, length), length


def on_the_wire(path, local):
    """Prints "SECONDS TEXT" for each message of scanlogd."""
    folder = tempfile.mkdtemp()
    frames = list(frames_to(path, local))
    log = make_dev(folder)
    make_veth(frames[0][1][:6].hex(":"), local)
    feed = folder + "/feed.pcap"
    write_capture(feed, frames)
    os.makedirs("/run/scanlogd/empty", exist_ok=True)
    run("scanlogd")
    time.sleep(0.5)
    replay = subprocess.Popen(["tcpreplay", "--quiet", "--intf1=sender", feed],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    began = time.monotonic()
    log.settimeout(0.5)
    silence = 0
    while replay.poll() is None or silence < 3:
        try:
            message = log.recv(4096).decode(errors="replace")
        except socket.timeout:
            silence += replay.poll() is not None
            continue
        source = re.search(r"(\d+\.\d+\.\d+\.\d+)\S* to", message)
        if source:
            print(f"{time.monotonic() - began:.3f} scan {source[1]}", flush=True)


# --- The table ------------------------------------------------------------------------------------

def show(agent, path):
    frames = list(read_frames(path))
    times = [when for when, _, _ in frames]
    packets = [packet for packet in (parse(*frame) for frame in frames) if packet]
    local = host_of(agent, path)
    print(f"{pathlib.Path(path).stem}: {len(times)} packets, {times[-1] - times[0]:.1f} s")
    with tempfile.TemporaryDirectory() as folder:
        columns = {"ours": list(ask_ours(agent, path, times)),
                   "psad": list(ask_psad(folder, packets, local)),
                   "scanlogd": list(ask_scanlogd(path, packets, local))}
    for name, reports in columns.items():
        for report in reports or ["nothing"]:
            print(f"    {name:9} {report}", flush=True)


def main():
    if sys.argv[1] == "--wire":
        return on_the_wire(sys.argv[2], sys.argv[3].split(","))
    for path in sys.argv[2:]:
        show(sys.argv[1], path)
    return None


if __name__ == "__main__":
    main()
