"""What the tests of the command line share: running the program, and captures made of literal bytes.

Each test file is run as: python3 FILE VELM_AGENT."""

import os
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

SYN, ACK, RST, FIN, PSH, URG = 0x02, 0x10, 0x04, 0x01, 0x08, 0x20
ATTACKER, HOST = "192.0.2.66", "192.0.2.10"
LOCAL = ["--local", "192.0.2.10/32"]
ATTACKER_MAC, HOST_MAC = b"\x02\0\0\0\0\x66", b"\x02\0\0\0\0\x10"


class Result:
    def __init__(self, process):
        self.status = process.returncode
        self.out = process.stdout.decode()
        self.err = process.stderr.decode()

    def __repr__(self):
        return f"status {self.status}\n{self.out}{self.err}"


class CliTest(unittest.TestCase):
    """A test with a directory of its own, in which the program runs."""

    agent = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="velm_cli.")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def write(self, name, content):
        with open(self.path(name), "wb") as file:
            file.write(content.encode() if isinstance(content, str) else content)
        return self.path(name)

    def read(self, *names):
        with open(self.path(*names), "rb") as file:
            return file.read()

    def run_agent(self, *arguments, **environment):
        process = subprocess.run(
            [self.agent, *arguments], cwd=self.folder, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120,
            env={**os.environ, "TZ": "UTC", **environment})
        return Result(process)

    def assert_done(self, result):
        self.assertEqual(result.status, 0, result)

    def assert_refused(self, result, *words):
        """Exit status 2, a message that holds the words, and no result."""
        self.assertEqual(result.status, 2, result)
        self.assertRegex(result.err, r"(?m)^velm_agent: ", result)
        for word in words:
            self.assertIn(word, result.err, result)

    def capture(self, name, *records):
        """Writes a little-endian pcap file of Ethernet frames."""
        header = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)
        return self.write(name, header + b"".join(records))


def tcp(time, source_port, port, flags=SYN, usec=0, source=ATTACKER, destination=HOST):
    """A capture record with a TCP packet of 40 bytes from IP on, from the attacker to the host."""
    address = lambda text: bytes(int(part) for part in text.split("."))
    macs = (HOST_MAC, ATTACKER_MAC) if destination == HOST else (ATTACKER_MAC, HOST_MAC)
    ip = struct.pack(">BBHHHBBH", 0x45, 0, 40, 1, 0, 64, 6, 0) + address(source) + address(destination)
    segment = struct.pack(">HHIIBBHHH", source_port, port, 0, 0, 0x50, flags, 1024, 0, 0)
    frame = b"".join(macs) + b"\x08\x00" + ip + segment
    return struct.pack("<IIII", time, usec, len(frame), len(frame)) + frame


def main():
    CliTest.agent = os.path.abspath(sys.argv.pop(1))
    unittest.main()
