#pragma once

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// Which of the two supported boards the server carries, from the BIOS vendor
// text, and the BIOS settings kept in CMOS, through the kernel's /dev/nvram.
class Bios
{
public:
    // "/sys/class/dmi/id/bios_vendor"; a variable so that tests can point it elsewhere.
    static std::string biosVendorPath;

    static bool IsRb417();
    static bool IsK9Q();
    // Copies CMOS to the file, on any board.
    static bool ReadCmos(const char* path);
    // Copies the file to CMOS, on an RB417 only (false and nothing written elsewhere).
    static bool WriteCmos(const char* path);
};

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
