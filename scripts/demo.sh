#!/usr/bin/env bash
# Runs the real wizard in the sandbox guest, on this terminal, against sparse
# target disk images and the sample USB key, in the situation of your choice.
# Nothing of this machine's own disks is touched: the guest sees only images.
#
# usage: scripts/demo.sh [options] [-- wizard options...]
#   --installed      the target disk as a previous installation left it
#                    (partitioned, formatted, syslinux, Vidorama 12.06.02.3501
#                    and 12.05.01.3456, the current one)
#   --disk-mode      start as the installed system does (maintenance menu);
#                    implies --installed
#   --timer          with --disk-mode: the 7-second auto-start countdown
#   --board B        rb417 (default), k9q or none: the BIOS vendor the guest shows
#   --two-disks      a second blank 4 GiB target disk: the disk menu appears
#   --small-disk     a 2 GiB target disk, under the 2,304 MiB the wizard needs
#   --usb-disk       also a 1 GiB USB disk, which the wizard must not offer
#   --disk-kind K    the target disk as virtio (default, /dev/vda), nvme
#                    (/dev/nvme0n1) or sd (an SD card, /dev/mmcblk0)
#   --auto FILE      FILE as the key's answer file "autoinstall.json": the
#                    main menu counts down to an unattended installation
#                    (add "-- -a" to start it at once); the reports it writes
#                    on the key are shown at the end
#   --keep DIR       keep the images, the log and the guest's files in DIR
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

installed=0
mode=usb
board=rb417
two_disks=0
small_disk=0
usb_disk=0
disk_kind=virtio
keep=
auto_file=
wizard_args=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --installed) installed=1; shift ;;
    --disk-mode) mode=disk; installed=1; shift ;;
    --timer) wizard_args+=(-t); shift ;;
    --board) board=${2:?--board needs rb417, k9q or none}; shift 2 ;;
    --two-disks) two_disks=1; shift ;;
    --small-disk) small_disk=1; shift ;;
    --usb-disk) usb_disk=1; shift ;;
    --disk-kind) disk_kind=${2:?--disk-kind needs virtio, nvme or sd}; shift 2 ;;
    --keep) keep=${2:?--keep needs a directory}; shift 2 ;;
    --auto) auto_file=${2:?--auto needs an answer file}; shift 2 ;;
    --) shift; wizard_args+=("$@"); break ;;
    -h|--help) sed -n '2,23p' "$0"; exit 0 ;;
    *) echo "demo: unknown option $1 (see --help)" >&2; exit 2 ;;
  esac
done
case $board in
  rb417) vendor="Phoenix Technologies LTD" ;;
  k9q) vendor="American Megatrends Inc." ;;
  none) vendor="SeaBIOS" ;;
  *) echo "demo: --board takes rb417, k9q or none" >&2; exit 2 ;;
esac
case $disk_kind in
  virtio) target_option=--disk; target=/dev/vda ;;
  nvme) target_option=--nvme-disk; target=/dev/nvme0n1 ;;
  sd) target_option=--sd-disk; target=/dev/mmcblk0 ;;
  *) echo "demo: --disk-kind takes virtio, nvme or sd" >&2; exit 2 ;;
esac
# The kernel's partition names: a "p" after a disk name ending in a digit.
case $target in
  *[0-9]) target_part=${target}p ;;
  *) target_part=$target ;;
esac
if [[ -n $auto_file && ! -f $auto_file ]]; then
  echo "demo: no answer file $auto_file" >&2
  exit 2
fi
[[ -n $auto_file ]] && auto_file=$(cd "$(dirname "$auto_file")" && pwd)/$(basename "$auto_file")
if [[ $small_disk == 1 && $installed == 1 ]]; then
  echo "demo: a 2 GiB disk is too small to hold an installation" >&2
  exit 2
fi

scripts/setup.sh >/dev/null
build=${WIZARD_BUILD_DIR:-build}
echo "Building the wizard..."
# A build directory that exists keeps its own configuration (a test may hand
# over its sanitizer build).
[[ -f $build/CMakeCache.txt ]] || cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$(nproc)" --target InstallWizard >/dev/null
build=$(cd "$build" && pwd)

if [[ -n $keep ]]; then
  mkdir -p "$keep"
  work=$(cd "$keep" && pwd)
else
  work=$(mktemp -d /tmp/wizard-demo.XXXXXX)
  trap 'rm -rf "$work"' EXIT
fi
rm -rf "$work/io" "$work/look"
disks=()
truncate -s 0 "$work/target.img"
truncate -s "$([[ $small_disk == 1 ]] && echo 2G || echo 4G)" "$work/target.img"
disks+=("$target_option" "$work/target.img")
if [[ $two_disks == 1 ]]; then
  truncate -s 0 "$work/second.img" && truncate -s 4G "$work/second.img"
  disks+=(--disk "$work/second.img")
fi
usb=()
if [[ $usb_disk == 1 ]]; then
  truncate -s 0 "$work/usb.img" && truncate -s 1G "$work/usb.img"
  usb+=(--usb-disk "$work/usb.img")
fi
board_args=(--bios-vendor "$vendor")

# The sample key with its packages, built the same way every time.
rm -rf "$work/usbkey"
cp -a sample/usbkey "$work/usbkey"
scripts/make-sample-packages.sh "$work/usbkey/Packages" \
  --linux 12.05.01.3456 --linux 12.06.02.3501 --dos 120501 >/dev/null
[[ -n $auto_file ]] && cp "$auto_file" "$work/usbkey/autoinstall.json"

mkdir -p "$work/io"
run="$work/io/demo-run.sh"
{
  echo 'set -e'
  echo 'export LC_ALL=C'
  printf 'export DEMO_DISK=%q\n' "$target"
  if [[ $installed == 1 ]]; then
    cat sandbox/demo/prepare-installed-disk
  fi
  if [[ $mode == disk ]]; then
    # The installed system has its Linux partition on /mnt/SYS and its
    # maintenance data on /mnt/APPS.
    printf 'mount -t ext4 %q /mnt/SYS\n' "${target_part}2"
    cat <<'DISK'
mkdir -p /mnt/APPS/const/maintenance
cp /mnt/USB/data/contacts.txt /mnt/USB/data/licenses.txt /mnt/APPS/const/maintenance/
DISK
  fi
  if [[ $board == rb417 ]]; then
    # The board's CMOS is the guest's (qemu's, behind the kernel's nvram
    # driver), gone with the guest: a copy goes to /io/cmos every second while
    # the wizard runs (its restart, reboot(2), leaves no time afterwards) and
    # once more when it ends.
    cat <<'CMOS'
( while :; do cat /dev/nvram > /io/cmos.tmp 2>/dev/null && mv -f /io/cmos.tmp /io/cmos; sleep 1; done ) &
cmos_copier=$!
CMOS
  fi
  if [[ -n $auto_file ]]; then
    # The key's changes stay in the guest: its reports go to /io/reports
    # every second (a restart leaves no time afterwards) and once at the end.
    cat <<'REPORTS'
mkdir -p /io/reports
( while :; do [ -d /mnt/USB/reports ] && cp -a /mnt/USB/reports/. /io/reports/ 2>/dev/null; sleep 1; done ) &
reports_copier=$!
REPORTS
  fi
  printf 'status=0\n%q' "$build/wizard/InstallWizard"
  for a in "${wizard_args[@]}"; do printf ' %q' "$a"; done
  echo ' || status=$?'
  if [[ $board == rb417 ]]; then
    # The copier stops first: its rename of the same temporary file could
    # otherwise take this one's away, and under "set -e" that failed copy
    # would stand in for the wizard's own status.
    echo 'kill "$cmos_copier" 2>/dev/null || true; wait "$cmos_copier" 2>/dev/null || true'
    echo '{ cat /dev/nvram > /io/cmos.tmp && mv -f /io/cmos.tmp /io/cmos; } 2>/dev/null || true'
  fi
  if [[ -n $auto_file ]]; then
    echo 'kill "$reports_copier" 2>/dev/null || true; wait "$reports_copier" 2>/dev/null || true'
    echo '[ -d /mnt/USB/reports ] && cp -a /mnt/USB/reports/. /io/reports/ 2>/dev/null || true'
  fi
  echo 'exit $status'
} > "$run"

if [[ $mode == disk ]]; then
  cmdline="BOOT_IMAGE=/Versions/12.05.01.3456/boot/vmlinuz root=/dev/sda2 quiet"
else
  cmdline="BOOT_IMAGE=/boot/vmlinuz initrd=/boot/initrd.img quiet"
fi

echo "Booting the sandbox guest (about 15 s under software emulation)..."
[[ $installed == 1 ]] && echo "It first lays out the disk as an installation leaves it (about a minute)."
status=0
sandbox/guest --io "$work/io" "${disks[@]}" "${usb[@]}" "${board_args[@]}" \
  --usbkey "$work/usbkey" --cmdline "$cmdline" --term "${TERM:-linux}" --timeout 3600 \
  run -- bash /io/demo-run.sh || status=$?
clear 2>/dev/null || true

outcome=$(cat "$work/io/outcome" 2>/dev/null || echo unknown)
echo "The wizard ended: $outcome"
case $outcome in
  "exit 0") echo "  exit status 0: \"Start version\" chosen, or the countdown expired" ;;
  "exit 2") echo "  exit status 2: \"Exit to shell\", or a restart that did not happen" ;;
  "exit 255") echo "  exit status 255: the wizard could not start" ;;
  halt) echo "  \"Shutdown\": the machine halted" ;;
  reboot) echo "  the wizard restarted the machine" ;;
  timeout) echo "  the guest's hour ran out" ;;
esac

# What the wizard left on the target disk, read by a second guest (this
# machine's kernel cannot read FAT, and mounting is the guest's job).
echo
echo "What the target disk holds now:"
sandbox/guest --io "$work/look" "$target_option" "$work/target.img" --output file --timeout 600 \
  run -- bash "$root/sandbox/demo/describe-disk" "$target" >/dev/null 2>&1 || true
if [[ -s $work/look/out.log ]]; then
  sed 's/^/  /' "$work/look/out.log"
else
  echo "  (could not be read)"
fi
if [[ $board == rb417 ]]; then
  echo
  # The sample sets carry a right checksum: loaded, they read back as they are.
  if [[ ! -s $work/io/cmos ]]; then
    echo "BIOS settings (CMOS): could not be read"
  elif cmp -s "$work/io/cmos" "$work/usbkey/data/rb417s.bios"; then
    echo "BIOS settings (CMOS): rb417s.bios was loaded"
  elif cmp -s "$work/io/cmos" "$work/usbkey/data/rb417e.bios"; then
    echo "BIOS settings (CMOS): rb417e.bios was loaded"
  else
    echo "BIOS settings (CMOS): unchanged"
  fi
fi
if [[ -n $auto_file ]]; then
  echo
  echo "Unattended installation reports on the key:"
  found=0
  for report in "$work"/io/reports/*.json; do
    [[ -f $report ]] || continue
    found=1
    echo "  $(basename "$report"):"
    sed 's/^/    /' "$report"
  done
  [[ $found == 1 ]] || echo "  (none)"
fi
echo
echo "Last lines of installer.log:"
if [[ -f $work/io/work/installer.log ]]; then
  tail -n 15 "$work/io/work/installer.log" | sed 's/^/  /'
else
  echo "  (no log written)"
fi
[[ -n $keep ]] && echo && echo "Images and guest files kept in $work"
exit 0
