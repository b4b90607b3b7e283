// Looking at an installed disk from outside the wizard, in the guest.
#pragma once

#include <string>

namespace ScreenTest
{

// A shell script that runs commands with the disk's partitions mounted below
// /run/look: "sys" (the Linux partition) and "dos" (the DOS partition), in
// the C locale. Its status is the commands' status, 99 when a partition could
// not be mounted, 98 when one could not be unmounted afterwards.
inline std::string OnPartitions(const std::string& dosPartition, const std::string& linuxPartition,
                                const std::string& commands, bool readOnly = false)
{
    const std::string options = readOnly ? "-o ro " : "";
    return "export LC_ALL=C; mkdir -p /run/look/sys /run/look/dos && mount " + options +
           "-t ext4 " + linuxPartition + " /run/look/sys && mount " + options + "-t vfat " +
           dosPartition + " /run/look/dos && cd /run/look || exit 99; { " + commands +
           "; }; status=$?; cd / && umount /run/look/sys /run/look/dos || status=98; "
           "exit $status";
}

} // namespace ScreenTest
