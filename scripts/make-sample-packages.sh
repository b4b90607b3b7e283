#!/usr/bin/env bash
# Builds sample packages for the demo and the tests, byte for byte the same on
# every run (fixed times, owners and order, no gzip name or time stamp).
#
# usage: scripts/make-sample-packages.sh OUTDIR [--linux FULLVERSION]... [--dos VVVVVV]...
#                                              [--name NAME]
#   Without --linux and --dos: Vidorama_12.05.01.3456.tar.gz and 120501.zip.
#   --linux 12.06.02.3501  a Linux package Vidorama_12.06.02.3501.tar.gz: a
#                          payload (manifest, boot configuration, network
#                          files of the installed system) and sample/packages/Install.sh
#   --dos 120501           a DOS package 120501.zip: 120501/img.zip
#   --name NAME            the product name of the following Linux packages
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)

[[ $# -ge 1 ]] || { sed -n '2,14p' "$0"; exit 2; }
out=$1; shift
linux=()
dos=()
names=()
name=Vidorama
while [[ $# -gt 0 ]]; do
  case $1 in
    --linux) linux+=("${2:?--linux needs a version}"); names+=("$name"); shift 2 ;;
    --dos) dos+=("${2:?--dos needs a version}"); shift 2 ;;
    --name) name=${2:?--name needs a name}; shift 2 ;;
    *) echo "make-sample-packages: unknown option $1" >&2; exit 2 ;;
  esac
done
if [[ ${#linux[@]} -eq 0 && ${#dos[@]} -eq 0 ]]; then
  linux=(12.05.01.3456); names=(Vidorama); dos=(120501)
fi

export TZ=UTC LC_ALL=C
stamp='2012-05-01 00:00:00'
mkdir -p "$out"
out=$(cd "$out" && pwd)
work=$(mktemp -d /tmp/sample-packages.XXXXXX)
trap 'rm -rf "$work"' EXIT

# Same bytes whatever the umask and the clock of the building machine.
normalise() {
  find "$1" -type d -exec chmod 0755 {} +
  find "$1" -type f -exec chmod 0644 {} +
  [[ -z ${2:-} ]] || chmod 0755 "$@"
  find "$1" -exec touch -h -d "$stamp" {} +
}

linux_package() {
  local product=$1 full=$2
  local version=${full%.*} revision=${full##*.}
  [[ $full =~ ^[0-9]{2}\.[0-9]{2}\.[0-9]{2}\.[0-9]+$ ]] ||
    { echo "make-sample-packages: '$full' is not like 12.05.01.3456" >&2; exit 2; }
  local dir=$work/linux-$full
  local payload=$dir/payload
  mkdir -p "$payload/boot/syslinux" "$payload/etc/network" "$payload/etc/init.d" \
           "$payload/opt/vidorama/bin"

  printf '{"name": "%s", "version": "%s", "revision": "%s"}\n' "$product" "$version" "$revision" \
    > "$payload/Version.json"
  cat > "$payload/boot/syslinux/syslinux.cfg" <<CFG
SERIAL 0 115200
PROMPT 1
TIMEOUT 50
SAY $product $full
DEFAULT vidorama
LABEL vidorama
  KERNEL /Versions/$full/boot/vmlinuz
  APPEND BOOT_IMAGE=/Versions/$full/boot/vmlinuz root=/dev/sda2 quiet
CFG
  cat > "$payload/etc/network/interfaces" <<'NET'
auto lo
iface lo inet loopback

auto pc_lan_1
iface pc_lan_1 inet static
    address 192.168.1.1
    netmask 255.255.255.0
    gateway 192.168.1.254
NET
  # A fresh image carries the product name; the wizard proposes a per-server
  # name made from it and the serial number.
  echo Vidorama > "$payload/etc/hostname"
  printf '127.0.0.1\tlocalhost\n127.0.1.1\tVidorama\n' > "$payload/etc/hosts"
  printf 'nameserver 192.168.1.254\nsearch example.com\n' > "$payload/etc/resolv.conf"
  cat > "$payload/etc/init.d/S38UpdateNetworkSettings.sh" <<'UPD'
#!/bin/sh
# Applies the saved network settings of this version (sample: reports only).
case "$1" in
  start) echo "Network settings of $(cat "$(dirname "$0")/../hostname") applied" ;;
  *) echo "usage: $0 start" >&2; exit 2 ;;
esac
UPD
  printf '#!/bin/sh\necho "%s %s video server"\n' "$product" "$full" \
    > "$payload/opt/vidorama/bin/vidorama-server"
  # Some bulk, so that the extracted size is more than a few bytes.
  head -c 65536 /dev/zero > "$payload/opt/vidorama/media.bin"
  cp "$here/sample/packages/Install.sh" "$dir/Install.sh"

  normalise "$dir" "$dir/Install.sh" "$payload/etc/init.d/S38UpdateNetworkSettings.sh" \
            "$payload/opt/vidorama/bin/vidorama-server"
  # The payload first, the installer last, as vendors lay their packages out.
  (cd "$dir" && { find payload -print | sort; echo Install.sh; } |
     tar --create --no-recursion --files-from=- --owner=0 --group=0 --numeric-owner \
         --format=gnu --mtime="$stamp") |
    gzip -9 -n > "$out/${product}_$full.tar.gz"
  echo "$out/${product}_$full.tar.gz"
}

dos_package() {
  local v=$1
  [[ $v =~ ^[0-9]{6}$ ]] || { echo "make-sample-packages: '$v' is not like 120501" >&2; exit 2; }
  local dir=$work/dos-$v
  mkdir -p "$dir/image/SCRIPTS" "$dir/$v"
  printf '@echo off\r\necho Installing Vidorama %s\r\ncopy %%SOURCE_DRIVE%%\\*.* %%DESTINATION_DRIVE%%\\\r\n' \
    "$v" > "$dir/image/SCRIPTS/REINSTAL.BAT"
  printf 'Vidorama %s\r\n' "$v" > "$dir/image/VERSION.TXT"
  normalise "$dir/image"
  (cd "$dir/image" && find . -type f -printf '%P\n' | sort | zip -q -X -D -9 "$dir/$v/img.zip" -@)
  normalise "$dir/$v"
  rm -f "$out/$v.zip"
  (cd "$dir" && zip -q -X -9 "$out/$v.zip" "$v/" "$v/img.zip")
  echo "$out/$v.zip"
}

for i in "${!linux[@]}"; do
  linux_package "${names[$i]}" "${linux[$i]}"
done
for v in "${dos[@]}"; do
  dos_package "$v"
done
