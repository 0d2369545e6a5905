"""velm_agent run: how it starts, ends and reads its configuration anew."""

import os
import signal
import socket
import stat
import subprocess

import cli
import service
from cli import tcp

START = 1700000000
SCAN = [tcp(START + i // 100, 40000, 1000 + i) for i in range(200)]
QUIET = "packetFilterLog = {cacheSize = 1024}"


class Run(service.ServiceTest):
    def scan_config(self, agent="", rest=QUIET):
        self.capture("scan.pcap", *SCAN)
        return self.config('sources = {"pcap:%s"}, %s' % (self.path("scan.pcap"), agent), rest)

    def test_both_ends_write_what_is_held_back(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(number):
                self.scan_config('logDirectory = "%s"' % self.path("log%d" % number))
                process = self.start()
                self.wait_for(lambda: self.status()["logged_total"] == 200)
                self.assertEqual(self.read("log%d" % number, "velm_mpnp"), b"")
                self.assertEqual(self.stop(process, number), 0)
                self.assertEqual(len(self.read("log%d" % number, "velm_mpnp").splitlines()), 200)

    def test_faulty_configuration_ends_with_a_status_of_its_own(self):
        for text, words in (
            ("return {agent = {sources = {'nflg:5'}}}", "agent.sources: array of"),
            ("return {agent = {sources = {}}}", "agent.sources names no source"),
            ("return {}", "agent.sources names no source"),
            ("return {agent = {sources = {'null'}, x = 1}}", "unknown key agent.x"),
            ("return {", "unexpected symbol"),
            ("return {agent = {sources = {'nflog:65536'}}}", "nflog:65536: the greatest group is 65535"),
            ("return {agent = {sources = {'null'}, allow = {'10.0.0.0/33'}}}", "'10.0.0.0/33' is no"),
            ("return {agent = {sources = {'null'}, allow = {'10.0.0/8'}}}", "'10.0.0/8' is no"),
            ("return {agent = {sources = {'null'}, receiveBuffer = -1}}", "agent.receiveBuffer: integer"),
            ("return {agent = {sources = {'null'}, tlsSources = {'eth0'}}}", "agent.tlsSources: array of"),
            ("return {agent = {sources = {'null'}}, packetFilterLog = {ignoreIpList = "
             "{name = 'lab', items = '10.0.0.1, 10.0.0.0/33'}}}", "'lab': '10.0.0.0/33' is no"),
            ("return {agent = {sources = {'null'}, policyFile = '/none.xml'}}", "/none.xml"),
        ):
            with self.subTest(words):
                self.write("agent.lua", text)
                process = self.begin("--check")
                self.assertEqual(process.wait(service.PATIENCE), 2, self.messages())
                if "policyFile" not in text:
                    process = self.begin()
                    self.assertEqual(process.wait(service.PATIENCE), 78, self.messages())
                self.assertIn(words, self.messages())

    def test_refused_policy_ends_the_start_with_the_status_of_a_faulty_configuration(self):
        self.config('policyFile = "/none.xml"')
        self.assertEqual(self.begin().wait(service.PATIENCE), 78, self.messages())

    def test_check_touches_nothing(self):
        self.config()
        result = self.run_agent("run", "--check", "--config", self.path("agent.lua"))
        self.assert_done(result)
        self.assertEqual(sorted(os.listdir(self.folder)), ["agent.lua"])

    def test_source_that_cannot_be_opened_is_a_failure(self):
        self.config('sources = {"pcap:%s"}' % self.path("none.pcap"))
        self.assertEqual(self.begin().wait(service.PATIENCE), 1)
        self.assertIn("none.pcap", self.messages())

    def test_second_service_on_one_state_directory_is_refused(self):
        self.config()
        first = self.start()
        second = self.begin()
        self.assertEqual(second.wait(service.PATIENCE), 1)
        self.assertIn("a service already runs on it (process %d)" % first.pid, self.messages())
        self.status()

    def test_lock_goes_with_a_killed_service(self):
        self.config()
        first = self.start()
        first.kill()
        first.wait()
        self.start()
        self.status()

    def test_state_directory_that_everybody_may_write_to_is_refused(self):
        os.mkdir(self.path("state"))
        os.chmod(self.path("state"), 0o777)
        self.config()
        self.assertEqual(self.begin().wait(service.PATIENCE), 1)
        self.assertIn("everybody may write to it", self.messages())

    def test_nobody_else_gets_at_its_files(self):
        self.scan_config()
        self.stop(self.start())
        self.config()
        self.start()
        for folder in ("log", "state"):
            for path in (self.path(folder), *(entry.path for entry in os.scandir(self.path(folder)))):
                self.assertEqual(stat.S_IMODE(os.lstat(path).st_mode) & 0o007, 0, path)
        for name in ("control", "settings.db", "events.jsonl", "lock"):
            mode = stat.S_IMODE(os.lstat(self.path("state", name)).st_mode)
            self.assertEqual(mode, 0o600, name)

    def test_keeps_no_capability_but_that_of_the_packet_filter(self):
        if os.geteuid() != 0:
            self.skipTest("skipped: needs root")
        self.config()
        process = self.start()
        with open(f"/proc/{process.pid}/status") as file:
            fields = dict(line.split(":\t", 1) for line in file if ":\t" in line)
        net_admin = 1 << 12
        for name in ("CapPrm", "CapEff", "CapBnd"):
            self.assertEqual(int(fields[name], 16) & ~net_admin, 0, name)
        self.assertEqual(int(fields["CapInh"], 16), 0)
        self.assertEqual(int(fields["CapAmb"], 16), 0)
        self.assertEqual(int(fields["NoNewPrivs"]), 1)

    def test_new_configuration_counts_from_the_signal_on(self):
        self.scan_config()
        process = self.start()
        self.wait_for(lambda: self.status()["logged_total"] == 200)
        self.assertEqual(self.read("log", "velm_mpnp"), b"")
        self.scan_config(rest="packetFilterLog = {cacheSize = 10}")
        process.send_signal(signal.SIGHUP)
        self.wait_for(lambda: self.status()["reloads_total"] == 1)
        self.assertEqual(len(self.read("log", "velm_mpnp").splitlines()), 190)

    def test_faulty_new_configuration_leaves_the_old_one(self):
        self.config('trace = {}')
        process = self.start()
        self.write("agent.lua", "return {")
        process.send_signal(signal.SIGHUP)
        self.wait_for(lambda: "the old one stays" in self.messages())
        self.assertIn("agent.lua:1: unexpected symbol", self.messages())
        self.config()
        self.assertEqual(self.status()["reload_failures_total"], 1)
        process.send_signal(signal.SIGHUP)
        self.wait_for(lambda: self.status()["reloads_total"] == 1)
        self.assertEqual(self.stop(process), 0)

    def test_refused_new_policy_leaves_all_as_it_was(self):
        self.scan_config()
        process = self.start()
        bad = self.write("bad.xml", "<x>")
        self.scan_config('policyFile = "%s"' % bad, "packetFilterLog = {cacheSize = 0}")
        process.send_signal(signal.SIGHUP)
        self.wait_for(lambda: "bad.xml: policy refused" in self.messages())
        self.wait_for(lambda: self.status()["logged_total"] == 200)
        self.assertEqual(self.read("log", "velm_mpnp"), b"")

    def test_what_is_fixed_until_a_restart_is_said(self):
        self.config()
        process = self.start()
        self.config('logName = "other", sources = {"null", "null"}')
        process.send_signal(signal.SIGHUP)
        self.wait_for(lambda: self.status()["reloads_total"] == 1)
        for key in ("logName", "sources"):
            self.assertIn(f"agent.{key}: a new value counts from the next start on", self.messages())
        self.stop(process)
        self.assertEqual(os.listdir(self.path("log")), ["velm_mpnp"])

    def test_hundred_reloads_under_load_lose_and_repeat_nothing(self):
        records = [tcp(START + i // 2000, 1024 + i % 60000, 1 + i // 60000, usec=i % 2000 * 500)
                   for i in range(120000)]
        self.capture("load.pcap", *records)
        self.config('sources = {"pcap:%s"}' % self.path("load.pcap"),
                    "packetFilterLog = {cacheSize = 64, size = 100000}, probeConfigurationMap = {}")
        process = self.start()
        for count in range(1, 101):
            process.send_signal(signal.SIGHUP)
            self.wait_for(lambda: self.messages().count("configuration: read anew") >= count,
                          pause=0.002)
        under_load = self.messages().partition("come to its end")[0].count("read anew")
        self.assertGreater(under_load, 20)
        self.wait_for(lambda: self.status()["entries_total"] == 120000)
        self.assertEqual(self.status()["reloads_total"], 100)
        self.assertEqual(self.stop(process), 0)
        flows = [tuple(line.split(", ")[i] for i in (12, 14)) for line in self.lines()]
        self.assertEqual(len(flows), 120000)
        self.assertEqual(len(set(flows)), 120000)

    def test_line_that_was_cut_off_costs_no_other(self):
        os.mkdir(self.path("log"))
        self.write("log/velm_mpnp", "2026/11/21, 10:00:00, f, cut o")
        self.scan_config()
        self.stop(self.start())
        lines = self.lines()
        self.assertEqual(lines[0], "2026/11/21, 10:00:00, f, cut o")
        self.assertEqual(len(lines), 201)
        self.assertEqual({line.count(",") for line in lines[1:]}, {lines[1].count(",")})

    def test_manager_is_told_of_each_state(self):
        self.config()
        manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(manager.close)
        manager.bind(self.path("notify"))
        manager.settimeout(service.PATIENCE)
        process = self.start(NOTIFY_SOCKET=self.path("notify"), WATCHDOG_USEC="200000")
        ready = manager.recv(1000).decode()
        self.assertIn("READY=1", ready.splitlines())
        self.assertIn("STATUS=logging null", ready.splitlines())
        for _ in range(5):
            self.assertEqual(manager.recv(1000), b"WATCHDOG=1")
        process.send_signal(signal.SIGHUP)
        told = []
        while not told or not told[-1].startswith("READY=1"):
            told.append(manager.recv(1000).decode())
        reloading = [text for text in told if text.startswith("RELOADING=1\n")]
        self.assertRegex(reloading[0], r"\nMONOTONIC_USEC=[0-9]+$")
        process.terminate()
        while told[-1] != "STOPPING=1":
            told.append(manager.recv(1000).decode())
        self.assertEqual(process.wait(service.PATIENCE), 0)


if __name__ == "__main__":
    cli.main()
