#!/bin/sh
# Whole-process time of "tarncli -t all" with the Linux backend and of
# "lsscsi -t" on the same sysfs tree, exported from the 4 ports x 64 targets
# x 16 LUNs host; both measured in one run, alternating.  Prints the best and
# the median of each and their ratio.
# Usage: bench/lsscsi_bench.sh [build-dir] [runs]
set -eu
build=${1:-build}
runs=${2:-11}
tool="$build/bin/tarncli"
sim="$build/bin/vtsdm-sim"
host="$build/data/hosts/fc_4x64x16.json"
for f in "$tool" "$sim"; do [ -x "$f" ] || { echo "no $f: build first" >&2; exit 1; }; done
command -v lsscsi >/dev/null || { echo "needs lsscsi (scripts/setup.sh installs it)" >&2; exit 1; }

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/etc" "$root/tmp" "$root/var/tmp" "$root/var/lib"
export VTAPI_SYSROOT="$root"
"$sim" --host "$host" export-sysfs "$root"
export VTSDM_BACKEND=linux VTSDM_HOST="$host"

ns() { date +%s%N; }
: > "$root/tarncli.ms"
: > "$root/lsscsi.ms"
i=0
while [ "$i" -lt "$runs" ]; do
    t0=$(ns); "$tool" -t all >/dev/null; t1=$(ns)
    lsscsi --sysfsroot="$root/sys" -t >/dev/null; t2=$(ns)
    echo $(( (t1 - t0) / 1000 )) >> "$root/tarncli.ms"
    echo $(( (t2 - t1) / 1000 )) >> "$root/lsscsi.ms"
    i=$((i + 1))
done
luns=$(lsscsi --sysfsroot="$root/sys" -t | wc -l)
stats() { sort -n "$1" | awk '{ v[NR] = $1 } END { printf "%d %d", v[1], v[int((NR + 1) / 2)] }'; }
set -- $(stats "$root/tarncli.ms") $(stats "$root/lsscsi.ms")
printf 'tree: %s SCSI devices (4 ports x 64 targets x 16 LUNs), %d runs each\n' "$luns" "$runs"
printf 'tarncli -t all (Linux backend)  best %8.1f ms   median %8.1f ms\n' "$(echo "$1" | awk '{print $1/1000}')" "$(echo "$2" | awk '{print $1/1000}')"
printf 'lsscsi -t                       best %8.1f ms   median %8.1f ms\n' "$(echo "$3" | awk '{print $1/1000}')" "$(echo "$4" | awk '{print $1/1000}')"
awk -v a="$2" -v b="$4" 'BEGIN { printf "ratio tarncli / lsscsi (medians): %.2f\n", a / b }'
