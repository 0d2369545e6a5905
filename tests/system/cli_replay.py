"""velm_agent replay: what it prints, writes and leaves, and bad input."""

import json
import os
import pty
import signal
import subprocess
import time

import cli
from cli import FIN, HOST, LOCAL, PSH, URG, tcp

START = 1700000000  # 2023/11/14, 22:13:20 UTC


class ReplayTest(cli.CliTest):
    def replay(self, *arguments, **environment):
        return self.run_agent("replay", *LOCAL, *arguments, **environment)

    def summary(self, *arguments):
        result = self.replay("--json", *arguments)
        self.assert_done(result)
        return json.loads(result.out.splitlines()[-1])

    def two_repeats_and_another(self):
        return self.capture("two.pcap", tcp(START, 40000, 23), tcp(START + 1, 40000, 23, usec=250000),
                            tcp(START + 2, 40001, 23, usec=500000))


class Replay(ReplayTest):
    def test_repeats_are_coalesced_and_counted(self):
        summary = self.summary(self.two_repeats_and_another())
        self.assertEqual(summary, {
            "kind": "summary", "packets": 3, "entries": 3, "logged": 3,
            "coalesced": 1, "lines": 2, "findings": 0, "blocks": 0, "dropped": 0, "seconds": 2.5})

    def test_text_summary_has_the_same_numbers(self):
        result = self.replay(self.two_repeats_and_another())
        self.assert_done(result)
        rows = {line.split()[0]: line.split()[1] for line in result.out.splitlines()}
        self.assertEqual(rows, {"packets": "3", "entries": "3", "logged": "3",
                                "coalesced": "1", "lines": "2", "findings": "0", "blocks": "0",
                                "dropped": "0", "seconds": "2.500000", "files": "removed;"})

    def test_log_goes_to_the_directory_that_is_named(self):
        result = self.replay("--out", self.path("new", "logs"), self.two_repeats_and_another())
        self.assert_done(result)
        self.assertIn(self.path("new", "logs", "velm_mpnp"), result.out)
        lines = self.read("new", "logs", "velm_mpnp").decode().splitlines()
        columns = [line.split(", ") for line in lines]
        self.assertEqual([c[0:3] for c in columns], [["2023/11/14", "22:13:20", "f"],
                                                     ["2023/11/14", "22:13:22", "f"]])
        self.assertEqual([c[11:15] for c in columns], [["192.0.2.66", "40000", "192.0.2.10", "23"],
                                                       ["192.0.2.66", "40001", "192.0.2.10", "23"]])
        self.assertEqual([c[28:31] for c in columns],
                         [["2", "1700000001250000", "1700000000000000"],
                          ["1", "1700000002500000", "1700000002500000"]])

    def test_lines_of_an_earlier_log_do_not_count(self):
        os.mkdir(self.path("logs"))
        self.write("logs/velm_mpnp", "old line\n" * 100)
        summary = self.summary("--out", self.path("logs"), self.two_repeats_and_another())
        self.assertEqual(summary["lines"], 2)
        self.assertEqual(len(self.read("logs", "velm_mpnp").splitlines()), 102)

    def test_lines_are_counted_through_rotation_and_removal(self):
        count = 3000
        records = [tcp(START + i, 1024 + i, 23) for i in range(count)]
        config = self.write("small.lua", "return {packetFilterLog = {size = 1, keep = 3}}")
        capture = self.capture("many.pcap", *records)
        summary = self.summary("--config", config, "--out", self.path("logs"), capture)
        self.assertEqual((summary["logged"], summary["lines"], summary["coalesced"]),
                         (count, count, 0))
        # The last flush writes what the cache held, over 1 KB, so the current file has gone too.
        self.assertEqual(sorted(os.listdir(self.path("logs"))), ["velm_mpnp.1", "velm_mpnp.2"])

    def test_lines_are_counted_when_no_old_file_is_kept(self):
        records = [tcp(START + i, 1024 + i, 23) for i in range(500)]
        config = self.write("small.lua", "return {packetFilterLog = {size = 1, keep = 1}}")
        summary = self.summary("--config", config, "--out", self.path("logs"),
                               self.capture("many.pcap", *records))
        self.assertEqual(summary["lines"], 500)

    def test_temporary_directory_is_removed(self):
        os.mkdir(self.path("tmp"))
        self.assert_done(self.replay(self.two_repeats_and_another(), TMPDIR=self.path("tmp")))
        self.assertEqual(os.listdir(self.path("tmp")), [])
        self.replay(self.write("bad.pcap", b"no capture"), TMPDIR=self.path("tmp"))
        self.assertEqual(os.listdir(self.path("tmp")), [])

    def test_configured_live_directory_is_never_written(self):
        config = self.write("live.lua", "return {agent = {logDirectory = '%s', logName = 'other'}}"
                            % self.path("live"))
        self.assert_done(self.replay("--config", config, self.two_repeats_and_another()))
        self.assertFalse(os.path.exists(self.path("live")))
        self.assert_done(self.replay("--config", config, "--out", self.path("logs"),
                                     self.two_repeats_and_another()))
        self.assertFalse(os.path.exists(self.path("live")))
        self.assertEqual(os.listdir(self.path("logs")), ["other"])

    def test_captures_are_played_in_order_on_one_clock(self):
        # The second begins before the first ended; its packet of the same text is a repeat, since
        # the clock goes on from where it stood.
        first = self.capture("1.pcap", tcp(START + 100, 40000, 23))
        second = self.capture("2.pcap", tcp(START, 40000, 23), tcp(START + 10, 40000, 23))
        summary = self.summary("--out", self.path("logs"), first, second)
        self.assertEqual((summary["packets"], summary["lines"], summary["seconds"]), (3, 1, 10))

    def test_records_leave_the_cache_on_the_captures_clock(self):
        # 15 minutes without a repeat make a record go, so the packet behind them is a new one.
        repeat, late = START + 899, START + 899 + 900
        capture = self.capture("slow.pcap", tcp(START, 40000, 23), tcp(repeat, 40000, 23),
                               tcp(late, 40001, 23), tcp(late, 40000, 23))
        self.replay("--out", self.path("logs"), capture)
        counts = [line.split(", ")[28] for line in
                  self.read("logs", "velm_mpnp").decode().splitlines()]
        self.assertEqual(sorted(counts), ["1", "1", "2"])

    def test_same_replay_gives_same_bytes(self):
        capture = self.two_repeats_and_another()
        outputs = []
        for name in ("a", "b"):
            result = self.replay("--json", "--out", self.path(name), capture)
            outputs.append((result.out, self.read(name, "velm_mpnp")))
        self.assertEqual(outputs[0], outputs[1])

    def test_open_port_of_the_option_is_not_logged(self):
        capture = self.two_repeats_and_another()
        self.assertEqual(self.summary("--allow", "tcp/23", capture)["logged"], 0)
        self.assertEqual(self.summary("--allow", "tcp/24", capture)["logged"], 3)

    def test_finding_and_block_are_json_lines(self):
        config = self.write("block.lua", "return {probeConfigurationMap = "
                            "{[4] = {blockAttackerSeconds = 90}}}")
        capture = self.capture("xmas.pcap", tcp(START, 40000, 23, FIN | PSH | URG, usec=125000))
        result = self.replay("--json", "--config", config, capture)
        self.assert_done(result)
        lines = [json.loads(line) for line in result.out.splitlines()]
        self.assertEqual([line["kind"] for line in lines], ["finding", "block", "summary"])
        self.assertEqual(lines[0], {"kind": "finding", "time": START + 0.125, "number": 7004,
                                    "text": "XmasScan|192.0.2.66|6|90", "source": "192.0.2.66"})
        self.assertEqual(lines[1], {"kind": "block", "time": START + 0.125,
                                    "address": "192.0.2.66", "seconds": 90})
        self.assertEqual((lines[2]["findings"], lines[2]["blocks"]), (1, 1))

    def test_sample_configuration_blocks_for_600_seconds(self):
        sample = os.path.join(os.path.dirname(os.path.abspath(cli.__file__)),
                              "../../agent/etc/velm.conf.lua")
        capture = self.capture("xmas.pcap", tcp(START, 40000, 23, FIN | PSH | URG))
        result = self.replay("--json", "--config", sample, capture)
        self.assert_done(result)
        blocks = [json.loads(line) for line in result.out.splitlines()[:-1]]
        self.assertEqual([b.get("seconds") for b in blocks if b["kind"] == "block"], [600])

    def test_what_was_chosen_is_said_on_standard_error(self):
        result = self.run_agent("replay", "--json", self.two_repeats_and_another())
        self.assertIn("local address " + HOST, result.err)
        self.assertEqual(len(result.out.splitlines()), 1)

    def test_no_bar_into_a_pipe(self):
        result = self.replay(self.two_repeats_and_another())
        self.assertNotIn("\r", result.out + result.err)

    def test_closed_output_is_a_failure(self):
        with open("/dev/full", "wb") as full:
            process = subprocess.run([self.agent, "replay", self.two_repeats_and_another()],
                                     stdout=full, stderr=subprocess.PIPE, timeout=60)
        self.assertEqual(process.returncode, 1)
        self.assertIn(b"velm_agent: standard output: No space left on device", process.stderr)


class BadInput(ReplayTest):
    def test_missing_capture(self):
        result = self.replay("none.pcap")
        self.assert_refused(result, "none.pcap", "No such file or directory")
        self.assertEqual(result.out, "")

    def test_any_missing_capture_costs_no_work(self):
        result = self.replay("--out", self.path("logs"), self.two_repeats_and_another(), "none.pcap")
        self.assert_refused(result, "none.pcap")
        self.assertEqual(result.out, "")
        self.assertFalse(os.path.exists(self.path("logs")))

    def test_empty_capture(self):
        self.assert_refused(self.replay(self.write("empty.pcap", b"")), "empty.pcap", "empty")

    def test_other_file(self):
        self.assert_refused(self.replay(self.write("words.txt", "words and words\n" * 10)),
                            "words.txt", "unknown file format")

    def test_directory(self):
        self.assert_refused(self.replay(self.folder), self.folder, "Is a directory")

    def test_capture_without_packets_is_no_error(self):
        self.assertEqual(self.summary(self.capture("none.pcap"))["packets"], 0)

    def test_truncated_capture_keeps_what_was_read(self):
        whole = self.read(self.two_repeats_and_another())
        cut = self.write("cut.pcap", whole[:-20])
        result = self.replay("--json", "--out", self.path("logs"), cut)
        self.assert_refused(result, "cut.pcap", "truncated")
        summary = json.loads(result.out.splitlines()[-1])
        self.assertEqual((summary["packets"], summary["logged"], summary["lines"]), (2, 2, 1))
        self.assertEqual(len(self.read("logs", "velm_mpnp").splitlines()), 1)

    def test_bad_options_are_named(self):
        capture = self.two_repeats_and_another()
        self.assert_refused(self.replay("--allow", "tcp/http", capture), "tcp/http")
        self.assert_refused(self.run_agent("replay", "--local", "192.0.2.300", capture),
                            "192.0.2.300")

    def test_directory_that_cannot_be_made_is_named_with_the_reason(self):
        self.write("file", "")
        result = self.replay("--json", "--out", self.path("file", "logs"),
                             self.two_repeats_and_another())
        self.assert_refused(result, self.path("file", "logs"), "Not a directory")
        event = json.loads(result.out)
        self.assertEqual((event["kind"], event["number"], event["text"]),
                         ("event", 6003, self.path("file", "logs")))

    def test_file_that_cannot_be_opened_is_named_with_the_reason(self):
        os.makedirs(self.path("logs", "velm_mpnp"))
        result = self.replay("--json", "--out", self.path("logs"), self.two_repeats_and_another())
        self.assert_refused(result, self.path("logs"), "Is a directory")
        event = json.loads(result.out)
        self.assertEqual((event["kind"], event["number"], event["text"]),
                         ("event", 6001, self.path("logs", "velm_mpnp")))


class Interrupted(ReplayTest):
    """A capture long enough that the signal meets the program at work."""

    def long_capture(self):
        one = b"".join(tcp(START + i, 1024 + i, 23) for i in range(20000))
        header = self.read(self.capture("header.pcap"))
        return self.write("long.pcap", header + one * 60)

    def start(self, *arguments, **streams):
        os.makedirs(self.path("tmp"), exist_ok=True)
        process = subprocess.Popen([self.agent, "replay", *LOCAL, *arguments],
                                   env={**os.environ, "TMPDIR": self.path("tmp")}, **streams)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def wait_for_log(self, folder):
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            for where, _, names in os.walk(folder):
                if any(os.path.getsize(os.path.join(where, name)) > 0 for name in names):
                    return
            time.sleep(0.01)
        self.fail("no line was logged")

    def test_signal_ends_with_what_was_done(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            process = self.start("--json", self.long_capture(), stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE)
            self.wait_for_log(self.path("tmp"))
            process.send_signal(number)
            out, err = process.communicate(timeout=60)
            self.assertEqual(process.returncode, 1, err)
            self.assertIn(b"velm_agent: replay: interrupted", err)
            summary = json.loads(out.splitlines()[-1])
            self.assertGreater(summary["lines"], 0)
            self.assertLess(summary["packets"], 1200000)
            self.assertEqual(os.listdir(self.path("tmp")), [])

    def test_bar_on_a_terminal(self):
        own, other = pty.openpty()
        self.addCleanup(os.close, own)
        capture = self.long_capture()
        process = self.start(*[capture] * 8, stdout=subprocess.DEVNULL, stderr=other)
        os.close(other)
        seen, deadline = b"", time.monotonic() + 60
        while b"%" not in seen and time.monotonic() < deadline:
            seen += os.read(own, 4096)
        process.send_signal(signal.SIGTERM)
        self.assertRegex(seen, rb"\r\[[# ]{40}\] +\d+%")


if __name__ == "__main__":
    cli.main()
