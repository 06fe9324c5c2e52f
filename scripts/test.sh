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

# --- Fuzzing: every fuzz target for 15 seconds (fuzz/run.sh) ----------------
fuzz/run.sh 15
# --- end fuzzing ---------------------------------------------------------------
