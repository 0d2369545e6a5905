"""The running service's answers: numbers, blocks, and what clients may not do to it."""

import json
import os
import signal
import socket
import stat
import subprocess
import time

import cli
import service
from cli import tcp

START = 1700000000
XMAS = 0x29
ATTACKERS = ["192.0.2.66", "198.51.100.7"]
BLOCKING = "probeConfigurationMap = {[4] = {blockAttackerSeconds = %d}}"


class Control(service.ServiceTest):
    def start_blocking(self, seconds=600, agent=""):
        """A service that has seen an Xmas scan of each attacker."""
        self.capture("xmas.pcap", *(tcp(START, 40000, 80, XMAS, source=a) for a in ATTACKERS))
        self.config('sources = {"null", "pcap:%s"}, %s' % (self.path("xmas.pcap"), agent),
                    BLOCKING % seconds)
        process = self.start()
        self.wait_for(lambda: self.status()["findings_total"] == 2)
        return process

    def test_status_counts_what_has_happened(self):
        self.start_blocking()
        self.wait_for(lambda: self.status()["events_total"] == 2)
        status = self.status()
        expected = {"ok": True, "entries_total": 2, "logged_total": 2, "suppressed_total": 0,
                    "findings_total": 2, "blocks_total": 2, "blocked_addresses": 2,
                    "reloads_total": 0, "lost_total": 0, "log_failures_total": 0}
        self.assertEqual({name: status[name] for name in expected}, expected)
        self.assertGreater(status["uptime_seconds"], 0)

    def test_status_for_people_has_a_line_for_each_number(self):
        self.config()
        self.start()
        result = self.ask("status")
        self.assert_done(result)
        self.assertRegex(result.out, r"(?m)^entries_total +0$")
        self.assertRegex(result.out, r"(?m)^version +[0-9.]+$")

    def test_blocks_are_listed_with_the_time_that_remains(self):
        self.start_blocking(600)
        blocks = self.blocks()
        self.assertEqual(sorted(blocks), ATTACKERS)
        for seconds in blocks.values():
            self.assertTrue(600 - service.PATIENCE < seconds <= 600, seconds)
        self.assertRegex(self.ask("blocks").out, r"(?m)^192\.0\.2\.66 +[0-9]+$")

    def test_block_is_lifted(self):
        self.start_blocking()
        result = self.ask("unblock", ATTACKERS[0])
        self.assert_done(result)
        self.assertEqual(result.out, "unblocked 192.0.2.66\n")
        self.assertEqual(list(self.blocks()), [ATTACKERS[1]])
        again = self.ask("unblock", ATTACKERS[0])
        self.assertEqual(again.status, 1)
        self.assertIn("not blocked", again.err)

    def test_text_that_is_no_address_is_wrong_usage(self):
        self.config()
        for text in ("x", "1.2.3", "1.2.3.4.5", "256.1.1.1", "::1", "1.2.3.4\nstatus"):
            self.assert_refused(self.ask("unblock", text), "is no IPv4 address")

    def test_no_service_is_a_clear_failure(self):
        self.config()
        for request in (["status"], ["blocks"], ["unblock", "192.0.2.1"]):
            result = self.ask(*request)
            self.assertEqual(result.status, 1)
            self.assertIn("state/control: no service is running", result.err)

    def test_socket_of_a_killed_service_is_no_service(self):
        self.config()
        process = self.start()
        process.kill()
        process.wait()
        self.assertTrue(os.path.exists(self.path("state", "control")))
        self.assertIn("no service is running", self.ask("status").err)
        self.start()
        self.status()

    def test_socket_goes_with_the_service(self):
        self.config()
        self.stop(self.start())
        self.assertFalse(os.path.exists(self.path("state", "control")))

    def test_blocks_survive_a_kill(self):
        process = self.start_blocking(600)
        self.wait_for(lambda: len(self.kept()) == 2)
        process.kill()
        process.wait()
        self.config(rest=BLOCKING % 600)
        self.start()
        self.assertEqual(sorted(self.blocks()), ATTACKERS)
        self.assertIn("blocks: 2 of before are in force again", self.messages())

    def kept(self):
        return self.read("state", "blocks").decode().splitlines()[1:]

    def test_lifted_block_stays_lifted_after_a_kill(self):
        process = self.start_blocking()
        self.assert_done(self.ask("unblock", ATTACKERS[0]))
        process.kill()
        process.wait()
        self.config()
        self.start()
        self.assertEqual(list(self.blocks()), [ATTACKERS[1]])

    def test_clock_that_was_set_back_makes_no_block_longer_than_the_driver_knows(self):
        os.mkdir(self.path("state"))
        self.write("state/blocks", "velm blocks 1\n192.0.2.67 99999999999\n")
        self.config()
        self.start()
        self.assertLessEqual(self.blocks()["192.0.2.67"], 4294967)

    def test_file_of_events_has_two_generations_of_bounded_size(self):
        os.mkdir(self.path("state"))
        old = "{}\n" * (16 << 20)
        self.write("state/events.jsonl", old)
        self.start_blocking()
        self.wait_for(lambda: os.path.exists(self.path("state", "events.jsonl.1")))
        self.assertTrue(self.read("state", "events.jsonl.1").startswith(old[:100].encode()))
        self.wait_for(lambda: os.path.exists(self.path("state", "events.jsonl")))
        self.assertLess(os.stat(self.path("state", "events.jsonl")).st_size, 1000)

    def test_dry_run_neither_keeps_nor_restores_blocks(self):
        os.mkdir(self.path("state"))
        kept = "velm blocks 1\n192.0.2.99 99999999999\n"
        self.write("state/blocks", kept)
        self.capture("xmas.pcap", tcp(START, 40000, 80, XMAS))
        self.config('sources = {"null", "pcap:%s"}' % self.path("xmas.pcap"), BLOCKING % 600)
        process = self.start("--dry-run")
        self.wait_for(lambda: list(self.blocks()) == ["192.0.2.66"])
        self.assertEqual(self.stop(process), 0)
        self.assertEqual(self.read("state", "blocks").decode(), kept)

    def test_only_blocks_that_go_on_are_restored(self):
        os.mkdir(self.path("state"))
        self.write("state/blocks", "velm blocks 1\n192.0.2.66 1700000000\n192.0.2.67 %d\n"
                   % (os.stat(self.folder).st_mtime + 3600))
        self.config()
        self.start()
        self.assertEqual(list(self.blocks()), ["192.0.2.67"])

    def test_damaged_list_of_blocks_is_told_and_costs_no_start(self):
        os.mkdir(self.path("state"))
        self.config()
        for text, words in (("", "is no list of blocks"), ("velm blocks 2\n", "is no list of blocks"),
                            ("velm blocks 1\nx\n", "has a line that is no block"),
                            ("velm blocks 1\n1.2.3.4.5 9\n", "has a line that is no block"),
                            ("velm blocks 1\n1.2.3.256 9\n", "has a line that is no block")):
            with self.subTest(text):
                self.write("state/blocks", text)
                process = self.start()
                self.assertIn("blocks: the kept list " + words, self.messages())
                self.assertEqual(self.blocks(), {})
                self.stop(process)

    def test_statistics_file_is_of_the_collectors_form(self):
        process = self.start_blocking(agent='statisticsFile = "%s"' % self.path("velm.prom"))
        self.stop(process)
        self.assertEqual(stat.S_IMODE(os.stat(self.path("velm.prom")).st_mode), 0o644)
        kinds, values = {}, {}
        for line in self.read("velm.prom").decode().splitlines():
            if line.startswith("# TYPE "):
                _, _, name, kind = line.split(" ")
                self.assertNotIn(name, kinds)
                kinds[name] = kind
            elif not line.startswith("# HELP "):
                sample, value = line.rsplit(" ", 1)
                self.assertIn(sample.split("{")[0], kinds)
                values[sample] = float(value)
        self.assertEqual(values["velm_entries_total"], 2)
        self.assertEqual(values['velm_findings_total{kind="XmasScan"}'], 2)
        self.assertEqual(values['velm_findings_total{kind="NullScan"}'], 0)
        for name, kind in kinds.items():
            self.assertTrue(name.startswith("velm_"), name)
            self.assertEqual(kind == "counter", name.endswith("_total"), name)

    def test_statistics_file_that_cannot_be_written_is_told_once(self):
        self.config('statisticsFile = "%s"' % self.path("none", "velm.prom"))
        process = self.start()
        self.wait_for(lambda: "none/velm.prom: No such file" in self.messages())
        self.assertEqual(self.stop(process), 0)
        self.assertEqual(self.messages().count("none/velm.prom"), 1)

    def test_entries_and_events_go_to_the_syslog_receiver(self):
        receiver = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(receiver.close)
        receiver.bind(self.path("receiver"))
        receiver.settimeout(service.PATIENCE)
        process = self.start_blocking(agent='syslog = {target = "unix:%s"}' % self.path("receiver"))
        self.wait_for(lambda: self.status()["syslog_sent_total"] == 4)
        messages = [receiver.recv(65536).decode() for _ in range(4)]
        packets = [text for text in messages if " packet - " in text]
        self.assertEqual(sum("src=192.0.2.66 " in text for text in packets), 1, messages)
        self.assertEqual(sum("XmasScan|192.0.2.66|" in text for text in messages), 1, messages)
        self.assertEqual(self.status()["syslog_queue_length"], 0)
        process.send_signal(signal.SIGHUP)
        self.wait_for(lambda: self.status()["reloads_total"] == 1)
        self.assertEqual(self.status()["syslog_sent_total"], 4)

    def test_killed_script_loses_at_most_a_second_of_bookmarks(self):
        script = self.write("retrieve.lua", """
            require "ostrel"
            io.stdout:setvbuf("no")
            local log = SLB.ostrel.LogData(dom)
            log:SetLogFilePath(arg[1])
            local source = assert(kdi.Open("pcap:" .. arg[2], {localAddresses = "192.0.2.10/32"}))
            local configuration = {packetFilterLog = {cacheSize = 0},
                                   trafficAnalysisConfiguration = {}, probeConfigurationMap = {}}
            local entry, packet, data = source:NextEntry(0)
            while entry do
                log:WriteLogData(entry, packet, configuration, data)
                log:GetLogData(0, 0, 0, 0)
                print(dom:Get("plg.ostrel.lastline.packet"))
                local pause = os.clock() + 0.002
                repeat until os.clock() >= pause
                entry, packet, data = source:NextEntry(0)
            end""")
        self.capture("long.pcap", *(tcp(START + i // 100, 40000, 1 + i, usec=i % 100 * 10000)
                                    for i in range(60000)))
        process = subprocess.Popen(
            [self.agent, "script", "--settings", self.path("settings.db"), script,
             self.path("log"), self.path("long.pcap")], stdout=subprocess.PIPE)
        self.addCleanup(process.stdout.close)
        told, begin = [], time.monotonic()
        while time.monotonic() < begin + 4:
            told.append((time.monotonic(), process.stdout.readline().strip()))
        killed = time.monotonic()
        process.kill()
        process.wait()
        told += [(killed, line.strip()) for line in process.stdout]
        kept = self.run_agent("script", "--settings", self.path("settings.db"),
                              self.write("get.lua", 'print(dom:Get("plg.ostrel.lastline.packet"))'))
        times = [when for when, bookmark in told if bookmark.decode() == kept.out.strip()]
        self.assertTrue(times, kept)
        self.assertGreater(len({bookmark for _, bookmark in told}), 100)
        # A second, and what the writing itself takes on a busy machine.
        self.assertLess(killed - times[-1], 2.5)

    def test_secrets_of_tls_connections_are_decrypted_into_the_key_log(self):
        captures = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "captures", "tls")
        self.write("policy.xml", (
            '<SecurityConfiguration><SSLCredentials><SSLCredential id="3" name="c" '
            f'credentialType="PEM" identifier="{captures}/rsa2048.key.pem"/></SSLCredentials>'
            '<SSLHostConfigurations><SSLHostConfiguration id="7" name="h" sslCredentialId="3"/>'
            '</SSLHostConfigurations></SecurityConfiguration>'))
        self.config("""tlsSources = {"pcap:%s/tls-rsa-2048-tls12-aes128gcm.pcap"}, keyLog = "%s",
            policyFile = "%s", sslServers = {{address = "198.51.100.10", port = 443, hostConfiguration = 7}}"""
                    % (captures, self.path("keys.log"), self.path("policy.xml")))
        process = self.start()
        self.wait_for(lambda: self.status()["ssl_answered_total"] == 1)
        self.wait_for(lambda: "the capture has come to its end" in self.messages())
        status = self.status()
        self.assertEqual((status["ssl_failed_total"], status["ssl_queue_length"]), (0, 0))
        self.assertEqual(stat.S_IMODE(os.stat(self.path("keys.log")).st_mode), 0o600)
        self.assertEqual(len(self.read("keys.log").splitlines()), 2)
        self.assertEqual(self.stop(process), 0)

    # What clients may send.

    def answer(self, request):
        client = self.connect()
        client.sendall(request)
        text = b""
        while block := client.recv(65536):
            text += block
        return text

    def test_hostile_requests_are_refused_and_leave_the_service_well(self):
        self.config()
        self.start()
        for request in (b"\n", b"status \n", b" status\n", b"status x y\n", b"unblock\n", b"unblock x\n",
                        b"unblock 999.1.1.1\n", b"unblock 1.2.3.4 5\n", b"STATUS\n", b"\xff\xfe\n",
                        b"os.exit()\n", b"\0\n", b"blocks%s\n"):
            self.assertIs(json.loads(self.answer(request))["ok"], False, request)
        self.status()

    def test_line_without_end_is_cut_off(self):
        self.config()
        self.start()
        client = self.connect()
        try:
            client.sendall(b"x" * 100000)
            self.assertEqual(client.recv(1), b"")
        except (BrokenPipeError, ConnectionResetError):
            pass
        self.status()

    def test_silent_and_deaf_clients_keep_nobody_waiting_long(self):
        process = self.start_blocking()
        silent = [self.connect() for _ in range(16)]
        for client in silent[:10]:
            client.sendall(b"stat")
        for client in silent[10:]:
            client.shutdown(socket.SHUT_RD)
        self.assertEqual(self.status()["findings_total"], 2)
        self.assertEqual(self.stop(process), 0)

    def test_request_in_pieces_is_one(self):
        self.config()
        self.start()
        client = self.connect()
        for byte in b"status\n":
            client.sendall(bytes([byte]))
        self.assertIs(json.loads(client.makefile().readline())["ok"], True)

    def test_path_too_long_for_a_socket_is_told(self):
        deep = self.path("d" * 120)
        self.config('stateDirectory = "%s"' % deep)
        self.assertEqual(self.begin().wait(service.PATIENCE), 1)
        self.assertIn("the path is too long for a socket", self.messages())


if __name__ == "__main__":
    cli.main()
