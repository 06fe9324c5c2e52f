#!/usr/bin/env bash
# bgpcomm against bgpdump (Debian package, installed here when missing) on
# one `bgpcomm synth` RIB dump, alternately in one session: wall time,
# CPU time (user + system) and peak resident memory from /usr/bin/time -v,
# the median of the rounds.
#
#   bench/vs-bgpdump.sh [routes]    (default 1000000; ROUNDS=<n>, default 5)
#
# Rows: `bgpcomm mrt --stats` (every route's communities interned and kept,
# a summary printed), `bgpcomm mrt --format psv` (one line per route, as
# bgpdump -m writes) and `bgpdump -m -l` (one line per route; -l adds the
# large communities, which bgpcomm handles too; -q keeps it off syslog).
# Outputs go to /dev/null.
set -euo pipefail
cd "$(dirname "$0")/.."
routes=${1:-1000000}
rounds=${ROUNDS:-5}
work=build/vs-bgpdump
mkdir -p "$work"

if ! command -v bgpdump >/dev/null; then
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq bgpdump >/dev/null
fi
cmake --preset release >/dev/null
cmake --build --preset release --target bgpcomm -j "${JOBS:-2}" >/dev/null
bgpcomm=build/release/tools/bgpcomm/bgpcomm

file=$work/synth-$routes.mrt
[ -f "$file" ] || "$bgpcomm" synth --routes "$routes" --seed 1 -o "$file"

commands=(
  "$bgpcomm mrt --stats --no-progress $file"
  "$bgpcomm mrt --format psv --no-progress $file"
  "bgpdump -q -m -l $file"
)
echo "machine: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), nproc $(nproc)"
echo "file: $file ($(stat -c %s "$file") octets, $routes routes); bgpdump $(dpkg-query -W -f='${Version}' bgpdump)"
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"
for round in $(seq "$rounds"); do
  for i in "${!commands[@]}"; do
    # shellcheck disable=SC2086 # the command is split on purpose
    /usr/bin/time -v -o "$work/time-$i-$round.txt" ${commands[$i]} >/dev/null 2>&1
  done
done
echo "load after:  $(cut -d' ' -f1-3 /proc/loadavg)"

# The median over the rounds of one field of /usr/bin/time -v's report
# (seconds, or MiB for the resident set).
median() {  # <command index> <field>
  for r in $(seq "$rounds"); do
    awk -F': ' -v field="$2" '
      field == "wall" && /Elapsed \(wall clock\)/ { n = split($2, t, ":"); s = 0
        for (k = 1; k <= n; ++k) s = s * 60 + t[k]; print s }
      field == "cpu" && /(User|System) time/ { cpu += $2 }
      field == "rss" && /Maximum resident set size/ { print $2 / 1024 }
      END { if (field == "cpu") print cpu }' "$work/time-$1-$r.txt"
  done | sort -g | awk '{ v[NR] = $1 } END { printf "%.2f", v[int((NR + 1) / 2)] }'
}
printf '\nmedian of %s rounds\n%-70s %8s %8s %14s\n' "$rounds" command "wall s" "CPU s" "peak RSS MiB"
for i in "${!commands[@]}"; do
  printf '%-70s %8s %8s %14s\n' "${commands[$i]#build/release/tools/bgpcomm/}" \
    "$(median "$i" wall)" "$(median "$i" cpu)" "$(median "$i" rss)"
done
