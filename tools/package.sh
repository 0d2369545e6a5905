#!/bin/bash
# Makes the Debian package of this tree and prints its path.
set -euo pipefail
cd "$(dirname "$0")/.."

tools/install-deps.sh --build --package >&2
cmake --preset package >&2
cmake --build --preset package >&2
(cd build/package && rm -f ./*.deb && cpack -G DEB) >&2
realpath build/package/*.deb
