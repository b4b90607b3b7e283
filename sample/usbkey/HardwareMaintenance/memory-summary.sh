#!/bin/sh
# Memory summary from /proc/meminfo, in megabytes.
clear
echo "=== Memory ==="
awk '/^(MemTotal|MemFree|MemAvailable|Buffers|Cached|SwapTotal|SwapFree):/ {
         printf "%-14s %10.1f MB\n", $1, $2 / 1024 }' /proc/meminfo
# The wizard draws its menu again as soon as the tool returns.
printf '\nPress <ENTER> to return to the menu. '
read -r answer || true
