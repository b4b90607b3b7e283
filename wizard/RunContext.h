#pragma once

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Where the program runs from, decided from a kernel command line text. The
// boot loader of an installed disk boots an image below the versions directory;
// the USB key boots one from anywhere else.
struct RunContext
{
    static bool BootsFromDisk(const std::string& kernelCommandLine);
    static bool BootsFromUsbKey(const std::string& kernelCommandLine);

    static const char* DataPath(bool fromDisk);
    static const char* ExePath(bool fromDisk);
    static const char* UcodeZarnPath(bool fromDisk);
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
