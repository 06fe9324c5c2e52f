#!/usr/bin/env bash
# Interop test of `bgpcomm mrt` against a real BGP speaker, gobgpd.
#
#   gobgp-interop.sh BGPCOMM
#
# Runs two gobgpd on 127.0.0.1 (gobgplab.py), lets one learn routes with
# standard (well-known included), large, extended and IPv6-address-specific
# extended communities from the other, takes the learner's MRT table dump and
# its `gobgp -j global rib` view, and checks (gobgpview.py) that
# `bgpcomm mrt --json --verify` reads the same communities, route by route,
# with no round-trip mismatch.
#
# Exit status: 0 pass, 1 fail (a diff is printed), 77 skipped because gobgpd
# is not installed and cannot be installed.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
bgpcomm=${1:?usage: gobgp-interop.sh BGPCOMM}
if [ ! -x "$bgpcomm" ]; then
    echo "gobgp-interop: $bgpcomm is not an executable" >&2
    exit 1
fi
# shellcheck source=lab.sh
. "$here/lab.sh"

if ! command -v python3 >/dev/null 2>&1; then
    echo "skipped: python3 is not available"
    exit 77
fi
if ! ensure_gobgpd --no-update; then
    echo "skipped: gobgpd (Debian package gobgpd) is not available"
    exit 77
fi
gobgpd --version

lab_workdir
if ! lab_run 200 python3 -B "$here/gobgplab.py" run "$LAB_DIR"; then
    echo "gobgp-interop: the gobgpd lab failed" >&2
    exit 1
fi
if ! lab_run 60 python3 "$here/gobgpview.py" "$bgpcomm" "$LAB_DIR/gobgp-rib.mrt" \
    "$LAB_DIR/gobgp-rib.view.json"; then
    echo "gobgp-interop: FAILED" >&2
    exit 1
fi
