"""A replay's messages in a real rsyslogd: what arrives, what its own parsers read, what a restart costs.

Run as: python3 FILE VELM_AGENT CAPTURES."""

import glob
import json
import os
import signal
import subprocess
import sys
import time
import unittest
from collections import Counter
from datetime import datetime, timedelta, timezone

import cli
import syslog_frames
from syslog_server import PATIENCE, Receiver, program, wait_for

EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)
LOCAL0 = 16
WARNING = 4
NAMES = {6: "TCP", 17: "UDP"}
captures = None

# The receiver's CEF parser may take the extension's first character for a blank.
FIRST_KEYS = {"cn1", "n1"}


def usec(text):
    return (datetime.fromisoformat(text) - EPOCH) // timedelta(microseconds=1)


@unittest.skipUnless(program(), "skipped: rsyslogd is not installed")
class SyslogTest(cli.CliTest):
    def setUp(self):
        super().setUp()
        os.mkdir(self.path("receiver"))
        self.receiver = Receiver(self.path("receiver"))
        self.addCleanup(self.receiver.stop)

    def capture_file(self, name):
        return os.path.join(captures, name + ".pcap")

    def config(self, family, number, more=""):
        return self.write("agent.lua", """return {
            agent = {syslog = {target = "udp://127.0.0.1:9", family = "%s", format = %d%s}},
            agentConfiguration = {hostID = 7, hostname = "web1"},
            packetFilterMap = {[1] = {name = "Denied", filterAction = 2}},
            interfaceMap = {["02:00:c0:00:02:0a"] = {name = "eth0"}},
        }""" % (family, number, more))

    def replay(self, target, family, number, *names):
        """Replays the captures into the running receiver; returns the summary."""
        result = self.run_agent("replay", "--json", "--config", self.config(family, number),
                                "--syslog", target, *map(self.capture_file, names))
        self.assert_done(result)
        summary = json.loads(result.out.splitlines()[-1])
        expected = summary["logged"] + summary["findings"]
        wait_for(lambda: self.receiver.count() >= expected, "%d messages" % expected)
        return summary

    def entries(self):
        return [message for message in self.receiver.messages() if message.kind == "packet"]

    def assert_header(self, message, packet):
        self.assertEqual(message.pri, str(LOCAL0 * 8 + WARNING))
        self.assertEqual((message.host, message.app), ("web1", "velm_agent"))
        self.assertTrue(message.pid.isdigit())
        self.assertEqual(usec(message.time), packet.usec)

    def cef_fields(self, message):
        cef = dict(message.fields["cef"])
        extension = dict(cef.pop("Extensions"))
        first = [key for key in extension if key in FIRST_KEYS]
        self.assertEqual(len(first), 1, extension)
        self.assertEqual(extension.pop(first[0]), "7")
        return cef, extension

    def assert_cef(self, message, packet, name, number):
        cef, extension = self.cef_fields(message)
        self.assertEqual((cef["DeviceVendor"], cef["DeviceProduct"], cef["SignatureID"],
                          cef["Name"], cef["Severity"]),
                         ("Zellora", "Velm Agent", number, name, "5"))
        expected = {
            "cn1Label": "Host ID", "dvchost": "web1", "act": "Deny", "dmac": packet.dmac,
            "smac": packet.smac, "ZelloraFrameType": "IP", "src": packet.source,
            "dst": packet.destination, "in": str(packet.length), "proto": NAMES[packet.protocol],
            "spt": str(packet.sport), "dpt": str(packet.dport), "cnt": "1"}
        if packet.fragment & 0x4000:
            expected.update({"cs3": "DF 0", "cs3Label": "Fragmentation Bits"})
        if packet.protocol == 6:
            flags = " ".join(["0x%02X" % (packet.flags >> 6)] + syslog_frames.words(packet.flags))
            expected.update({"cs2": flags, "cs2Label": "TCP Flags"})
        self.assertEqual(extension, expected)

    def check_cef(self, target, capture, name, number):
        self.receiver.start()
        self.replay(target, "cef", 2, capture)
        packets = syslog_frames.packets(self.capture_file(capture))
        entries = self.entries()
        self.assertEqual(len(entries), len(packets))
        for message, packet in zip(entries, packets):
            self.assert_header(message, packet)
            self.assert_cef(message, packet, name, number)

    def test_cef_over_tcp(self):
        self.check_cef(self.receiver.target("tcp"), "nmap-sX-1000", "Invalid Flags", "101")

    def test_cef_over_udp(self):
        self.check_cef(self.receiver.target("udp"), "hping-null-df", "Invalid Flags", "101")

    def test_plain_form_is_read_as_the_kernels_own_line(self):
        self.receiver.start()
        scans = ["nmap-sX-1000", "nmap-sN-1000", "nmap-sU-100-filtered", "hping-synfin"]
        self.replay(self.receiver.target("tcp"), "plain", 0, *scans)
        packets = [packet for scan in scans
                   for packet in syslog_frames.packets(self.capture_file(scan))
                   if packet.protocol in NAMES]
        entries = [entry for entry in self.entries()
                   if entry.fields.get("packet", {}).get("PROTO") in NAMES.values()]
        self.assertEqual(len(entries), len(packets))
        for message, packet in zip(entries, packets):
            self.assert_plain(message, packet)

    def assert_plain(self, message, packet):
        fields = dict(message.fields)
        udp = packet.protocol == 17
        self.assertEqual(fields["reason"], "PKT:1" if udp else "Invalid_Flags")
        self.assertEqual((fields["hostid"], fields["act"]), ("7", "Deny"))
        expected = {"IN": "eth0", "OUT": "", "MAC": f"{packet.dmac}:{packet.smac}:08:00",
                    "SRC": packet.source, "DST": packet.destination, "LEN": str(packet.length),
                    "PROTO": NAMES[packet.protocol], "SPT": str(packet.sport),
                    "DPT": str(packet.dport), "CNT": "1"}
        if packet.fragment & 0x4000:
            expected.update({"DF": None, "FRAG": "0"})
        if not udp:
            expected["RES"] = "0x%02X" % (packet.flags >> 6)
            expected.update({word: None for word in syslog_frames.words(packet.flags)})
        self.assertEqual(fields["packet"], expected)

    def test_findings_are_messages_of_their_own(self):
        self.receiver.start()
        self.replay(self.receiver.target("tcp"), "cef", 2, "nmap-sX-1000")
        events = [message for message in self.receiver.messages() if message.kind == "event"]
        self.assertEqual(len(events), 1)
        cef, extension = self.cef_fields(events[0])
        self.assertEqual((cef["SignatureID"], cef["Name"], cef["Severity"]),
                         ("7004", "XmasScan", "8"))
        self.assertEqual(extension, {"cn1Label": "Host ID", "dvchost": "web1",
                                     "src": syslog_frames.ATTACKER,
                                     "msg": "XmasScan|192.0.2.66|6|0"})
        self.assertEqual(events[0].pri, str(LOCAL0 * 8 + WARNING))

    def test_local_socket_with_the_form_that_its_readers_expect(self):
        self.receiver.start()
        result = self.run_agent(
            "replay", "--config", self.config("plain", 0, ', framing = "local", facility = "daemon"'),
            "--syslog", self.receiver.socket(), self.capture_file("hping-null-df"))
        self.assert_done(result)
        packets = syslog_frames.packets(self.capture_file("hping-null-df"))
        wait_for(lambda: self.receiver.count() > len(packets), "the messages")
        messages = self.receiver.messages()
        for message, packet in zip((m for m in messages if "packet" in m.fields), packets):
            self.assertEqual((message.app, message.pri), ("velm_agent", str(3 * 8 + WARNING)))
            self.assert_plain(message, packet)

    def test_restarts_of_the_receiver_lose_nothing_over_tcp(self):
        every = sorted(glob.glob(self.capture_file("nmap-*"))) * 3
        config = self.config("cef", 2, ", queue = 100")
        printed = self.run_agent("replay", "--config", config, "--syslog", "-", *every)
        self.assert_done(printed)
        expected = Counter(line.split(" - ", 1)[1] for line in printed.out.splitlines())
        total = sum(expected.values())
        self.assertGreater(total, 20000)

        self.receiver.start()
        with open(self.path("err"), "wb") as err:
            agent = subprocess.Popen(
                [self.agent, "replay", "--config", config, "--syslog",
                 self.receiver.target("tcp"), *every],
                cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=err)
        self.addCleanup(agent.wait)
        self.addCleanup(agent.kill)
        for part in (1, total // 6):
            self.restart_in_the_middle(agent, part, total)
        self.assertEqual(agent.wait(PATIENCE), 0, self.read("err"))
        self.receiver.stop()
        received = Counter(message.text for message in self.receiver.messages())
        self.assertEqual(expected - received, Counter())
        self.assertEqual(set(received), set(expected))

    def restart_in_the_middle(self, agent, lines, total):
        """Stops the receiver once it has so many lines. The agent runs in small steps until then, and
        stands still meanwhile, so that it can't have finished before."""
        end = time.monotonic() + PATIENCE
        while self.receiver.count() < lines and time.monotonic() < end:
            agent.send_signal(signal.SIGCONT)
            time.sleep(0.003)
            agent.send_signal(signal.SIGSTOP)
        self.assertIsNone(agent.poll())
        self.receiver.stop()
        self.assertLess(self.receiver.count(), total)
        agent.send_signal(signal.SIGCONT)
        self.receiver.start()


if __name__ == "__main__":
    captures = os.path.abspath(sys.argv.pop(2))
    cli.main()
