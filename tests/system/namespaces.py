"""Network namespaces of a test's own: made with it, and gone with it."""

import os
import shutil
import subprocess
import sys

# Answers each connection with one line.
SERVER = """
import socket, sys
listener = socket.create_server((sys.argv[1], int(sys.argv[2])), backlog=64)
print("ready", flush=True)
while True:
    connection = listener.accept()[0]
    connection.sendall(b"welcome\\n")
    connection.close()
"""


def missing(*tools):
    """Why a test that needs root and these tools can't run; empty if it can."""
    if os.geteuid() != 0:
        return "skipped: needs root"
    for tool in ("ip", "nft", *tools):
        if shutil.which(tool) is None:
            return f"skipped: needs {tool}"
    probe = subprocess.run(["unshare", "--net", "nft", "list", "tables"], capture_output=True)
    return "" if probe.returncode == 0 else "skipped: the kernel has no nftables for namespaces"


class Namespace:
    def __init__(self, test, name):
        self.name = f"velm{os.getpid()}{name}"
        self.prefix = ["ip", "netns", "exec", self.name]
        subprocess.run(["ip", "netns", "add", self.name], check=True)
        test.addCleanup(subprocess.run, ["ip", "netns", "delete", self.name])
        self.run("ip", "link", "set", "lo", "up")

    def run(self, *command, check=True, **options):
        return subprocess.run([*self.prefix, *command], check=check, capture_output=True, text=True,
                              timeout=120, **options)

    def start(self, test, *command, **options):
        """Starts a process that the test's end kills."""
        process = subprocess.Popen([*self.prefix, *command], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, **options)

        def end():
            process.kill()
            process.wait()
            process.stdout.close()
        test.addCleanup(end)
        return process

    def serve(self, test, address, port):
        server = self.start(test, sys.executable, "-c", SERVER, address, str(port))
        assert server.stdout.readline() == b"ready\n"

    def connects(self, source, address, port, seconds=2):
        """Whether a connection from the source address gets the server's line."""
        program = ("import socket, sys\n"
                   "s = socket.create_connection((sys.argv[2], int(sys.argv[3])),"
                   " float(sys.argv[4]), (sys.argv[1], 0))\n"
                   "sys.exit(s.recv(100) != b'welcome\\n')")
        return self.run(sys.executable, "-c", program, source, address, str(port), str(seconds),
                        check=False).returncode == 0


def wire(first, first_address, second, *second_addresses):
    """Joins two namespaces by a wire; addresses come with their prefix length."""
    ends = f"w{second.name}"[-15:], f"x{second.name}"[-15:]
    subprocess.run(["ip", "link", "add", ends[0], "netns", first.name, "type", "veth",
                    "peer", "name", ends[1], "netns", second.name], check=True)
    for namespace, end, addresses in ((first, ends[0], [first_address]),
                                      (second, ends[1], second_addresses)):
        for address in addresses:
            namespace.run("ip", "address", "add", address, "dev", end)
        namespace.run("ip", "link", "set", end, "up")
    return ends
