#!/usr/bin/env bash
# Runs the unit tests, the example and the bgpcomm tool under valgrind's
# memcheck (the `memcheck` preset: gcc Debug, no sanitizers, which valgrind
# cannot run beside). Any invalid access, use of an uninitialised value or
# leaked block (definite, indirect or possible) fails; memory still reachable
# at exit, the process-wide tables, does not. The tests run some 30 times
# slower than natively, so this is not part of scripts/test.sh;
# docs/HARDENING.md records its last result.
#   scripts/memcheck.sh [extra arguments for vobgp_tests, e.g. --gtest_filter=...]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/ensure-deps.sh valgrind
cmake --preset memcheck >/dev/null
cmake --build --preset memcheck
build=build/memcheck
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Death tests' children die on purpose, leaking what they held: they are not
# checked (--child-silent-after-fork), their parents are.
# valgrind runs one thread at a time, some 50 times slower: the stress test
# gets longer than its native 0.3 s and a fair turn for each thread, so that
# its reader and its workers all get to run.
export VOBGP_STRESS_SECONDS=${VOBGP_STRESS_SECONDS:-5}
vg=(valgrind --tool=memcheck -q --error-exitcode=99 --child-silent-after-fork=yes --fair-sched=yes
    --leak-check=full --show-leak-kinds=definite,indirect,possible
    --errors-for-leak-kinds=definite,indirect,possible --track-origins=yes)

# The stash test's forked reader leaves by _exit holding its parent's tables,
# as a reader process would; valgrind follows the fork and would count them
# as lost, so that one test runs without the leak check.
forked=StashTest.ReaderInAnotherProcessSurvivesRewritesAndTruncation
"${vg[@]}" "$build/tests/vobgp_tests" --gtest_brief=1 --gtest_filter="-$forked" "$@"
"${vg[@]}" --leak-check=no "$build/tests/vobgp_tests" --gtest_brief=1 --gtest_filter="$forked"
"${vg[@]}" "$build/examples/intern_and_print" >/dev/null
bgpcomm=$build/tools/bgpcomm/bgpcomm
"${vg[@]}" "$bgpcomm" synth --routes 2000 --seed 3 -o "$work/synth.mrt"
"${vg[@]}" "$bgpcomm" mrt --verify --count "$work/synth.mrt" >/dev/null
"${vg[@]}" "$bgpcomm" mrt --json "$work/synth.mrt" >/dev/null
"${vg[@]}" "$bgpcomm" mrt --stats tools/bgpcomm/sample/gobgp-rib.mrt >/dev/null
echo "memcheck: no errors, no leaks"
