#pragma once

#include <string>

#include "PackageVersion.h"

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// One package file on the USB key, together with the directory layout that installation,
// switching and removal of versions share.
class InstallPackage
{
public:
    // Directory layout.
    static constexpr const char* UsbMountPoint = "/mnt/USB";
    static constexpr const char* SystemMountPoint = "/mnt/SYS";
    static constexpr const char* DosMountPoint = "/mnt/DOS";
    static constexpr const char* PackagesPath = "/Packages";
    static constexpr const char* VersionsPath = "/Versions";

    // Package and manifest file names.
    static const std::string LinuxExtension;
    static const std::string DosExtension;
    static const std::string ManifestFilenameTxt;
    static const std::string ManifestFilenameJs;
    static const std::string InstallerFilename;

    // The Linux version the system boots: the manifest behind the "current" link of the
    // mounted system partition. Empty when nothing is installed or no manifest is readable.
    // The path of the returned record is not set.
    static PackageVersion GetCurrentLinuxVersion();

    // Reads the manifest of one installed version directory ("Version.json" preferred,
    // "Version.txt" otherwise). directory must end with "/". Empty record when directory is
    // not a directory or holds neither manifest.
    static PackageVersion ReadVersionManifest(const std::string& directory);
};

// Plain, case-sensitive suffix tests on a path or file name.
bool IsManifestTextFile(const std::string& path);
bool IsManifestJsFile(const std::string& path);
bool IsInstallerFile(const std::string& path);
bool IsPackageLinuxFile(const std::string& path);
bool IsPackageDosFile(const std::string& path);

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
