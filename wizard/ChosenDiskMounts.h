#pragma once

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// The fixed mount points (/mnt/SYS, /mnt/DOS) are shared by every disk. A
// workflow that changes a disk must find there that disk's partitions or
// nothing, never another disk's: these put the chosen disk's partition in
// place and say when another device holds the mount point for good.

// The device of the topmost mount on directory; empty when nothing is
// mounted there.
std::string DeviceMountedOn(const char* directory);

// Whether device (a partition's name) belongs to disk: the disk's own
// partition names as the kernel gives them ("/dev/vda2", "/dev/nvme0n1p2").
bool IsPartitionOf(const std::string& device, const std::string& disk);

struct MountPointState
{
    // The chosen partition is mounted on the directory.
    bool mounted = false;
    // Another device is still mounted there and could not be released.
    bool held = false;
    // That device.
    std::string holder;
};

// Makes directory show partition number of disk: mounted already, or
// whatever else is there unmounted (every stacked mount of another device)
// and the partition mounted as type. A partition that cannot be mounted
// leaves the directory empty (mounted false, held false).
MountPointState TakeMountPoint(const std::string& disk, int number, const char* type,
                               const char* directory);

// The text that refuses to go on: "/mnt/SYS is held by /dev/vdb2, not by
// /dev/vda: it cannot be released."
std::string HeldMessage(const char* directory, const std::string& holder, const std::string& disk);

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
