#!/usr/bin/env bash
# Regenerates gobgp-rib.mrt and gobgp-rib.view.json in this folder from a
# real gobgpd (see README.md). Needs gobgpd, or root and apt-get to install
# it; every socket it opens is on 127.0.0.1. Takes a little over a minute.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=../interop/lab.sh
. "$here/../interop/lab.sh"

if ! ensure_gobgpd --update; then
    echo "make-sample: gobgpd is not available" >&2
    exit 1
fi
lab_workdir
lab_run 200 python3 "$here/../interop/gobgplab.py" run "$LAB_DIR"
cp "$LAB_DIR/gobgp-rib.mrt" "$LAB_DIR/gobgp-rib.view.json" "$here/"
echo "wrote $here/gobgp-rib.mrt and $here/gobgp-rib.view.json"
