#!/usr/bin/env bash
# Builds and runs every test: gcc with AddressSanitizer and
# UndefinedBehaviorSanitizer, then clang with optimisation.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/ensure-deps.sh
cmake --workflow --preset debug
cmake --workflow --preset clang
