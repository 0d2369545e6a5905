#!/bin/bash
# Builds the project for 32-bit Debian 12 and runs its unit and script tests there: makes the root
# of such a system at first, in a folder outside the tree, and keeps it with the build for the next
# time. Arguments: options for ctest.
#   VELM_I386_ROOT   that folder (/var/cache/velm/i386)
# Needs root, for the chroot and for mounts, which nobody else sees and which end with the script.
set -euo pipefail
cd "$(dirname "$0")/.."
tree=$PWD
. tools/debian-root.sh
root=${VELM_I386_ROOT:-/var/cache/velm/i386}

if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "$0: needs root or sudo" >&2; exit 1; }
    exec sudo VELM_I386_ROOT="$root" "$tree/tools/test-i386.sh" "$@"
fi
if [ -z "${VELM_I386_MOUNTS:-}" ]; then
    tools/install-deps.sh --i386
    VELM_I386_MOUNTS=own exec unshare --mount --propagation private "$tree/tools/test-i386.sh" "$@"
fi

# in_root COMMAND...: as a 32-bit machine would run it, without this one's environment.
in_root() {
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM="${TERM:-dumb}" LANG=C.UTF-8 \
        setarch i386 chroot "$root" "$@"
}

make_root "$root" debootstrap --arch=i386

# A mount point of its own, so that tests may mount file systems in it.
mount --rbind "$root" "$root"
mountpoint -q "$root/proc" || mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
mount -t tmpfs tmpfs "$root/tmp"
mkdir -p "$root/src" "$root/build"
mount --bind "$tree" "$root/src"
mount -o remount,bind,ro "$root/src"
cp /etc/hosts /etc/resolv.conf "$root/etc/"

in_root /src/tools/install-deps.sh --build --test
in_root cmake -S /src -B /build --preset release
in_root cmake --build /build
in_root ctest --test-dir /build --output-on-failure --parallel "$(nproc)" --exclude-regex '^system\.' "$@"
