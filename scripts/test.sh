#!/usr/bin/env bash
# Builds everything and runs every test: unit tests on this machine, system and
# screen tests inside the sandbox guest. Usage: scripts/test.sh [ctest args...]
#   WIZARD_BUILD_DIR   build directory (default: build)
#   WIZARD_SANITIZE=1  also build with ASan + UBSan and run every test again
#                      there (the sandbox guests then run the sanitized programs)
#   WIZARD_SANITIZE=only  the sanitizer build alone, every test once (what CI
#                      runs: the sandbox guests are slow, and two full passes
#                      would not fit its time)
#   WIZARD_GUEST_JOBS  sandbox guests run at once (default 2)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh

build=${WIZARD_BUILD_DIR:-build}
guest_jobs=${WIZARD_GUEST_JOBS:-2}
status=0
if [ "${WIZARD_SANITIZE:-0}" != only ]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$build" -j"$(nproc)"

  # Host tests in parallel, then the sandbox guests, two at a time: a guest
  # under software emulation keeps one core busy while it computes and spends
  # much of its time waiting (udev, screens, the pauses of the tests).
  ctest --test-dir "$build" -L unit -j"$(nproc)" --output-on-failure "$@" || status=1
  ctest --test-dir "$build" -LE unit -j"$guest_jobs" --output-on-failure "$@" || status=1
fi

if [ "${WIZARD_SANITIZE:-0}" != 0 ]; then
  cmake -S . -B "$build-asan" -DCMAKE_BUILD_TYPE=Debug -DWIZARD_SANITIZE=ON >/dev/null
  cmake --build "$build-asan" -j"$(nproc)"
  export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  ctest --test-dir "$build-asan" -L unit -j"$(nproc)" --output-on-failure "$@" || status=1
  ctest --test-dir "$build-asan" -LE unit -j"$guest_jobs" --output-on-failure "$@" || status=1
fi
exit $status
