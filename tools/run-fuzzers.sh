#!/bin/bash
# Builds the fuzz targets with clang and runs each for a time. Argument: seconds for each (30).
# Inputs that the fuzzer finds interesting go to build/fuzz/corpus, inputs that break something to
# build/fuzz/findings; the seeds in fuzz/corpus stay as they are.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
jobs=$(nproc)

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target velm_fuzzers

run_one() {
    local name=$1 seconds=$2 log=build/fuzz/$1.log corpus=build/fuzz/corpus/$1 status=0
    mkdir -p "$corpus" build/fuzz/findings
    local folders=("$corpus")
    [ ! -d "fuzz/corpus/$name" ] || folders+=("fuzz/corpus/$name")
    "build/fuzz/bin/fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="build/fuzz/findings/$name-" -print_final_stats=1 \
        "${folders[@]}" >"$log" 2>&1 || status=$?
    if [ $status -eq 0 ]; then
        echo "$name: $(sed -n 's/^stat::number_of_executed_units: *//p' "$log") runs, no finding"
    else
        echo "$name: FINDING (exit status $status), the end of $log:"
        tail -n 40 "$log"
    fi
    return $status
}
export -f run_one

names=$(cat build/fuzz/fuzzers.txt)
[ -n "$names" ] || { echo "no fuzz targets" >&2; exit 1; }
xargs -P "$jobs" -I{} bash -c 'run_one "$@"' run_one {} "$seconds" <<<"$names"
