"""velm_agent query: windows, kinds, times, and bad input."""

import os
import time

import cli

# 2023/11/14, 22:13:20 UTC
START = 1700000000
LINES = [(0, "f", 20001), (10, "d", 20002), (20, "f", 20003), (30, "f", 20004)]


def line(offset, kind, port):
    usec = (START + offset) * 1000000 + 123
    clock = time.strftime("%Y/%m/%d, %H:%M:%S", time.gmtime(START + offset))
    return (f"{clock}, {kind}, 0, 0, , IP, , , TCP, SYN , 192.0.2.66, "
            f"{port}, 192.0.2.10, 23, 40, 1, 0, 1, -1, , 0, 0, 0, 0, , , , 1, {usec}, {usec}")


class Query(cli.CliTest):
    def setUp(self):
        super().setUp()
        os.mkdir(self.path("logs"))
        self.write("logs/velm_mpnp.1", line(*LINES[0]) + "\n")
        self.write("logs/velm_mpnp", "".join(line(*item) + "\n" for item in LINES[1:]))

    def query(self, *arguments, **environment):
        return self.run_agent("query", "--dir", self.path("logs"), *arguments, **environment)

    def ports(self, *arguments, **environment):
        result = self.query(*arguments, **environment)
        self.assert_done(result)
        return [int(row.split(", ")[10]) for row in result.out.splitlines()]

    def test_without_bounds_everything_of_the_kind(self):
        self.assertEqual(self.ports(), [20001, 20003, 20004])
        self.assertEqual(self.ports("--kind", "packet"), [20001, 20003, 20004])
        self.assertEqual(self.ports("--kind", "payload"), [20002])

    def test_record_is_printed_as_it_stands_behind_date_and_time(self):
        self.assertEqual(self.query("--kind", "payload").out, line(*LINES[1])[22:] + "\n")

    def test_both_ends_belong_to_the_window(self):
        self.assertEqual(self.ports("--from", str(START + 20)), [20003, 20004])
        self.assertEqual(self.ports("--from", str(START + 21)), [20004])
        self.assertEqual(self.ports("--to", str(START + 20)), [20001, 20003])
        self.assertEqual(self.ports("--to", str(START + 19)), [20001])
        self.assertEqual(self.ports("--from", str(START + 21), "--to", str(START + 29)), [])

    def test_times_may_be_dates(self):
        self.assertEqual(self.ports("--from", "2023-11-14 22:13:40"), [20003, 20004])
        self.assertEqual(self.ports("--from", "2023-11-14T22:13:41"), [20004])
        self.assertEqual(self.ports("--to", "2023-11-14 22:13"), [])
        self.assertEqual(self.ports("--to", "2023-11-14 22:14"), [20001, 20003, 20004])
        self.assertEqual(self.ports("--from", "2023-11-14"), [20001, 20003, 20004])
        self.assertEqual(self.ports("--from", "2023-11-15"), [])

    def test_dates_are_local_unless_they_name_a_zone(self):
        berlin = {"TZ": "Europe/Berlin"}  # one hour ahead in November
        self.assertEqual(self.ports("--from", "2023-11-14 23:13:40", **berlin), [20003, 20004])
        self.assertEqual(self.ports("--from", "2023-11-14 22:13:40Z", **berlin), [20003, 20004])
        self.assertEqual(self.ports("--from", "2023-11-15T03:43:40+05:30", **berlin), [20003, 20004])
        self.assertEqual(self.ports("--from", "2023-11-14T18:13:41-04:00", **berlin), [20004])

    def test_summer_time_counts(self):
        summer = 1689336000  # 2023/07/14, 12:00:00 UTC, 14:00:00 in Berlin
        self.write("logs/velm_mpnp", line(summer - START, "f", 30000) + "\n")
        os.remove(self.path("logs", "velm_mpnp.1"))
        berlin = {"TZ": "Europe/Berlin"}
        self.assertEqual(self.ports("--from", "2023-07-14 14:00:00", **berlin), [30000])
        self.assertEqual(self.ports("--from", "2023-07-14 14:00:01", **berlin), [])

    def test_time_puts_the_first_occurrence_in_front(self):
        expected = "".join(line(*LINES[i]) + "\n" for i in (0, 2, 3))
        self.assertEqual(self.query("--time").out, expected)
        self.assertEqual(self.query("--time", TZ="Europe/Berlin").out,
                         expected.replace(", 22:", ", 23:"))

    def test_log_files_and_bookmarks_are_left_alone(self):
        before = {name: self.read("logs", name) for name in os.listdir(self.path("logs"))}
        self.query()
        self.query("--from", str(START + 25))
        after = {name: self.read("logs", name) for name in os.listdir(self.path("logs"))}
        self.assertEqual(before, after)

    def test_same_query_gives_the_same_answer(self):
        self.assertEqual(self.query().out, self.query().out)

    def test_directory_and_name_of_the_configuration(self):
        os.rename(self.path("logs", "velm_mpnp"), self.path("logs", "mine"))
        os.remove(self.path("logs", "velm_mpnp.1"))
        config = self.write("c.lua", "return {agent = {logDirectory = '%s', logName = 'mine'}}"
                            % self.path("logs"))
        result = self.run_agent("query", "--config", config)
        self.assert_done(result)
        self.assertEqual(len(result.out.splitlines()), 2)
        self.assertEqual(len(self.query("--name", "mine").out.splitlines()), 2)

    def test_slack_follows_the_configured_lifetime(self):
        # The file's first record lies 45 minutes behind the window. Records may stand that far from
        # their place if they are cached for an hour, but not for half an hour.
        self.write("logs/velm_mpnp", line(45 * 60, "f", 1) + "\n"
                   + line(5, "f", 2) + "\n")
        window = ["--to", str(START + 5)]
        self.assertEqual(self.ports(*window), [20001])
        hour = self.write("hour.lua", "return {packetFilterLog = {cacheLifetime = 3600000}}")
        self.assertEqual(self.ports("--config", hour, *window), [20001, 2])

    def test_bad_time_is_named(self):
        for text in ("yesterday", "2023-13-01", "2023-02-30", "2023-11-14 24:00", "2023-11-14 22",
                     "2023-11-14 22:13:60", "2023-11-14 22:13:20 UTC", "2023-11-14Z+", "-5", "1.5",
                     "99999999999999999999", "2023-11-14 22:13:20+5", "1969-12-31Z", "2023-11-1"):
            for option in ("--from", "--to"):
                self.assert_refused(self.query(f"{option}={text}"), f"{option} {text}")

    def test_bad_kind_is_named(self):
        self.assert_refused(self.query("--kind", "pcap"), "pcap")

    def test_directory_that_is_missing_or_holds_no_log_is_named(self):
        missing = self.path("none")
        self.assert_refused(self.run_agent("query", "--dir", missing), missing,
                            "No such file or directory")
        self.assert_refused(self.run_agent("query", "--dir", self.write("file", "")), "file",
                            "Not a directory")
        os.mkdir(self.path("empty"))
        self.assert_refused(self.run_agent("query", "--dir", self.path("empty")),
                            self.path("empty"), "no log file of the name velm_mpnp")
        self.write("empty/velm_mpnp.bak", "")
        self.write("empty/velm_mpnp2", "")
        self.assert_refused(self.run_agent("query", "--dir", self.path("empty")), "no log file")
        self.assert_refused(self.query("--name", "other"), "no log file of the name other")


if __name__ == "__main__":
    cli.main()
