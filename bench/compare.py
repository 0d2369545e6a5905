#!/usr/bin/env python3
"""Compares the program with everyday tools on the same files, and prints one table.

Arguments: the folder with the program, a folder for data (kept for the next time), and the JSON
reports of the Google benchmarks, if there are any. Ends with 1 if a limit is passed.
"""

import argparse
import glob
import json
import os
import shutil
import statistics
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
RUNS = 3
PACKETS = 1000000

# Greatest allowed ratio of the program's CPU seconds to tcpdump's, by capture.
REPLAY_LIMITS = {"mix": 0.8, "flood": 0.4, "repeats": 0.8}
# Greatest allowed ratio of grep's speed to ours: half of it is enough.
RETRIEVAL_LIMIT = 2.0

# At least 0.9 of OpenSSL's own speed with the same keys.
SSL_LIMIT = 1 / 0.9
# What the way through the SSL service adds to one decryption, in microseconds.
SSL_LATENCY_LIMIT = 1000

# Google benchmarks whose times are compared: name of the row, subject, reference, greatest ratio.
PAIRS = (
    ("text of a record / snprintf chain", "RecordText", "RecordTextSnprintf", 1 / 8),
    ("repeat, 1024 cached / 16 cached", "RepeatCached/1024", "RepeatCached/16", 1.5),
    ("eviction, 128 cached / system calls", "EvictOldest/128", "OpenWriteClose", 2.0),
    ("eviction, 1024 cached / system calls", "EvictOldest/1024", "OpenWriteClose", 2.0),
    ("CEF message / snprintf chain", "SyslogCef", "SyslogCefSnprintf", 1.0),
    ("plain message / snprintf chain", "SyslogPlain", "SyslogPlainSnprintf", 1.0),
)


class Run:
    """One finished process: CPU seconds of user and system, peak memory in MiB."""

    def __init__(self, command, output):
        with open(output, "wb") as file:
            process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=file,
                                       stderr=subprocess.PIPE)
            message = process.stderr.read().decode(errors="replace")
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            sys.exit("%s: exit status %d\n%s" % (" ".join(command), process.returncode, message))
        self.cpu = usage.ru_utime + usage.ru_stime
        self.memory = usage.ru_maxrss / 1024


class Table:
    def __init__(self):
        self.rows = []
        self.held = True

    def add(self, name, ours, reference, ratio, limit, memory=""):
        verdict = "ok" if ratio <= limit else "TOO SLOW"
        self.held = self.held and ratio <= limit
        self.rows.append((name, ours, reference, "%.3f" % ratio, "%.3f" % limit, memory, verdict))

    def __str__(self):
        head = ("what", "ours", "reference", "ratio", "limit", "peak MiB", "")
        rows = [head] + self.rows
        widths = [max(len(row[i]) for row in rows) for i in range(len(head))]
        return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip()
                         for row in rows)


def alternate(ours, reference):
    """Medians of alternating runs: our CPU seconds, the reference's, and both peaks of memory."""
    pairs = [(ours(), reference()) for _ in range(RUNS)]
    median = [statistics.median(run.cpu for run in side) for side in zip(*pairs)]
    memory = [max(run.memory for run in side) for side in zip(*pairs)]
    return median, memory


def add_row(table, name, median, memory, limit):
    table.add(name, "%.2f s" % median[0], "%.2f s" % median[1], median[0] / median[1], limit,
              "%.0f / %.0f" % tuple(memory))


def is_fresh(path, script):
    """True if the file is there and no older than the script that makes it."""
    return os.path.exists(path) and os.path.getmtime(path) >= os.path.getmtime(script)


def compare_replay(table, agent, data, kind):
    capture = os.path.join(data, kind + ".pcap")
    script = os.path.join(HERE, "make_captures.py")
    if not is_fresh(capture, script):
        subprocess.run([script, kind, capture, "--packets", str(PACKETS)], check=True)
    logs = os.path.join(data, "replay")
    text = os.path.join(data, "text")

    def ours():
        shutil.rmtree(logs, ignore_errors=True)
        return Run([agent, "replay", capture, "--out", logs], text)

    def reference():
        return Run(["tcpdump", "-nn", "-tttt", "-S", "-r", capture], text)

    median, memory = alternate(ours, reference)
    shutil.rmtree(logs, ignore_errors=True)
    add_row(table, "replay of %s / tcpdump" % kind, median, memory, REPLAY_LIMITS[kind])


def make_logs(data):
    """The log files and their window, both kept."""
    logs = os.path.join(data, "logs")
    note = os.path.join(data, "logs.window")
    script = os.path.join(HERE, "make_logs.py")
    if not is_fresh(note, script):
        window = subprocess.run([script, logs], check=True, stdout=subprocess.PIPE,
                                text=True).stdout
        with open(note, "w", encoding="ascii") as file:
            file.write(window)
    with open(note, encoding="ascii") as file:
        return logs, file.read().split()


def compare_retrieval(table, agent, data):
    logs, (start, end) = make_logs(data)
    text = os.path.join(data, "text")
    files = sorted(glob.glob(os.path.join(logs, "velm_mpnp*")))
    megabytes = sum(os.path.getsize(path) for path in files) / 1e6
    query = [agent, "query", "--dir", logs, "--from", start, "--to", end, "--kind", "packet"]

    median, memory = alternate(lambda: Run(query, text),
                               lambda: Run(["grep", "-c", ", f, "] + files, text))
    add_row(table, "query of %.0f MB / grep -c" % megabytes, median, memory, RETRIEVAL_LIMIT)
    print("query: %.0f MB per CPU second; grep: %.0f" % tuple(megabytes / cpu for cpu in median))


def compare_benchmarks(table, reports):
    times = {}
    for report in reports:
        with open(report, encoding="utf-8") as file:
            for row in json.load(file)["benchmarks"]:
                if row.get("aggregate_name", "median") == "median":
                    times[row["run_name"]] = row["cpu_time"]
    for name, subject, reference, limit in PAIRS:
        if subject in times and reference in times:
            table.add(name, "%.0f ns" % times[subject], "%.0f ns" % times[reference],
                      times[subject] / times[reference], limit)


def ssl_service(program):
    """Microseconds that a request takes the service."""
    output = subprocess.run([program, "--benchmark_filter=SslThroughput",
                             "--benchmark_min_time=2", "--benchmark_format=json"],
                            check=True, stdout=subprocess.PIPE).stdout
    return 1e6 / json.loads(output)["benchmarks"][0]["items_per_second"]


def openssl_speed():
    """Microseconds that a private key operation takes OpenSSL, with a process a processor."""
    output = subprocess.run(["openssl", "speed", "-mr", "-elapsed", "-seconds", "2", "-multi",
                             str(os.cpu_count()), "rsa2048"], check=True, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
    totals = [line for line in output.splitlines() if line.startswith("+F2:")]
    return 1e6 / float(totals[-1].split(":")[3])


def compare_ssl(table, programs):
    program = os.path.join(programs, "bench_ssl")
    runs = [(ssl_service(program), openssl_speed()) for _ in range(RUNS)]
    ours, reference = (statistics.median(column) for column in zip(*runs))
    table.add("SSL request, 2048 bits / openssl speed", "%.0f us" % ours, "%.0f us" % reference,
              ours / reference, SSL_LIMIT)


def compare_ssl_latency(table, reports):
    for report in reports:
        with open(report, encoding="utf-8") as file:
            for row in json.load(file)["benchmarks"]:
                if "added_us" in row and row.get("aggregate_name", "median") == "median":
                    table.add("SSL queue's added latency / limit", "%.0f us" % row["added_us"],
                              "%d us" % SSL_LATENCY_LIMIT, row["added_us"] / SSL_LATENCY_LIMIT, 1)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("programs")
    parser.add_argument("data")
    parser.add_argument("reports", nargs="*")
    arguments = parser.parse_args()

    os.makedirs(arguments.data, exist_ok=True)
    agent = os.path.join(arguments.programs, "velm_agent")
    table = Table()
    compare_benchmarks(table, arguments.reports)
    compare_ssl_latency(table, arguments.reports)
    compare_ssl(table, arguments.programs)
    for kind in REPLAY_LIMITS:
        compare_replay(table, agent, arguments.data, kind)
    compare_retrieval(table, agent, arguments.data)
    print()
    print(table)
    return 0 if table.held else 1


if __name__ == "__main__":
    sys.exit(main())
