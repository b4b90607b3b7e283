#!/usr/bin/env bash
# Builds the libFuzzer targets with clang++ and runs each of them for a while.
# Usage: scripts/fuzz.sh [--smoke] [--time SEC] [--jobs N] [target...]
#   --time SEC   seconds per target (default 60)
#   --smoke      10 seconds per target, for CI
#   --jobs N     targets fuzzed at the same time (default: number of CPUs)
#   target       names as in fuzz/corpus/ (default: every target built)
#   WIZARD_FUZZ_BUILD_DIR   build directory (default: build-fuzz)
# Each target starts from a scratch copy of its seeds (fuzz/corpus/<name>/ is
# never written) plus its past crash inputs (fuzz/regressions/<name>/). A crash,
# leak, time-out or out-of-memory makes the script fail and prints the path of
# the input that caused it; once the bug is fixed, that input belongs in
# fuzz/regressions/<name>/.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

seconds=60
jobs=$(nproc)
targets=()
while [ $# -gt 0 ]; do
  case "$1" in
    --smoke) seconds=10 ;;
    --time) seconds=${2:?--time needs seconds}; shift ;;
    --jobs) jobs=${2:?--jobs needs a number}; shift ;;
    -h|--help) sed -n '2,13p' "$0"; exit 0 ;;
    -*) echo "fuzz: unknown option $1" >&2; exit 2 ;;
    *) targets+=("$1") ;;
  esac
  shift
done

build=${WIZARD_FUZZ_BUILD_DIR:-build-fuzz}
case "$build" in /*) ;; *) build="$root/$build" ;; esac

# -O1 with assertions kept: quick to build, and fast enough to fuzz.
cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" -DWIZARD_FUZZ=ON -DWIZARD_TESTS=OFF -DWIZARD_BENCH=OFF >"$build.configure.log" 2>&1 ||
  { cat "$build.configure.log" >&2; exit 1; }

# The targets this configuration builds.
buildable=$(cmake --build "$build" --target help)
mapfile -t available < <(sed -n 's/^ *wizard_fuzz_target(\([a-z_0-9]*\) .*/\1/p' fuzz/CMakeLists.txt |
  while read -r name; do grep -Eq "(^|[ .])fuzz_$name(:|\$)" <<<"$buildable" && echo "$name"; done)
if [ ${#available[@]} -eq 0 ]; then
  echo "fuzz: no fuzz target in $build (is clang++ there?)" >&2
  exit 1
fi
if [ ${#targets[@]} -eq 0 ]; then
  targets=("${available[@]}")
fi
for name in "${targets[@]}"; do
  printf '%s\n' "${available[@]}" | grep -qx "$name" || { echo "fuzz: no target $name" >&2; exit 2; }
done

cmake --build "$build" -j"$(nproc)" --target $(printf 'fuzz_%s ' "${targets[@]}")

symbolizer=$(command -v llvm-symbolizer || command -v llvm-symbolizer-14 || true)
[ -n "$symbolizer" ] && export ASAN_SYMBOLIZER_PATH="$symbolizer"
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

runs="$build/fuzz-runs"
# One target: scratch corpus, fuzzing, then its summary line in $runs/<name>/summary.
fuzz_one() {
  local name=$1 dir="$runs/$1"
  rm -rf "$dir"
  mkdir -p "$dir/corpus" "$dir/artifacts" "$dir/tmp"
  cp -r "fuzz/corpus/$name/." "$dir/corpus/"
  local seeds extra=()
  seeds=$(find "$dir/corpus" -type f | wc -l)
  [ -d "fuzz/regressions/$name" ] && extra+=("$root/fuzz/regressions/$name")
  [ -f "fuzz/dictionaries/$name.dict" ] && extra+=("-dict=$root/fuzz/dictionaries/$name.dict")
  local status=0
  # The targets' scratch files stay in the run's own directory, even when a
  # crash leaves no time to remove them.
  TMPDIR="$dir/tmp" "$build/fuzz/fuzz_$name" "$dir/corpus" "${extra[@]}" \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$dir/artifacts/" >"$dir/log" 2>&1 || status=$?
  local executions speed corpus crashes
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log" | tail -1)
  speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$dir/log" | tail -1)
  corpus=$(find "$dir/corpus" -type f | wc -l)
  crashes=$(find "$dir/artifacts" -type f | wc -l)
  if [ "$status" -ne 0 ] && [ "$crashes" -eq 0 ]; then
    crashes=1 # died without leaving an input behind: the log says why
  fi
  printf '%s %s %s %s %s %s %s\n' "$name" "${executions:-?}" "${speed:-?}" "$seeds" "$corpus" \
    "$crashes" "$status" >"$dir/summary"
}

rm -rf "$runs"
mkdir -p "$runs"
echo "fuzz: ${#targets[@]} targets, ${seconds} s each, $jobs at a time"
running=0
for name in "${targets[@]}"; do
  fuzz_one "$name" &
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n || true
    running=$((running - 1))
  fi
done
wait || true

failed=0
printf '\n%-20s %12s %9s %14s %8s\n' target executions execs/s "corpus (seeds)" crashes
for name in "${targets[@]}"; do
  read -r _ executions speed seeds corpus crashes status <"$runs/$name/summary"
  printf '%-20s %12s %9s %14s %8s\n' "$name" "$executions" "$speed" "$corpus ($seeds)" "$crashes"
  if [ "$crashes" -ne 0 ]; then
    failed=1
  fi
done
for name in "${targets[@]}"; do
  read -r _ _ _ _ _ crashes status <"$runs/$name/summary"
  [ "$crashes" -eq 0 ] && continue
  echo
  echo "fuzz: $name failed (exit status $status); log: $runs/$name/log"
  find "$runs/$name/artifacts" -type f | sed 's/^/  input: /'
  grep -m1 -E 'ERROR: |SUMMARY: |property broken|runtime error|terminate called' "$runs/$name/log" |
    sed 's/^/  /' || true
done
exit $failed
