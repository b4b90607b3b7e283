#!/usr/bin/env bash
# Builds everything and runs every test: unit tests on this machine, system and
# screen tests inside the sandbox guest. Usage: scripts/test.sh [ctest args...]
#   WIZARD_BUILD_DIR   build directory (default: build; the sanitizer build
#                      goes to its name with "-asan")
#   WIZARD_SANITIZE=1  also build with ASan + UBSan and run every test again
#                      there (the sandbox guests then run the sanitized programs)
#   WIZARD_SANITIZE=only  the sanitizer build alone, every test once
#   WIZARD_PLAIN=unit  the plain build runs the unit tests only (CI: with
#                      WIZARD_SANITIZE=1, every test once under the sanitizers
#                      and the unit tests once more as the package ships them;
#                      two full passes of the slow sandbox guests would not fit)
#   WIZARD_GUEST_JOBS  sandbox guests run at once (default 2)
# Both builds use the optimisation the package ships with (RelWithDebInfo:
# -O2 -g). A ctest call that selects no test fails; with ctest args, a half
# (unit or guest tests) they leave empty is left out, but not both.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh

build=${WIZARD_BUILD_DIR:-build}
guest_jobs=${WIZARD_GUEST_JOBS:-2}
sanitize=${WIZARD_SANITIZE:-0}
plain=${WIZARD_PLAIN:-all}
if [[ $sanitize == only ]]; then
  plain=0
fi
case $sanitize in 0 | 1 | only) ;; *) echo "test.sh: WIZARD_SANITIZE is 0, 1 or only" >&2; exit 2 ;; esac
case $plain in 0 | unit | all) ;; *) echo "test.sh: WIZARD_PLAIN is all or unit" >&2; exit 2 ;; esac

status=0
selected=0
# tests DIR LABEL_OPTION JOBS [ctest args...]: one ctest call, unit (-L unit) or
# guest (-LE unit) tests. Without ctest args both halves must hold tests.
tests() {
  local dir=$1 label=$2 jobs=$3
  shift 3
  if [[ $# -gt 0 ]]; then
    local count
    count=$(ctest --test-dir "$dir" -N "$label" unit "$@" | sed -n 's/^Total Tests: //p')
    [[ ${count:-0} -gt 0 ]] || return 0
  fi
  selected=1
  ctest --test-dir "$dir" "$label" unit -j"$jobs" --no-tests=error --output-on-failure "$@" || status=1
}

if [[ $plain != 0 ]]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$build" -j"$(nproc)"

  # Host tests in parallel, then the sandbox guests, two at a time: a guest
  # under software emulation keeps one core busy while it computes and spends
  # much of its time waiting (udev, screens, the pauses of the tests).
  tests "$build" -L "$(nproc)" "$@"
  if [[ $plain == all ]]; then
    tests "$build" -LE "$guest_jobs" "$@"
  fi
fi

if [[ $sanitize != 0 ]]; then
  cmake -S . -B "$build-asan" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DWIZARD_SANITIZE=ON >/dev/null
  cmake --build "$build-asan" -j"$(nproc)"
  export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  tests "$build-asan" -L "$(nproc)" "$@"
  tests "$build-asan" -LE "$guest_jobs" "$@"
fi

if [[ $selected == 0 ]]; then
  echo "test.sh: no test matches $*" >&2
  status=1
fi
exit $status
