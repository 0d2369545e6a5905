#!/usr/bin/env python3
"""Floods the log rule of a network namespace, once for the agent and once for ulogd2 writing text.

usage: live.py VELM_AGENT FLOOD [SECONDS [PACKETS_PER_SECOND]]

Prints a table, and ends with 1 if something that must hold does not: the flood is as strong as asked
for, the agent answers all the while, its memory stays bounded, and every packet was either logged or
counted as lost."""

import contextlib
import json
import os
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "tests", "system"))
import namespaces

HOST = "192.0.2.1"
RULES = """
table inet velm {
    set blocked4 { type ipv4_addr; flags timeout; }
    chain input {
        type filter hook input priority 0;
        iif lo accept
        meta l4proto tcp counter log prefix "velm f=1 a=1 r=0 " group %d snaplen 128 drop
    }
}
"""
AGENT_GROUP, ULOGD_GROUP = 5, 6
BUFFER = 64 << 20  # bytes, for both
MEMORY_LIMIT_MB = 512
ANSWER_LIMIT_SECONDS = 2.0
# More is asked of the sender than must come out: 200,000 a second without arguments.
HEADROOM = 1.1

ULOGD = """
[global]
logfile="{folder}/ulogd.log"
loglevel=5
plugin="{plugins}/ulogd_inppkt_NFLOG.so"
plugin="{plugins}/ulogd_raw2packet_BASE.so"
plugin="{plugins}/ulogd_filter_IFINDEX.so"
plugin="{plugins}/ulogd_filter_IP2STR.so"
plugin="{plugins}/ulogd_filter_PRINTPKT.so"
plugin="{plugins}/ulogd_output_LOGEMU.so"
stack=log1:NFLOG,base1:BASE,ifi1:IFINDEX,ip2str1:IP2STR,print1:PRINTPKT,emu1:LOGEMU
[log1]
group={group}
netlink_socket_buffer_size={buffer}
netlink_socket_buffer_maxsize={buffer}
netlink_qthreshold=128
netlink_qtimeout=10
[emu1]
file="{folder}/ulogd.text"
sync=0
"""


class Bench(contextlib.ExitStack):
    """The namespaces, and what the helpers of the tests expect of a test."""

    addCleanup = contextlib.ExitStack.callback

    def __init__(self, agent, flood, seconds, rate):
        super().__init__()
        self.agent, self.flood, self.seconds, self.rate = agent, flood, seconds, rate
        self.folder = self.enter_context(tempfile.TemporaryDirectory(prefix="velm_bench."))
        self.host = namespaces.Namespace(self, "h")
        self.peer = namespaces.Namespace(self, "p")
        self.inner, self.outer = namespaces.wire(self.host, HOST + "/24", self.peer, "192.0.2.2/24")
        self.host.run("ip", "route", "add", "default", "via", "192.0.2.2")
        self.hardware = json.loads(self.host.run("ip", "-j", "link", "show", self.inner).stdout)[0]["address"]

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, text):
        with open(self.path(name), "w") as file:
            file.write(text)
        return self.path(name)

    def rules(self, group):
        self.host.run("nft", "flush", "ruleset")
        self.host.run("nft", "-f", self.write("rules.nft", RULES % group))

    def begin_flood(self, kind, seconds, rate):
        return self.peer.start(self, self.flood, self.outer, self.hardware, HOST, kind, str(seconds),
                               str(rate))

    def show_losses(self):
        """The kernel numbers packets, so what was lost shows when another one comes."""
        self.end_flood(self.begin_flood("repeats", 0.5, 500))

    def end_flood(self, process):
        sent, seconds = process.stdout.read().split()
        return int(sent), float(seconds)

    def counted(self):
        chain = json.loads(self.host.run("nft", "-j", "list", "chain", "inet", "velm", "input").stdout)
        return next(part["counter"]["packets"] for item in chain["nftables"]
                    for part in item.get("rule", {}).get("expr", []) if "counter" in part)


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def peak_mb(pid):
    with open(f"/proc/{pid}/status") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmHWM")) / 1024


def wait_until_idle(pid):
    """Until the process has worked off what waits for it."""
    before = -1
    while before != (before := cpu_seconds(pid)):
        time.sleep(1.5)


def measure_agent(bench, kind):
    bench.rules(AGENT_GROUP)
    config = bench.write("agent.lua", """return {agent = {logDirectory = "%s", stateDirectory = "%s",
        sources = {"nflog:%d"}, receiveBuffer = %d}, packetFilterLog = {size = 1024, keep = 8}}"""
        % (bench.path("log" + kind), bench.path("state" + kind), AGENT_GROUP, BUFFER))
    process = subprocess.Popen([*bench.host.prefix, bench.agent, "run", "--config", config],
                               stderr=open(bench.path("messages"), "ab"))
    bench.callback(process.kill)

    def status():
        begin = time.monotonic()
        answer = subprocess.run([bench.agent, "status", "--json", "--config", config], capture_output=True)
        return time.monotonic() - begin, json.loads(answer.stdout) if answer.returncode == 0 else None
    while status()[1] is None:
        time.sleep(0.1)
    # The command's own start counts in its answer's time, so the idle time is told as well.
    idle = min(status()[0] for _ in range(5))
    before = cpu_seconds(process.pid)
    flood = bench.begin_flood(kind, bench.seconds, bench.rate)
    slowest = 0
    while flood.poll() is None:
        seconds, answer = status()
        slowest = max(slowest, seconds if answer else float("inf"))
        time.sleep(0.2)
    sent, seconds = bench.end_flood(flood)
    wait_until_idle(process.pid)
    cpu = cpu_seconds(process.pid) - before
    bench.show_losses()
    wait_until_idle(process.pid)
    numbers = status()[1]
    result = {"who": "agent", "kind": kind, "sent": sent, "rate": sent / seconds, "reached": bench.counted(),
              "logged": numbers["entries_total"], "lost": numbers["lost_total"],
              "overruns": numbers["overruns_total"], "lines": numbers["lines_total"],
              "cpu": cpu, "peak": peak_mb(process.pid),
              "slowest": slowest, "idle": idle}
    process.terminate()
    result["status"] = process.wait()
    return result


def measure_ulogd(bench, kind):
    bench.rules(ULOGD_GROUP)
    plugins = subprocess.run(["dpkg", "-L", "ulogd2"], capture_output=True, text=True, check=True).stdout
    folder = next(os.path.dirname(line) for line in plugins.splitlines() if line.endswith("NFLOG.so"))
    config = bench.write("ulogd.conf", ULOGD.format(folder=bench.folder, plugins=folder,
                                                    group=ULOGD_GROUP, buffer=BUFFER))
    text = bench.path("ulogd.text")
    if os.path.exists(text):
        os.remove(text)
    process = subprocess.Popen([*bench.host.prefix, "ulogd", "-c", config], stderr=subprocess.DEVNULL)
    bench.callback(process.kill)
    while not os.path.exists(text):
        time.sleep(0.1)
    before = cpu_seconds(process.pid)
    sent, seconds = bench.end_flood(bench.begin_flood(kind, bench.seconds, bench.rate))
    wait_until_idle(process.pid)
    result = {"who": "ulogd2", "kind": kind, "sent": sent, "rate": sent / seconds, "reached": bench.counted(),
              "cpu": cpu_seconds(process.pid) - before, "peak": peak_mb(process.pid)}
    process.terminate()
    process.wait()
    with open(text, "rb") as file:
        result["logged"] = result["lines"] = sum(1 for _ in file)
    return result


def faults(result, rate):
    if result["rate"] < rate / HEADROOM:
        yield "the sender reached only %.0f packets a second" % result["rate"]
    if result["who"] != "agent":
        return
    if result["slowest"] - result["idle"] > ANSWER_LIMIT_SECONDS:
        yield "an answer took %.1f s" % result["slowest"]
    if result["peak"] > MEMORY_LIMIT_MB:
        yield "memory grew to %.0f MB" % result["peak"]
    if result["logged"] + result["lost"] != result["reached"]:
        yield "%d packets are unaccounted for" % (result["reached"] - result["logged"] - result["lost"])
    if result["status"] != 0:
        yield "the agent ended with %d" % result["status"]


@contextlib.contextmanager
def going_first():
    """Ahead of whatever else the machine does; of other sessions too, where the kernel groups by them."""
    os.nice(-20)
    group = "/proc/self/autogroup"
    if not os.path.exists(group):
        yield
        return
    with open(group, "r+") as file:
        former = file.read().split()[-1]
        file.write("-20")
    try:
        yield
    finally:
        with open(group, "w") as file:
            file.write(former)


def row(result):
    per_packet = result["cpu"] / max(result["logged"], 1) * 1e6
    return "%-8s %-9s %9.0f %10d %10d %10s %9d %8.2f %9.2f %7.0f %9s" % (
        result["who"], result["kind"], result["rate"], result["reached"], result["logged"],
        result.get("lost", "untold"), result["lines"], result["cpu"], per_packet, result["peak"],
        "%.3f" % result["slowest"] if "slowest" in result else "-")


def main():
    reason = namespaces.missing("ulogd")
    if reason:
        print("live.py:", reason, file=sys.stderr)
        return 2
    agent, flood = map(os.path.abspath, sys.argv[1:3])
    seconds = float(sys.argv[3]) if len(sys.argv) > 3 else 10
    rate = float(sys.argv[4]) if len(sys.argv) > 4 else 220000
    print("%-8s %-9s %9s %10s %10s %10s %9s %8s %9s %7s %9s" % (
        "who", "flood", "packets/s", "reached", "logged", "lost", "lines", "CPU s", "us/logged",
        "MB", "answer s"))
    bad = []
    for kind in ("repeats", "distinct"):
        for measure in (measure_agent, measure_ulogd):
            with going_first(), Bench(agent, flood, seconds, rate) as bench:
                result = measure(bench, kind)
            print(row(result), flush=True)
            bad += ["%s, %s: %s" % (result["who"], kind, fault) for fault in faults(result, rate)]
    for fault in bad:
        print("live.py:", fault, file=sys.stderr)
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
