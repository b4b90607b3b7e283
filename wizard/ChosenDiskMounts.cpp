#include "ChosenDiskMounts.h"

#include "DiskDiagnostics.h"
#include "DiskTools.h"

#include <cstdio>
#include <memory>

#include <mntent.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using ZarnLinuxTools::DiskDiagnostics;
using ZarnLinuxTools::DiskTools;

namespace
{

struct MountTableCloser
{
    void operator()(FILE* file) const
    {
        if (file != nullptr)
            endmntent(file);
    }
};

// A partition number cannot be higher on an msdos table with logical
// partitions than this, in practice.
const int HighestPartition = 64;

} // namespace

std::string DeviceMountedOn(const char* directory)
{
    std::string device;
    std::unique_ptr<FILE, MountTableCloser> table(setmntent("/proc/self/mounts", "r"));
    if (!table || directory == nullptr)
        return device;
    // Later lines are mounted on top of earlier ones.
    while (const mntent* entry = getmntent(table.get()))
        if (entry->mnt_dir != nullptr && std::string(entry->mnt_dir) == directory)
            device = entry->mnt_fsname != nullptr ? entry->mnt_fsname : "";
    return device;
}

bool IsPartitionOf(const std::string& device, const std::string& disk)
{
    for (int number = 1; number <= HighestPartition; ++number)
        if (device == ZarnLinuxTools::detail::PartitionDeviceName(disk.c_str(), number))
            return true;
    return false;
}

MountPointState TakeMountPoint(const std::string& disk, int number, const char* type,
                               const char* directory)
{
    MountPointState state;
    const std::string wanted = ZarnLinuxTools::detail::PartitionDeviceName(disk.c_str(), number);
    for (int tries = 0; tries < 8; ++tries)
    {
        const std::string holder = DeviceMountedOn(directory);
        if (holder.empty())
            break;
        if (holder == wanted)
        {
            state.mounted = true;
            return state;
        }
        // Another device: released, or the workflow must stop here.
        if (!DiskTools::UmountDirectory(directory))
        {
            state.held = true;
            state.holder = holder;
            return state;
        }
    }
    const std::string left = DeviceMountedOn(directory);
    if (!left.empty())
    {
        state.held = true;
        state.holder = left;
        return state;
    }
    state.mounted = DiskTools::MountPartition(disk.c_str(), number, type, directory, false);
    return state;
}

std::string HeldMessage(const char* directory, const std::string& holder, const std::string& disk)
{
    return std::string(directory) + " is held by " + holder + ", not by " + disk +
           ": it cannot be released.";
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
