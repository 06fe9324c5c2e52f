#!/usr/bin/env bash
# bgpcomm mrt on one 1,000,000-route synthetic TABLE_DUMP_V2 file with one
# thread and with two (--threads), for --count and --stats: the best of
# ROUNDS wall times of each, runs interleaved so that a load change hits
# both alike, and the speed-up of two threads over one. Also two files at
# once. Builds the release preset's bgpcomm first.
#   scripts/bgpcomm-threads-bench.sh [ROUNDS, default 5]
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-5}
cmake --preset release >/dev/null
cmake --build --preset release --target bgpcomm >/dev/null
bin=build/release/tools/bgpcomm/bgpcomm
file=build/release/bench-1m.mrt
[ -f "$file" ] || "$bin" synth --routes 1000000 --seed 1 -o "$file"
seconds() {  # wall time of "$@"
  local start end
  start=$(date +%s.%N)
  "$@" >/dev/null
  end=$(date +%s.%N)
  echo "$end - $start" | bc -l
}
for mode in --count --stats; do
  for files in "$file" "$file $file"; do
    one=999999 two=999999
    for ((r = 0; r < rounds; r++)); do
      # shellcheck disable=SC2086  # the file list is meant to split
      t=$(seconds "$bin" mrt --threads 1 $mode $files)
      if (($(echo "$t < $one" | bc -l))); then one=$t; fi
      # shellcheck disable=SC2086
      t=$(seconds "$bin" mrt --threads 2 $mode $files)
      if (($(echo "$t < $two" | bc -l))); then two=$t; fi
    done
    printf '%-8s %d file(s): 1 thread %.3f s, 2 threads %.3f s, speed-up %.2fx\n' "$mode" \
      "$(wc -w <<<"$files")" "$one" "$two" "$(echo "$one / $two" | bc -l)"
  done
done
