#!/usr/bin/env bash
# Installs what the project needs from Debian's packages (as root) and builds
# it into build/ (release) and, with --asan, build-asan/ (ASan+UBSan).
# Safe to run again: it installs only what is missing and rebuilds what changed.
set -euo pipefail
cd "$(dirname "$0")/.."

PACKAGES=(build-essential cmake ninja-build pkg-config g++ clang
          libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev
          libhbaapi-dev libhbaapi2 libssl-dev libxml2-dev libxml2-utils
          libclang-rt-14-dev time lsscsi libsgutils2-dev)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  if [[ $(id -u) -ne 0 ]]; then
    echo "setup: missing Debian packages: ${missing[*]}; run as root to install them" >&2
    exit 1
  fi
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

jobs=$(nproc)
# Our own builds stop at any compiler warning (VT_WERROR).
build() {  # build DIR [cmake options...]
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja -DVT_WERROR=ON "$@" >/dev/null
  ninja -C "$dir" -j "$jobs"
}

build build -DCMAKE_BUILD_TYPE=RelWithDebInfo
if [[ "${1:-}" == "--asan" ]]; then
  build build-asan -DCMAKE_BUILD_TYPE=Debug -DVT_SANITIZE=ON -DVT_BUILD_BENCH=OFF
fi
