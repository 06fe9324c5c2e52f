#!/bin/sh
# The progress line through a pseudo-terminal (script(1) runs the command on
# one): with stdout on a pipe and stderr on the terminal it is drawn, with
# file i/N and a rate; with both on the same terminal no progress text
# appears and every route line is whole. The input grows until the run lasts
# long enough for the first draw (one second in), so a fast build tests the
# same as a slow one.
#   progress-test.sh BGPCOMM
set -eu
bin=$1
command -v script >/dev/null || { echo "script(1) not installed; skipped"; exit 77; }
"$bin" synth --routes 20000 --seed 4 -o progress.mrt
files=progress.mrt
n=1
while :; do
  script -qec "$bin mrt --threads 1 $files | tail -n 1 >/dev/null" piped.ts >/dev/null
  grep -q "bgpcomm: file [0-9]*/$n progress.mrt: .* routes, [0-9]* routes/s" piped.ts && break
  [ $n -lt 128 ] || { echo "no progress line in a run of $n files"; exit 1; }
  files="$files $files"
  n=$((n * 2))
done
script -qec "$bin mrt --threads 2 $files" same.ts >/dev/null
if grep -q "routes/s" same.ts; then
  echo "progress text on the terminal of the route lines"; exit 1
fi
# Every line but script's own is a route line, and all of them are there.
grep -v -e '^Script ' -e '^.\{0,1\}$' same.ts >lines.txt
rm -f same.ts piped.ts progress.mrt
test "$(grep -c '^[0-9][0-9.]*/[0-9]* peer [0-9.]* AS[0-9]*' lines.txt)" = "$((20000 * n))"
test "$(grep -vc '^[0-9][0-9.]*/[0-9]* peer ' lines.txt)" = 0
rm lines.txt
