#include "DiskType.h"

#include <iterator>

namespace Kel
{
namespace ZarnLinuxTools
{

namespace
{

// Indexed by the enumeration value. "i2O" is spelled the way the rest of the
// appliance has always shown it.
const char* const DiskTypeNames[] = {
    "unknown", "scsi", "ide", "dac960", "cpqarray", "file",
    "ataraid", "i2O",  "ubd", "dasd",   "viodasd",  "sx8",
};

} // namespace

std::ostream& operator<<(std::ostream& out, DiskType type)
{
    const int value = static_cast<int>(type);
    if (value < 0 || value >= static_cast<int>(std::size(DiskTypeNames)))
    {
        out.setstate(std::ios_base::failbit);
        return out;
    }
    return out << DiskTypeNames[value];
}

} // namespace ZarnLinuxTools
} // namespace Kel
