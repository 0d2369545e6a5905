#!/bin/bash
# Builds the release with its benchmarks, runs them all, compares the program with tcpdump and grep
# on the same files, and prints one table. Needs about 3 GB under build/bench-data.
set -euo pipefail
cd "$(dirname "$0")/.."

tools/install-deps.sh --build --bench
cmake --preset bench >/dev/null
cmake --build --preset bench

reports=()
for program in build/bench/bin/bench_*; do
    [ -x "$program" ] || continue
    report=build/bench/$(basename "$program").json
    "$program" --benchmark_repetitions=7 --benchmark_enable_random_interleaving=true \
        --benchmark_report_aggregates_only=true \
        --benchmark_out="$report" --benchmark_out_format=json
    reports+=("$report")
done

bench/compare.py build/bench/bin build/bench-data "${reports[@]}"
