"""The configuration file: what is taken, what is refused and how it is told."""

import json
import os

import cli
from cli import LOCAL, tcp

START = 1700000000


class Config(cli.CliTest):
    def replay(self, config, *arguments):
        capture = self.capture("one.pcap", tcp(START, 40000, 23))
        return self.run_agent("replay", *LOCAL, "--json", "--config",
                              self.write("agent.lua", config), *arguments, capture)

    def refused(self, config, *words):
        result = self.replay(config)
        self.assert_refused(result, "agent.lua", *words)
        self.assertEqual(result.out, "")
        self.assertNotIn("traceback", result.err)

    def test_empty_table_is_the_built_in_configuration(self):
        result = self.replay("return {}")
        self.assert_done(result)
        self.assertEqual(json.loads(result.out)["lines"], 1)

    def test_missing_file(self):
        result = self.run_agent("query", "--config", "none.lua")
        self.assert_refused(result, "none.lua: No such file or directory")

    def test_syntax_error_has_its_line(self):
        self.refused("return {\n  agent = {,}\n}", ":2: unexpected symbol near ','")

    def test_syntax_error_has_its_line_however_long_the_path(self):
        deep = os.path.join(*["a" * 60] * 3)
        os.makedirs(self.path(deep))
        path = self.write(os.path.join(deep, "c.lua"), "\n\nreturn }")
        self.assert_refused(self.run_agent("query", "--config", path), path + ":3:")

    def test_error_while_it_runs_has_its_line(self):
        self.refused("\nlocal x = nil + 1", ":2: attempt to perform arithmetic")

    def test_environment_is_empty(self):
        for name in ("print", "os", "io", "require", "dom", "string", "pcall", "load", "_G"):
            self.refused(f"{name}.x = 1", "attempt to index global '%s' (a nil value)" % name)
        self.refused("return {x = ('x'):rep(10)}", "attempt to index constant 'x' (a string value)")

    def test_file_that_never_ends_is_stopped(self):
        self.refused("while true do end", "runs too long")

    def test_file_that_takes_all_memory_is_stopped(self):
        self.refused("local t = 'x' while true do t = t .. t end", "64 MiB")
        self.refused("local t = {} while true do t = {t} end", "64 MiB")

    def test_compiled_chunk_is_refused(self):
        self.refused(b"\x1bLuaR\0", "binary chunk")

    def test_result_must_be_a_table(self):
        self.refused("return 1", "must return a table, but returns number")
        self.refused("", "must return a table, but returns nil")

    def test_tables_that_grow_without_end_are_refused(self):
        self.refused("local t = {} t.t = t return t", "nested too deeply")
        self.refused("local t = {} for i = 1, 25 do t = {t, t} end return t", "too many values")

    def test_function_is_no_value(self):
        self.refused("return {interfaceMap = {x = function() end}}", "a function can't be a value")

    def test_unknown_key_is_named(self):
        self.refused("return {agent = {logDirectroy = '/x'}}", "unknown key agent.logDirectroy")
        self.refused("return {agent = {[1] = '/x'}}", "unknown key agent.1")

    def test_wrong_type_is_named_with_what_was_expected_and_got(self):
        for text, words in (
            ("agent = 1", "agent: table expected, got number"),
            ("agent = {logDirectory = 1}", "agent.logDirectory: string expected, got number"),
            ("agent = {stateDirectory = {}}", "agent.stateDirectory: string expected, got table"),
            ("agent = {sources = 'null'}", "agent.sources: array of strings expected, got string"),
            ("agent = {sources = {1}}", "agent.sources: array of strings expected, got table"),
            ("agent = {trace = {x = 'y'}}", "agent.trace: array of strings expected, got table"),
            ("agent = {policyFile = true}", "agent.policyFile: string expected, got boolean"),
            ("agent = {settings = {a = {}}}", "agent.settings: table of names with"),
            ("agent = {settings = {'a'}}", "agent.settings: table of names with"),
            ("agent = {logName = 'a.b'}", "agent.logName: file name without dot and slash"),
            ("agent = {logName = 'a/b'}", "agent.logName: file name without dot and slash"),
            ("agent = {logName = ''}", "agent.logName: file name without dot and slash"),
            ("packetFilterLog = 1", "packetFilterLog: table expected, got number"),
            ("packetFilterLog = {size = 'x'}", "packetFilterLog.size: number expected, got string"),
            ("probeConfigurationMap = false", "probeConfigurationMap: table expected, got boolean"),
            ("agentConfiguration = {hostname = 1}",
             "agentConfiguration.hostname: string expected, got number"),
        ):
            self.refused("return {%s}" % text, words)

    def test_other_fields_are_left_alone(self):
        self.assert_done(self.replay("return {somebodyElses = 1, packetFilterLog = {more = 1}}"))

    def test_settings_reach_the_log(self):
        result = self.replay("return {agent = {settings = "
                             "{['plg.ostrel.analysis.IgnoreTcpFlags'] = 300}}}")
        self.assert_done(result)
        self.assertIn("IgnoreTcpFlags value 300 is out of range", result.err)

    def test_trace_goes_to_standard_error(self):
        self.assertIn("WriteLogData(", self.replay("return {agent = {trace = {'ostrel'}}}").err)

    def test_policy_file_is_read(self):
        good = self.write("policy.xml", "<SecurityConfiguration/>")
        self.assert_done(self.replay("return {agent = {policyFile = '%s'}}" % good))
        result = self.replay("return {agent = {policyFile = '/none.xml'}}")
        self.assert_refused(result, "/none.xml: No such file or directory")
        bad = self.write("bad.xml", "<x>")
        result = self.replay("return {agent = {policyFile = '%s'}}" % bad)
        self.assert_refused(result, "bad.xml: policy refused")

    def test_ignored_source_is_not_logged(self):
        result = self.replay("return {packetFilterLog = {ignoreIpList = "
                             "{name = 'x', items = '192.0.2.66'}}}")
        summary = json.loads(result.out.splitlines()[-1])
        self.assertEqual((summary["entries"], summary["logged"], summary["lines"]), (1, 0, 0))


if __name__ == "__main__":
    cli.main()
