#!/bin/sh
# Board identity: what the identity tool beside the wizard reports, and the
# BIOS vendor the wizard tells the boards apart by. Runs in the wizard's
# directory, where the identity tool lies; the arguments go to that tool.
clear
echo "=== Board identity ==="
if [ -x ./EepromReader ]; then
    ./EepromReader "$@" 2>&1
else
    echo "No identity tool in $(pwd)"
fi
echo
vendor=$(cat /sys/class/dmi/id/bios_vendor 2>/dev/null)
echo "BIOS vendor: ${vendor:-unknown}"
# The wizard draws its menu again as soon as the tool returns.
printf '\nPress <ENTER> to return to the menu. '
read -r answer || true
