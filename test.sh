#!/bin/bash
# Installs what is missing, builds, and runs every test.
# Usage: ./test.sh [release|debug|asan|tsan] [options for ctest]
set -euo pipefail
cd "$(dirname "$0")"
preset=${1:-release}
shift $(($# > 0))

tools/install-deps.sh --build --test
cmake --preset "$preset"
cmake --build --preset "$preset"

# The thread sanitizer of this compiler needs the program at its usual addresses.
run=()
if [ "$preset" = tsan ] && setarch --addr-no-randomize true 2>/dev/null; then
    run=(setarch --addr-no-randomize)
fi
exec "${run[@]}" ctest --preset "$preset" --parallel 2 "$@"
