#!/bin/sh
# Processor summary: model, number of processors and the load averages.
clear
echo "=== Processor ==="
model=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)
echo "Model:      ${model:-unknown}"
echo "Processors: $(grep -c '^processor' /proc/cpuinfo)"
echo "Load:       $(cut -d ' ' -f 1-3 /proc/loadavg)"
# The wizard draws its menu again as soon as the tool returns.
printf '\nPress <ENTER> to return to the menu. '
read -r answer || true
