#!/usr/bin/env bash
# bgpcomm mrt on one 1,000,000-route synthetic TABLE_DUMP_V2 file with one
# thread and with two (--threads), for --count and --stats: the best of
# ROUNDS wall times of each, runs interleaved so that a load change hits
# both alike, and the speed-up of two threads over one. Also two files at
# once. Builds the release preset's bgpcomm first.
# The machine's fast and slow phases move the bests of a run; the median
# of the rounds' own speed-ups (each round's one-thread time over its
# two-thread time) is printed beside them as the steadier figure.
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
    one=999999 two=999999 ratios=()
    for ((r = 0; r < rounds; r++)); do
      # shellcheck disable=SC2086  # the file list is meant to split
      t1=$(seconds "$bin" mrt --threads 1 $mode $files)
      if (($(echo "$t1 < $one" | bc -l))); then one=$t1; fi
      # shellcheck disable=SC2086
      t2=$(seconds "$bin" mrt --threads 2 $mode $files)
      if (($(echo "$t2 < $two" | bc -l))); then two=$t2; fi
      ratios+=("$(echo "$t1 / $t2" | bc -l)")
    done
    median=$(printf '%s\n' "${ratios[@]}" | sort -g | awk '{v[NR] = $1}
      END {print NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}')
    printf '%-8s %d file(s): 1 thread %.3f s, 2 threads %.3f s, speed-up %.2fx (median of rounds %.2fx)\n' \
      "$mode" "$(wc -w <<<"$files")" "$one" "$two" "$(echo "$one / $two" | bc -l)" "$median"
  done
done
