#!/bin/bash
# Shows the same captures to this system and to two open scan detectors, and prints side by side
# what each reported and after how many packets. For people who want to judge; not a test.
#
#   psad       in analysis mode, on the kernel firewall lines that a host which drops what it does
#              not serve would have written of the capture
#   scanlogd   on one end of a veth, in namespaces of its own; tcpreplay feeds the other end with
#              the packets to the host, at the capture's own pace
#
# Needs root. Everything that it starts lives in namespaces that end with it.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
captures=$here/../tests/captures

usage() {
    cat <<TEXT
usage: $0 [--install] [--agent VELM_AGENT] [CAPTURE...]
  --install  installs psad, scanlogd and tcpreplay from Debian, without what they recommend
  --agent    the program to compare; build/release/bin/velm_agent otherwise
Without captures a choice from tests/captures is shown, which takes some minutes.
TEXT
}

install=false
agent=$here/../build/release/bin/velm_agent
while [ $# -gt 0 ]; do
    case $1 in
        --install) install=true ;;
        --agent) agent=${2:?$(usage)}; shift ;;
        --help) usage; exit 0 ;;
        -*) usage >&2; exit 2 ;;
        *) break ;;
    esac
    shift
done

[ "$(id -u)" -eq 0 ] || { echo "$0: needs root, for namespaces" >&2; exit 1; }
if $install; then
    apt-get update -q
    # The packages' services stay off: only what is started here runs.
    DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 \
        apt-get install -y -q --no-install-recommends psad scanlogd tcpreplay
fi
for tool in psad scanlogd tcpreplay ip unshare python3; do
    command -v "$tool" >/dev/null || { echo "$0: $tool is missing; try --install" >&2; exit 1; }
done
[ -x "$agent" ] || { echo "$0: $agent: no such program" >&2; exit 1; }

if [ $# -eq 0 ]; then
    for name in nmap-sS-1000 nmap-sS-10ports nmap-sS-3ports nmap-sT-1000 nmap-sX-1000 nmap-sN-1000 \
                nmap-sF-1000 nmap-sU-100 nmap-O nmap-frag-f nmap-slow-400ms nmap-slow-1500ms \
                nmap-host-sweep-445 nmap-sweep-5ports-11hosts nmap-decoy hping-0x29 hping-0x2B \
                masscan-1000 mixed-distributed-scan nmap6-sS-1000 benign-ftp-passive-40 \
                benign-http-120-small benign-traceroute benign-dns-udp benign-refused-retries; do
        set -- "$@" "$captures/$name.pcap"
    done
fi
exec python3 "$here/compare_detectors.py" "$agent" "$@"
