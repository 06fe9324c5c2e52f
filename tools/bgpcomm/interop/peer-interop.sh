#!/usr/bin/env bash
# Interop tests of `bgpcomm collect` and `bgpcomm replay` against FRR's bgpd,
# BIRD 2 and gobgpd on loopback (interop.py does the work; this script gets
# the daemons, a scratch folder and a time limit).
#
#   peer-interop.sh BGPCOMM collect|replay|malformed|twopeers SPEAKER
#   peer-interop.sh BGPCOMM selfcheck SENDER RECEIVER
#
# SPEAKER is frr, bird or gobgp. collect: SPEAKER announces the lab's rich
# table to `bgpcomm collect`. replay: `bgpcomm replay` announces the sample
# table to SPEAKER over eBGP, then over iBGP. malformed: an UPDATE with a bad
# COMMUNITIES length from a raw peer while SPEAKER is also a peer. twopeers:
# SPEAKER and another speaker into one collector. selfcheck: the lab alone,
# SENDER announcing to RECEIVER.
#
# Exit status: 0 pass, 1 fail (a diff or the reason is printed), 77 skipped
# because a daemon is not installed and cannot be.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
bgpcomm=${1:?usage: peer-interop.sh BGPCOMM TEST SPEAKER...}
mode=${2:?usage: peer-interop.sh BGPCOMM TEST SPEAKER...}
shift 2
if [ ! -x "$bgpcomm" ]; then
    echo "peer-interop: $bgpcomm is not an executable" >&2
    exit 1
fi
# shellcheck source=lab.sh
. "$here/lab.sh"

if ! command -v python3 >/dev/null 2>&1; then
    echo "skipped: python3 is not available"
    exit 77
fi
speakers=("$@")
case $mode in
    twopeers) speakers+=("$( [ "$1" = gobgp ] && echo frr || echo gobgp )") ;;
esac
declare -A package=([frr]=frr [bird]=bird2 [gobgp]=gobgpd)
for s in "${speakers[@]}"; do
    if [ -z "${package[$s]:-}" ]; then
        echo "peer-interop: unknown speaker '$s' (frr, bird or gobgp)" >&2
        exit 2
    fi
    if ! ensure_speaker "$s"; then
        echo "skipped: the $s daemon (Debian package ${package[$s]}) is not available"
        exit 77
    fi
done

lab_workdir
case $mode in
    selfcheck) args=("$@") ;;
    replay) args=("$1" "$bgpcomm" "$here/../sample/gobgp-rib.mrt") ;;
    *) args=("$1" "$bgpcomm") ;;
esac
if ! lab_run 150 python3 -B "$here/interop.py" "$LAB_DIR" "$mode" "${args[@]}"; then
    echo "peer-interop $mode $*: FAILED" >&2
    exit 1
fi
