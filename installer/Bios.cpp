#include "Bios.h"

#include "DiskTools.h"

#include <fstream>
#include <iterator>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

using ZarnLinuxTools::DiskTools;

std::string Bios::biosVendorPath = "/sys/class/dmi/id/bios_vendor";

namespace
{
const char* const NvramDevice = "/dev/nvram";
const char* const Rb417Vendor = "Phoenix Technologies";
} // namespace

bool Bios::IsRb417()
{
    std::ifstream vendor(biosVendorPath.c_str());
    if (!vendor.is_open())
        return false;
    const std::string text((std::istreambuf_iterator<char>(vendor)),
                           std::istreambuf_iterator<char>());
    // At the very start only: a leading blank already means another board.
    return text.find(Rb417Vendor) == 0;
}

bool Bios::IsK9Q()
{
    // Any server with a readable vendor text that is not the RB417's.
    std::ifstream vendor(biosVendorPath.c_str());
    const bool rb417 = IsRb417();
    return !rb417 && vendor.is_open();
}

bool Bios::ReadCmos(const char* path)
{
    return DiskTools::CopyFile(NvramDevice, path);
}

bool Bios::WriteCmos(const char* path)
{
    if (!IsRb417())
        return false;
    return DiskTools::CopyFile(path, NvramDevice);
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
