#!/bin/bash
# Installs the Debian 12 packages that are missing, and says so. Quick when none is.
set -euo pipefail

build=(g++ cmake ninja-build pkg-config libwxgtk3.2-dev liblua5.2-dev libssl-dev libcli11-dev
       libsqlite3-dev libexpat1-dev libpcap-dev libtins-dev libcap-ng-dev libsystemd-dev
       nlohmann-json3-dev libmnl-dev libnetfilter-log-dev libnetfilter-conntrack-dev
       libnftables-dev libgtest-dev libgmock-dev)
test=(lua5.2 python3 tcpdump binutils tzdata nftables iproute2 conntrack nmap mandoc man-db
      tshark openssl rsyslog)
fuzz=(clang-14 libclang-rt-14-dev)
format=(clang-format-14 clang-tidy-14)
bench=(libbenchmark-dev python3 tcpdump openssl ulogd2 nftables iproute2)
i386=(debootstrap)
package=(file dpkg-dev gzip debootstrap)

usage() {
    echo "usage: $0 [--build] [--test] [--fuzz] [--format] [--bench] [--i386] [--package] [--all]"
    echo "Installs what the named jobs need; --build and --test without a name."
}

wanted=()
[ $# -gt 0 ] || set -- --build --test
for option; do
    case $option in
        --build) wanted+=("${build[@]}") ;;
        --test) wanted+=("${test[@]}") ;;
        --fuzz) wanted+=("${fuzz[@]}") ;;
        --format) wanted+=("${format[@]}") ;;
        --bench) wanted+=("${bench[@]}") ;;
        --i386) wanted+=("${i386[@]}") ;;
        --package) wanted+=("${package[@]}") ;;
        --all)
            wanted+=("${build[@]}" "${test[@]}" "${fuzz[@]}" "${format[@]}" "${bench[@]}" "${i386[@]}"
                     "${package[@]}")
            ;;
        --help) usage; exit 0 ;;
        *) usage >&2; exit 2 ;;
    esac
done

# dpkg-query leaves out the packages that it does not know, and fails for them.
installed=$(dpkg-query -W -f='${Package} ${db:Status-Status}\n' "${wanted[@]}" 2>/dev/null || true)
missing=()
for package in "${wanted[@]}"; do
    grep -qxF "$package installed" <<<"$installed" || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "$0: needs root or sudo to install: ${missing[*]}" >&2; exit 1; }
    as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -q
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q --no-install-recommends "${missing[@]}"
