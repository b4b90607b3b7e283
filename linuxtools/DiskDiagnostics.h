#pragma once

#include "Disk.h"
#include "Partition.h"

#include <parted/parted.h>

#include <cstdint>
#include <map>
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
    static std::vector<Disk>* GetDisks();
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
// The partition's device name: disk path immediately followed by the number.
std::string PartitionDeviceName(const char* device, int number);
} // namespace detail

} // namespace ZarnLinuxTools
} // namespace Kel
