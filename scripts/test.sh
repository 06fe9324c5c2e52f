#!/usr/bin/env bash
# Builds and runs every test: gcc with AddressSanitizer and
# UndefinedBehaviorSanitizer, clang with optimisation, and the concurrency
# tests again under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/ensure-deps.sh
cmake --workflow --preset debug
cmake --workflow --preset clang
cmake --workflow --preset tsan

# Packaging and 32-bit x86: the clang build installed into a scratch prefix
# and examples/ built against it (find_package, pkg-config), then the library,
# its tests and the examples built with gcc -m32 and run.
scripts/check-install.sh build/clang
cmake --workflow --preset m32

# The README's main command: the tool alone (preset tool, a unity build) on
# the sample data.
scripts/bgpcomm-sample.sh >/dev/null

# --- Fuzzing: every fuzz target for 15 seconds (fuzz/run.sh) ----------------
fuzz/run.sh 15
# --- end fuzzing ---------------------------------------------------------------
