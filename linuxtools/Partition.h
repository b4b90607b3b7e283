#pragma once

#include <cstdint>
#include <string>

namespace Kel
{
namespace ZarnLinuxTools
{

// One partition of a disk; a partition's device name is the disk path followed
// by the decimal number.
struct Partition
{
    int number = -1;
    int64_t start = -1;
    int64_t end = -1;
    int64_t size = -1;
    int64_t sectorCount = -1;
    std::string fileSystem;
    bool bootable = false;
    bool mounted = false;
    bool reserved = false;
};

} // namespace ZarnLinuxTools
} // namespace Kel
