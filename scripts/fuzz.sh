#!/usr/bin/env bash
# Runs each libFuzzer target for a bounded time over its starting corpus
# (fuzz/corpus/<name without _fuzz>).  The targets come from FUZZ_BUILD_DIR
# when it names a clang build tree that has them (the test command passes
# build-asan/); otherwise they are built with clang into build-fuzz/.
# Exits non-zero when a target fails to build or finds a crash.
# FUZZ_SECONDS (default 20) and FUZZ_RUNS (default 2000000) bound each run;
# FUZZ_JOBS (default 2) targets run at once.
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

# One target: its scratch corpus first (new inputs go there; the committed
# inputs stay as they are), its progress to a log shown on a failure.
fuzz_one() {
  local target=$1 name inputs work max_len log
  name=$(basename "$target")
  inputs=fuzz/corpus/${name%_fuzz}
  work=$(mktemp -d)
  local args=("$work")
  [[ -d $inputs ]] && args+=("$inputs")
  # Host files are larger than the other inputs: the stock ones are up to 8 KB.
  max_len=4096
  [[ $name == host_fuzz ]] && max_len=16384
  log=$dir/$name.log
  local rc=0
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "$target" -max_total_time="$seconds" -runs="$runs" -max_len="$max_len" \
    -artifact_prefix="$dir/$name-" "${args[@]}" >"$log" 2>&1 || rc=$?
  rm -rf "$work"
  if ((rc == 0)); then
    echo "== $name (${seconds}s, at most $runs runs): $(grep -E '^Done [0-9]+ runs' "$log" || tail -n 1 "$log")"
  else
    { tail -n 60 "$log"; echo "fuzz: $name failed; reproducer under $dir/$name-*"; } >&2
  fi
  return $rc
}

# The targets run $jobs at a time, each on a core of its own.
status=0
shopt -s nullglob
pids=()
for target in "$dir"/fuzz/*_fuzz; do
  if ((${#pids[@]} >= jobs)); then
    wait "${pids[0]}" || status=1
    pids=("${pids[@]:1}")
  fi
  fuzz_one "$target" &
  pids+=($!)
done
for pid in "${pids[@]}"; do
  wait "$pid" || status=1
done
exit $status
