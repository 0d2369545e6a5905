"""velm_agent script: exit statuses, arguments, files for settings, events, policy and trace."""

import json
import os

import cli


class Script(cli.CliTest):
    def run_script(self, text, *arguments, options=()):
        return self.run_agent("script", *options, self.write("test.lua", text), *arguments)

    def test_end_of_the_script_is_success(self):
        self.assert_done(self.run_script("print 'fine'"))

    def test_exit_status_is_the_scripts(self):
        self.assertEqual(self.run_script("os.exit(7)").status, 7)
        self.assertEqual(self.run_script("os.exit(true)").status, 0)
        self.assertEqual(self.run_script("os.exit(false)").status, 1)
        self.assertEqual(self.run_script("os.exit()").status, 0)

    def test_exit_leaves_through_pcall_and_coroutines(self):
        self.assertEqual(self.run_script("pcall(os.exit, 5) os.exit(6)").status, 5)
        self.assertEqual(
            self.run_script("coroutine.wrap(function() os.exit(5) end)() os.exit(6)").status, 5)

    def test_exit_runs_finalisers_and_writes_settings_and_output(self):
        result = self.run_script(
            "kept = setmetatable({}, {__gc = function() print 'finalised' end})\n"
            "dom:Set('key', 'value')\nio.write('before ')\nos.exit(3)",
            options=["--settings", self.path("settings.db")])
        self.assertEqual((result.status, result.out), (3, "before finalised\n"))
        again = self.run_script("io.write(dom:Get('key'))",
                                options=["--settings", self.path("settings.db")])
        self.assertEqual((again.status, again.out), (0, "value"))

    def test_finaliser_that_exits_is_no_endless_loop(self):
        result = self.run_script("kept = setmetatable({}, {__gc = function() os.exit(4) end})\n"
                                 "os.exit(3)")
        self.assertEqual(result.status, 3, result)

    def test_a_running_thread_ends_with_the_agent(self):
        service = "require 'ostrel'\nservice = SLB.ostrel.SSLCertThread(dom)\nservice:Start()\n"
        for end, status in (("", 0), ("os.exit(4)", 4), ("error 'fault'", 1),
                            ("service = nil collectgarbage() collectgarbage()", 0),
                            ("service:RequestExit()", 0),
                            ("dom:RequestExit() service:Join()", 0)):
            self.assertEqual(self.run_script(service + end).status, status, end)

    def test_uncaught_error_is_told_with_a_traceback(self):
        result = self.run_script("local function f() error('it broke') end\nf()")
        self.assertEqual(result.status, 1)
        self.assertIn(f"velm_agent: {self.path('test.lua')}: ", result.err)
        self.assertIn("test.lua:1: it broke", result.err)
        self.assertIn("stack traceback:", result.err)

    def test_error_that_is_no_text_is_told(self):
        self.assertIn("velm_agent: ", self.run_script("error({})").err)
        self.assertEqual(self.run_script("error(nil)").status, 1)
        self.assertIn("as text", self.run_script(
            "error(setmetatable({}, {__tostring = function() return 'as text' end}))").err)

    def test_missing_script_is_unreadable_input(self):
        result = self.run_agent("script", "none.lua")
        self.assert_refused(result, "velm_agent: none.lua: No such file or directory")
        self.assert_refused(self.run_agent("script", self.folder), "Is a directory")

    def test_syntax_error_is_unreadable_input(self):
        result = self.run_script("print(1)\nif then")
        self.assert_refused(result, "test.lua:2: unexpected symbol near 'then'")
        self.assertEqual(result.out, "")

    def test_compiled_chunk_is_refused(self):
        self.assert_refused(self.run_script(b"\x1bLuaR\0"), "binary chunk")

    def test_first_line_for_the_shell_keeps_line_numbers(self):
        self.assert_refused(self.run_script("#!/usr/bin/env velm_agent\nif then"), "test.lua:2:")
        self.assert_done(self.run_script("#!/usr/bin/env velm_agent\nprint(1)"))

    def test_arguments_behind_the_file_are_the_scripts(self):
        result = self.run_script("print(#arg, arg[1], arg[2], arg[3], ...)",
                                 "--testing", "-h", "x")
        self.assert_done(result)
        self.assertEqual(result.out, "3\t--testing\t-h\tx\t--testing\t-h\tx\n")

    def test_empty_argument_stays_one(self):
        self.assertEqual(self.run_script("print(#arg, #arg[1], arg[2])", "", "x").out, "2\t0\tx\n")

    def test_testing_module_comes_with_its_option_only(self):
        self.assertIn("module 'velm.testing' not found",
                      self.run_script("require 'velm.testing'").err)
        self.assert_done(self.run_script("require 'velm.testing'", options=["--testing"]))

    def test_modules_beside_the_script_are_found(self):
        self.write("beside.lua", "return 'beside'")
        self.assertEqual(self.run_script("print(require 'beside')").out, "beside\n")

    def test_settings_stay_in_memory_without_a_file(self):
        self.run_script("dom:Set('key', 1)")
        self.assertEqual(os.listdir(self.folder), ["test.lua"])
        self.assertEqual(self.run_script("io.write(dom:Get('key'))").out, "")

    def test_damaged_settings_are_refused_and_stay(self):
        damaged = self.write("settings.db", b"this is no database" * 100)
        self.assert_refused(self.run_script("print(1)", options=["--settings", damaged]),
                            "settings.db")
        self.assertEqual(self.read("settings.db"), b"this is no database" * 100)

    def test_events_go_to_the_file(self):
        result = self.run_script(
            "require 'ostrel'\nlocal log = SLB.ostrel.LogData(dom)\n"
            "log:SetLogFilePath('/proc/nowhere')\nlog:InitializeLogFile()",
            options=["--events", self.path("events.jsonl")])
        self.assert_done(result)
        events = [json.loads(line) for line in self.read("events.jsonl").splitlines()]
        self.assertEqual([(e["number"], e["text"]) for e in events], [(6003, "/proc/nowhere")])

    def test_event_file_that_cannot_be_opened_is_refused(self):
        self.assert_refused(self.run_script("print(1)", options=["--events", "/nowhere/e"]),
                            "/nowhere/e", "No such file or directory")

    def test_policy_is_read_and_checked(self):
        good = self.write("policy.xml", "<SecurityConfiguration/>")
        self.assert_done(self.run_script("print(1)", options=["--policy", good]))
        bad = self.write("bad.xml", "<SecurityConfiguration>")
        self.assert_refused(self.run_script("print(1)", options=["--policy", bad]), "bad.xml")
        self.assert_refused(self.run_script("print(1)", options=["--policy", "none.xml"]),
                            "none.xml: No such file or directory")

    def test_trace_goes_to_standard_error(self):
        text = "require 'ostrel'\npcall(SLB.ostrel.LogData(dom).SetKdi, SLB.ostrel.LogData(dom), 1)"
        self.assertIn("SetKdi called", self.run_script(text, options=["--trace", "ostrel"]).err)
        self.assertIn("SetKdi called", self.run_script(text, options=["--trace", "x,ostrel"]).err)
        self.assertNotIn("SetKdi called", self.run_script(text).err)


if __name__ == "__main__":
    cli.main()
