#!/bin/sh
# Wall time and peak memory of "tarncli -z" on the default simulated host and
# on the 31 x 256 x 256 host.  Usage: bench/tarncli_bench.sh [build-dir] [runs]
set -eu
build=${1:-build}
runs=${2:-5}
tool="$build/bin/tarncli"
[ -x "$tool" ] || { echo "no $tool: build first" >&2; exit 1; }
[ -x /usr/bin/time ] || { echo "needs /usr/bin/time (apt-get install time)" >&2; exit 1; }

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/etc" "$root/tmp" "$root/var/tmp" "$root/var/lib"
export VTAPI_SYSROOT="$root"

measure() {
    name=$1 host=$2
    best_ms=""; peak_kb=0
    i=0
    while [ "$i" -lt "$runs" ]; do
        start=$(date +%s%N)
        VTSDM_HOST="$host" /usr/bin/time -f '%M' -o "$root/time.txt" "$tool" -z >/dev/null
        end=$(date +%s%N)
        ms=$(( (end - start) / 1000000 ))
        kb=$(tail -n 1 "$root/time.txt")
        if [ -z "$best_ms" ] || [ "$ms" -lt "$best_ms" ]; then best_ms=$ms; fi
        if [ "$kb" -gt "$peak_kb" ]; then peak_kb=$kb; fi
        i=$((i + 1))
    done
    printf '%-28s best wall %6d ms   peak RSS %8.1f MB   (%d runs)\n' "$name" "$best_ms" \
        "$(awk -v k="$peak_kb" 'BEGIN { print k / 1024 }')" "$runs"
}

measure "default host" "$build/data/default_host.json"
measure "31 x 256 x 256 host" "$build/data/hosts/large_31x256x256.json"
