"""Help, version and wrong usage."""

import cli


class Usage(cli.CliTest):
    def test_help_is_on_standard_output(self):
        for command in ([], ["replay"], ["query"], ["check-credential"], ["script"]):
            result = self.run_agent(*command, "--help")
            self.assert_done(result)
            self.assertEqual(result.err, "")
            self.assertIn("Usage: velm_agent" + "".join(" " + word for word in command), result.out)

    def test_help_on_a_command_has_examples(self):
        for command in ("replay", "query", "check-credential", "script"):
            self.assertIn(f"Examples:\n  velm_agent {command} ",
                          self.run_agent(command, "--help").out)

    def test_help_names_each_command(self):
        text = self.run_agent("--help").out
        for command in ("replay", "query", "check-credential", "script"):
            self.assertRegex(text, rf"(?m)^  {command} ")

    def test_version(self):
        result = self.run_agent("--version")
        self.assert_done(result)
        self.assertRegex(result.out, r"^velm_agent \d+\.\d+\.\d+\n$")

    def test_no_command(self):
        self.assert_refused(self.run_agent(), "subcommand is required")

    def test_unknown_command_is_named(self):
        self.assert_refused(self.run_agent("reply", "x"), "velm_agent: reply: no such command")

    def test_unknown_option_is_named(self):
        self.assert_refused(self.run_agent("--verbose"), "--verbose")
        self.assert_refused(self.run_agent("replay", "--verbose", "x"), "--verbose")
        self.assert_refused(self.run_agent("query", "--verbose"), "--verbose")
        self.assert_refused(self.run_agent("script", "--verbose", "x.lua"), "--verbose")

    def test_missing_argument_is_named(self):
        self.assert_refused(self.run_agent("replay"), "CAPTURE is required")
        self.assert_refused(self.run_agent("script"), "FILE.lua is required")
        self.assert_refused(self.run_agent("replay", "x", "--out"), "--out")

    def test_wrong_usage_prints_no_result(self):
        self.assertEqual(self.run_agent("reply").out, "")


if __name__ == "__main__":
    cli.main()
