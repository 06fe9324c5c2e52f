#!/usr/bin/env bash
# Builds the bgpcomm tool with the release preset and shows the routes of the sample
# MRT data in tools/bgpcomm/sample/ with their communities, then the statistics.
# Extra arguments go to `bgpcomm mrt`,
# e.g. scripts/bgpcomm-sample.sh --json.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/ensure-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target bgpcomm
shopt -s nullglob
samples=(tools/bgpcomm/sample/*.mrt*)
if ((${#samples[@]} == 0)); then
  echo "no sample data in tools/bgpcomm/sample/ (*.mrt, *.mrt.gz, *.mrt.bz2);" \
       "try: build/release/tools/bgpcomm/bgpcomm synth --routes 100000 -o /tmp/synth.mrt" >&2
  exit 1
fi
if (($# == 0)); then
  set -- --format text --stats
fi
exec build/release/tools/bgpcomm/bgpcomm mrt "$@" "${samples[@]}"
