#!/bin/sh
# The installer a Linux package carries: the wizard extracts it into its working
# directory and runs it as
#
#   ./Install.sh "PACKAGE" "NAME" "FULLVERSION" VERSIONSDIR
#
# It unpacks the package's payload as VERSIONSDIR/FULLVERSION, makes that the
# current version ("current" link, top-level boot configuration) and installs
# extlinux for the versions directory. Its output scrolls in the wizard's
# installation window.
set -eu

if [ $# -ne 4 ]; then
    echo "usage: Install.sh PACKAGE NAME FULLVERSION VERSIONSDIR" >&2
    exit 2
fi
package=$1
name=$2
version=$3
versions=$4
target=$versions/$version
staging=$versions/.installing-$version

echo "Installing $name $version"
echo "  from $package"

# Unpacked beside the target first, so that an interrupted run never leaves a
# half-filled version directory under the version's own name.
rm -rf "$staging"
mkdir -p "$staging"
tar -xzf "$package" -C "$staging" payload
if [ -d "$target" ]; then
    echo "  replacing the installed $version"
    chattr -i "$target/boot/syslinux/ldlinux.sys" 2>/dev/null || true
    rm -rf "$target"
fi
mv "$staging/payload" "$target"
rmdir "$staging"
echo "  files copied to $target"

ln -sfnT "$target" "$versions/current"
echo "  current version: $version"

mkdir -p "$versions/boot/syslinux"
printf 'DEFAULT Vidorama\nLABEL Vidorama\n  CONFIG /Versions/%s/boot/syslinux/syslinux.cfg\n' \
    "$version" > "$versions/boot/syslinux/syslinux.cfg.new"
mv "$versions/boot/syslinux/syslinux.cfg.new" "$versions/boot/syslinux/syslinux.cfg"
extlinux -i "$versions/boot/syslinux" 2>&1
echo "$name $version installed"
