"""A real rsyslogd on loopback, with configuration, state and output of its own."""

import json
import os
import shutil
import signal
import socket
import subprocess
import time

PATIENCE = 120  # seconds; only a failing test waits for them

# What the receiver's own readers of messages are told: CEF, and the kernel's firewall log line.
RULES = """version=2
rule=:%cef:cef%
rule=:REASON=%reason:word% HOSTID=%hostid:number% act=%act:word% %packet:v2-iptables%
"""

CONFIGURATION = """global(workDirectory="{folder}" localHostname="receiver")
module(load="imudp")
module(load="imtcp")
module(load="imuxsock" sysSock.use="off")
module(load="mmnormalize")
main_queue(queue.size="1000" queue.timeoutShutdown="60000")
template(name="fields" type="string" string="%pri%\\t%timereported:::date-rfc3339%\\t%hostname%\\t\
%app-name%\\t%procid%\\t%msgid%\\t%$!n%\\t%msg%\\n")
ruleset(name="receive") {{
    action(type="mmnormalize" rulebase="{folder}/rules" path="$!n")
    action(type="omfile" file="{folder}/messages" template="fields")
}}
input(type="imudp" address="127.0.0.1" port="{port}" ruleset="receive")
input(type="imtcp" address="127.0.0.1" port="{port}" ruleset="receive")
input(type="imuxsock" socket="{folder}/log" ruleset="receive")
"""


def program():
    return shutil.which("rsyslogd", path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")


def wait_for(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("waited in vain for " + what)
        time.sleep(0.002)


def free_port():
    """A port that is free for TCP and UDP, as far as anybody can tell."""
    while True:
        with socket.socket() as tcp, socket.socket(type=socket.SOCK_DGRAM) as udp:
            tcp.bind(("127.0.0.1", 0))
            try:
                udp.bind(tcp.getsockname())
            except OSError:
                continue
            return tcp.getsockname()[1]


class Message:
    """One message as the receiver has read it."""

    def __init__(self, line):
        (self.pri, self.time, self.host, self.app, self.pid, self.kind, fields,
         self.text) = line.split("\t", 7)
        self.text = self.text.lstrip(" ")
        self.fields = json.loads(fields)


class Receiver:
    def __init__(self, folder):
        self.folder = folder
        self.port = free_port()
        self.process = None
        self.counted_bytes = self.counted_lines = 0
        self._write("rules", RULES)
        self._write("conf", CONFIGURATION.format(folder=folder, port=self.port))

    def _write(self, name, text):
        with open(os.path.join(self.folder, name), "w", encoding="ascii") as file:
            file.write(text)

    def target(self, protocol):
        return f"{protocol}://127.0.0.1:{self.port}"

    def socket(self):
        return "unix:" + os.path.join(self.folder, "log")

    def start(self):
        self.process = subprocess.Popen(
            [program(), "-n", "-f", os.path.join(self.folder, "conf"),
             "-i", os.path.join(self.folder, "pid")],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_for(self._listens, "rsyslogd to listen")

    def _listens(self):
        if self.process.poll() is not None:
            raise AssertionError("rsyslogd has ended: %d" % self.process.returncode)
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0

    def stop(self):
        """Ends it as its service would be stopped."""
        if self.process is None:
            return
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process = None

    def count(self):
        """Lines so far; looks only at what is new."""
        try:
            with open(os.path.join(self.folder, "messages"), "rb") as file:
                file.seek(self.counted_bytes)
                new = file.read()
        except FileNotFoundError:
            return 0
        self.counted_bytes += len(new)
        self.counted_lines += new.count(b"\n")
        return self.counted_lines

    def lines(self):
        path = os.path.join(self.folder, "messages")
        if not os.path.exists(path):
            return []
        with open(path, encoding="utf-8") as file:
            return [line[:-1] for line in file if line.endswith("\n")]

    def messages(self):
        return [Message(line) for line in self.lines()]
