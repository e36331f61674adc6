#!/usr/bin/env bash
# Installs what the project needs from Debian's packages (as root) and builds
# it into build/ (GCC, release with debug information).
#   --product  build only what a user runs (libraries, tools, data), not the
#              tests and benchmarks
#   --asan     also build build-asan/ with clang under AddressSanitizer and
#              UndefinedBehaviorSanitizer: the tests and the libFuzzer targets
# Safe to run again: it installs only what is missing and rebuilds what changed.
set -euo pipefail
cd "$(dirname "$0")/.."

product=0 asan=0
for arg in "$@"; do
  case $arg in
    --product) product=1 ;;
    --asan) asan=1 ;;
    *) echo "setup: unknown option $arg (known: --product, --asan)" >&2; exit 2 ;;
  esac
done

PACKAGES=(build-essential cmake ninja-build pkg-config g++ clang
          libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev
          libhbaapi-dev libhbaapi2 libssl-dev libxml2-dev libxml2-utils
          libclang-rt-14-dev clang-format-14 time lsscsi libsgutils2-dev)

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
configure() {  # configure DIR [cmake options...]
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja -DVT_WERROR=ON "$@" >/dev/null
}

configure build -DCMAKE_BUILD_TYPE=RelWithDebInfo
if ((product)); then
  ninja -C build -j "$jobs" product
else
  ninja -C build -j "$jobs"
fi
if ((asan)); then
  # clang here, GCC above: the code is checked by both compilers' warnings.
  configure build-asan -DCMAKE_BUILD_TYPE=Debug -DVT_SANITIZE=ON -DVT_BUILD_BENCH=OFF \
            -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
  ninja -C build-asan -j "$jobs"
fi
