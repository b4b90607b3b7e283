#pragma once

#include "Partition.h"

#include <string>

namespace Kel
{
namespace ZarnLinuxTools
{

// Every operation that changes disks and files.
class DiskTools
{
public:
    static bool CreateMsdosPartitionTable(const char* device);
    // New partition owned by the caller, or null.
    static Partition* AppendPrimaryPartition(const char* device, const char* fileSystemType,
                                             const char* size);
    static bool SetPartitionBootable(const char* device, int number, bool bootable);
    static bool DeletePrimaryPartition(const char* device, int number);
    static bool FormatPartition(const char* device, int number, const char* fileSystemType,
                                const char* label);
    static bool MountPartition(const char* device, int number, const char* fileSystemType,
                               const char* directory, bool synchronous);
    static bool UmountPartition(const char* device, int number);
    static bool UmountDirectory(const char* directory);
    // Copies into a temporary file beside the destination, synced, then
    // renamed over it: when the source cannot be read or the copy is cut
    // short (a full partition), false, the destination as it was and no
    // temporary file left. The destination must be a regular file or missing
    // (devices are refused); a replaced file keeps its permissions.
    static bool CopyFile(const char* source, const char* destination);
    static bool CreateDirectory(const char* path);
    static bool CreateDirectories(const char* path);
    static bool DeleteAllFiles(const char* directory, const char* pattern, bool recursive);
    static bool DeleteAllFiles(const char* directory, bool recursive);
};

namespace detail
{
// The mkfs command line for a type, without the device; empty for a type
// that cannot be formatted.
std::string FormatCommand(const char* fileSystemType, const char* label);
} // namespace detail

} // namespace ZarnLinuxTools
} // namespace Kel
