#include "RunContext.h"

#include "InstallPackage.h"

#include <cstring>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

namespace
{

const char BootImagePrefix[] = "BOOT_IMAGE=";

// The text right after "BOOT_IMAGE=", or null when the line does not begin with it.
const char* BootImage(const std::string& line)
{
    const size_t prefixLength = sizeof(BootImagePrefix) - 1;
    if (line.compare(0, prefixLength, BootImagePrefix) != 0)
        return nullptr;
    return line.c_str() + prefixLength;
}

} // namespace

bool RunContext::BootsFromDisk(const std::string& kernelCommandLine)
{
    const char* image = BootImage(kernelCommandLine);
    if (image == nullptr)
        return false;
    const char* versions = InstallerLib::InstallPackage::VersionsPath;
    return std::strncmp(image, versions, std::strlen(versions)) == 0;
}

bool RunContext::BootsFromUsbKey(const std::string& kernelCommandLine)
{
    const char* image = BootImage(kernelCommandLine);
    if (image == nullptr)
        return false;
    const char* versions = InstallerLib::InstallPackage::VersionsPath;
    return std::strncmp(image, versions, std::strlen(versions)) != 0;
}

const char* RunContext::DataPath(bool fromDisk)
{
    return fromDisk ? "/mnt/APPS/const/maintenance/" : "/mnt/USB/data/";
}

const char* RunContext::ExePath(bool fromDisk)
{
    return fromDisk ? "/mnt/SYS/Versions/current/apps/code/" : "/mnt/USB/";
}

const char* RunContext::UcodeZarnPath(bool fromDisk)
{
    return fromDisk ? "/mnt/APPS/const/zarn/" : "/mnt/USB/data/zarn/";
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
