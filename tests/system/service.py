"""What the tests of the service share: one that runs on a configuration of its own."""

import json
import os
import signal
import socket
import subprocess
import time

import cli

# The machine may be slow and busy; what is waited for comes much sooner.
PATIENCE = 60


class ServiceTest(cli.CliTest):
    """A test that starts services and ends, by their ids, those that it has left."""

    def setUp(self):
        super().setUp()
        self.services = []
        self.addCleanup(self.end_all)

    def end_all(self):
        for process in self.services:
            if process.poll() is None:
                process.kill()
                process.wait()
            process.stderr.close()

    def config(self, agent="", rest="", name="agent.lua"):
        """Writes a configuration; what is given comes after the directories, and so over them."""
        return self.write(name, """return {agent = {
            logDirectory = "%s", stateDirectory = "%s", sources = {"null"}, %s}, %s}"""
            % (self.path("log"), self.path("state"), agent, rest))

    def begin(self, *arguments, config="agent.lua", prefix=(), **environment):
        """Starts a service and returns at once; its messages go to a file."""
        messages = open(self.path("messages"), "ab")
        process = subprocess.Popen(
            [*prefix, self.agent, "run", "--config", self.path(config), *arguments],
            cwd=self.folder, stdin=subprocess.DEVNULL, stdout=messages, stderr=messages,
            env={**os.environ, "TZ": "UTC", **environment})
        process.stderr = messages
        self.services.append(process)
        return process

    def start(self, *arguments, **options):
        """Starts a service and returns when it is ready."""
        before = self.messages().count("velm_agent: ready:")
        process = self.begin(*arguments, **options)
        self.wait_for(lambda: self.messages().count("velm_agent: ready:") > before
                      or process.poll() is not None)
        self.assertIsNone(process.poll(), self.messages())
        return process

    def messages(self):
        try:
            return self.read("messages").decode()
        except FileNotFoundError:
            return ""

    def wait_for(self, condition, what="", pause=0.05):
        end = time.monotonic() + PATIENCE
        while not condition():
            self.assertLess(time.monotonic(), end, f"{what}\n{self.messages()}")
            time.sleep(pause)

    def stop(self, process, number=signal.SIGTERM):
        process.send_signal(number)
        return process.wait(PATIENCE)

    def ask(self, *request):
        return self.run_agent(*request, "--config", self.path("agent.lua"))

    def status(self):
        result = self.ask("status", "--json")
        self.assert_done(result)
        return json.loads(result.out)

    def blocks(self):
        result = self.ask("blocks", "--json")
        self.assert_done(result)
        return {block["address"]: block["seconds"]
                for block in map(json.loads, result.out.splitlines())}

    def lines(self):
        """The log's lines, of the oldest file first, without their ends."""
        folder = self.path("log")
        names = sorted(os.listdir(folder), key=lambda name: -int(name.partition(".")[2] or 0))
        return b"".join(self.read("log", name) for name in names).decode().splitlines()

    def connect(self):
        client = socket.socket(socket.AF_UNIX)
        client.settimeout(PATIENCE)
        client.connect(self.path("state", "control"))
        self.addCleanup(client.close)
        return client
