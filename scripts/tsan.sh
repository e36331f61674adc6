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
       diag_loopback_test diag_session_test monitor_stats_test monitor_link_test tarncli_signal_test)
# Programs the tests start.
helpers=(vtsdm-sim vtapi_interpose vtapi_walk diag_signal tarncli)
# The signal test interrupts tarncli (and its signal thread) fewer times, on a
# smaller host, under ThreadSanitizer.
export VTTEST_SIGNAL_RUNS=20 VTTEST_SIGNAL_HOST=data/hosts/fc_4x64x16.json

flags="-fsanitize=thread -fno-omit-frame-pointer"
# Warnings stop the other builds; GCC's ThreadSanitizer instrumentation adds
# false ones (string truncation), so they do not stop this one.  Light
# optimisation and line tables only: enough for the reports' stacks, at half
# the compile time of a release build.
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVT_WERROR=OFF -DVT_BUILD_BENCH=OFF \
      -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" \
      -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
      -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread >/dev/null
ninja -C "$dir" -j "$jobs" "${tests[@]}" "${helpers[@]}"

status=0
for t in "${tests[@]}"; do
  echo "== $t (ThreadSanitizer)"
  # Reports that stand for what the library does on purpose: its critical
  # section is left when not held and deleted while held, and answers with
  # its messages (the attempt is how it finds out); the command line's
  # signal handler logs and releases the core's resources, stopping the
  # diagnostic workers, and then ends the process with the signal, so those
  # threads are never joined.
  opts="halt_on_error=1 second_deadlock_stack=1 report_mutex_bugs=0 report_destroy_locked=0 report_signal_unsafe=0"
  [ "$t" = diag_session_test ] && opts="$opts report_thread_leaks=0"
  # Each test in a process of its own, as CTest runs them.
  cases=$(unshare --ipc "$dir/tests/$t" --gtest_list_tests |
          awk '/^[^ ]/ {suite=$1} /^  [^ ]/ {print suite $1}')
  passed=0
  for c in $cases; do
    if TSAN_OPTIONS="$opts" unshare --ipc timeout 300 "$dir/tests/$t" --gtest_filter="$c" --gtest_brief=1 \
         >"$dir/last.log" 2>&1; then
      passed=$((passed + 1))
    else
      cat "$dir/last.log"
      echo "tsan: $c failed" >&2
      status=1
    fi
  done
  echo "$passed of $(echo $cases | wc -w) passed"
done
exit $status
