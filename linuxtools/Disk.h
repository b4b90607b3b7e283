#pragma once

#include "DiskType.h"

#include <cstdint>
#include <map>
#include <string>

namespace Kel
{
namespace ZarnLinuxTools
{

// One physical device.
struct Disk
{
    std::string path;
    std::string tableType;
    std::string model;
    bool dirty = false;
    int64_t size = -1;
    int64_t sectorSize = -1;
    int64_t sectorCount = -1;
    int64_t physicalSectorSize = -1;
    DiskType type = DiskTypeUnknown;
    std::map<std::string, std::string> udevProperties;
};

} // namespace ZarnLinuxTools
} // namespace Kel
