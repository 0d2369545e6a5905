"""The manuals: clean for both formatters, and complete in commands and configuration keys.

Run as: python3 FILE VELM_AGENT SOURCE_FOLDER."""

import os
import re
import shutil
import subprocess
import sys
import unittest


class Manuals(unittest.TestCase):
    def manual(self, name):
        return os.path.join(self.source, "docs", "man", name)

    def text(self, *names):
        with open(os.path.join(self.source, *names)) as file:
            return file.read()

    def test_formatters_have_nothing_to_say(self):
        for name in ("velm_agent.1", "velm.conf.lua.5"):
            for tool, command in (("mandoc", ["mandoc", "-Tlint", "-Wwarning"]),
                                  ("man", ["man", "--warnings", "-Tutf8", "-l"])):
                if shutil.which(tool) is None:
                    self.skipTest(f"skipped: needs {tool}")
                result = subprocess.run([*command, self.manual(name)], capture_output=True, text=True)
                said = result.stderr + (result.stdout if tool == "mandoc" else "")
                said = "".join(line for line in said.splitlines(True) if "mandoc.db" not in line)
                self.assertEqual((result.returncode, said), (0, ""), tool)

    def test_every_command_is_told_and_completed(self):
        help = subprocess.run([self.agent, "--help"], capture_output=True, text=True).stdout
        commands = re.findall(r"(?m)^  ([a-z-]+) +", help.split("Subcommands:")[1])
        self.assertIn("run", commands)
        manual, completion = self.text("docs", "man", "velm_agent.1"), self.text("packaging", "velm_agent.bash")
        for command in commands:
            self.assertRegex(manual, rf"(?m)^\.It Cm {command}$")
            self.assertRegex(completion, rf'"[^"]*\b{command}\b[^"]*--version"')

    def test_every_key_of_the_agents_part_is_told(self):
        config = self.text("agent", "scripts", "velm", "config.lua")
        keys = re.findall(r"(\w+) =", re.search(r"AGENT_KEYS = \{(.*?)\n\}", config, re.S)[1])
        self.assertIn("sources", keys)
        manual, sample = self.text("docs", "man", "velm.conf.lua.5"), self.text("agent", "etc", "velm.conf.lua")
        for key in keys:
            self.assertRegex(manual, rf"(?m)^\.It Va {key}$")
            self.assertRegex(sample, rf"(?m)^ +(-- )?{key} = ")


if __name__ == "__main__":
    Manuals.source = sys.argv.pop()
    Manuals.agent = sys.argv.pop()
    unittest.main()
