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
    // "/dev/nvram", the kernel's CMOS driver; a variable so that tests can
    // point it elsewhere.
    static std::string nvramPath;

    static bool IsRb417();
    static bool IsK9Q();
    // Copies CMOS to the file, on any board.
    static bool ReadCmos(const char* path);
    // Loads the settings image into CMOS, on an RB417 only (false and nothing
    // written elsewhere). Only into the CMOS driver's character device, in one
    // write of the whole image, which must not be empty nor larger than the
    // device: a missing driver, a plain file in its place, an image too large
    // or a short or failed write give false.
    static bool WriteCmos(const char* path);
};

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
