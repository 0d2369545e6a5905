#!/bin/bash
# Installs what is missing, builds the program, replays captures of real scans, and asks the log
# files for one second of them.
set -euo pipefail
cd "$(dirname "$0")"

agent=build/release/bin/velm_agent
out=build/demo
log=$out/velm_mpnp

# run WHAT COMMAND: says what is done, shows the command line, runs it.
run() {
    printf '\n%s\n  $ %s\n\n' "$1" "$2"
    eval "$2"
}

run "Install the packages that are missing." "tools/install-deps.sh --build"
run "Configure." "cmake --preset release --log-level=WARNING"
run "Build the program and the module." \
    "cmake --build --preset release --target velm_agent ostrel"

rm -rf "$out"
run "Replay two captures: a UDP scan, then a SYN scan of a web server with 60 visits.
An entry is what the host's firewall reports; \"logged\" are the entries that belong in the log, and
\"coalesced\" are those of them that only raised the count of a line." \
    "$agent replay --out $out tests/captures/nmap-sU-100-filtered.pcap tests/captures/mixed-http-and-sS.pcap"

run "The first lines of the log file." "head -n 3 $log"
run "Lines that stand for more than one packet: the third column from the end is the count." \
    "grep -m 3 -E ', ([2-9]|[0-9]{2,}), [0-9]+, [0-9]+$' $log"

# The second of the last line, whose last column is its time in microseconds.
seconds=$(tail -n 1 "$log" | sed -E 's/.* ([0-9]+)[0-9]{6}$/\1/')
window=$(date -d "@$seconds" +%Y-%m-%dT%H:%M:%S)
run "Ask the same files for one second of the second scan." \
    "$agent query --dir $out --from $window --to $window --time > $out/answer.txt"
run "The answer, but for the lines in the middle." \
    "wc -l $out/answer.txt; head -n 2 $out/answer.txt; echo '[...]'; tail -n 1 $out/answer.txt"
