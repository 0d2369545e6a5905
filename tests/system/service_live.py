"""The service on the kernel's own packet filter, scanned from another network namespace."""

import json
import os
import signal
import sys
import threading
import time

import cli
import namespaces
import service

RULES = os.path.join(os.path.dirname(__file__), "..", "..", "agent", "etc", "velm.nft")
HOST, CLIENT_SIDE = "192.0.2.1", "198.51.100.1"
CLIENT = "198.51.100.2"
BIN_SECONDS, BLOCK_SECONDS = 2, 20
# Beyond what is promised: the second that housekeeping may be late, and a busy machine.
SLACK_SECONDS = 4

# The scans, each from an address of its own: what nmap is told, and the event that must come of it.
SCANS = {
    "192.0.2.11": (["-sS", "-p1-400"], 7001),
    "192.0.2.12": (["-sN", "-p1-400"], 7002),
    "192.0.2.13": (["-sX", "-p1-400"], 7004),
    "192.0.2.14": (["-sF", "-p1-400"], 7001),
    "192.0.2.15": (["-O", "-p22,23"], 7000),
    "192.0.2.16": (["-sU", "-p1-400"], 7001),
}


class Live(service.ServiceTest):
    tools = ()

    def setUp(self):
        reason = namespaces.missing(*self.tools)
        if reason:
            self.skipTest(reason)
        super().setUp()
        self.host = namespaces.Namespace(self, "h")
        self.attacker = namespaces.Namespace(self, "a")
        self.client = namespaces.Namespace(self, "c")
        self.inner, self.wire = namespaces.wire(self.host, HOST + "/24", self.attacker, *(a + "/24" for a in SCANS))
        namespaces.wire(self.host, CLIENT_SIDE + "/24", self.client, CLIENT + "/24")
        self.host.run("nft", "-f", RULES)

    def live_config(self, agent="", rest=""):
        return self.config('sources = {"nflog:5"}, settings = {'
                           '["plg.ostrel.analysis.ScanTimeBinMillisec"] = %d}, %s'
                           % (BIN_SECONDS * 1000, agent), rest)

    def start(self, *arguments, **options):
        return super().start(*arguments, prefix=self.host.prefix, **options)

    def kernel_set(self):
        """The set's elements: address to (configured seconds, remaining seconds)."""
        answer = json.loads(self.host.run("nft", "-j", "list", "set", "inet", "velm", "blocked4").stdout)
        elements = answer["nftables"][1]["set"].get("elem", [])
        return {e["elem"]["val"]: (e["elem"]["timeout"], e["elem"]["expires"]) for e in elements}

    def dropped(self):
        answer = json.loads(
            self.host.run("nft", "-j", "list", "counter", "inet", "velm", "blocked").stdout)
        return answer["nftables"][1]["counter"]["packets"]

    def events(self):
        return [json.loads(line) for line in self.read("state", "events.jsonl").splitlines()]


class Visitor(threading.Thread):
    """A benign client that connects a few times a second."""

    def __init__(self, namespace):
        super().__init__()
        self.namespace = namespace
        self.visits = self.refusals = 0
        self.leaving = threading.Event()

    def run(self):
        while not self.leaving.wait(0.2):
            self.visits += 1
            if not self.namespace.connects(CLIENT, CLIENT_SIDE, 22, 20):
                self.refusals += 1


class Scans(Live):
    tools = ("nmap",)

    def first_times(self, lines):
        """The time of the first line of each source, in seconds."""
        first = {}
        for line in lines:
            columns = line.split(", ")
            usec = int(columns[-1]) / 1e6
            first[columns[11]] = min(first.get(columns[11], usec), usec)
        return first

    def test_scanners_are_found_logged_and_blocked_for_a_time_and_nobody_else_is(self):
        for address in (HOST, CLIENT_SIDE):
            self.host.serve(self, address, 22)
        block = "{blockAttackerSeconds = %d}" % BLOCK_SECONDS
        self.live_config(rest="probeConfigurationMap = {[0] = %s}" % ", ".join([block] * 5))
        process = self.start()
        visitor = Visitor(self.client)
        visitor.start()
        self.addCleanup(visitor.leaving.set)
        self.assertTrue(self.attacker.connects("192.0.2.11", HOST, 22))
        for address, (scan, _) in SCANS.items():
            self.attacker.start(self, "nmap", "-n", "-Pn", "-T4", "--max-retries", "1",
                                "--host-timeout", "30", "-S", address, "-e", self.wire, *scan, HOST)
        self.wait_for(lambda: len(self.blocks()) == len(SCANS), "not all were blocked")
        self.check_kernel_set()
        blocked = self.dropped()
        self.assertFalse(self.attacker.connects("192.0.2.11", HOST, 22, 1))
        self.wait_for(lambda: self.dropped() > blocked, "blocked packets pass")
        # Read from the kernel at most once a second.
        self.wait_for(lambda: self.status()["dropped_total"] > blocked, "drops are not told")
        self.wait_for(lambda: self.blocks() == {} and self.kernel_set() == {}, "blocks stay")
        self.assertTrue(self.attacker.connects("192.0.2.11", HOST, 22, 10))
        visitor.leaving.set()
        visitor.join()
        self.assertGreater(visitor.visits, 5)
        self.assertEqual(visitor.refusals, 0)
        self.assertEqual(self.stop(process), 0)
        self.check_findings()

    def check_kernel_set(self):
        elements = self.kernel_set()
        self.assertEqual(sorted(elements), sorted(SCANS))
        for seconds, remaining in elements.values():
            self.assertEqual(seconds, BLOCK_SECONDS)
            self.assertLessEqual(remaining, BLOCK_SECONDS)

    def check_findings(self):
        found = {}
        for event in self.events():
            if event["number"] >= 7000:
                fields = event["text"].split("|")
                self.assertEqual(fields[3], str(BLOCK_SECONDS))
                found.setdefault(fields[1], {}).setdefault(event["number"], event["time"])
        first = self.first_times(self.lines())
        self.assertEqual(sorted(found), sorted(SCANS))
        self.assertEqual(sorted(first), sorted(SCANS), "denied packets of each, and of nobody else")
        for address, (_, number) in SCANS.items():
            self.assertIn(number, found[address], address)
            self.assertLessEqual(found[address][number] - first[address],
                                 2 * BIN_SECONDS + SLACK_SECONDS, address)


# Sends datagrams to closed ports, each port once, some hundred in a second, and tells how many.
KNOCKS = """
import socket, sys, time
sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
sender.bind((sys.argv[1], 0))
print("ready", flush=True)
for port in range(1024, 65536):
    sender.sendto(b"knock", (sys.argv[2], port))
    time.sleep(0.002)
"""

# Sends the frames of a little-endian capture file on an interface.
FRAMES = """
import socket, struct, sys
sender = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
sender.bind((sys.argv[1], 0))
data = open(sys.argv[2], "rb").read()
at = 24
while at < len(data):
    length = struct.unpack_from("<I", data, at + 8)[0]
    sender.send(data[at + 16:at + 16 + length])
    at += 16 + length
"""


class Ends(Live):
    tools = ("nmap",)
    ATTACKER = "192.0.2.11"

    def knock(self):
        process = self.attacker.start(self, sys.executable, "-c", KNOCKS, self.ATTACKER, HOST)
        self.assertEqual(process.stdout.readline(), b"ready\n")
        return process

    def whole(self, lines):
        """Whether each of the lines has all columns and the times behind them."""
        return all(line.count(", ") == lines[0].count(", ") and line.rsplit(", ", 1)[1].isdigit()
                   for line in lines)

    def test_kill_while_logging_damages_no_line_but_the_last_and_lifts_no_block(self):
        self.live_config('allow = {"%s"}' % self.ATTACKER,
                         "packetFilterLog = {cacheSize = 0},"
                         "probeConfigurationMap = {[2] = {blockAttackerSeconds = 600}}")
        process = self.start()
        self.attacker.run("nmap", "-n", "-Pn", "-sN", "-p1", "--max-retries", "0", "-S", "192.0.2.12",
                          "-e", self.wire, HOST)
        self.wait_for(lambda: "192.0.2.12" in self.blocks())
        self.wait_for(lambda: os.path.exists(self.path("state", "blocks")))
        self.knock()
        for _ in range(3):
            before = len(self.lines())
            self.wait_for(lambda: len(self.lines()) > before + 100)
            process.kill()
            process.wait()
            self.assertIn("192.0.2.12", self.kernel_set())
            self.assertTrue(self.whole(self.lines()[:-1]))
            process = self.start()
            self.assertEqual(list(self.blocks()), ["192.0.2.12"])
            self.assertIn("192.0.2.12", self.kernel_set())
        self.assertEqual(self.stop(process), 0)
        damaged = [line for line in self.lines() if not self.whole([self.lines()[0], line])]
        self.assertLessEqual(len(damaged), 3)

    def test_blocks_come_back_to_a_table_that_was_made_anew(self):
        self.live_config()
        os.mkdir(self.path("state"))
        self.write("state/blocks", "velm blocks 1\n" + "".join(
            "10.%d.%d.1 %d\n" % (i // 250, i % 250, time.time() + 3600) for i in range(5000)))
        self.start()
        self.assertEqual(len(self.kernel_set()), 5000)
        self.host.run("nft", "delete", "table", "inet", "velm")
        self.host.run("nft", "-f", RULES)
        self.wait_for(lambda: len(self.kernel_set()) == 5000)
        self.assert_done(self.ask("unblock", "10.0.7.1"))
        self.assertEqual(len(self.kernel_set()), 4999)
        self.assertEqual(len(self.blocks()), 4999)

    def test_lifted_block_stays_lifted_where_several_groups_are_read(self):
        self.live_config('sources = {"nflog:5", "nflog:6"}')
        self.host.run("nft", "add", "element", "inet", "velm", "blocked4", "{ 192.0.2.12 timeout 1h }")
        self.start()
        self.assertEqual(self.status()["blocked_addresses"], 1)
        self.assert_done(self.ask("unblock", "192.0.2.12"))
        # Longer than the second after which a set that has lost something is looked at.
        time.sleep(2.5)
        self.assertEqual(self.kernel_set(), {})

    def test_blocks_wait_for_a_table_that_is_loaded_later(self):
        self.host.run("nft", "delete", "table", "inet", "velm")
        self.live_config()
        os.mkdir(self.path("state"))
        self.write("state/blocks", "velm blocks 1\n192.0.2.12 %d\n" % (time.time() + 3600))
        process = self.start()
        self.assertEqual(list(self.blocks()), ["192.0.2.12"])
        self.stop(process)
        self.assertIn(b"192.0.2.12", self.read("state", "blocks"))
        self.start()
        self.host.run("nft", "-f", RULES)
        self.wait_for(lambda: "192.0.2.12" in self.kernel_set())

    def test_handshakes_on_an_interface_are_decrypted(self):
        captures = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "captures", "tls")
        self.write("policy.xml", (
            '<SecurityConfiguration><SSLCredentials><SSLCredential id="3" name="c" '
            f'credentialType="PEM" identifier="{captures}/rsa2048.key.pem"/></SSLCredentials>'
            '<SSLHostConfigurations><SSLHostConfiguration id="7" name="h" sslCredentialId="3"/>'
            '</SSLHostConfigurations></SecurityConfiguration>'))
        self.live_config("""tlsSources = {"interface:%s"}, keyLog = "%s", policyFile = "%s",
            sslServers = {{address = "198.51.100.10", port = 443, hostConfiguration = 7}}"""
                         % (self.inner, self.path("keys.log"), self.path("policy.xml")))
        self.start()
        self.wait_for(lambda: f"interface:{self.inner}: inspected" in self.messages())
        self.attacker.run(sys.executable, "-c", FRAMES, self.wire,
                          captures + "/tls-rsa-2048-tls12-aes128gcm.pcap")
        self.wait_for(lambda: self.status()["ssl_answered_total"] == 1)
        self.assertEqual(len(self.read("keys.log").splitlines()), 2)

    def test_reloads_under_load_lose_and_repeat_nothing(self):
        self.live_config(rest="packetFilterLog = {cacheSize = 1024}, probeConfigurationMap = {}")
        process = self.start()
        self.knock()
        for count in range(1, 101):
            process.send_signal(signal.SIGHUP)
            self.wait_for(lambda: self.messages().count("configuration: read anew") >= count, pause=0.01)
        status = self.status()
        self.assertEqual(status["reloads_total"], 100)
        self.assertEqual(status["lost_total"], 0)
        self.assertEqual(self.stop(process), 0)
        ports = [int(line.split(", ")[14]) for line in self.lines() if self.ATTACKER in line]
        self.assertGreater(len(ports), 100)
        self.assertEqual(sorted(ports), list(range(1024, 1024 + len(ports))))

    def test_dry_run_blocks_nobody_in_the_kernel(self):
        self.live_config(rest="probeConfigurationMap = {[2] = {blockAttackerSeconds = 600}}")
        self.start("--dry-run")
        self.attacker.run("nmap", "-n", "-Pn", "-sN", "-p1", "--max-retries", "0", "-S", "192.0.2.12",
                          "-e", self.wire, HOST)
        self.wait_for(lambda: "192.0.2.12" in self.blocks())
        self.assertEqual(self.kernel_set(), {})

    def test_service_without_the_privilege_says_so(self):
        self.live_config()
        process = self.begin(prefix=[*self.host.prefix, "setpriv", "--bounding-set", "-net_admin",
                                     "--inh-caps", "-net_admin"])
        self.assertEqual(process.wait(service.PATIENCE), 1)
        self.assertIn("nflog:5", self.messages())


if __name__ == "__main__":
    cli.main()
