#!/usr/bin/env bash
# Installs a built tree into a scratch prefix and builds the examples against
# it the ways a user would: CMake's find_package with the static and with the
# shared library, and pkg-config with a plain compiler command. Each program
# must run and print the route target it interned. Every installed header
# must also compile from the installed folder alone. The pkg-config build runs
# as the README shows it, with no LD_LIBRARY_PATH.
#   scripts/check-install.sh [build dir, default build/clang]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/clang}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
cxx=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$build/CMakeCache.txt")
pcdir=$(dirname "$(find "$prefix" -name vobgpcommunity.pc)")
include=$prefix/include/VoBgpCommunity

(cd "$include" && find . -name '*.h' | sed 's|^\./\(.*\)|#include "\1"|') >"$work/all.cpp"
"$cxx" -std=c++20 -fsyntax-only -Wall -Wextra -Werror -I"$include" "$work/all.cpp"

check() {  # the program's output names the interned route target
  local out
  out=$("$@")
  grep -q 'Route-Target-AS:65000:100' <<<"$out" || { echo "check-install: $* failed" >&2; exit 1; }
}

for shared in OFF ON; do
  cmake -S examples -B "$work/cmake-$shared" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
        -DCMAKE_PREFIX_PATH="$prefix" -DVOBGP_EXAMPLES_SHARED=$shared >/dev/null
  cmake --build "$work/cmake-$shared" >/dev/null
  check "$work/cmake-$shared/intern_and_print"
done
# The shared library's soname must be what the program records.
readelf -d "$work/cmake-ON/intern_and_print" | grep -q 'NEEDED.*libVoBgpCommunity\.so\.0\.1\]'

export PKG_CONFIG_PATH=$pcdir
# shellcheck disable=SC2046  # pkg-config's flags are meant to split
"$cxx" -std=c++20 -o "$work/pc" examples/InternAndPrint.cpp $(pkg-config --cflags --libs vobgpcommunity)
# Run as the README says, without LD_LIBRARY_PATH: the .pc file's run path
# must find the shared library the program was linked with.
readelf -d "$work/pc" | grep -q 'NEEDED.*libVoBgpCommunity\.so\.0\.1\]'
(unset LD_LIBRARY_PATH; check "$work/pc")
echo "check-install: find_package (static, shared) and pkg-config builds of examples/ pass"
