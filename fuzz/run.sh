#!/usr/bin/env bash
# Builds the fuzz targets (`fuzz` preset: clang, libFuzzer, AddressSanitizer,
# UndefinedBehaviorSanitizer) and runs each for a bounded time.
#
#   fuzz/run.sh [seconds per target] [target...]     (default: 15, all)
#
# Each target starts from its committed seeds (fuzz/corpus/<target>/) plus
# what earlier runs added to its working corpus (build/fuzz/corpus/<target>/);
# the committed seeds are never written. A crash leaves its input in
# build/fuzz/artifacts/<target>/, and the script exits non-zero; reproduce
# with build/fuzz/fuzz/fuzz_<target> <that file>. Logs: build/fuzz/logs/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-15}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(extcomm lists stash text mrt session)

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${targets[@]/#/fuzz_}"

failed=()
for target in "${targets[@]}"; do
  work=build/fuzz/corpus/$target artifacts=build/fuzz/artifacts/$target
  mkdir -p "$work" "$artifacts" build/fuzz/logs
  log=build/fuzz/logs/$target.log
  echo "fuzz_$target: ${seconds}s"
  # -timeout: one input taking longer is a finding (a hang), as is growing
  # past -rss_limit_mb.
  if ! build/fuzz/fuzz/fuzz_$target "$work" "fuzz/corpus/$target" \
      -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=4096 \
      -print_final_stats=1 -artifact_prefix="$artifacts/" >"$log" 2>&1; then
    failed+=("$target")
    tail -n 40 "$log"
  fi
  grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb)|cov: ' "$log" | tail -n 3 || true
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: failures in ${failed[*]} (inputs in build/fuzz/artifacts/)" >&2
  exit 1
fi
