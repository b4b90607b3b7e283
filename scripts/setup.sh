#!/usr/bin/env bash
# Installs every build, test and sandbox dependency from Debian's packages.
# Safe to run again: apt-get only adds what is missing.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  libncurses-dev libparted-dev libarchive-dev zlib1g-dev libisal-dev libaugeas-dev augeas-lenses augeas-tools
  libjsoncpp-dev libgtest-dev googletest
  tmux parted dosfstools e2fsprogs mtools syslinux syslinux-common extlinux udev
  unzip zip qemu-system-x86 linux-image-amd64 busybox-static cpio kmod util-linux
  clang libclang-rt-14-dev llvm
  dpkg-dev file man-db
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all packages present"
  exit 0
fi

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
echo "setup: installing ${missing[*]}"
$SUDO apt-get update -q
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
