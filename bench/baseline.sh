#!/usr/bin/env bash
# Whole-table ingest, the current library against an older one built side by
# side: checks the old commit out into a git worktree under
# build/baseline/, builds bench/IngestBench.cpp against it (bench/sidebyside,
# release flags) and against this tree (the release preset's
# vobgp_ingest_bench, the same flags), runs the two
# alternately in one session and prints, per benchmark, the median time per
# route of each, their ratio (current / old) and the interned bytes per route.
#
#   bench/baseline.sh [routes]            (default 1000000)
#   BASELINE_COMMIT=<commit>              (default 3598247, before the
#                                          extended community lists; a commit
#                                          without ExtCommList::internReceived
#                                          is built with extended values only)
#   ROUNDS=<n>                            alternate runs of each (default 3)
#   FILTER=<regex>                        benchmarks to run (default ^ingest/)
#   JOBS=<n>                              build jobs (default 2)
#   bench/baseline.sh --clean             removes the worktree and builds
#
# The old checkout and its build stay under build/baseline/ so that later
# runs rebuild only what changed here.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
base=${BASELINE_COMMIT:-3598247}
work=build/baseline
src=$work/src-$base

if [ "${1:-}" = "--clean" ]; then
  [ -d "$src" ] && git worktree remove --force "$src"
  rm -rf "$work"
  exit 0
fi

routes=${1:-${VOBGP_INGEST_ROUTES:-1000000}}
rounds=${ROUNDS:-3}
filter=${FILTER:-^ingest/}
jobs=${JOBS:-2}

mkdir -p "$work"
[ -d "$src" ] || git worktree add --detach "$src" "$base" >/dev/null

values_only=ON
grep -qs internReceived "$src/VoBgp/internal/ExtCommListImpl.h" && values_only=OFF
cmake -S bench/sidebyside -B "$work/build-$base" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_COMPILER=g++ -DLIB_TREE="$root/$src" -DEXT_VALUES_ONLY=$values_only >/dev/null
cmake --build "$work/build-$base" --target vobgp_ingest_bench -j "$jobs" >/dev/null
cmake --preset release >/dev/null
cmake --build --preset release --target vobgp_ingest_bench -j "$jobs" >/dev/null
declare -A bench=([old]=$work/build-$base/vobgp_ingest_bench
                  [current]=build/release/bench/vobgp_ingest_bench)

echo "machine: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), nproc $(nproc)"
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"
for round in $(seq "$rounds"); do
  for which in old current; do
    "${bench[$which]}" --routes="$routes" --benchmark_filter="$filter" \
      --benchmark_format=json --benchmark_out="$work/$which-$round.json" >/dev/null
  done
done
echo "load after:  $(cut -d' ' -f1-3 /proc/loadavg)"

python3 - "$work" "$rounds" "$base" <<'EOF'
import json, statistics, sys
work, rounds, base = sys.argv[1], int(sys.argv[2]), sys.argv[3]
runs = {}  # which -> name -> [benchmark entries]
for which in ("old", "current"):
    for r in range(1, rounds + 1):
        with open(f"{work}/{which}-{r}.json") as f:
            for b in json.load(f)["benchmarks"]:
                if "error_occurred" in b:
                    sys.exit(f"{which}: {b['name']}: {b['error_message']}")
                runs.setdefault(which, {}).setdefault(b["name"], []).append(b)
def median(which, name, key):
    values = [b[key] for b in runs[which][name] if key in b]
    return statistics.median(values) if values else float("nan")
print(f"\nmedian of {rounds} runs each; ns per (carrying) route (per list for release),"
      " interned bytes per route")
print(f"{'benchmark':52} {base:>9} {'current':>9} {'ratio':>6}   {'B ' + base:>10} {'B current':>10}")
for name in runs["current"]:
    if name not in runs["old"]:
        continue
    per = "per_list" if "per_list" in runs["current"][name][0] else "per_route"
    old, cur = (median(w, name, per) * 1e9 for w in ("old", "current"))
    bold, bcur = (median(w, name, "B_per_route") for w in ("old", "current"))
    print(f"{name:52} {old:9.1f} {cur:9.1f} {cur / old:6.2f}   {bold:10.1f} {bcur:10.1f}")
EOF
