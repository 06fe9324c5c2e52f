#!/bin/sh
# `bgpcomm mrt --format psv` against `bgpdump -m` itself, line by line: the
# first columns of every line (the 14 of a route, 15 with ADDPATH's path
# identifier; all of a withdrawal) must be bgpdump's exactly. Input: the
# committed gobgpd sample (ADDPATH records among them) and a synthetic dump,
# the latter read from standard input ('-').
#   bgpdump-test.sh BGPCOMM SAMPLE.mrt
set -eu
bin=$1
sample=$2
command -v bgpdump >/dev/null || { echo "bgpdump not installed; skipped"; exit 77; }
"$bin" synth --routes 5000 --seed 11 -o bgpdump-synth.mrt
bgpdumpColumns() {  # our line cut to bgpdump's columns
  awk -F'|' '{ if ($3 == "W") { print; next }
               n = ($1 ~ /_AP$/) ? 15 : 14; s = $1
               for (i = 2; i <= n; i++) s = s "|" $i
               print s "|" }'
}
bgpdump -m "$sample" 2>/dev/null >expected.txt
"$bin" mrt --format psv "$sample" | bgpdumpColumns >got.txt
cmp expected.txt got.txt
bgpdump -m bgpdump-synth.mrt 2>/dev/null >expected.txt
"$bin" mrt --format psv - <bgpdump-synth.mrt | bgpdumpColumns >got.txt
cmp expected.txt got.txt
test "$(wc -l <got.txt)" = 5000
rm -f expected.txt got.txt bgpdump-synth.mrt
