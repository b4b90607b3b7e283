#!/bin/bash
# In the guest, on a scratch disk: the syslinux stand-in records each call and
# writes the boot-once data that Debian's FAT installer refuses to write.
set -euo pipefail
fail() { echo "FAIL: $*"; exit 1; }
[[ $(pwd) == /io/work ]] || fail "runs only inside the sandbox guest"

mkfs.fat -F 16 -n DOS /dev/vda >/dev/null
mkdir -p /tmp/m
mount /dev/vda /tmp/m && mkdir -p /tmp/m/boot/syslinux && umount /tmp/m

syslinux -i -d /boot/syslinux /dev/vda || fail "install"
syslinux --update --menu-save='VidoramaLinux' --once='VidoramaLinux' -d /boot/syslinux /dev/vda 2>&1 \
    || fail "update with menu-save and once"
mount /dev/vda /tmp/m
[[ -f /tmp/m/boot/syslinux/ldlinux.sys ]] || fail "no ldlinux.sys"
grep -q VidoramaLinux /tmp/m/boot/syslinux/ldlinux.sys || fail "once/menu-save not written"
# Already mounted: applied on the mount in place.
syslinux --once='VidoramaDos' -d /boot/syslinux /dev/vda 2>&1 || fail "once while mounted"
grep -q VidoramaDos /tmp/m/boot/syslinux/ldlinux.sys || fail "once not written while mounted"
umount /tmp/m

grep -qxF "syslinux -i -d /boot/syslinux /dev/vda" /io/events || fail "install not recorded"
grep -qxF "syslinux --update --menu-save=VidoramaLinux --once=VidoramaLinux -d /boot/syslinux /dev/vda" /io/events \
    || fail "update not recorded exactly"
grep -qxF "syslinux --once=VidoramaDos -d /boot/syslinux /dev/vda" /io/events || fail "once not recorded"
# A failing installer still fails through the stand-in.
if syslinux -i -d /boot/syslinux /dev/nonexistent 2>/dev/null; then fail "missing device accepted"; fi
echo "syslinux stand-in: all checks passed"
