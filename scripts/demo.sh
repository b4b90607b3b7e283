#!/usr/bin/env bash
# Runs the real wizard in the sandbox guest, on this terminal, against a sparse
# target disk image and the sample USB key. Nothing of this machine's own disks
# is touched: the guest sees only the image.
#
# usage: scripts/demo.sh [--disk-mode] [--timer] [-- wizard options...]
#   --disk-mode   start as from an installed disk (maintenance menu)
#   --timer       with --disk-mode: the 7-second auto-start countdown
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

mode=usb
wizard_args=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --disk-mode) mode=disk; shift ;;
    --timer) wizard_args+=(-t); shift ;;
    --) shift; wizard_args+=("$@"); break ;;
    -h|--help) sed -n '2,9p' "$0"; exit 0 ;;
    *) echo "demo: unknown option $1" >&2; exit 2 ;;
  esac
done

scripts/setup.sh
build=${WIZARD_BUILD_DIR:-build}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$(nproc)" --target InstallWizard >/dev/null

work=$(mktemp -d /tmp/wizard-demo.XXXXXX)
trap 'rm -rf "$work"' EXIT
truncate -s 4G "$work/target.img"
# The sample key with its packages, built the same way every time.
cp -a sample/usbkey "$work/usbkey"
scripts/make-sample-packages.sh "$work/usbkey/Packages" >/dev/null

setup="$work/setup.sh"
if [[ $mode == disk ]]; then
  cmdline="BOOT_IMAGE=/Versions/12.05.01.3456/boot/vmlinuz root=/dev/sda2 quiet"
  # An installed version as a previous installation left it.
  cat > "$setup" <<'SETUP'
mkdir -p /mnt/SYS/Versions/12.05.01.3456 /mnt/APPS/const/maintenance
printf '{"name": "Vidorama", "version": "12.05.01", "revision": "3456"}\n' \
  > /mnt/SYS/Versions/12.05.01.3456/Version.json
ln -sfn /mnt/SYS/Versions/12.05.01.3456 /mnt/SYS/Versions/current
cp /mnt/USB/data/contacts.txt /mnt/USB/data/licenses.txt /mnt/APPS/const/maintenance/
SETUP
else
  cmdline="BOOT_IMAGE=/boot/vmlinuz initrd=/boot/initrd.img quiet"
  : > "$setup"
fi

echo "Booting the sandbox guest (about 15 s under software emulation)..."
status=0
sandbox/guest --io "$work/io" --disk "$work/target.img" --usbkey "$work/usbkey" \
  --cmdline "$cmdline" --setup "$setup" --term "${TERM:-linux}" \
  run -- "$root/$build/wizard/InstallWizard" "${wizard_args[@]}" || status=$?
clear 2>/dev/null || true

outcome=$(cat "$work/io/outcome" 2>/dev/null || echo unknown)
echo "The wizard ended: $outcome"
case $outcome in
  "exit 0") echo "  (exit status 0: \"Start version\" chosen or the countdown expired)";;
  "exit 2") echo "  (exit status 2: \"Exit to shell\")";;
  halt) echo "  (\"Shutdown\": the guest halted)";;
  reboot) echo "  (the wizard restarted the machine)";;
esac
echo
echo "Target disk image, partition table:"
table=$(parted -s -m "$work/target.img" unit MiB print 2>/dev/null || true)
if grep -q ':unknown:' <<<"$table" || [[ -z $table ]]; then
  echo "  (no partition table: the disk is blank)"
else
  sed 's/^/  /' <<<"$table"
fi
echo
echo "Last lines of installer.log:"
tail -n 15 "$work/io/work/installer.log" 2>/dev/null || echo "  (no log written)"
