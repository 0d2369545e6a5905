#!/bin/bash
# Checks what the module shows to the program that loads it: one function, its SONAME, and no Lua
# library of its own. Argument: the folder with the built libraries.
set -euo pipefail
module=${1:?usage: $0 FOLDER}/ostrel.so

fail() {
    echo "$module: $1" >&2
    exit 1
}

exports=$(nm -D --defined-only "$module" | awk '{print $NF}')
[ "$exports" = luaopen_ostrel ] || fail "exports more or less than luaopen_ostrel:
$(grep -vx luaopen_ostrel <<<"$exports" | head -n 10)"

dynamic=$(readelf -dW "$module")
grep -q 'SONAME.*\[ostrel\.so\]' <<<"$dynamic" || fail "its SONAME is not ostrel.so"
! grep -q 'NEEDED.*\[liblua' <<<"$dynamic" || fail "it brings a Lua library of its own"
for library in velm_core.so libkdi.so; do
    grep -qF "[$library]" <<<"$dynamic" || fail "it is not linked with $library"
done
echo "$module: luaopen_ostrel and nothing else"
