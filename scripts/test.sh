#!/usr/bin/env bash
# Sets everything up, builds the libraries and tools once more with clang,
# runs the fuzz targets for a short bounded time, then the whole test suite
# twice: on the release build and under AddressSanitizer + UndefinedBehavior-
# Sanitizer.  CTest runs in a private IPC namespace (unshare --ipc, as root):
# the tests take the library's cross-process access mutex, a System V
# semaphore set, and must share it with nothing else on the machine.
set -euo pipefail
cd "$(dirname "$0")/.."

if ! unshare --ipc true 2>/dev/null; then
  echo "test: cannot make a private IPC namespace (unshare --ipc); run as root" >&2
  exit 1
fi

./scripts/setup.sh --asan

status=0
# Each phase's start, in seconds since the script began, to see where the time goes.
phase() { echo "== $1 (at ${SECONDS}s)"; }
phase "clang build (libraries and tools)"
cmake -S . -B build-clang -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=clang \
      -DCMAKE_CXX_COMPILER=clang++ -DVT_WERROR=ON -DVT_BUILD_TESTS=OFF -DVT_BUILD_BENCH=OFF >/dev/null
ninja -C build-clang -j "$(nproc)" || status=1
phase "fuzzing (libFuzzer, bounded)"
FUZZ_SECONDS=${FUZZ_SECONDS:-15} ./scripts/fuzz.sh || status=1
phase "tests (release build)"
unshare --ipc ctest --test-dir build --output-on-failure -j "$(nproc)" || status=1
phase "tests (ASan+UBSan build)"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  unshare --ipc ctest --test-dir build-asan --output-on-failure -j "$(nproc)" || status=1
phase "ThreadSanitizer"
./scripts/tsan.sh || status=1  # the threaded paths under ThreadSanitizer
phase "end"
exit $status
