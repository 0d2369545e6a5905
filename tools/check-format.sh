#!/bin/bash
# Fails if a source is not as .clang-format wants it. With --fix, formats it instead.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=(--dry-run --Werror)
[ "${1:-}" != --fix ] || mode=(-i)
find agent plugins tests fuzz bench -name '*.h' -print0 -o -name '*.cpp' -print0 |
    xargs -0 -r clang-format-14 "${mode[@]}"
