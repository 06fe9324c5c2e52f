#!/usr/bin/env bash
# Installs the Debian packages the build needs when any is missing, so the
# build and test commands work on a fresh machine. Does nothing when all are
# there already. Extra packages a script needs may be named as arguments.
set -euo pipefail
packages=(cmake ninja-build g++ clang libgtest-dev libgmock-dev libbenchmark-dev zlib1g-dev libbz2-dev
          g++-multilib googletest pkgconf "$@")
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}"
fi
