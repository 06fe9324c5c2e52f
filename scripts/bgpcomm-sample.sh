#!/usr/bin/env bash
# Builds the bgpcomm tool alone (preset tool: release, no tests) and shows the routes of the sample
# MRT data in tools/bgpcomm/sample/ with their communities, then the statistics.
# Extra arguments go to `bgpcomm mrt`,
# e.g. scripts/bgpcomm-sample.sh --json.
set -euo pipefail
cd "$(dirname "$0")/.."
# Only what the release build of the tool needs: a compiler, CMake, Ninja and
# the two decompression libraries (no test, benchmark or 32-bit packages).
scripts/ensure-deps.sh --only cmake ninja-build g++ zlib1g-dev libbz2-dev
cmake --preset tool >/dev/null
cmake --build --preset tool
shopt -s nullglob
samples=(tools/bgpcomm/sample/*.mrt*)
if ((${#samples[@]} == 0)); then
  echo "no sample data in tools/bgpcomm/sample/ (*.mrt, *.mrt.gz, *.mrt.bz2);" \
       "try: build/tool/tools/bgpcomm/bgpcomm synth --routes 100000 -o /tmp/synth.mrt" >&2
  exit 1
fi
if (($# == 0)); then
  set -- --format text --stats
fi
exec build/tool/tools/bgpcomm/bgpcomm mrt "$@" "${samples[@]}"
