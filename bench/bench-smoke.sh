#!/bin/sh
# The benchmark programs on tiny inputs, timed through BenchTime, with the results checked
# as scripts/bench.sh checks them: the listings list what they were given and print their
# figures; a package of 1 MiB from BenchMakePackage gets the size that GNU tar lists from
# GetExtractedSize() and its exact "Install.sh" from ExtractFileFomTar.
# Usage: bench-smoke.sh BenchAvailablePackages BenchInstalledPackages BenchTime \
#                       BenchMakePackage BenchPackage
set -eu
available=$1 installed=$2 timer=$3 make_package=$4 package_program=$5
here=$(cd "$(dirname "$0")" && pwd)
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

# The package operations. A failed operation makes BenchTime fail; a wrong result makes the
# check fail.
package=$work/package/Vidorama_12.05.01.1.tar.gz
mkdir -p "$work/package" "$work/cwd"
"$make_package" --size-mib 1 --files 20 | gzip -1 > "$package"
"$timer" --runs 1 --stdout "$work/size.out" -- "$package_program" size "$package" \
  > "$work/size.time" || echo "BenchPackage size failed"
"$timer" --runs 1 --cwd "$work/cwd" --stdout "$work/extract.out" -- \
  "$package_program" extract "$package" Install.sh > "$work/extract.time" ||
  echo "BenchPackage extract failed"
status=0
"$here/check-package-results.sh" "$package" "$work/size.out" "$work/extract.out" "$work/cwd" \
  "$make_package" || status=1
# What an installation reads before "Install.sh": one reading, none left after ENTER when the
# background reading had its head start. The package is dated back, as one on a key is.
touch -d '-1 minute' "$package"
mkdir -p "$work/cold" "$work/warm"
"$timer" --runs 1 --cwd "$work/cold" --stdout "$work/cold.out" -- \
  "$package_program" install "$package" > "$work/cold.time" || echo "BenchPackage install failed"
"$timer" --runs 1 --cwd "$work/warm" --stdout "$work/warm.out" -- \
  "$package_program" install "$package" 1 > "$work/warm.time" ||
  echo "BenchPackage install with head start failed"
"$here/check-package-results.sh" "$package" "$work/cold.out" "$work/cold.out" "$work/cold" \
  "$make_package" || status=1
"$here/check-package-results.sh" "$package" "$work/warm.out" "$work/warm.out" "$work/warm" \
  "$make_package" || status=1
grep -q '^enter_to_script_s=[0-9.]* readings_after_enter=1 readings=1$' "$work/cold.out" ||
  { echo "cold installation: $(cat "$work/cold.out")"; status=1; }
grep -q '^enter_to_script_s=[0-9.]* readings_after_enter=0 readings=1$' "$work/warm.out" ||
  { echo "installation after head start: $(cat "$work/warm.out")"; status=1; }
grep -q '^best_s=[0-9.]* median_s=[0-9.]* cpu_s=[0-9.]* maxrss_kib=[1-9][0-9]*$' "$work/size.time"
grep -q '^best_s=[0-9.]* median_s=[0-9.]* cpu_s=[0-9.]* maxrss_kib=[1-9][0-9]*$' "$work/extract.time"
exit $status
