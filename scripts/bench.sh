#!/usr/bin/env bash
# Benchmarks of the package code and of the wizard's start, with the reference figures
# measured in the same run. Prints one table per part, a PASS/FAIL "check" line for each
# result against the truth the benchmark knows (the package's size as GNU tar lists it, the
# extracted script's bytes) and a PASS/FAIL "goal" line for each goal: package operations
# at most 1.10 x the gzip floor, faster than tar, at most 16 MiB resident; the first menu
# within 0.100 s on this host and 1.5 s in the sandbox guest (medians; a start that was not
# measured fails too). Exit status 1 when a check or a goal fails.
#
# Usage: scripts/bench.sh [options]
#   --work DIR        keep the generated packages in DIR and reuse them in later runs
#                     (default: a temporary directory under /tmp, removed at the end)
#   --size-gib N      unpacked size of the main package (default 1; decimals allowed)
#   --big-gib N       unpacked size of the large package (default 4; 0 leaves it out)
#   --runs N          runs per measurement, the best one counts (default 3)
#   --big-runs N      runs per measurement of the large package (default 1)
#   --quick           smoke run: a 64 MiB package, no large one, one run each, no guest
#   --no-guest        leave out the start-up time in the sandbox guest
#   --guest           measure it all the same (after --quick)
#   --no-host-menu    leave out the start-up time on this host
#   --parts LIST      which parts, comma-separated: packages, install, lists, menu
#                     (default: all)
#   WIZARD_BUILD_DIR  build directory (default: build), configured RelWithDebInfo
#
# The packages are tar streams from bench/BenchMakePackage compressed with "gzip -1"
# (half log-like text, half random bytes, "Install.sh" the last entry).
#
# The install part measures what the wizard reads of the main package before the package's
# "Install.sh" starts (its size, its soundness and the script, in one reading), cold and with
# the package menu's background reading given a 10 s head start, against "gzip -dc" of the
# same package: goals at most 0.20 x and 0.10 x, at most 16 MiB resident.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

work=
size_gib=1
big_gib=4
runs=3
big_runs=1
guest=1
host_menu=1
parts=packages,install,lists,menu
while [[ $# -gt 0 ]]; do
    case $1 in
    --work) work=${2:?--work needs a directory}; shift 2 ;;
    --size-gib) size_gib=${2:?}; shift 2 ;;
    --big-gib) big_gib=${2:?}; shift 2 ;;
    --runs) runs=${2:?}; shift 2 ;;
    --big-runs) big_runs=${2:?}; shift 2 ;;
    --quick) size_gib=0.0625; big_gib=0; runs=1; big_runs=1; guest=0; shift ;;
    --no-guest) guest=0; shift ;;
    --guest) guest=1; shift ;;
    --no-host-menu) host_menu=0; shift ;;
    --parts) parts=${2:?--parts needs a list}; shift 2 ;;
    -h | --help) sed -n '2,31p' "$0"; exit 0 ;;
    *) echo "bench: unknown option $1" >&2; exit 2 ;;
    esac
done

part() { [[ ,$parts, == *,$1,* ]]; }
part menu || { guest=0; host_menu=0; }

mib_of() { awk -v g="$1" 'BEGIN { printf "%d", g * 1024 + 0.5 }'; }
size_mib=$(mib_of "$size_gib")
big_mib=$(mib_of "$big_gib")
[[ $size_mib -ge 1 ]] || { echo "bench: --size-gib too small" >&2; exit 2; }

build=${WIZARD_BUILD_DIR:-build}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$(nproc)" --target bench InstallWizard >/dev/null
build=$(cd "$build" && pwd)
bin=$build/bench

scratch=$(mktemp -d /tmp/wizard-bench.XXXXXX)
cleanup() { rm -rf "$scratch"; }
trap cleanup EXIT
if [[ -z $work ]]; then
    work=$scratch/packages
fi
mkdir -p "$work"
work=$(cd "$work" && pwd)

package_name=Vidorama_12.05.01.1.tar.gz

# make_package MIB FILES: path of the package, generated unless the cache has it.
make_package() {
    local mib=$1 files=$2
    local dir=$work/${mib}MiB
    local stamp
    stamp="$mib $files $(sha256sum bench/BenchMakePackage.cpp | cut -c1-16)"
    if [[ ! -f $dir/$package_name || "$(cat "$dir/stamp" 2>/dev/null)" != "$stamp" ]]; then
        mkdir -p "$dir"
        rm -f "$dir/stamp"
        echo "bench: generating $mib MiB package ($files files, gzip -1)..." >&2
        "$bin/BenchMakePackage" --size-mib "$mib" --files "$files" | gzip -1 >"$dir/$package_name"
        echo "$stamp" >"$dir/stamp"
    fi
    echo "$dir/$package_name"
}

# 3000 files for 1 GiB; the large package has more and larger files (6000 for 4 GiB).
clamp() { echo $(($1 < $2 ? $2 : $1 > $3 ? $3 : $1)); }
main_pkg=
big_pkg=
if part packages || part install; then
    main_pkg=$(make_package "$size_mib" "$(clamp $((size_mib * 3000 / 1024)) 20 3000)")
fi
if part packages && [[ $big_mib -gt 0 ]]; then
    big_pkg=$(make_package "$big_mib" "$(clamp $((big_mib * 6000 / 4096)) 20 100000)")
fi

mib() { awk -v k="$1" 'BEGIN { printf "%.1f", k / 1024 }'; }
field() { sed -n "s/.*\\b$1=\\([^ ]*\\).*/\\1/p" "$2" | tail -n 1; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
pass() { if awk "BEGIN { exit !($1) }"; then echo PASS; else echo FAIL; fi; }

echo "Machine: $(lscpu | sed -n 's/^Model name: *//p' | head -n 1), $(nproc) cores," \
    "$(free -m | awk '/^Mem:/ { printf "%.1f GiB", $2 / 1024 }') RAM; $(uname -r)"
echo "Tools: $(gzip --version | head -n 1), $(tar --version | head -n 1)," \
    "libarchive $(pkg-config --modversion libarchive)," \
    "zlib $(dpkg-query -W -f '${Version}' zlib1g 2>/dev/null || echo '?')"
echo "Package generation: bench/BenchMakePackage | gzip -1 (no pigz); not timed"
# Other work on the machine stretches wall times; the processor times suffer less from it.
echo "Load average at the start: $(cut -d' ' -f1-3 /proc/loadavg)"
echo

goals_failed=0
# bench_package PACKAGE RUNS LABEL: the four measurements and their table.
bench_package() {
    local pkg=$1 n=$2 label=$3
    local out
    out=$(mktemp -d "$scratch/measure.XXXXXX")
    mkdir -p "$out/cwd"
    cat "$pkg" >/dev/null # warm page cache
    local packed unpacked files
    packed=$(stat -c %s "$pkg")
    unpacked=$(gzip -dc "$pkg" | tar -tvf - | awk '{ s += $3; n++ } END { printf "%.0f %d\n", s, n }')
    files=${unpacked#* }
    unpacked=${unpacked% *}

    "$bin/BenchTime" --runs "$n" -- gzip -dc "$pkg" >"$out/gzip"
    "$bin/BenchTime" --runs "$n" -- tar -tzvf "$pkg" >"$out/tar"
    "$bin/BenchTime" --runs "$n" --stdout "$out/size.out" -- "$bin/BenchPackage" size "$pkg" >"$out/size"
    "$bin/BenchTime" --runs "$n" --cwd "$out/cwd" --stdout "$out/extract.out" -- \
        "$bin/BenchPackage" extract "$pkg" Install.sh >"$out/extract"

    # What the operations returned, against the truth: GNU tar's listing, the script's bytes.
    local checks_ok=1
    "$root/bench/check-package-results.sh" "$pkg" "$out/size.out" "$out/extract.out" "$out/cwd" \
        "$bin/BenchMakePackage" >"$out/checks" || checks_ok=0

    local floor tar
    floor=$(field best_s "$out/gzip")
    tar=$(field best_s "$out/tar")
    echo "== $label: $(basename "$pkg"), $(awk -v b="$unpacked" 'BEGIN { printf "%.2f GiB", b / 2^30 }') unpacked" \
        "($unpacked bytes, $files entries), $(awk -v b="$packed" 'BEGIN { printf "%.2f GiB", b / 2^30 }') compressed; best of $n, warm cache"
    local format='| %-32s | %8s | %6s | %6s | %7s | %6s | %7s | %s\n'
    # shellcheck disable=SC2059 # the format is the table's own
    printf "$format" operation "wall (s)" "x gzip" "x tar" "cpu (s)" "x gzip" "RSS MiB" result
    # shellcheck disable=SC2059
    row() { # NAME FILE RESULT
        printf "$format" "$1" "$(field best_s "$2")" "$(ratio "$(field best_s "$2")" "$floor")" \
            "$(ratio "$(field best_s "$2")" "$tar")" "$(field cpu_s "$2")" \
            "$(ratio "$(field cpu_s "$2")" "$(field cpu_s "$out/gzip")")" \
            "$(mib "$(field maxrss_kib "$2")")" "$3"
    }
    row "gzip -dc > /dev/null (floor)" "$out/gzip" ""
    row "tar -tzvf > /dev/null" "$out/tar" "cpu: tar and its gzip"
    row "GetExtractedSize()" "$out/size" "returned $(field GetExtractedSize "$out/size.out") (32-bit)"
    row 'ExtractFileFomTar("Install.sh")' "$out/extract" \
        "returned $(field ExtractFileFomTar "$out/extract.out")"
    cat "$out/checks"
    [[ $checks_ok == 1 ]] || goals_failed=1

    local g
    for op in size extract; do
        local t
        t=$(field best_s "$out/$op")
        local name=GetExtractedSize
        [[ $op == extract ]] && name=ExtractFileFomTar
        g=$(pass "$t <= 1.10 * $floor")
        echo "goal $name <= 1.10 x gzip floor: $g ($(ratio "$t" "$floor"))"
        [[ $g == PASS ]] || goals_failed=1
        g=$(pass "$t < $tar")
        echo "goal $name faster than tar -tzvf: $g ($(ratio "$t" "$tar"))"
        [[ $g == PASS ]] || goals_failed=1
        local rss
        rss=$(field maxrss_kib "$out/$op")
        g=$(pass "$rss <= 16 * 1024")
        echo "goal $name peak RSS <= 16 MiB: $g ($(mib "$rss") MiB)"
        [[ $g == PASS ]] || goals_failed=1
    done
    echo
}

if part packages && [[ -n $main_pkg ]]; then
    bench_package "$main_pkg" "$runs" "package $size_gib GiB"
fi
if [[ -n $big_pkg ]]; then
    bench_package "$big_pkg" "$big_runs" "package $big_gib GiB"
fi

# bench_install PACKAGE RUNS LABEL: the wizard's reading before "Install.sh", cold and with a
# head start, against gzip -dc.
bench_install() {
    local pkg=$1 n=$2 label=$3 head=10
    local out
    out=$(mktemp -d "$scratch/install.XXXXXX")
    mkdir -p "$out/cold" "$out/warm"
    # A package on a key was copied there long before it is installed; the wizard reads a
    # file changed in the last seconds anew each time (its time stamp could not tell a second
    # change), so a package generated just now is dated back like one on a key.
    touch -d '-1 minute' "$pkg"
    cat "$pkg" >/dev/null # warm page cache
    "$bin/BenchTime" --runs "$n" -- gzip -dc "$pkg" >"$out/gzip"
    "$bin/BenchTime" --runs "$n" --cwd "$out/cold" --stdout "$out/cold.out" -- \
        "$bin/BenchPackage" install "$pkg" >"$out/cold.time"
    "$bin/BenchTime" --runs 1 --cwd "$out/warm" --stdout "$out/warm.out" -- \
        "$bin/BenchPackage" install "$pkg" "$head" >"$out/warm.time"

    local checks_ok=1
    "$root/bench/check-package-results.sh" "$pkg" "$out/cold.out" "$out/cold.out" "$out/cold" \
        "$bin/BenchMakePackage" >"$out/checks" || checks_ok=0
    "$root/bench/check-package-results.sh" "$pkg" "$out/warm.out" "$out/warm.out" "$out/warm" \
        "$bin/BenchMakePackage" >>"$out/checks" || checks_ok=0

    local floor cold warm cold_reads warm_reads rss
    floor=$(field best_s "$out/gzip")
    cold=$(field best_s "$out/cold.time")
    warm=$(field enter_to_script_s "$out/warm.out")
    cold_reads=$(field readings_after_enter "$out/cold.out")
    warm_reads=$(field readings_after_enter "$out/warm.out")
    echo "== $label: $(basename "$pkg"), $(awk -v b="$(stat -c %s "$pkg")" 'BEGIN { printf "%.2f GiB", b / 2^30 }')" \
        "compressed; wizard's reading before \"Install.sh\" starts; best of $n, warm cache"
    local format='| %-44s | %8s | %6s | %7s | %7s | %s\n'
    # shellcheck disable=SC2059 # the format is the table's own
    printf "$format" measurement "wall (s)" "x gzip" "cpu (s)" "RSS MiB" result
    # shellcheck disable=SC2059
    printf "$format" "gzip -dc > /dev/null (floor)" "$floor" "1.00" "$(field cpu_s "$out/gzip")" \
        "$(mib "$(field maxrss_kib "$out/gzip")")" ""
    # shellcheck disable=SC2059
    printf "$format" "cold: size + Install.sh, one process" "$cold" "$(ratio "$cold" "$floor")" \
        "$(field cpu_s "$out/cold.time")" "$(mib "$(field maxrss_kib "$out/cold.time")")" \
        "readings: $cold_reads"
    # shellcheck disable=SC2059
    printf "$format" "ENTER -> Install.sh after ${head} s head start" "$warm" "$(ratio "$warm" "$floor")" \
        "$(field cpu_s "$out/warm.time")" "$(mib "$(field maxrss_kib "$out/warm.time")")" \
        "readings after ENTER: $warm_reads (cpu: whole process)"
    cat "$out/checks"
    [[ $checks_ok == 1 ]] || goals_failed=1
    local g
    g=$(pass "${cold_reads:-9} == 1")
    echo "check the cold installation reads the package once: $g (${cold_reads:-?} readings)"
    [[ $g == PASS ]] || goals_failed=1

    g=$(pass "$cold <= 0.20 * $floor")
    echo "goal wizard's reading in one pass <= 0.20 x gzip -dc: $g ($(ratio "$cold" "$floor"))"
    [[ $g == PASS ]] || goals_failed=1
    g=FAIL
    [[ -n $warm ]] && g=$(pass "$warm <= 0.10 * $floor")
    echo "goal ENTER -> Install.sh with ${head} s head start <= 0.10 x gzip -dc: $g" \
        "($(ratio "${warm:-0}" "$floor"))"
    [[ $g == PASS ]] || goals_failed=1
    rss=$(field maxrss_kib "$out/cold.time")
    local rss_warm
    rss_warm=$(field maxrss_kib "$out/warm.time")
    [[ $rss_warm -gt $rss ]] && rss=$rss_warm
    g=$(pass "$rss <= 16 * 1024")
    echo "goal wizard's reading peak RSS <= 16 MiB: $g ($(mib "$rss") MiB)"
    [[ $g == PASS ]] || goals_failed=1
    echo
}

if part install && [[ -n $main_pkg ]]; then
    bench_install "$main_pkg" "$runs" "install $size_gib GiB"
fi

# Listings: package files on a key, installed versions on a disk (both plain directories).
if part lists; then
    lists=$scratch/lists
    "$bin/BenchAvailablePackages" create "$lists/Packages" 2000
    "$bin/BenchInstalledPackages" create "$lists/Versions" 200
    "$bin/BenchTime" --runs 1 --stdout "$lists/available.out" -- \
        "$bin/BenchAvailablePackages" measure "$lists/Packages" 21 2000 >"$lists/available"
    "$bin/BenchTime" --runs 1 --stdout "$lists/installed.out" -- \
        "$bin/BenchInstalledPackages" measure "$lists/Versions" 21 200 >"$lists/installed"
    echo "== Listings (one process each, 21 calls, median per call)"
    printf '| %-58s | %10s | %10s | %8s\n' call "median ms" "min ms" "RSS MiB"
    printf '| %-58s | %10s | %10s | %8s\n' \
        "GetAvailablePackages: 2000 files (1000 tar.gz, 1000 zip)" \
        "$(field median_ms "$lists/available.out")" "$(field min_ms "$lists/available.out")" \
        "$(mib "$(field maxrss_kib "$lists/available")")"
    printf '| %-58s | %10s | %10s | %8s\n' \
        "GetInstalledPackages: 200 versions (150 json, 50 txt)" \
        "$(field median_ms "$lists/installed.out")" "$(field min_ms "$lists/installed.out")" \
        "$(mib "$(field maxrss_kib "$lists/installed")")"
    echo
fi

usb_cmdline="BOOT_IMAGE=/boot/vmlinuz initrd=/boot/initrd.img quiet"
menu_row() {
    printf '| %-50s | %s | median %s s\n' "$1" \
        "$(grep '^run ' "$2" | sed 's/ exit=/ (exit /; s/$/)/' | awk '{ printf "%s%s %s %s", (NR > 1 ? ", " : ""), $3, $4, $5 }')" \
        "$(field median_s "$2")"
}
# menu_goal WHERE LIMIT_S [FILE]: the median start to the first menu against its goal; no
# FILE (the measurement failed or could not run) fails it as well.
menu_goal() {
    local median="" g=FAIL
    [[ -n ${3:-} ]] && median=$(field median_s "$3")
    if [[ -n $median ]]; then
        g=$(pass "$median <= $2")
    fi
    echo "goal first menu $1 <= $2 s: $g (median ${median:-not measured})"
    [[ $g == PASS ]] || goals_failed=1
}
if [[ $guest == 1 || $host_menu == 1 ]]; then
    echo "== Start to the first drawn menu (\"Exit to shell\" on the screen), USB-key mode, 80x25 pty"
fi
if [[ $guest == 1 ]]; then
    io=$scratch/guest-io
    mkdir -p "$io"
    if "$root/sandbox/guest" --io "$io" --usbkey "$root/sample/usbkey" --cmdline "$usb_cmdline" \
        --output file --timeout 300 run -- "$bin/BenchMenuTime" --runs "$runs" --exit-key auto \
        --timeout 120 --cwd-base /io/work/menu -- "$build/wizard/InstallWizard" \
        >"$scratch/guest.log" 2>&1 && [[ -s $io/out.log ]]; then
        menu_row "sandbox guest (qemu TCG), wizard in a pty" "$io/out.log"
        menu_goal "in the sandbox guest" 1.5 "$io/out.log"
    else
        echo "| sandbox guest: failed ($(tail -n 1 "$scratch/guest.log"))"
        cat "$io/out.log" 2>/dev/null || true
        menu_goal "in the sandbox guest" 1.5
    fi
fi
if [[ $host_menu == 1 ]]; then
    if [[ $(id -u) -ne 0 ]]; then
        echo "| this host: needs root for its namespaces (--no-host-menu leaves it out)"
        menu_goal "on this host" 0.100
    else
        jail=$scratch/jail
        mkdir -p "$jail"
        if "$bin/BenchMenuTime" --runs "$runs" --exit-key none --marker @@BENCH-EXEC@@ \
            --timeout 60 --cwd-base "$jail" -- \
            unshare --mount --pid --fork --net --uts --ipc --propagation private --kill-child \
            --mount-proc /bin/sh "$root/bench/host-menu-jail.sh" "$build/wizard/InstallWizard" \
            "$root/sample/usbkey" "$(readlink /proc/self/ns/mnt)" >"$jail/out" 2>&1; then
            menu_row "this host, namespaces + private /dev, /mnt, /run" "$jail/out"
            menu_goal "on this host" 0.100 "$jail/out"
        else
            echo "| this host: failed"
            cat "$jail/out"
            menu_goal "on this host" 0.100
        fi
    fi
fi

echo
echo "Load average at the end: $(cut -d' ' -f1-3 /proc/loadavg)"
if [[ $goals_failed != 0 ]]; then
    echo "bench: some checks or goals failed" >&2
    exit 1
fi
