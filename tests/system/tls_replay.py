"""Replays with --tls: captured handshakes in, and a key log out with which a packet analyser reads
what the connections carried.

Run as: python3 FILE VELM_AGENT CAPTURES."""

import hashlib
import json
import os
import re
import resource
import shutil
import stat
import struct
import subprocess
import sys

import cli

PCAP_HEADER_LEN = 24
# The long line of one capture: its beginning and its digest.
LONG_LINE = b"# known line 1 of connection 1 in tls-rsa-2048-tls12-bigdata "
LONG_LINE_LEN = 60061
LONG_LINE_SHA256 = "a0adf78e5b3bc75232f476f384827981276b31374a6445436c806a74e7834d4b"
ZERO = ("failed", "unanswered", "dropped", "incomplete", "malformed", "notTls", "gaps", "evicted",
        "fragments", "keyLogFailures")


class TlsReplay(cli.CliTest):
    captures = None

    @classmethod
    def setUpClass(cls):
        with open(os.path.join(cls.captures, "captures.json")) as file:
            cls.known = json.load(file)

    def named(self, name):
        return next(one for one in self.known if one["file"] == name + ".pcap")

    def file(self, name):
        return os.path.join(self.captures, name)

    def configuration(self, key, servers, more=""):
        policy = self.write("policy.xml", (
            '<SecurityConfiguration><SSLCredentials>'
            f'<SSLCredential id="3" name="c" credentialType="PEM" identifier="{self.file(key)}"/>'
            '</SSLCredentials><SSLHostConfigurations>'
            '<SSLHostConfiguration id="7" name="h" sslCredentialId="3"/>'
            '</SSLHostConfigurations></SecurityConfiguration>'))
        listed = ", ".join(f'{{address = "{address}", port = {port}, hostConfiguration = 7}}'
                           for address, port in servers)
        return self.write("agent.lua", f'return {{agent = {{policyFile = "{policy}", '
                                       f'sslServers = {{{listed}}}, {more}}}}}')

    def replay(self, key, captures, more='keyLog = "keys.log"', arguments=()):
        servers = sorted({(one["address"], one["port"]) for one in captures})
        return self.run_agent("replay", "--tls", "--json", "--config",
                              self.configuration(key, servers, more), *arguments,
                              *(self.file(one["file"]) for one in captures))

    def counts(self, result):
        lines = [json.loads(line) for line in result.out.splitlines()]
        self.assertEqual([line["kind"] for line in lines[-2:]], ["tls", "summary"], result)
        return lines[-2]

    def key_log(self):
        return self.read("keys.log").decode().splitlines()

    def follow(self, capture, streams, key_log):
        """The decrypted bytes of each TCP stream of the capture."""
        taps = [word for i in range(streams) for word in ("-z", f"follow,tls,raw,{i}")]
        result = subprocess.run(
            ["tshark", "-r", capture, "-o", f"tls.keylog_file:{key_log}", "-q", *taps],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=300,
            env={**os.environ, "HOME": self.folder})
        self.assertEqual(result.returncode, 0)
        data = b""
        for line in result.stdout.decode().splitlines():
            text = line.strip()
            if re.fullmatch(r"([0-9a-f]{2})+", text):
                data += bytes.fromhex(text)
        return data

    def joined(self, captures):
        """One capture with the packets of all."""
        parts = [self.read(self.file(one["file"])) for one in captures]
        for part in parts:
            self.assertEqual(struct.unpack_from("<I", part)[0], 0xA1B2C3D4)
        return self.write("joined.pcap", parts[0][:PCAP_HEADER_LEN] +
                          b"".join(part[PCAP_HEADER_LEN:] for part in parts))

    def test_analyser_reads_every_capture_with_the_key_log_alone(self):
        if shutil.which("tshark") is None:
            self.skipTest("skipped: needs tshark")
        captures = [one for one in self.known if one["rsa"] > 0]
        self.assertGreaterEqual(len(captures), 20)
        for key in sorted({one["key"] for one in captures}):
            mine = [one for one in captures if one["key"] == key]
            result = self.replay(key, mine)
            self.assert_done(result)
            counts = self.counts(result)
            self.assertEqual(counts["decrypted"], sum(one["rsa"] for one in mine), result)
            self.assertEqual(counts["rsa"], counts["decrypted"])
            self.assertEqual(counts["resumed"], sum(one["resumed"] for one in mine))
            self.assertEqual(counts["handshakes"], counts["rsa"] + counts["resumed"])
            self.assertEqual({name: counts[name] for name in ZERO}, dict.fromkeys(ZERO, 0))
            self.assertEqual(counts["others"], {})
        streams = sum(one["rsa"] + one["resumed"] for one in captures)
        joined = self.joined(captures)
        data = self.follow(joined, streams, self.path("keys.log"))
        for one in captures:
            for line in one["lines"]:
                self.assertTrue(line.encode() + b"\n" in data, line)
                self.assertTrue(line.encode()[::-1] + b"\n" in data, line)
        # Sent behind the second handshake, which was encrypted itself.
        self.assertFalse(b"known line 2 of connection 1 in tls-rsa-2048-tls12-renegotiation" in data)
        begin = data.index(LONG_LINE)
        line = data[begin:begin + LONG_LINE_LEN]
        self.assertEqual(hashlib.sha256(line).hexdigest(), LONG_LINE_SHA256)
        # The analyser has the lines from the key log: without it there is none.
        self.assertEqual(self.follow(joined, streams, self.write("none.log", "")), b"")

    def test_key_log_lines_are_those_of_the_connection(self):
        result = self.replay("rsa2048.key.pem", [self.named("tls-rsa-2048-tls12-aes128gcm")])
        self.assert_done(result)
        secret = ("03030a5ddeb993b1c4c40054d28b2e066e1ef5826401dd03c7ece0e386a9e743"
                  "ea350dc318210d3a8eaf7e7cad4f10e4")
        random = "024d34a48ac5f7ae397bf10badd64462a17a2a7b65ca8fd83a76db5f83f7f243"
        self.assertEqual(self.key_log(), [f"RSA 0e446108cec3a8c0 {secret}",
                                          f"PMS_CLIENT_RANDOM {random} {secret}"])

    def test_key_log_is_for_its_owner_alone(self):
        os.umask(0o022)
        result = self.replay("rsa2048.key.pem", [self.named("tls-rsa-2048-tls12-aes128gcm")])
        self.assert_done(result)
        self.assertEqual(stat.S_IMODE(os.stat(self.path("keys.log")).st_mode), 0o600)

    def test_key_log_is_appended_to_and_ends_a_torn_line(self):
        self.write("keys.log", "# torn")
        result = self.replay("rsa2048.key.pem", [self.named("tls-rsa-2048-tls12-aes128gcm")])
        self.assert_done(result)
        self.assertEqual([line[:6] for line in self.key_log()], ["# torn", "RSA 0e", "PMS_CL"])

    def test_secrets_that_find_no_room_are_counted_and_told(self):
        before = resource.getrlimit(resource.RLIMIT_FSIZE)
        resource.setrlimit(resource.RLIMIT_FSIZE, (1000, before[1]))
        try:
            result = self.replay("rsa2048.key.pem", [self.named("tls-rsa-2048-tls12-5conns")])
        finally:
            resource.setrlimit(resource.RLIMIT_FSIZE, before)
        self.assertEqual(result.status, 1, result)
        counts = self.counts(result)
        # Each secret takes 298 bytes.
        self.assertEqual((counts["decrypted"], counts["keyLogFailures"]), (5, 2))
        self.assertIn("keys.log: 2 secrets could not be written", result.err)
        self.assertEqual(len(self.read("keys.log")), 1000)

    def test_without_a_key_log_nothing_is_written(self):
        before = set(os.listdir(self.folder))
        result = self.replay("rsa2048.key.pem", [self.named("tls-rsa-2048-tls12-aes128gcm")], "")
        self.assert_done(result)
        self.assertEqual(self.counts(result)["decrypted"], 1)
        self.assertEqual(set(os.listdir(self.folder)) - before, {"agent.lua", "policy.xml"})

    def test_symbolic_link_is_no_key_log(self):
        self.write("target", "")
        os.symlink("target", self.path("keys.log"))
        result = self.replay("rsa2048.key.pem", [self.named("tls-rsa-2048-tls12-aes128gcm")])
        self.assert_refused(result, "cannot write key log keys.log: it is a symbolic link")
        self.assertEqual(self.read("target"), b"")

    def test_pipe_and_directory_are_no_key_logs(self):
        one = [self.named("tls-rsa-2048-tls12-aes128gcm")]
        os.mkfifo(self.path("keys.log"))
        self.assert_refused(self.replay("rsa2048.key.pem", one),
                            "cannot write key log keys.log: it is no regular file")
        os.remove(self.path("keys.log"))
        os.mkdir(self.path("keys.log"))
        self.assert_refused(self.replay("rsa2048.key.pem", one), "cannot write key log keys.log: ")

    def test_wrong_key_gives_no_line(self):
        result = self.replay("chain.key.pem", [one for one in self.known
                                               if one["key"] == "rsa2048.key.pem" and one["rsa"]])
        self.assert_done(result)
        counts = self.counts(result)
        self.assertEqual((counts["rsa"], counts["decrypted"], counts["failed"]), (20, 0, 20))
        self.assertEqual(self.key_log(), [])

    def test_other_key_exchanges_are_named_and_not_posted(self):
        captures = [one for one in self.known if one["file"].startswith("tls-neg-")]
        self.assertEqual(len(captures), 4)
        result = self.replay("rsa2048.key.pem", captures)
        self.assert_done(result)
        counts = self.counts(result)
        self.assertEqual(counts["others"], {"DHE": 1, "ECDHE": 2, "TLS 1.3": 1})
        self.assertEqual((counts["handshakes"], counts["other"], counts["rsa"]), (4, 4, 0))
        self.assertEqual(self.key_log(), [])

    def test_renegotiation_is_counted(self):
        result = self.replay("rsa2048.key.pem", [self.named("tls-rsa-2048-tls12-renegotiation")])
        counts = self.counts(result)
        self.assertEqual((counts["handshakes"], counts["renegotiations"]), (1, 1))
        self.assertEqual(len(self.key_log()), 2)

    def test_other_servers_are_left_alone(self):
        one = dict(self.named("tls-rsa-2048-tls12-aes128gcm"), port=8443)
        counts = self.counts(self.replay("rsa2048.key.pem", [one]))
        self.assertEqual((counts["connections"], counts["handshakes"]), (0, 0))

    def test_text_report_names_what_was_seen(self):
        one = self.named("tls-neg-dhe-rsa-tls12")
        result = self.run_agent(
            "replay", "--tls", "--config",
            self.configuration("rsa2048.key.pem", [(one["address"], one["port"])]),
            self.file(one["file"]))
        self.assert_done(result)
        self.assertRegex(result.out, r"(?m)^tls handshakes +1$")
        self.assertRegex(result.out, r"(?m)^tls other +1 ")
        self.assertRegex(result.out, r"(?m)^  DHE +1$")

    def test_servers_must_be_named(self):
        one = self.file(self.known[0]["file"])
        self.assert_refused(self.run_agent("replay", "--tls", one), "agent.sslServers names no server")
        for bad, words in (
                ("5", "agent.sslServers: table expected, got number"),
                ("{5}", "agent.sslServers[1]: table expected, got number"),
                ("{x = {}}", "agent.sslServers: array of tables expected"),
                ("{{address = '192.0.2.1', port = 443}}",
                 "agent.sslServers[1].hostConfiguration is missing"),
                ("{{address = '192.0.2.1', port = 0, hostConfiguration = 1}}",
                 "agent.sslServers[1].port: integer from 1 to 65535 expected"),
                ("{{address = '192.0.2.1', port = 1.5, hostConfiguration = 1}}",
                 "agent.sslServers[1].port: integer from 1 to 65535 expected"),
                ("{{address = '192.0.2.1', port = 443, hostConfiguration = 1, x = 1}}",
                 "unknown key agent.sslServers[1].x"),
                ("{{address = 'server', port = 443, hostConfiguration = 1}}",
                 'server "server" port 443 is no address')):
            config = self.write("bad.lua", f"return {{agent = {{sslServers = {bad}}}}}")
            self.assert_refused(self.run_agent("replay", "--tls", "--config", config, one), words)


if __name__ == "__main__":
    TlsReplay.captures = os.path.abspath(sys.argv.pop())
    cli.main()
