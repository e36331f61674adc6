#!/usr/bin/env bash
# Runs each libFuzzer target for a bounded time over its starting corpus
# (fuzz/corpus/<name without _fuzz>).  The targets come from FUZZ_BUILD_DIR
# when it names a clang build tree that has them (the test command passes
# build-asan/); otherwise they are built with clang into build-fuzz/.
# Exits non-zero when a target fails to build or finds a crash.
# FUZZ_SECONDS (default 20) and FUZZ_RUNS (default 2000000) bound each run.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${FUZZ_SECONDS:-20}
runs=${FUZZ_RUNS:-2000000}
jobs=${FUZZ_JOBS:-2}
dir=${FUZZ_BUILD_DIR:-build-fuzz}

if [[ $dir == build-fuzz ]]; then
  cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVT_WERROR=ON \
        -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DVT_BUILD_BENCH=OFF >/dev/null
fi
ninja -C "$dir" -j "$jobs" fuzz

status=0
shopt -s nullglob
for target in "$dir"/fuzz/*_fuzz; do
  name=$(basename "$target")
  inputs=fuzz/corpus/${name%_fuzz}
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  args=("$work")
  # Host files are larger than the other inputs: the stock ones are up to 8 KB.
  max_len=4096
  [[ $name == host_fuzz ]] && max_len=16384
  [[ -d $inputs ]] && args+=("$inputs")
  echo "== $name (${seconds}s, at most $runs runs)"
  # New inputs go to the scratch directory; the committed inputs stay as they are.
  # The fuzzer's progress goes to a log; its end is shown on a failure.
  log=$dir/$name.log
  if ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
       "$target" -max_total_time="$seconds" -runs="$runs" -max_len="$max_len" \
       -artifact_prefix="$dir/$name-" "${args[@]}" >"$log" 2>&1; then
    grep -E '^Done [0-9]+ runs' "$log" || tail -n 1 "$log"
  else
    tail -n 60 "$log" >&2
    echo "fuzz: $name failed; reproducer under $dir/$name-*" >&2
    status=1
  fi
  rm -rf "$work"
  trap - EXIT
done
exit $status
