#!/usr/bin/env bash
# Sets everything up, runs the fuzz targets for a short bounded time, then
# the whole test suite twice: on the release build and under
# AddressSanitizer + UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh --asan

status=0
echo "== fuzzing (libFuzzer, bounded)"
FUZZ_SECONDS=${FUZZ_SECONDS:-15} ./scripts/fuzz.sh || status=1
echo "== tests (release build)"
ctest --test-dir build --output-on-failure -j "$(nproc)" || status=1
echo "== tests (ASan+UBSan build)"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j "$(nproc)" || status=1
exit $status
