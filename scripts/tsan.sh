#!/usr/bin/env bash
# Builds the libraries and the tests of their threaded paths (diagnostics
# and monitors with their worker threads, the access mutex, events,
# lifecycle) with ThreadSanitizer into build-tsan/, and runs those tests in a
# private IPC namespace.  Only these programs and what they need are built,
# to keep the cost small.  Exits non-zero on a build failure or a report.
set -euo pipefail
cd "$(dirname "$0")/.."

dir=build-tsan
jobs=${TSAN_JOBS:-$(nproc)}
tests=(vtapi_mutex_test vtapi_events_test vtapi_lifecycle_test
       diag_loopback_test diag_session_test monitor_stats_test monitor_link_test)
# Programs the tests start.
helpers=(vtsdm-sim vtapi_interpose diag_signal)

flags="-fsanitize=thread -fno-omit-frame-pointer"
# Warnings stop the other builds; GCC's ThreadSanitizer instrumentation adds
# false ones (string truncation), so they do not stop this one.
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVT_WERROR=OFF -DVT_BUILD_BENCH=OFF \
      -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
      -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread >/dev/null
ninja -C "$dir" -j "$jobs" "${tests[@]}" "${helpers[@]}"

status=0
for t in "${tests[@]}"; do
  echo "== $t (ThreadSanitizer)"
  if ! TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
       unshare --ipc timeout 900 "$dir/tests/$t" --gtest_brief=1; then
    echo "tsan: $t failed" >&2
    status=1
  fi
done
exit $status
