#pragma once

#include "Disk.h"
#include "Partition.h"

#include <parted/parted.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Kel
{
namespace ZarnLinuxTools
{

// Every read-only question about disks, partitions, mounts and files.
class DiskDiagnostics
{
public:
    // The disks that can be targets. Never a USB disk, a memory, loop or
    // optical device, an eMMC's boot or RPMB area, nor a disk behind
    // /mnt/USB (the key the wizard runs from) or the running system's root.
    static std::vector<Disk>* GetDisks();
    // The same, leaving out the disks behind these mount points instead.
    static std::vector<Disk>* GetDisks(const std::vector<std::string>& heldMountPoints);
    static bool FillUdevProperties(Disk& disk);
    static bool HasMsdosPartitionTable(const char* device);
    static int GetNbPrimaryPartitions(const char* device);
    static std::vector<Partition>* GetPartitions(const char* device);
    static Partition GetPartition(const char* device, int number);
    static int GetFreeSpace(const char* device);
    static uint64_t GetMountedPartitionFreeSpace(const char* directory);
    static bool IsPartitionMounted(const char* device, int number);
    static bool IsDirectoryMounted(const char* directory);
    static bool IsDirectoryMountedOn(const char* directory, const char* device, int number);
    static bool IsBlockDevice(const char* path);
    static bool IsDirectory(const char* path);
    static bool IsFile(const char* path);
    static bool IsLink(const char* path);
};

void ConvertPedDisk(PedDevice* device, Disk& disk);
void ConvertPedPartition(PedDevice* device, PedPartition* partition, Partition& result);

namespace detail
{
// "KEY=value" lines to a map: text up to the first "=" is the key; lines
// without "=" are skipped; a repeated key keeps its last value.
void ParseUdevProperties(const std::string& output, std::map<std::string, std::string>& properties);
// The mount queries on any mtab-like file (the real ones read "/etc/mtab").
bool IsDeviceInMtab(const char* mtab, const std::string& deviceName);
bool IsDirectoryInMtab(const char* mtab, const char* directory);
bool IsDirectoryOnDeviceInMtab(const char* mtab, const char* directory,
                               const std::string& deviceName);
// The partition's device name as the kernel gives it: the disk path, a "p"
// when that ends in a digit, then the number. The only place that builds one.
std::string PartitionDeviceName(const char* device, int number);
// Whether a kernel device name (sda, nvme0n1, mmcblk0boot0) can be an
// installation target at all.
bool CanBeTarget(const std::string& kernelName);
// The device numbers ("MAJOR:MINOR") mounted on any of these directories,
// from a mountinfo file.
std::vector<std::string> MountedDevices(const char* mountinfo,
                                        const std::vector<std::string>& directories);
// The kernel names of the whole disks that hold these device numbers: a
// partition's disk, and the disks under a RAID array or a mapped device.
std::set<std::string> DisksBehind(const std::string& sysfs,
                                  const std::vector<std::string>& devices);
// The kernel name of a device path (through its device number in sysfs; the
// path's last component when that cannot be told).
std::string KernelName(const std::string& sysfs, const std::string& devicePath);
} // namespace detail

} // namespace ZarnLinuxTools
} // namespace Kel
