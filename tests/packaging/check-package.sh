#!/usr/bin/env bash
# Checks what "cmake --install" and "cpack -G DEB" make of a build tree, without
# root and without running the wizard (it would take the terminal):
#   - the installed tree holds exactly the executable, the compressed man page and
#     the package's docs, with the right modes; the man page renders cleanly;
#   - the Debian package carries the same files owned by root, its control fields
#     are right, its Depends names the package of every shared library the
#     executable needs and of every program it runs, and the extracted executable
#     finds all its libraries.
#
# usage: check-package.sh BUILD_DIR SOURCE_DIR
set -euo pipefail

build=${1:?usage: check-package.sh BUILD_DIR SOURCE_DIR}
source=${2:?usage: check-package.sh BUILD_DIR SOURCE_DIR}

package=vidorama-install-wizard
# The programs the wizard runs, by the Debian package that provides them.
program_depends=(
    "udev"                          # udevadm
    "dosfstools"                    # mkfs.fat
    "e2fsprogs"                     # mkfs.ext4, chattr
    "util-linux"                    # mkswap
    "kmod"                          # insmod
    "syslinux"                      # syslinux
    "syslinux-common"               # mbr.bin and the BIOS modules
    "extlinux"                      # extlinux
    "unzip"                         # unzip
    "coreutils"                     # ln, rm
    "systemd-sysv | sysvinit-core"  # halt, /sbin/reboot
    "augeas-lenses"                 # lenses loaded by libaugeas at run time
)
expected_files=(
    usr/sbin/InstallWizard
    "usr/share/doc/$package/README.Debian"
    "usr/share/doc/$package/copyright"
    usr/share/man/man8/InstallWizard.8.gz
)

failures=0
fail()
{
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}
pass()
{
    echo "ok: $*"
}

for tool in cmake cpack dpkg dpkg-deb dpkg-shlibdeps file groff man readelf ldd gzip; do
    command -v "$tool" >/dev/null || { echo "FAIL: $tool is missing" >&2; exit 1; }
done
[[ -f $build/CPackConfig.cmake ]] || { echo "FAIL: $build is not a configured build tree" >&2; exit 1; }

scratch=$(mktemp -d "${TMPDIR:-/tmp}/check-package.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

export LC_ALL=C.UTF-8 MANPAGER=cat PAGER=cat MANWIDTH=80

# Lists the regular files and links below a directory, relative to it, sorted.
list_files()
{
    (cd "$1" && find . \( -type f -o -type l \) -printf '%P\n' | LC_ALL=C sort)
}

# The man page renders without a single warning, with groff and with man-db.
check_man_page()
{
    local page=$1 what=$2 text
    if ! text=$(gzip -dc "$page" | groff -man -ww -z 2>&1) || [[ -n $text ]]; then
        fail "$what: groff warns: $text"
    fi
    if ! text=$(man --warnings -l "$page" 2>&1 >"$scratch/man.txt") || [[ -n $text ]]; then
        fail "$what: man -l warns: $text"
    fi
    grep -q '^INSTALLWIZARD(8)' "$scratch/man.txt" || fail "$what: man -l shows no INSTALLWIZARD(8) header"
    for section in NAME SYNOPSIS DESCRIPTION OPTIONS 'EXIT STATUS' ENVIRONMENT FILES 'SEE ALSO'; do
        grep -q "^$section\$" "$scratch/man.txt" || fail "$what: no $section section"
    done
    if command -v lexgrog >/dev/null; then
        lexgrog "$page" >/dev/null 2>&1 || fail "$what: lexgrog cannot read its NAME line"
    fi
}

version=$(sed -n 's/^set(CPACK_PACKAGE_VERSION "\(.*\)")$/\1/p' "$build/CPackConfig.cmake")
[[ -n $version ]] || fail "no CPACK_PACKAGE_VERSION in CPackConfig.cmake"
if grep -q "^\.TH INSTALLWIZARD 8 \"[^\"]*\" \"$package $version\"" "$source/doc/InstallWizard.8"; then
    pass "man page names version $version"
else
    fail "the .TH line of doc/InstallWizard.8 does not name \"$package $version\""
fi

# --- cmake --install ---------------------------------------------------------
stage=$scratch/stage
if ! cmake --install "$build" --prefix "$stage/usr" >"$scratch/install.log" 2>&1; then
    cat "$scratch/install.log" >&2
    echo "FAIL: cmake --install failed" >&2
    exit 1
fi
installed=$(list_files "$stage")
wanted=$(printf '%s\n' "${expected_files[@]}" | LC_ALL=C sort)
if [[ $installed == "$wanted" ]]; then
    pass "cmake --install installs exactly: ${wanted//$'\n'/ }"
else
    fail "cmake --install installs:"$'\n'"$installed"$'\n'"instead of:"$'\n'"$wanted"
fi

exe=$stage/usr/sbin/InstallWizard
[[ -x $exe && $(stat -c %a "$exe") == 755 ]] || fail "sbin/InstallWizard is not mode 755"
file -b "$exe" | grep -q '^ELF .* executable' || fail "sbin/InstallWizard is not an ELF executable"
for f in usr/share/man/man8/InstallWizard.8.gz usr/share/doc/$package/copyright \
    usr/share/doc/$package/README.Debian; do
    [[ -f $stage/$f && $(stat -c %a "$stage/$f") == 644 ]] || fail "$f is not mode 644"
done

page=$stage/usr/share/man/man8/InstallWizard.8.gz
if file -b "$page" | grep -q '^gzip compressed data, max compression' && gzip -t "$page"; then
    pass "man page is gzip -9 compressed"
else
    fail "man page is not gzip -9 compressed: $(file -b "$page")"
fi
gzip -dc "$page" | cmp -s - "$source/doc/InstallWizard.8" ||
    fail "installed man page differs from doc/InstallWizard.8"
check_man_page "$page" "installed man page"
pass "installed man page renders cleanly"

# --- cpack -G DEB ------------------------------------------------------------
out=$scratch/package
mkdir -p "$out"
# With a Makefile tree cpack first makes the "preinstall" target, which depends on
# "all": it would rebuild whatever is out of date in the whole project. This test
# only reads the build tree, so it names a generator that has no such target; the
# install step itself (the tree's cmake_install.cmake) is the same.
if ! (cd "$out" && cpack -G DEB -D CPACK_CMAKE_GENERATOR=Ninja \
    --config "$build/CPackConfig.cmake" -B "$out") >"$scratch/cpack.log" 2>&1; then
    cat "$scratch/cpack.log" >&2
    echo "FAIL: cpack -G DEB failed" >&2
    exit 1
fi
if grep -qi 'warning' "$scratch/cpack.log"; then
    fail "cpack warns:"$'\n'"$(grep -i -A3 warning "$scratch/cpack.log")"
fi
arch=$(dpkg --print-architecture)
deb=$out/${package}_${version}_$arch.deb
[[ -f $deb ]] || { echo "FAIL: no $deb; cpack made: $(ls "$out")" >&2; exit 1; }
pass "cpack made $(basename "$deb")"

field()
{
    dpkg-deb -f "$deb" "$1"
}
[[ $(field Package) == "$package" ]] || fail "Package: $(field Package)"
[[ $(field Version) == "$version" ]] || fail "Version: $(field Version)"
[[ $(field Architecture) == "$arch" ]] || fail "Architecture: $(field Architecture)"
[[ $(field Section) == admin ]] || fail "Section: $(field Section)"
[[ $(field Priority) == optional ]] || fail "Priority: $(field Priority)"
[[ $(field Maintainer) =~ ^[^\<]+\ \<[^@\>]+@[^\>]+\>$ ]] || fail "Maintainer: $(field Maintainer)"
description=$(field Description)
[[ $(head -n1 <<<"$description") == *"wizard of the Vidorama video server" ]] ||
    fail "Description summary: $(head -n1 <<<"$description")"
[[ $(wc -l <<<"$description") -gt 1 ]] || fail "Description has no long text"

depends=$(field Depends)
echo "Depends: $depends"
# One dependency per line, version constraints dropped: "a (>= 1) | b" -> "a | b".
mapfile -t items < <(sed -e 's/ *([^)]*)//g' -e 's/, */\n/g' <<<"$depends")
has_item()
{
    local item
    for item in "${items[@]}"; do
        [[ $item == "$1" ]] && return 0
    done
    return 1
}
# True when some item names the package, alone or as one alternative.
names_package()
{
    local item alternative
    for item in "${items[@]}"; do
        IFS='|' read -ra alternatives <<<"$item"
        for alternative in "${alternatives[@]}"; do
            alternative=${alternative// /}
            [[ $alternative == "$1" ]] && return 0
        done
    done
    return 1
}
for dependency in "${program_depends[@]}"; do
    has_item "$dependency" || fail "Depends lacks \"$dependency\""
done
pass "Depends names every program package"

# --- the package's contents --------------------------------------------------
dpkg-deb -c "$deb" >"$scratch/contents.txt"
while read -r mode owner _ _ _ path _; do
    path=${path#./}
    path=${path:-./}
    [[ $owner == root/root ]] || fail "$path is owned by $owner"
    case $path in
    usr/sbin/InstallWizard) [[ $mode == -rwxr-xr-x ]] || fail "$path has mode $mode" ;;
    */) [[ $mode == drwxr-xr-x ]] || fail "$path has mode $mode" ;;
    *) [[ $mode == -rw-r--r-- ]] || fail "$path has mode $mode" ;;
    esac
done <"$scratch/contents.txt"

root=$scratch/root
dpkg-deb -x "$deb" "$root"
packaged=$(list_files "$root")
if [[ $packaged == "$wanted" ]]; then
    pass "package holds exactly the installed files, owned by root"
else
    fail "package holds:"$'\n'"$packaged"$'\n'"instead of:"$'\n'"$wanted"
fi
check_man_page "$root/usr/share/man/man8/InstallWizard.8.gz" "packaged man page"

exe=$root/usr/sbin/InstallWizard
[[ -x $exe ]] || fail "packaged usr/sbin/InstallWizard is not executable"
file -b "$exe" | grep -q '^ELF .* executable.*, stripped$' ||
    fail "packaged InstallWizard is not a stripped ELF executable: $(file -b "$exe")"
# ldd asks the dynamic loader only; the program itself does not run.
if ldd "$exe" >"$scratch/ldd.txt" 2>&1 && ! grep -q 'not found' "$scratch/ldd.txt"; then
    pass "every library of the packaged executable resolves"
else
    fail "unresolved libraries:"$'\n'"$(cat "$scratch/ldd.txt")"
fi

# Every library the executable asks for directly comes from a package that Depends names.
mapfile -t needed < <(readelf -d "$exe" | sed -n 's/.*(NEEDED).*\[\(.*\)\]$/\1/p')
[[ ${#needed[@]} -gt 0 ]] || fail "readelf finds no NEEDED entry"
for soname in "${needed[@]}"; do
    path=$(awk -v n="$soname" '$1 == n && $3 ~ /^\// { print $3; exit }' "$scratch/ldd.txt")
    owner=""
    for candidate in "$path" "$(readlink -f "$path")" "/usr$path" "${path#/usr}"; do
        [[ -n $candidate ]] || continue
        owner=$(dpkg-query -S "$candidate" 2>/dev/null | head -n1 | cut -d: -f1) && [[ -n $owner ]] && break
    done
    if [[ -z $owner ]]; then
        fail "no Debian package owns $soname ($path)"
    elif names_package "$owner"; then
        echo "  $soname: $owner"
    else
        fail "Depends lacks $owner, the package of $soname"
    fi
done
pass "Depends names the package of every NEEDED library"

if [[ $failures -gt 0 ]]; then
    echo "$failures check(s) failed" >&2
    exit 1
fi
echo "all packaging checks passed"
