#!/usr/bin/env bash
# Sets everything up and runs the whole test suite twice: on the release
# build and under AddressSanitizer + UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh --asan

status=0
echo "== tests (release build)"
ctest --test-dir build --output-on-failure -j "$(nproc)" || status=1
echo "== tests (ASan+UBSan build)"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j "$(nproc)" || status=1
exit $status
