#!/bin/sh
# The package and version listing benchmarks on tiny inputs, timed through BenchTime:
# every program runs, lists what it was given and prints its figures.
# Usage: bench-smoke.sh BenchAvailablePackages BenchInstalledPackages BenchTime
set -eu
available=$1 installed=$2 timer=$3
work=$(mktemp -d /tmp/bench-smoke.XXXXXX)
trap 'rm -rf "$work"' EXIT

"$available" create "$work/Packages" 20
"$installed" create "$work/Versions" 8

"$timer" --runs 1 --stdout "$work/available.out" -- "$available" measure "$work/Packages" 3 20 \
  > "$work/available.time"
"$timer" --runs 1 --stdout "$work/installed.out" -- "$installed" measure "$work/Versions" 3 8 \
  > "$work/installed.time"

grep -q '^packages=20 calls=3 median_ms=' "$work/available.out"
grep -q '^versions=8 calls=3 median_ms=' "$work/installed.out"
grep -q '^best_s=[0-9.]* median_s=[0-9.]* cpu_s=[0-9.]* maxrss_kib=[1-9][0-9]*$' "$work/available.time"
grep -q '^best_s=[0-9.]* median_s=[0-9.]* cpu_s=[0-9.]* maxrss_kib=[1-9][0-9]*$' "$work/installed.time"
cat "$work/available.out" "$work/installed.out"
