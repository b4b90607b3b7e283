#!/bin/sh
# Starts the wizard on this host in a prepared environment, to time its way to the main
# menu. Only ever run as the command of
#   unshare --mount --pid --fork --net --uts --ipc --propagation private --kill-child --mount-proc
# (scripts/bench.sh does): every mount below lands in that private mount namespace and is
# gone with it. The wizard sees a /dev with only null, zero, tty, random, urandom and pts (no
# disk at all), its own /mnt with a copy of the sample USB key on /mnt/USB, its own /run,
# and a USB-key kernel command line. It runs in the current directory.
#
# Usage: host-menu-jail.sh WIZARD USBKEY HOST-MOUNT-NAMESPACE
#   HOST-MOUNT-NAMESPACE: readlink /proc/self/ns/mnt as seen outside; nothing is mounted
#   unless this shell runs in another mount namespace and as the first process of a new
#   PID namespace.
set -eu
wizard=$1 usbkey=$2 hostns=$3
here=$PWD

if [ "$$" != 1 ] || [ "$(readlink /proc/self/ns/mnt)" = "$hostns" ]; then
    echo "host-menu-jail: not inside unshare's namespaces; nothing done" >&2
    exit 3
fi

# Keep the terminal's pts while /dev is replaced.
mkdir -p "$here/pts"
mount --bind /dev/pts "$here/pts"
mount -t tmpfs -o mode=0755,nosuid,noexec,size=64k jail-dev /dev
mknod -m 0666 /dev/null c 1 3
mknod -m 0666 /dev/zero c 1 5
mknod -m 0666 /dev/tty c 5 0
mknod -m 0666 /dev/random c 1 8
mknod -m 0666 /dev/urandom c 1 9
mkdir /dev/pts
mount --move "$here/pts" /dev/pts

mount -t tmpfs -o mode=0755,nosuid,nodev,size=64m jail-mnt /mnt
mkdir /mnt/USB
cp -R "$usbkey/." /mnt/USB/
mount -t tmpfs -o mode=0755,nosuid,nodev,size=16m jail-run /run

printf '%s\n' "BOOT_IMAGE=/boot/vmlinuz initrd=/boot/initrd.img quiet" > "$here/cmdline"
mount --bind "$here/cmdline" /proc/cmdline

# BenchMenuTime's clock starts at the time stamp of this marker, right before the exec.
printf '@@BENCH-EXEC@@ %s@@' "$(date +%s.%N)"
exec "$wizard"
