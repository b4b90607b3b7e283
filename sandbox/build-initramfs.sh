#!/bin/bash
# Builds the sandbox guest's initramfs: busybox-static plus the few kernel
# modules needed to reach the host's root over 9p and put a tmpfs overlay on
# it. Everything else the guest needs is loaded later from the shared root.
#
# usage: build-initramfs.sh OUT [KERNEL_RELEASE]
set -euo pipefail

out=${1:?usage: build-initramfs.sh OUT [KERNEL_RELEASE]}
release=${2:-}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

if [[ -z $release ]]; then
    kernel=$(ls -1v /boot/vmlinuz-*-amd64 2>/dev/null | tail -n 1)
    [[ -n $kernel ]] || { echo "build-initramfs: no /boot/vmlinuz-*-amd64 (install linux-image-amd64)" >&2; exit 1; }
    release=${kernel#/boot/vmlinuz-}
fi
moddir=/lib/modules/$release
[[ -d $moddir ]] || { echo "build-initramfs: $moddir missing" >&2; exit 1; }
[[ -x /bin/busybox ]] || { echo "build-initramfs: /bin/busybox missing (install busybox-static)" >&2; exit 1; }
if ldd /bin/busybox >/dev/null 2>&1; then
    echo "build-initramfs: /bin/busybox is not static (install busybox-static)" >&2
    exit 1
fi

# Order matters only through the dependencies, which modprobe resolves from
# modules.dep without loading anything.
wanted=(virtio_pci virtio_rng 9pnet_virtio 9p overlay)

work=$(mktemp -d /tmp/sandbox-initramfs.XXXXXX)
trap 'rm -rf "$work"' EXIT
root=$work/root
mkdir -p "$root"/{bin,dev,proc,sys,lower,rw,newroot,modules}
cp /bin/busybox "$root/bin/busybox"
ln -s busybox "$root/bin/sh"

declare -A seen=()
: >"$root/modules/order"
for name in "${wanted[@]}"; do
    while read -r verb path _; do
        [[ $verb == insmod ]] || continue # "builtin NAME": nothing to load
        base=$(basename "$path")
        case $base in
        *.ko.xz) ko=${base%.xz} ;;
        *.ko.zst) ko=${base%.zst} ;;
        *.ko.gz) ko=${base%.gz} ;;
        *) ko=$base ;;
        esac
        [[ -z ${seen[$ko]:-} ]] || continue
        seen[$ko]=1
        case $base in
        *.ko.xz) xz -dc "$path" >"$root/modules/$ko" ;;
        *.ko.zst) zstd -qdc "$path" >"$root/modules/$ko" ;;
        *.ko.gz) gzip -dc "$path" >"$root/modules/$ko" ;;
        *) cp "$path" "$root/modules/$ko" ;;
        esac
        echo "$ko" >>"$root/modules/order"
    done < <(modprobe -S "$release" --show-depends "$name")
done

install -m 0755 "$here/initramfs-init" "$root/init"

mkdir -p "$(dirname "$out")"
tmp_out=$(mktemp "$out.XXXXXX")
# Uncompressed: unpacking is faster than inflating under software emulation.
(cd "$root" && find . -print0 | LC_ALL=C sort -z | cpio --null -o -H newc --quiet --owner=0:0) >"$tmp_out"
chmod 0644 "$tmp_out"
mv -f "$tmp_out" "$out"
# Which kernel build it is for: the launcher does not use it with another one.
echo "$release $(stat -c %s-%Y "/boot/vmlinuz-$release" 2>/dev/null)" >"$out.kernel"
