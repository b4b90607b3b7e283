#include "InstallPackage.h"

#include <fstream>
#include <sys/stat.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

namespace
{

// No check of a preceding "." or "/": "Version.txt" also matches "OldVersion.txt", and
// "zip" matches "img.zip" as well as a bare "zip".
bool EndsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Follows symbolic links, so the "current" link counts as the directory it points at.
bool IsDirectory(const std::string& path)
{
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

const std::string InstallPackage::LinuxExtension = "tar.gz";
const std::string InstallPackage::DosExtension = "zip";
const std::string InstallPackage::ManifestFilenameTxt = "Version.txt";
const std::string InstallPackage::ManifestFilenameJs = "Version.json";
const std::string InstallPackage::InstallerFilename = "Install.sh";

PackageVersion InstallPackage::GetCurrentLinuxVersion()
{
    return ReadVersionManifest(std::string(SystemMountPoint) + VersionsPath + "/current/");
}

PackageVersion InstallPackage::ReadVersionManifest(const std::string& directory)
{
    if (!IsDirectory(directory))
    {
        return PackageVersion();
    }

    std::ifstream json(directory + ManifestFilenameJs);
    if (json.is_open())
    {
        return PackageVersion::ParseJs(json);
    }

    std::ifstream text(directory + ManifestFilenameTxt);
    if (text.is_open())
    {
        return PackageVersion::ParseTxt(text);
    }

    return PackageVersion();
}

bool IsManifestTextFile(const std::string& path)
{
    return EndsWith(path, InstallPackage::ManifestFilenameTxt);
}

bool IsManifestJsFile(const std::string& path)
{
    return EndsWith(path, InstallPackage::ManifestFilenameJs);
}

bool IsInstallerFile(const std::string& path)
{
    return EndsWith(path, InstallPackage::InstallerFilename);
}

bool IsPackageLinuxFile(const std::string& path)
{
    return EndsWith(path, InstallPackage::LinuxExtension);
}

bool IsPackageDosFile(const std::string& path)
{
    return EndsWith(path, InstallPackage::DosExtension);
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
