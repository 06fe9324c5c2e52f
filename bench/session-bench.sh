#!/usr/bin/env bash
# The live speaker side by side with FRR's bgpd and gobgpd on loopback:
# `bgpcomm replay` of one `bgpcomm synth` table into `bgpcomm collect`, FRR
# and gobgpd in turn (Established to End-of-RIB, receiver's memory), `gobgp
# mrt inject` of the same file through gobgpd into FRR against `bgpcomm
# replay` into FRR, and collect's interned state next to `bgpcomm mrt
# --stats`. tools/bgpcomm/interop/sessionbench.py does the measuring.
#
#   bench/session-bench.sh [routes] [rounds]   (default 1000000 routes, 1 round)
#
# Installs frr and gobgpd with apt-get when missing (as the interop tests
# do). Daemons run in a scratch folder under /tmp, on 127.0.0.x, and are
# stopped by process id however the script ends.
set -euo pipefail
cd "$(dirname "$0")/.."
routes=${1:-1000000}
rounds=${2:-1}
here=$PWD/tools/bgpcomm/interop
# shellcheck source=../tools/bgpcomm/interop/lab.sh
. "$here/lab.sh"
for s in frr gobgp; do
  if ! ensure_speaker "$s"; then
    echo "session-bench: the $s daemon is not available" >&2
    exit 1
  fi
done

cmake --preset release >/dev/null
cmake --build --preset release --target bgpcomm -j "${JOBS:-2}" >/dev/null
bgpcomm=$PWD/build/release/tools/bgpcomm/bgpcomm

lab_workdir
file=$LAB_DIR/synth-$routes.mrt
"$bgpcomm" synth --routes "$routes" --seed 1 -o "$file"
echo "machine: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), nproc $(nproc)"
echo "bgpcomm $(git rev-parse --short HEAD); FRR $(/usr/lib/frr/bgpd --version | head -1);" \
  "$(gobgp --version)"
# Bounded: each receiver gets at most 300 s inside; the whole run this long.
lab_run $((1800 * rounds)) python3 -B "$here/sessionbench.py" "$LAB_DIR" "$bgpcomm" "$file" \
  "$rounds"
