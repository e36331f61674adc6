#!/usr/bin/env bash
# Sets everything up and builds twice: build/ with GCC and build-asan/ with
# clang under AddressSanitizer + UndefinedBehaviorSanitizer (with the
# libFuzzer targets).  Runs the fuzz targets for a short bounded time, then
# the whole test suite on both builds, then the threaded paths under
# ThreadSanitizer.  CTest runs in a private IPC namespace (unshare --ipc, as
# root): the tests take the library's cross-process access mutex, a System V
# semaphore set, and must share it with nothing else on the machine.
set -euo pipefail
cd "$(dirname "$0")/.."

if ! unshare --ipc true 2>/dev/null; then
  echo "test: cannot make a private IPC namespace (unshare --ipc); run as root" >&2
  exit 1
fi

status=0
# Each phase's start, in seconds since the script began, to see where the time goes.
phase() { echo "== $1 (at ${SECONDS}s)"; }
phase "build (GCC release, clang ASan+UBSan)"
./scripts/setup.sh --asan
phase "layout (clang-format)"
./scripts/format.sh || status=1
phase "fuzzing (libFuzzer, bounded)"
FUZZ_BUILD_DIR=build-asan FUZZ_SECONDS=${FUZZ_SECONDS:-10} ./scripts/fuzz.sh || status=1
phase "tests (release build)"
unshare --ipc ctest --test-dir build --output-on-failure -j "$(nproc)" || status=1
phase "tests (ASan+UBSan build)"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  unshare --ipc ctest --test-dir build-asan --output-on-failure -j "$(nproc)" || status=1
phase "ThreadSanitizer"
./scripts/tsan.sh || status=1  # the threaded paths under ThreadSanitizer
phase "end"
exit $status
