"""velm_agent replay --syslog: what is printed and sent, what the configuration may say of it."""

import json
import os
import re
import socket

import cli
from cli import LOCAL, tcp

START = 1700000000
HEADER = (r"^<132>1 2023-11-14T22:13:2\d\.\d{6}\+00:00 \S+ velm_agent \d+ (packet|event) - "
          r"CEF:0\|Zellora\|Velm Agent\|")


class Syslog(cli.CliTest):
    def scan(self):
        """A SYN and an Xmas packet."""
        return self.capture("scan.pcap", tcp(START, 40000, 23),
                            tcp(START + 1, 40001, 80, cli.FIN | cli.PSH | cli.URG, usec=42))

    def replay(self, *arguments, config="return {agentConfiguration = {hostname = 'web1'}}"):
        return self.run_agent("replay", *LOCAL, "--config", self.write("agent.lua", config),
                              *arguments, self.scan())

    def refused(self, syslog, *words):
        result = self.replay(config="return {agent = {syslog = %s}}" % syslog)
        self.assert_refused(result, "agent.lua", *words)

    def test_dash_prints_entries_and_findings_and_the_report_makes_way(self):
        result = self.replay("--syslog", "-")
        self.assert_done(result)
        lines = result.out.splitlines()
        for line in lines:
            self.assertRegex(line, HEADER)
        self.assertEqual([re.match(HEADER, line).group(1) for line in lines],
                         ["packet", "packet", "event"])
        self.assertIn("T22:13:21.000042+00:00 web1 ", lines[1])
        self.assertIn("|7004|XmasScan|8|", lines[2])
        self.assertIn("finding 7004", result.err)
        self.assertRegex(result.err, r"(?m)^logged +2$")

    def test_json_lines_hold_messages_and_report(self):
        result = self.replay("--syslog", "-", "--json")
        self.assert_done(result)
        lines = [json.loads(line) for line in result.out.splitlines()]
        self.assertEqual(sorted(line["kind"] for line in lines),
                         ["finding", "summary", "syslog", "syslog", "syslog"])
        for line in lines:
            if line["kind"] == "syslog":
                self.assertRegex(line["message"], HEADER)

    def test_family_format_facility_and_framing_come_from_the_configuration(self):
        result = self.replay("--syslog", "-", config="""return {
            agent = {syslog = {target = "udp://192.0.2.1:514", family = "plain", format = 1,
                               facility = "daemon", framing = "local"}},
            agentConfiguration = {hostID = 7, hostname = "web1"}}""")
        self.assert_done(result)
        self.assertRegex(result.out.splitlines()[0],
                         r"^<28>Nov 14 22:13:20 velm_agent\[\d+\]: REASON=PKT: HOSTID=7 IN= OUT= "
                         r"MAC=02:00:00:00:00:10:02:00:00:00:00:66:08:00 src=192\.0\.2\.66 "
                         r"dst=192\.0\.2\.10 LEN=40 proto=TCP spt=40000 dpt=23 cs2=0x00 SYN cnt=1$")

    def test_what_is_ignored_is_not_sent(self):
        result = self.replay("--syslog", "-", config="""return {packetFilterLog = {
            ignoreIpList = {name = "x", items = "192.0.2.66"}},
            probeConfigurationMap = {}}""")
        self.assert_done(result)
        self.assertEqual(result.out, "")

    def test_names_cannot_break_a_message(self):
        result = self.replay("--syslog", "-", config=r"""return {
            agent = {syslog = {target = "udp://192.0.2.1:514", family = "plain", format = 0}},
            agentConfiguration = {hostname = "a\nb c"},
            interfaceMap = {["02:00:00:00:00:10"] = {name = "x\r\n<0>1 y\0z\27[2J"}}}""")
        self.assert_done(result)
        lines = result.out.splitlines()
        self.assertEqual(len(lines), 3)
        self.assertIn(" abc velm_agent ", lines[0])
        self.assertIn(" IN=x  <0>1_y OUT= ", lines[0])

    def test_nothing_is_sent_unasked(self):
        with socket.socket() as server:
            server.bind(("127.0.0.1", 0))
            server.listen()
            server.setblocking(False)
            target = "tcp://127.0.0.1:%d" % server.getsockname()[1]
            self.assert_done(self.replay(
                config="return {agent = {syslog = {target = '%s'}}}" % target))
            with self.assertRaises(BlockingIOError):
                server.accept()

    def test_datagrams_reach_a_local_socket(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as server:
            server.bind(self.path("log"))
            server.settimeout(60)
            self.assert_done(self.replay("--syslog", "unix:" + self.path("log")))
            for kind in ("packet", "packet", "event"):
                self.assertEqual(re.match(HEADER, server.recv(65536).decode()).group(1), kind)

    def test_messages_that_nobody_took_are_counted_and_fail_the_replay(self):
        result = self.replay("--syslog", "unix:" + self.path("nobody"))
        self.assertEqual(result.status, 1, result)
        self.assertIn("No such file or directory; trying again", result.err)
        self.assertIn("nobody: 0 messages sent, 3 dropped, 3 of them at the end", result.err)

    def test_bad_target_on_the_command_line(self):
        for target, words in (
            ("udp://host", "the port is missing"),
            ("host:514", "expected udp://host:port, tcp://host:port or unix:/path"),
            ("tcp://::1:601", "an IPv6 address must stand in brackets"),
        ):
            result = self.replay("--syslog", target)
            self.assert_refused(result, "--syslog", target, words)
            self.assertEqual(result.out, "")

    def test_configuration_is_checked(self):
        for syslog, words in (
            ("'x'", "agent.syslog: table expected, got string"),
            ("{}", "agent.syslog.target: a receiver is missing"),
            ("{target = 1}", "agent.syslog.target: string expected, got number"),
            ("{target = 'udp://h:0'}", "agent.syslog.target: udp://h:0: \"0\" is no port"),
            ("{targt = 'udp://h:1'}", "unknown key agent.syslog.targt"),
            ("{target = 'udp://h:1', facility = 'locale'}",
             "agent.syslog.facility: name of a facility, such as local0, expected, got string"),
            ("{target = 'udp://h:1', framing = 'bsd'}",
             'agent.syslog.framing: "rfc5424" or "local" expected, got string'),
            ("{target = 'udp://h:1', family = true}",
             'agent.syslog.family: "cef" or "plain" expected, got boolean'),
            ("{target = 'udp://h:1', format = 3}",
             "agent.syslog.format: integer from 0 to 2 expected, got number"),
            ("{target = 'udp://h:1', queue = 0.5}",
             "agent.syslog.queue: integer from 1 to 1000000 expected, got number"),
        ):
            self.refused(syslog, words)

    def test_sample_configuration_names_every_key(self):
        sample = os.path.join(os.path.dirname(__file__), "../../agent/etc/velm.conf.lua")
        with open(sample, encoding="utf-8") as file:
            text = file.read()
        for key in ("target", "facility", "framing", "family", "format", "queue"):
            self.assertRegex(text, r"(?m)^ +-- +%s = " % key)


if __name__ == "__main__":
    cli.main()
