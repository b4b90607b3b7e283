#!/bin/bash
# check-guest-filters-test.sh CHECK_GUEST_FILTERS SAMPLE_PROGRAM
# The filter check on a program of five tests (Alpha.One, Alpha.Two,
# Beta.DhcpThree, Sizes/Gamma.Four/0 and /1): passes on a split that selects each
# test once, fails on a test no filter selects, on a test two filters select and
# on a filter that selects nothing, and says which.
set -uo pipefail
check=${1:?usage: check-guest-filters-test.sh CHECK_GUEST_FILTERS SAMPLE_PROGRAM}
program=${2:?usage: check-guest-filters-test.sh CHECK_GUEST_FILTERS SAMPLE_PROGRAM}
work=$(mktemp -d /tmp/check-guest-filters-test.XXXXXX) || exit 1
trap 'rm -rf "$work"' EXIT
status=0

# expect STATUS TEXT FILTER_LINE...: the check's exit status and a line of its output.
expect() {
    local want=$1 text=$2
    shift 2
    printf '%s\n' "$@" >"$work/filters"
    "$check" "$program" "$work/filters" >"$work/out" 2>&1
    local got=$?
    if [[ $got -ne $want ]] || ! grep -qF -- "$text" "$work/out"; then
        echo "FAIL: filters $* gave status $got (expected $want) without \"$text\":"
        sed 's/^/  /' "$work/out"
        status=1
    else
        echo "ok: $* -> $got, \"$text\""
    fi
}

expect 0 "5 tests, 2 filtered runs" "A Alpha.*:Sizes/*" "B Beta.*"
expect 0 "5 tests, 2 filtered runs" "A -*Dhcp*" "A *Dhcp*"
expect 0 "each test is selected by exactly one filter" "A Alpha.One" "B -Alpha.One"
expect 1 "FAIL: Beta.DhcpThree is selected by no filter" "A Alpha.*:Sizes/*"
expect 1 "FAIL: Sizes/Gamma.Four/1 is selected by no filter" "A Alpha.*:Beta.*:*/0"
expect 1 "FAIL: Alpha.One is selected by 2 filters: A (*), B (Alpha.One)" "A *" "B Alpha.One"
expect 1 "FAIL: B: filter Delta.* selects no test" "A *" "B Delta.*"
expect 1 "FAIL: no filter in" ""
exit $status
