#!/bin/sh
# Disk health report: the disks, their partitions and how full the mounted
# file systems are. Reads only.
clear
echo "=== Disks and partitions ==="
lsblk -o NAME,SIZE,TYPE,FSTYPE,LABEL,MOUNTPOINT 2>&1
echo
echo "=== File system usage ==="
df -h -x tmpfs -x devtmpfs -x overlay 2>&1
# The wizard draws its menu again as soon as the tool returns.
printf '\nPress <ENTER> to return to the menu. '
read -r answer || true
