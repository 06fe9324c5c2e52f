#!/usr/bin/env bash
# Installs the Debian packages a build needs when any is missing, so the
# build and test commands work on a fresh machine, and says which ones before
# installing them. Does nothing when all are there already.
#   scripts/ensure-deps.sh                  every package any build needs
#   scripts/ensure-deps.sh PKG...           those, plus every package
#   scripts/ensure-deps.sh --only PKG...    those alone (a script's own list)
set -euo pipefail
all=(cmake ninja-build g++ clang libgtest-dev libgmock-dev libbenchmark-dev zlib1g-dev libbz2-dev
     g++-multilib googletest pkgconf)
if [ "${1:-}" = --only ]; then
  shift
  packages=("$@")
else
  packages=("${all[@]}" "$@")
fi
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "ensure-deps: installing the missing Debian packages: ${missing[*]} (apt-get)" >&2
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}"
fi
