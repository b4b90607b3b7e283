#include "DiskDiagnostics.h"

#include "PartedHandles.h"
#include "RootUserGuard.h"
#include "SystemTools.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>

#include <dirent.h>
#include <mntent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

namespace Kel
{
namespace ZarnLinuxTools
{

namespace
{

const char* const MtabPath = "/etc/mtab";
const char* const UdevQueryCommand = "udevadm info --query property --name ";
const char* const UsbBus = "usb";
const char* const MountinfoPath = "/proc/self/mountinfo";
const char* const SysfsPath = "/sys";
// Where the key the wizard runs from is mounted (the installer library's
// USB mount point; this library does not depend on it).
const char* const KeyMountPoint = "/mnt/USB";

// Closes an mtab-like file opened with setmntent.
struct MountTableCloser
{
    void operator()(FILE* file) const
    {
        if (file != nullptr)
            endmntent(file);
    }
};
using MountTablePtr = std::unique_ptr<FILE, MountTableCloser>;

// Calls match on every entry of the file until it returns true; false when
// the file cannot be opened or nothing matched.
template <typename Match> bool AnyMountEntry(const char* mtab, Match match)
{
    if (mtab == nullptr)
        return false;
    MountTablePtr table(setmntent(mtab, "r"));
    if (!table)
        return false;
    while (const mntent* entry = getmntent(table.get()))
    {
        if (match(*entry))
            return true;
    }
    return false;
}

bool SameText(const char* a, const char* b)
{
    return a != nullptr && b != nullptr && std::strcmp(a, b) == 0;
}

bool HasFileType(const char* path, mode_t type, bool followLinks)
{
    if (path == nullptr)
        return false;
    struct stat info;
    const int result = followLinks ? stat(path, &info) : lstat(path, &info);
    return result == 0 && (info.st_mode & S_IFMT) == type;
}

// The libparted device type when it is one this tool knows a name for.
bool IsKnownDiskType(PedDeviceType type)
{
    return type >= PED_DEVICE_UNKNOWN && type <= PED_DEVICE_SX8;
}

} // namespace

namespace detail
{

void ParseUdevProperties(const std::string& output, std::map<std::string, std::string>& properties)
{
    std::istringstream lines(output);
    std::string line;
    while (std::getline(lines, line))
    {
        const std::string::size_type equals = line.find('=');
        if (equals == std::string::npos)
            continue;
        properties[line.substr(0, equals)] = line.substr(equals + 1);
    }
}

bool IsDeviceInMtab(const char* mtab, const std::string& deviceName)
{
    return AnyMountEntry(mtab, [&deviceName](const mntent& entry)
                         { return SameText(entry.mnt_fsname, deviceName.c_str()); });
}

bool IsDirectoryInMtab(const char* mtab, const char* directory)
{
    return AnyMountEntry(mtab, [directory](const mntent& entry)
                         { return SameText(entry.mnt_dir, directory); });
}

bool IsDirectoryOnDeviceInMtab(const char* mtab, const char* directory,
                               const std::string& deviceName)
{
    return AnyMountEntry(mtab,
                         [directory, &deviceName](const mntent& entry) {
                             return SameText(entry.mnt_dir, directory) &&
                                    SameText(entry.mnt_fsname, deviceName.c_str());
                         });
}

std::string PartitionDeviceName(const char* device, int number)
{
    // The kernel's own rule: when the disk's name ends in a digit, a "p"
    // keeps the partition number apart from the disk's (nvme0n1p2,
    // mmcblk0p1, md1p2). Without it /dev/md1 and 2 would name /dev/md12,
    // another array, and /dev/nvme0n1 and 2 a device that does not exist.
    std::string name = device != nullptr ? device : "";
    if (!name.empty() && std::isdigit(static_cast<unsigned char>(name.back())) != 0)
        name += 'p';
    return name + std::to_string(number);
}

bool CanBeTarget(const std::string& kernelName)
{
    // Memory and loop devices, floppies and optical drives, and the parts of
    // an eMMC that are not its user area: boot0/boot1 hold the firmware's
    // own boot code and rpmb is an authenticated store.
    static const std::regex NotATarget(
        R"((loop|ram|zram|fd|sr|scd)[0-9]+|mmcblk[0-9]+(boot[0-9]+|rpmb|gp[0-9]+))");
    return !kernelName.empty() && !std::regex_match(kernelName, NotATarget);
}

std::vector<std::string> MountedDevices(const char* mountinfo,
                                        const std::vector<std::string>& directories)
{
    std::vector<std::string> devices;
    std::ifstream in(mountinfo != nullptr ? mountinfo : "");
    std::string line;
    while (std::getline(in, line))
    {
        // "ID PARENT MAJOR:MINOR ROOT MOUNTPOINT ...", the mount point with
        // blanks and the like escaped as octal.
        std::istringstream fields(line);
        std::string id, parent, device, root, directory;
        if (!(fields >> id >> parent >> device >> root >> directory))
            continue;
        std::string decoded;
        for (size_t at = 0; at < directory.size(); ++at)
        {
            const auto octal = [&directory](size_t index) {
                return index < directory.size() && directory[index] >= '0' &&
                       directory[index] <= '7';
            };
            if (directory[at] == '\\' && octal(at + 1) && octal(at + 2) && octal(at + 3))
            {
                decoded +=
                    static_cast<char>((directory[at + 1] - '0') * 64 +
                                      (directory[at + 2] - '0') * 8 + (directory[at + 3] - '0'));
                at += 3;
            }
            else
                decoded += directory[at];
        }
        if (std::find(directories.begin(), directories.end(), decoded) != directories.end() &&
            std::find(devices.begin(), devices.end(), device) == devices.end())
            devices.push_back(device);
    }
    return devices;
}

std::set<std::string> DisksBehind(const std::string& sysfs, const std::vector<std::string>& devices)
{
    std::set<std::string> disks;
    // A device number, then kernel names; each is a partition (its disk is
    // the parent directory in sysfs) or a whole device, and a RAID array or
    // a mapped device lies on its "slaves", which are walked in turn.
    std::vector<std::string> pending;
    static const std::regex DeviceNumber("[0-9]+:[0-9]+");
    for (const auto& device : devices)
    {
        if (!std::regex_match(device, DeviceNumber))
            continue;
        char resolved[PATH_MAX];
        const std::string link = sysfs + "/dev/block/" + device;
        if (realpath(link.c_str(), resolved) != nullptr)
            pending.push_back(resolved);
    }
    while (!pending.empty())
    {
        std::string node = pending.back();
        pending.pop_back();
        struct stat info;
        if (stat((node + "/partition").c_str(), &info) == 0)
            node = node.substr(0, node.rfind('/'));
        const std::string name = node.substr(node.rfind('/') + 1);
        if (name.empty() || !disks.insert(name).second)
            continue;
        std::unique_ptr<DIR, int (*)(DIR*)> slaves(opendir((node + "/slaves").c_str()), closedir);
        if (!slaves)
            continue;
        while (const dirent* entry = readdir(slaves.get()))
        {
            if (entry->d_name[0] == '.')
                continue;
            char resolved[PATH_MAX];
            const std::string link = node + "/slaves/" + entry->d_name;
            if (realpath(link.c_str(), resolved) != nullptr)
                pending.push_back(resolved);
        }
    }
    return disks;
}

std::string KernelName(const std::string& sysfs, const std::string& devicePath)
{
    struct stat info;
    if (stat(devicePath.c_str(), &info) == 0 && S_ISBLK(info.st_mode))
    {
        char resolved[PATH_MAX];
        const std::string link = sysfs + "/dev/block/" + std::to_string(major(info.st_rdev)) + ":" +
                                 std::to_string(minor(info.st_rdev));
        if (realpath(link.c_str(), resolved) != nullptr)
            return std::string(resolved).substr(std::string(resolved).rfind('/') + 1);
    }
    // No node or no sysfs: the name the path gives.
    return devicePath.substr(devicePath.rfind('/') + 1);
}

} // namespace detail

void ConvertPedDisk(PedDevice* device, Disk& disk)
{
    if (device == nullptr)
        return;
    Parted::InstallQuietExceptionHandler();

    disk.path = device->path != nullptr ? device->path : "";
    disk.model = device->model != nullptr ? device->model : "";
    disk.dirty = device->dirty != 0;
    disk.sectorCount = device->length;
    disk.sectorSize = device->sector_size;
    disk.size = device->length * device->sector_size;
    disk.physicalSectorSize = device->phys_sector_size;
    if (IsKnownDiskType(device->type))
        disk.type = static_cast<DiskType>(device->type);

    const PedDiskType* tableType = ped_disk_probe(device);
    if (tableType != nullptr && tableType->name != nullptr)
        disk.tableType = tableType->name;
}

void ConvertPedPartition(PedDevice* device, PedPartition* partition, Partition& result)
{
    if (device == nullptr || partition == nullptr)
        return;

    result.number = partition->num;
    result.start = partition->geom.start;
    result.end = partition->geom.end;
    result.sectorCount = partition->geom.length;
    result.size = partition->geom.length * device->sector_size;
    result.fileSystem = (partition->fs_type != nullptr && partition->fs_type->name != nullptr)
                            ? partition->fs_type->name
                            : "";
    // libparted aborts when asked for a flag of a free-space or metadata area.
    result.bootable = ped_partition_is_active(partition) != 0 &&
                      ped_partition_get_flag(partition, PED_PARTITION_BOOT) != 0;
    result.mounted = DiskDiagnostics::IsPartitionMounted(device->path, partition->num);
}

std::vector<Disk>* DiskDiagnostics::GetDisks()
{
    return GetDisks({KeyMountPoint, "/"});
}

std::vector<Disk>* DiskDiagnostics::GetDisks(const std::vector<std::string>& heldMountPoints)
{
    auto* disks = new std::vector<Disk>();
    RootUserGuard root;
    if (!root.Succeeded())
        return disks;

    // The disks that hold what the wizard runs from, whatever udev says of
    // their bus: a key on a SATA or SD adapter, or one whose udev query
    // failed, must not be offered either.
    const std::set<std::string> held =
        detail::DisksBehind(SysfsPath, detail::MountedDevices(MountinfoPath, heldMountPoints));

    Parted::InstallQuietExceptionHandler();
    ped_device_probe_all();

    PedDevice* device = ped_device_get_next(nullptr);
    while (device != nullptr)
    {
        Disk disk;
        ConvertPedDisk(device, disk);
        // A failed query leaves the map empty; the disk is listed all the same.
        FillUdevProperties(disk);

        // The key the wizard runs from sits on the USB bus and must never be
        // offered as a target. A disk with no bus at all is kept.
        const auto bus = disk.udevProperties.find("ID_BUS");
        const auto cdrom = disk.udevProperties.find("ID_CDROM");
        const std::string name = detail::KernelName(SysfsPath, disk.path);
        if ((bus == disk.udevProperties.end() || bus->second != UsbBus) &&
            (cdrom == disk.udevProperties.end() || cdrom->second != "1") &&
            detail::CanBeTarget(name) && held.count(name) == 0)
            disks->push_back(disk);

        // The record is only released once the walk has moved past it.
        PedDevice* next = ped_device_get_next(device);
        ped_device_destroy(device);
        device = next;
    }
    return disks;
}

bool DiskDiagnostics::FillUdevProperties(Disk& disk)
{
    const std::string command = UdevQueryCommand + disk.path;
    std::ostringstream output;
    if (!SystemTools::ExecuteCommand(command.c_str(), output))
        return false;
    detail::ParseUdevProperties(output.str(), disk.udevProperties);
    return true;
}

bool DiskDiagnostics::HasMsdosPartitionTable(const char* device)
{
    RootUserGuard root;
    if (!root.Succeeded())
        return false;

    Parted::DevicePtr pedDevice = Parted::GetDevice(device);
    if (!pedDevice)
    {
        // Left as root: the wizard runs as root anyway.
        root.Dismiss();
        return false;
    }
    const PedDiskType* msdos = ped_disk_type_get("msdos");
    const PedDiskType* found = ped_disk_probe(pedDevice.get());
    pedDevice.reset();
    return msdos != nullptr && found != nullptr && msdos == found;
}

int DiskDiagnostics::GetNbPrimaryPartitions(const char* device)
{
    RootUserGuard root;
    if (!root.Succeeded())
        return -1;

    Parted::DevicePtr pedDevice = Parted::GetDevice(device);
    if (!pedDevice)
        return -1;
    Parted::DiskPtr pedDisk(ped_disk_new(pedDevice.get()));
    if (!pedDisk)
        return -1;
    return ped_disk_get_primary_partition_count(pedDisk.get());
}

std::vector<Partition>* DiskDiagnostics::GetPartitions(const char* device)
{
    auto* partitions = new std::vector<Partition>();
    RootUserGuard root;
    if (!root.Succeeded())
        return partitions;

    Parted::DevicePtr pedDevice = Parted::GetDevice(device);
    if (!pedDevice)
        return partitions;
    Parted::DiskPtr pedDisk(ped_disk_new(pedDevice.get()));
    if (!pedDisk)
        return partitions;

    for (PedPartition* walk = ped_disk_next_partition(pedDisk.get(), nullptr); walk != nullptr;
         walk = ped_disk_next_partition(pedDisk.get(), walk))
    {
        // Free space and metadata areas carry -1.
        if (walk->num < 0)
            continue;
        Partition partition;
        ConvertPedPartition(pedDevice.get(), walk, partition);
        partitions->push_back(partition);
    }
    return partitions;
}

Partition DiskDiagnostics::GetPartition(const char* device, int number)
{
    Partition partition;
    RootUserGuard root;
    if (!root.Succeeded())
        return partition;

    Parted::DevicePtr pedDevice = Parted::GetDevice(device);
    if (!pedDevice)
        return partition;
    Parted::DiskPtr pedDisk(ped_disk_new(pedDevice.get()));
    if (!pedDisk)
        return partition;

    // Number -1 finds a metadata area, which is no partition.
    PedPartition* found = ped_disk_get_partition(pedDisk.get(), number);
    if (found != nullptr && found->num >= 0)
        ConvertPedPartition(pedDevice.get(), found, partition);
    return partition;
}

int DiskDiagnostics::GetFreeSpace(const char* device)
{
    RootUserGuard root;
    if (!root.Succeeded())
        return -1;

    // Both opening failures leave the ids switched: the wizard runs as root.
    Parted::DevicePtr pedDevice = Parted::GetDevice(device);
    if (!pedDevice)
    {
        root.Dismiss();
        return -1;
    }
    Parted::DiskPtr pedDisk(ped_disk_new(pedDevice.get()));
    if (!pedDisk)
    {
        root.Dismiss();
        return -1;
    }

    const int last = ped_disk_get_primary_partition_count(pedDisk.get());
    const PedPartition* partition = ped_disk_get_partition(pedDisk.get(), last);
    if (partition == nullptr)
        return -1;

    // Plain int arithmetic as the callers have always had it: it wraps above
    // 2 GiB. Done on unsigned values so the wrap is defined.
    const auto sectors = static_cast<uint32_t>(pedDevice->length - partition->geom.end);
    const auto sectorSize = static_cast<uint32_t>(pedDevice->sector_size);
    return static_cast<int32_t>(sectors * sectorSize);
}

uint64_t DiskDiagnostics::GetMountedPartitionFreeSpace(const char* directory)
{
    struct statvfs info;
    if (directory == nullptr || statvfs(directory, &info) != 0)
        return ~static_cast<uint64_t>(0);
    return static_cast<uint64_t>(info.f_bsize) * static_cast<uint64_t>(info.f_bavail);
}

bool DiskDiagnostics::IsPartitionMounted(const char* device, int number)
{
    return detail::IsDeviceInMtab(MtabPath, detail::PartitionDeviceName(device, number));
}

bool DiskDiagnostics::IsDirectoryMounted(const char* directory)
{
    return detail::IsDirectoryInMtab(MtabPath, directory);
}

bool DiskDiagnostics::IsDirectoryMountedOn(const char* directory, const char* device, int number)
{
    return detail::IsDirectoryOnDeviceInMtab(MtabPath, directory,
                                             detail::PartitionDeviceName(device, number));
}

bool DiskDiagnostics::IsBlockDevice(const char* path)
{
    return HasFileType(path, S_IFBLK, true);
}

bool DiskDiagnostics::IsDirectory(const char* path)
{
    return HasFileType(path, S_IFDIR, true);
}

bool DiskDiagnostics::IsFile(const char* path)
{
    return HasFileType(path, S_IFREG, true);
}

bool DiskDiagnostics::IsLink(const char* path)
{
    return HasFileType(path, S_IFLNK, false);
}

} // namespace ZarnLinuxTools
} // namespace Kel
