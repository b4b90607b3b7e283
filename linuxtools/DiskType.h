#pragma once

#include <ostream>

namespace Kel
{
namespace ZarnLinuxTools
{

// The kind of a device, with libparted's device-type values.
enum DiskType
{
    DiskTypeUnknown = 0,
    DiskTypeScsi = 1,
    DiskTypeIde = 2,
    DiskTypeDac960 = 3,
    DiskTypeCpqArray = 4,
    DiskTypeFile = 5,
    DiskTypeAtaRaid = 6,
    DiskTypeI2O = 7,
    DiskTypeUbd = 8,
    DiskTypeDasd = 9,
    DiskTypeVioDasd = 10,
    DiskTypeSx8 = 11,
};

// Writes the printed name; any other value writes nothing and sets failbit.
std::ostream& operator<<(std::ostream& out, DiskType type);

} // namespace ZarnLinuxTools
} // namespace Kel
