#!/bin/bash
# Tries the Debian package on a fresh Debian 12: installs it, runs the service there on the packet
# filter of a network namespace, removes it again, and boots the system to try the units. Makes the
# root of such a system at first, in a folder outside the tree, and keeps it for the next time; each
# run works on a copy.
#   usage: tools/test-package.sh [PACKAGE.deb]     without one, it is made
#   VELM_PACKAGE_ROOT   that folder (/var/cache/velm/bookworm)
# Needs root, for the chroot, the mounts and the namespaces, all of which end with the script.
set -euo pipefail
cd "$(dirname "$0")/.."
tree=$PWD
. tools/debian-root.sh
base=${VELM_PACKAGE_ROOT:-/var/cache/velm/bookworm}

if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "$0: needs root or sudo" >&2; exit 1; }
    exec sudo VELM_PACKAGE_ROOT="$base" "$tree/tools/test-package.sh" "$@"
fi
if [ -z "${VELM_PACKAGE_MOUNTS:-}" ]; then
    tools/install-deps.sh --package
    package=$(realpath "${1:-$(tools/package.sh)}")
    VELM_PACKAGE_MOUNTS=own exec unshare --mount --propagation private --net \
        "$tree/tools/test-package.sh" "$package"
fi
package=$1

fail() {
    echo "$0: $*" >&2
    [ ! -e "$root/tmp/messages" ] || cat "$root/tmp/messages" >&2
    exit 1
}

# in_root COMMAND...: without this machine's environment.
in_root() {
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM="${TERM:-dumb}" LANG=C.UTF-8 \
        DEBIAN_FRONTEND=noninteractive chroot "$root" "$@"
}

# apt COMMAND...: in the network of the machine; downloads are kept for the next time.
apt() {
    nsenter --net="/proc/$PPID/ns/net" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
        DEBIAN_FRONTEND=noninteractive chroot "$root" apt-get -y -q -o APT::Keep-Downloaded-Packages=true "$@"
}

# Every path of the system, without what package tools and the kernel keep for themselves.
paths() {
    (cd "$root" && find . -xdev \
        \( -path ./proc -o -path ./dev -o -path ./tmp -o -path ./run -o -path ./var/lib/dpkg -o -path ./var/lib/apt \
        -o -path ./var/cache -o -path ./var/log/apt -o -path ./var/log/dpkg.log \) -prune -o -print | sort)
}

# await WHAT COMMAND...: until the command holds.
await() {
    local what=$1
    shift
    for _ in $(seq 300); do
        if "$@" >/dev/null 2>&1; then return; fi
        sleep 0.1
    done
    fail "$what"
}

make_root "$base" nsenter --net="/proc/$PPID/ns/net" debootstrap

root=$(mktemp -d "$base.XXXXXX")
started=()
clean_up() {
    for process in "${started[@]}"; do kill "$process" 2>/dev/null || true; done
    wait
    umount --recursive --lazy "$root" || true
    rmdir "$root"
}
trap clean_up EXIT
mount -t tmpfs tmpfs "$root"
cp -a "$base/." "$root"
mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
mkdir -p "$base.archives/partial"
mount --bind "$base.archives" "$root/var/cache/apt/archives"
cp /etc/resolv.conf "$root/etc/resolv.conf"
cp "$package" "$root/tmp/velm-agent.deb"

echo "=== Installing"
apt update >/dev/null
apt --no-install-recommends satisfy "$(dpkg-deb --field "$package" Depends)" nftables >"$base.install.log"
before=$(paths)
in_root dpkg --install /tmp/velm-agent.deb
in_root velm_agent run --check --config /etc/velm/velm.conf.lua

echo "=== Running"
ip link set lo up
ip link add wan type veth peer name peer
ip address add 192.0.2.1/24 dev wan
unshare --net sleep 600 &
neighbour=$!
started+=("$neighbour")
second_namespace() { [ "$(readlink /proc/self/ns/net)" != "$(readlink "/proc/$neighbour/ns/net")" ]; }
await "no second namespace" second_namespace
ip link set peer netns "$neighbour"
ip link set wan up
there() { nsenter --net="/proc/$neighbour/ns/net" "$@"; }
there ip address add 192.0.2.66/24 dev peer
there ip link set peer up
in_root nft -f /etc/velm/velm.nft
in_root velm_agent run --config /etc/velm/velm.conf.lua >"$root/tmp/messages" 2>&1 &
service=$!
await "the service did not start" in_root velm_agent status
started+=("$(<"$root/var/lib/velm_agent/lock")")
there bash -c 'for port in 4001 4002 4003; do echo x >/dev/udp/192.0.2.1/$port; done'
logged() { in_root velm_agent status --json | grep -q '"logged_total":3,'; }
await "no packet was logged" logged
kill -TERM "${started[1]}"
wait "$service" || fail "the service ended with status $?"
[ "$(grep -c "192.0.2.66, [0-9]*, 192.0.2.1, 400[123]," "$root/var/log/velm_agent/velm_mpnp")" -eq 3 ] ||
    fail "the log does not hold the three packets"

echo "=== Removing"
echo "-- the administrator's" >>"$root/etc/velm/velm.conf.lua"
in_root dpkg --install /tmp/velm-agent.deb >/dev/null
grep -q "the administrator's" "$root/etc/velm/velm.conf.lua" || fail "an upgrade changed the configuration"
in_root dpkg --remove velm-agent
[ -e "$root/etc/velm/velm.conf.lua" ] || fail "removal took the configuration"
[ -e "$root/var/lib/velm_agent/settings.db" ] || fail "removal took the state"
in_root dpkg --purge velm-agent
left=$(comm -13 <(echo "$before") <(paths))
expected=$'./var/log/velm_agent\n./var/log/velm_agent/velm_mpnp'
[ "$left" = "$expected" ] || fail "what is left:"$'\n'"$left"

echo "=== Booting"
# What the booted system runs; its exit status is that of the first command that fails.
cat >"$root/try-units" <<'END'
#!/bin/sh -ex
exec >/try-units.log 2>&1
trap 'systemctl status velm-agent velm-firewall || true; journalctl --no-pager --lines=30' EXIT
property() { systemctl show --property "$1" --value velm-agent; }
[ "$(systemctl is-enabled velm-agent)" = disabled ]
systemctl start velm-firewall
systemctl start velm-agent
velm_agent status
# The sandbox is there: no capability but that of the packet filter, and a filter of system calls.
grep -q '^CapEff:.0000000000001000$' "/proc/$(property MainPID)/status"
grep -q '^Seccomp:.2$' "/proc/$(property MainPID)/status"
systemctl reload velm-agent
for _ in $(seq 100); do
    sleep 0.1
    if velm_agent status | grep -q '^reloads_total *1$'; then break; fi
done
velm_agent status | grep -q '^reloads_total *1$'
# A faulty configuration ends the service, and nobody starts it again.
cp /etc/velm/velm.conf.lua /tmp/good
echo 'return {' >/etc/velm/velm.conf.lua
! systemctl restart velm-agent
sleep 7
[ "$(property ActiveState)/$(property ExecMainStatus)/$(property NRestarts)" = failed/78/0 ]
cp /tmp/good /etc/velm/velm.conf.lua
systemctl reset-failed velm-agent
systemctl start velm-agent
systemctl stop velm-agent velm-firewall
[ "$(property ActiveState)/$(property ExecMainStatus)" = inactive/0 ]
[ -z "$(nft list tables)" ]
echo fine
END
cat >"$root/etc/systemd/system/try-units.service" <<'END'
[Unit]
After=basic.target
SuccessAction=poweroff-force
FailureAction=poweroff-force
[Service]
Type=oneshot
ExecStart=/try-units
END
chmod +x "$root/try-units"

# Runs as the first process of a system of its own.
start_system() {
    mount -t proc proc "$root/proc"
    mount -t sysfs sysfs "$root/sys"
    mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup"
    mount -t tmpfs tmpfs "$root/run"
    mount -t tmpfs tmpfs "$root/dev"
    mkdir "$root/dev/pts" "$root/dev/shm"
    mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
    ln -s pts/ptmx "$root/dev/ptmx"
    for device in "null 1 3" "zero 1 5" "full 1 7" "random 1 8" "urandom 1 9" "tty 5 0"; do
        # shellcheck disable=SC2086
        set -- $device
        mknod --mode=666 "$root/dev/$1" c "$2" "$3"
    done
    exec env -i container=other PATH=/usr/sbin:/usr/bin:/sbin:/bin chroot "$root" /lib/systemd/systemd \
        --log-target=console --unit=try-units.service systemd.unified_cgroup_hierarchy=1
}
apt --no-install-recommends install systemd >>"$base.install.log"
in_root dpkg --install /tmp/velm-agent.deb >/dev/null
umount --recursive --lazy "$root/dev"
export -f start_system
export root
timeout --kill-after=10 180 unshare --pid --fork --kill-child --mount --propagation private --uts --ipc \
    --cgroup --net bash -ec start_system >"$root/tmp/messages" 2>&1 || true
grep -qx fine "$root/try-units.log" || fail "units: $(cat "$root/try-units.log" 2>&1)"
echo "The package installs, logs, leaves nothing but the log, and its units work."
