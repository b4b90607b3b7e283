#!/bin/bash
# root-only-tests.sh SYSTEM_TOOLS_TEST
# The tests that need root, run without it: skipped on a developer's machine, but
# failed with CI=true, where ctest would count a skip as a pass. Runs the whole
# suite twice as an ordinary user (nobody, when started as root) and checks that
# the tests skipped without CI are exactly those failed with CI=true, and that
# nothing else failed.
set -uo pipefail
program=${1:?usage: root-only-tests.sh SYSTEM_TOOLS_TEST}
work=$(mktemp -d /tmp/root-only-tests.XXXXXX) || exit 1
trap 'rm -rf "$work"' EXIT

# A copy nobody can run, wherever the build tree lives.
chmod 755 "$work"
cp "$program" "$work/suite" && chmod 755 "$work/suite" || exit 1
as_user=()
if [[ $(id -u) -eq 0 ]]; then
    as_user=(setpriv --reuid=nobody --regid=nogroup --clear-groups --)
fi

# run NAME [env assignments...]: the suite's output in $work/NAME.out, its status in
# $work/NAME.status.
run() {
    local name=$1
    shift
    (cd "$work" && env -u CI "$@" "${as_user[@]}" "$work/suite" --gtest_color=no) \
        >"$work/$name.out" 2>&1
    echo $? >"$work/$name.status"
}
# names KIND FILE: the tests gtest reported as KIND (SKIPPED, FAILED), sorted.
names() {
    sed -n "s/^\\[ *$1 *\\] \\([A-Za-z_][A-Za-z0-9_]*\\.[A-Za-z0-9_/]*\\).*/\\1/p" "$2" | sort -u
}

run local
run ci CI=true
names SKIPPED "$work/local.out" >"$work/local.skipped"
names FAILED "$work/local.out" >"$work/local.failed"
names SKIPPED "$work/ci.out" >"$work/ci.skipped"
names FAILED "$work/ci.out" >"$work/ci.failed"

status=0
fail() {
    echo "FAIL: $*"
    status=1
}
[[ $(cat "$work/local.status") -eq 0 ]] || fail "without CI the suite exits $(cat "$work/local.status")"
[[ -s $work/local.failed ]] && fail "without CI and root, failed: $(tr '\n' ' ' <"$work/local.failed")"
[[ -s $work/local.skipped ]] || fail "without root, no test was skipped"
[[ $(cat "$work/ci.status") -ne 0 ]] || fail "with CI=true the suite exits 0"
[[ -s $work/ci.skipped ]] && fail "with CI=true, skipped: $(tr '\n' ' ' <"$work/ci.skipped")"
cmp -s "$work/local.skipped" "$work/ci.failed" ||
    fail "skipped without CI: $(tr '\n' ' ' <"$work/local.skipped"); failed with CI=true: $(tr '\n' ' ' <"$work/ci.failed")"
grep -q 'needs root to switch user ids, and CI=true' "$work/ci.out" ||
    fail "with CI=true, no failure names the missing root"

echo "as $(${as_user[@]+"${as_user[@]}"} id -un): $(wc -l <"$work/local.skipped") tests skipped" \
    "without CI, $(wc -l <"$work/ci.failed") failed with CI=true:"
sed 's/^/  /' "$work/local.skipped"
if [[ $status -ne 0 ]]; then
    echo "----- output with CI=true -----"
    cat "$work/ci.out"
fi
exit $status
