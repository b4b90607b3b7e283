#!/bin/bash
# The demo as the README's first command runs it: scripts/demo.sh in a
# terminal (tmux, 80x25), driven by keys, in two situations:
#   1. from the installed disk, with a USB disk attached: the maintenance menu
#      names the current version; "Exit to shell" ends it with status 2 and the
#      demo reports what the disk holds (two versions, "current");
#   2. from the USB key on a K9Q board with two blank target disks and a USB
#      disk: the disk selection offers the two targets and never the USB disk.
# Each time the demo must leave nothing behind in /tmp.
# usage: demo-test.sh SOURCE_DIR BUILD_DIR
set -uo pipefail
source_dir=$1
build_dir=$2
socket=wizard-demo-test-$$
failures=0

tmux_() { tmux -L "$socket" "$@"; }
cleanup() { tmux_ kill-server 2>/dev/null; }
trap cleanup EXIT

screen() { tmux_ capture-pane -p -S -200 2>/dev/null; }
# Waits until the terminal shows text (a fixed string), up to seconds.
wait_for() {
    local text=$1 seconds=${2:-300} i
    for ((i = 0; i < seconds * 2; i++)); do
        screen | grep -qF -- "$text" && return 0
        sleep 0.5
    done
    echo "--- timed out waiting for: $text"
    screen
    return 1
}
check() {
    local what=$1
    shift
    if "$@"; then
        echo "ok: $what"
    else
        echo "FAILED: $what"
        tmux_ capture-pane -p 2>/dev/null
        failures=$((failures + 1))
    fi
}
shows() { screen | grep -qF -- "$1"; }
lacks() { ! screen | grep -qF -- "$1"; }
demo_dirs() { find /tmp -maxdepth 1 -name 'wizard-demo.*' | sort; }

runs=0
start_demo() {
    cleanup
    # A fresh server each time: the last one may still be on its way out.
    runs=$((runs + 1))
    socket=wizard-demo-test-$$-$runs
    # UTF-8, so that the line-drawing characters come out as the operator's
    # terminal shows them.
    LC_ALL=C.UTF-8 tmux_ -f /dev/null new-session -d -x 80 -y 25 \
        "cd '$source_dir' && LC_ALL=C.UTF-8 TERM=screen WIZARD_BUILD_DIR='$build_dir' scripts/demo.sh $*; echo DEMO-STATUS \$?; sleep 3600"
    tmux_ set-option -g history-limit 2000 >/dev/null
}

# The number of a main-menu item, as the menu shows it (items depend on the board).
item() { screen | grep -oE "[0-9] $1" | tail -n 1 | cut -c1; }

# Options: help and a wrong option.
check "--help describes the options" bash -c "'$source_dir/scripts/demo.sh' --help | grep -q -- '--two-disks'"
check "--help names the disk kinds" bash -c "'$source_dir/scripts/demo.sh' --help | grep -q -- '--disk-kind K'"
"$source_dir/scripts/demo.sh" --disk-kind floppy >/dev/null 2>&1
check "an unknown disk kind is refused with status 2" test $? -eq 2
"$source_dir/scripts/demo.sh" --board pdp11 >/dev/null 2>&1
check "an unknown board is refused with status 2" test $? -eq 2

before=$(demo_dirs)

# 1. From the installed disk, an NVMe disk.
start_demo --disk-mode --usb-disk --disk-kind nvme
if wait_for "<ENTER> or number to select the operation." 600; then
    check "maintenance menu names the current version" shows "> 1 Start version 12.05.01"
    check "the menu offers the BIOS reset on the RB417 board" shows "Reset bios (RB417 only)"
    tmux_ send-keys "$(item 'Exit to shell')"
    if wait_for "DEMO-STATUS" 300; then
        check "the demo tells the exit status" shows "The wizard ended: exit 2"
        check "the demo names both installed versions" shows "Linux versions (/Versions): 12.05.01.3456, 12.06.02.3501"
        check "the demo shows \"current\"" shows "\"current\": /mnt/SYS/Versions/12.05.01.3456"
        check "the demo shows the partition labels" shows "ext4       LINUX"
        check "the demo read the NVMe disk's partitions" shows "fat16      DOS"
        check "the demo shows the saved boot entry" shows "saved default VidoramaLinux"
        check "the demo reads the board's CMOS back" shows "BIOS settings (CMOS): unchanged"
        check "the demo shows the log" shows "Last lines of installer.log:"
        check "the demo ends with status 0" shows "DEMO-STATUS 0"
    else
        failures=$((failures + 1))
    fi
else
    failures=$((failures + 1))
fi
check "the demo removed its files" test "$(demo_dirs)" == "$before"

# 2. From the USB key, two target disks and a USB disk.
start_demo --board k9q --two-disks --usb-disk
if wait_for "<ENTER> or number to select the operation." 600; then
    check "installation menu" shows "Vidorama Install and Rescue"
    check "no BIOS reset on a K9Q board" lacks "Reset bios"
    tmux_ send-keys "$(item Versions)"
    wait_for "Delete all unused versions" 60 && tmux_ send-keys 2
    if wait_for "<ENTER> to select the disk" 300; then
        check "the first target disk is offered" shows "/dev/vda Virtio Block Device"
        check "the second target disk is offered" shows "/dev/vdb Virtio Block Device"
        check "the USB disk is not offered" lacks "/dev/sd"
        tmux_ send-keys Escape
        wait_for "Vidorama Install and Rescue" 60 && tmux_ send-keys "$(item 'Exit to shell')"
        if wait_for "DEMO-STATUS" 300; then
            check "exit to shell" shows "The wizard ended: exit 2"
            check "the blank disk stays blank" shows "No partition table: the disk is blank."
        else
            failures=$((failures + 1))
        fi
    else
        failures=$((failures + 1))
    fi
else
    failures=$((failures + 1))
fi
check "the demo removed its files" test "$(demo_dirs)" == "$before"

echo "$failures failure(s)"
[[ $failures -eq 0 ]]
