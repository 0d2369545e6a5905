#!/bin/bash
# Builds the release and floods the log rule of a network namespace with packets, once for the agent
# and once for ulogd2 from Debian writing text. Needs root. Arguments: seconds, packets a second.
set -euo pipefail
cd "$(dirname "$0")/.."

tools/install-deps.sh --build --bench
cmake --preset bench >/dev/null
cmake --build --preset bench --target velm_agent ostrel flood
exec bench/live.py build/bench/bin/velm_agent build/bench/bin/flood "$@"
