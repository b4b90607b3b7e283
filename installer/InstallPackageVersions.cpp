// The members of InstallPackage that change the target disk: mounting the destination,
// the space check, installing, listing, switching and removing versions.
#include "InstallPackage.h"

#include "AtomicFile.h"
#include "DiskDiagnostics.h"
#include "DiskTools.h"
#include "MsDos.h"
#include "NetworkTools.h"
#include "ShellArgument.h"
#include "SystemTools.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <memory>

#include <dirent.h>
#include <unistd.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

using Kel::ZarnLinuxTools::DiskDiagnostics;
using Kel::ZarnLinuxTools::DiskTools;
using Kel::ZarnLinuxTools::NetworkInterface;
using Kel::ZarnLinuxTools::NetworkTools;
using Kel::ZarnLinuxTools::SystemTools;

namespace
{

const std::string SystemVersionsDirectory =
    std::string(InstallPackage::SystemMountPoint) + InstallPackage::VersionsPath;
const std::string DosVersionsDirectory =
    std::string(InstallPackage::DosMountPoint) + InstallPackage::VersionsPath;

const char* const InstallationFailedLine = "Package installation failed!";

// The interface whose settings the DOS side shares with the installed Linux system.
const char* const DosNetworkInterface = "pc_lan_1";

struct DirectoryCloser
{
    void operator()(DIR* directory) const { ::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

bool IsDotEntry(const std::string& name)
{
    return name == "." || name == "..";
}

bool Run(const std::string& command, std::ostream& log)
{
    return SystemTools::ExecuteCommand(command.c_str(), log, true);
}

// Makes directory the mount point of the given partition of disk, replacing whatever is
// mounted there.
bool MountOn(const char* directory, const char* disk, int number, const char* fileSystemType)
{
    if (DiskDiagnostics::IsDirectoryMountedOn(directory, disk, number))
    {
        return true;
    }
    return DiskTools::UmountDirectory(directory) &&
           DiskTools::MountPartition(disk, number, fileSystemType, directory, false);
}

bool EnsureDirectory(const char* directory)
{
    return DiskDiagnostics::IsDirectory(directory) || DiskTools::CreateDirectory(directory);
}

// operator> is not a strict weak ordering (its revision clause ignores the names), which
// std::sort may answer by running past the end of the range; the merge sort stays inside.
void SortHighestFirst(std::vector<PackageVersion>& versions)
{
    std::stable_sort(versions.begin(), versions.end(),
                     [](const PackageVersion& a, const PackageVersion& b) { return a > b; });
}

PackageVersion ParseManifestFile(const std::string& file, bool json)
{
    std::ifstream stream(file);
    return json ? PackageVersion::ParseJs(stream) : PackageVersion::ParseTxt(stream);
}

// Free bytes of the partition a package goes to; all bits set when unknown.
std::uint64_t FreeSpace(bool dos)
{
    return DiskDiagnostics::GetMountedPartitionFreeSpace(dos ? InstallPackage::DosMountPoint
                                                             : InstallPackage::SystemMountPoint);
}

// Said instead of any space figure: the package, not the disk, is at fault.
void WriteDamaged(std::ostream& log, const std::string& packagePath)
{
    log << InstallationFailedLine << std::endl
        << detail::DamagedPackageLine(packagePath) << std::endl;
}

} // namespace

namespace detail
{

std::string InstallerCommand(const std::string& packagePath, const std::string& packageName,
                             const std::string& fullVersion, const std::string& versionsDirectory)
{
    return "./" + InstallPackage::InstallerFilename + " " + DoubleQuotedArgument(packagePath) +
           " " + DoubleQuotedArgument(packageName) + " " + DoubleQuotedArgument(fullVersion) + " " +
           versionsDirectory + "\n";
}

std::string UnzipCommand(const std::string& packagePath, const std::string& destination)
{
    return "unzip -o " + ShellArgument(packagePath) + " -d " + destination + "\n";
}

std::string ExtlinuxCommand(const std::string& directory)
{
    return "extlinux -i " + directory + " 2>&1";
}

std::string LinkCommand(const std::string& target, const std::string& link)
{
    return "ln -sfnT " + ShellArgument(target) + " " + link;
}

std::string RemoveCommand(const std::string& path)
{
    return "rm -R " + ShellArgument(path);
}

std::string ChattrCommand(const std::string& file)
{
    return "chattr -i " + ShellArgument(file);
}

std::string TopLevelSyslinuxConfiguration(const std::string& fullVersion)
{
    return "DEFAULT Vidorama\n"
           "LABEL Vidorama\n"
           "  CONFIG /Versions/" +
           fullVersion + "/boot/syslinux/syslinux.cfg\n";
}

bool CheckSpace(std::ostream& log, bool dos, std::int64_t needed, std::uint64_t free)
{
    if (free == std::numeric_limits<std::uint64_t>::max() || needed < 0)
    {
        log << InstallationFailedLine << std::endl
            << (dos ? "Cannot determine available space for installation of Vidorama 14 or older"
                    : "Cannot determine available space for installation of Vidorama")
            << std::endl;
        return false;
    }
    // Equality is refused as well. Both sides are 64-bit counts: a package of several
    // gigabytes is measured as it is.
    if (static_cast<std::uint64_t>(needed) >= free)
    {
        WriteNotEnoughSpace(log, dos, static_cast<std::uint64_t>(needed), free);
        return false;
    }
    return true;
}

std::string DamagedPackageLine(const std::string& packagePath)
{
    const std::string::size_type slash = packagePath.rfind('/');
    const std::string file =
        slash == std::string::npos ? packagePath : packagePath.substr(slash + 1);
    return "The package " + file + " is damaged and cannot be installed";
}

void WriteNotEnoughSpace(std::ostream& log, bool dos, std::uint64_t needed, std::uint64_t free)
{
    // Whole megabytes, rounded up, shown as the stream shows any floating-point number.
    const double missing = std::ceil(static_cast<double>(needed - free) / 1024 / 1024);
    log << InstallationFailedLine << std::endl;
    if (dos)
    {
        log << "Not enough space available for installation of Vidorama 14 or older" << std::endl
            << missing << " MB are missing." << std::endl
            << "Please delete unused version 14 or older and relaunch the installation "
            << std::endl
            << " process" << std::endl;
    }
    else
    {
        log << "Not enough space available space for installation of Vidorama" << std::endl
            << missing << " MB are missing." << std::endl
            << "Please delete unused version and relaunch the installation process" << std::endl;
    }
}

} // namespace detail

bool InstallPackage::PrepareDestination(const char* disk)
{
    if (!EnsureDirectory(SystemMountPoint) || !EnsureDirectory(DosMountPoint))
    {
        return false;
    }
    if (!MountOn(SystemMountPoint, disk, 2, "ext4") || !MountOn(DosMountPoint, disk, 1, "fat16"))
    {
        return false;
    }
    return EnsureDirectory(SystemVersionsDirectory.c_str());
}

InstallPackage::InstallStatus InstallPackage::Install(const char* disk, std::ostream& log)
{
    if (!valid)
    {
        return InvalidPackage;
    }
    // The package is read whole first: a damaged one is refused before the disk is touched.
    bool damaged = false;
    const std::int64_t needed = GetExtractedSize64(&damaged);
    if (damaged)
    {
        WriteDamaged(log, path);
        return DamagedPackage;
    }
    if (!PrepareDestination(disk))
    {
        log << InstallationFailedLine << std::endl
            << "Disk " << (disk != nullptr ? disk : "") << " not accessible for installation!"
            << std::endl;
        return DestinationNotReady;
    }
    return InstallMeasured(log, needed, false);
}

InstallPackage::InstallStatus InstallPackage::Install(std::ostream& log)
{
    if (!valid)
    {
        return InvalidPackage;
    }
    bool damaged = false;
    const std::int64_t needed = GetExtractedSize64(&damaged);
    return InstallMeasured(log, needed, damaged);
}

InstallPackage::InstallStatus InstallPackage::InstallMeasured(std::ostream& log,
                                                              std::int64_t needed, bool damaged)
{
    if (damaged)
    {
        WriteDamaged(log, path);
        return DamagedPackage;
    }
    if (!detail::CheckSpace(log, version.IsDos(), needed, FreeSpace(version.IsDos())))
    {
        return NotEnoughSpace;
    }
    const InstallStatus result =
        version.IsDos() ? InstallDosPackage(log) : InstallLinuxPackage(log);
    if (result == InstallationFailed)
    {
        log << std::endl
            << "Installation failed!" << std::endl
            << "Please reboot the server and retry installation of Vidorama" << std::endl
            << "Possible cause : USB key disconnected from the server." << std::endl;
    }
    return result;
}

bool InstallPackage::CheckAvailableDiskSpace(std::ostream& log)
{
    bool damaged = false;
    const std::int64_t needed = GetExtractedSize64(&damaged);
    if (damaged)
    {
        WriteDamaged(log, path);
        return false;
    }
    return detail::CheckSpace(log, version.IsDos(), needed, FreeSpace(version.IsDos()));
}

InstallPackage::InstallStatus InstallPackage::InstallLinuxPackage(std::ostream& log)
{
    if (!valid || version.IsDos())
    {
        return InvalidPackage;
    }

    // The extraction reports success also when the package holds no installer, and a failed
    // run leaves its "Install.sh" behind; so a stale copy goes first, and only a fresh one
    // extracted from this package counts.
    ::unlink(InstallerFilename.c_str());
    if (!ExtractFileFomTar(InstallerFilename.c_str()) ||
        !DiskDiagnostics::IsFile(InstallerFilename.c_str()))
    {
        return InvalidPackage;
    }

    const std::string command = detail::InstallerCommand(
        path, version.GetName(), version.GetVersion(true), SystemVersionsDirectory);
    if (!Run(command, log))
    {
        // Left in place so that the failed script can be looked at.
        return InstallationFailed;
    }
    ::unlink(InstallerFilename.c_str());
    return InstallationSucceeded;
}

InstallPackage::InstallStatus InstallPackage::InstallDosPackage(std::ostream& log)
{
    if (!valid || !version.IsDos())
    {
        return InvalidPackage;
    }
    if (!MsDos::IsInstalled(DosMountPoint))
    {
        log << InstallationFailedLine << std::endl
            << "No previous installation of Vidorama 14 or older found! Please first install a "
               "Vidorama 14 or older with the appropriate USB key"
            << std::endl;
        return NoPreviousDosInstallation;
    }

    const std::string command = detail::UnzipCommand(path, DosVersionsDirectory);
    if (!SystemTools::ExecuteCommand(command.c_str(), log) || !GenerateDosPreboot(version))
    {
        return InstallationFailed;
    }

    // DOS keeps its own copy of the static network settings; with DHCP it has none.
    NetworkTools network;
    const NetworkInterface lan = network.GetInterface(DosNetworkInterface);
    if (!lan.name.empty() && lan.method != "dhcp")
    {
        const std::string file = std::string(DosMountPoint) + "/cecfg.bat";
        MsDos::SaveNetworkDosConfiguration(lan, file.c_str());
    }
    return InstallationSucceeded;
}

std::vector<PackageVersion>* InstallPackage::GetInstalledPackages(const char* directory)
{
    auto* versions = new std::vector<PackageVersion>();
    const std::string base = directory != nullptr ? directory : "";
    Directory listing(::opendir(base.c_str()));
    if (!listing)
    {
        return versions;
    }

    while (const dirent* item = ::readdir(listing.get()))
    {
        const std::string name = item->d_name;
        const std::string full = base + "/" + name;
        // Links are skipped so that "current" does not list its version a second time.
        if (IsDotEntry(name) || DiskDiagnostics::IsLink(full.c_str()) ||
            !DiskDiagnostics::IsDirectory(full.c_str()))
        {
            continue;
        }

        const std::string json = full + "/" + ManifestFilenameJs;
        const std::string text = full + "/" + ManifestFilenameTxt;
        if (DiskDiagnostics::IsFile(json.c_str()))
        {
            PackageVersion version = ParseManifestFile(json, true);
            version.SetPath(full.c_str());
            versions->push_back(version);
        }
        else if (DiskDiagnostics::IsFile(text.c_str()))
        {
            PackageVersion version = ParseManifestFile(text, false);
            version.SetPath(full.c_str());
            versions->push_back(version);
        }
        else if (DiskDiagnostics::IsFile((full + "/img.zip").c_str()))
        {
            // A DOS version has no manifest; its directory is named after its version.
            PackageVersion version;
            version.SetDos(true);
            version.SetPath(full.c_str());
            version.SetName("Vidorama");
            version.ParseDosVersion(name.c_str());
            versions->push_back(version);
        }
    }

    SortHighestFirst(*versions);
    return versions;
}

std::vector<PackageVersion>* InstallPackage::GetInstalledPackages()
{
    std::unique_ptr<std::vector<PackageVersion>> systemVersions(
        GetInstalledPackages(SystemVersionsDirectory.c_str()));
    std::unique_ptr<std::vector<PackageVersion>> dosVersions(
        GetInstalledPackages(DosVersionsDirectory.c_str()));
    auto* versions = new std::vector<PackageVersion>(*systemVersions);
    versions->insert(versions->end(), dosVersions->begin(), dosVersions->end());
    SortHighestFirst(*versions);
    return versions;
}

bool InstallPackage::IsPackageInstalled(const PackageVersion& version)
{
    const std::string base = version.IsDos() ? DosVersionsDirectory : SystemVersionsDirectory;
    Directory listing(::opendir(base.c_str()));
    if (!listing)
    {
        return false;
    }

    const std::string dosName = version.IsDos() ? version.GetVersion(true) : "";
    while (const dirent* item = ::readdir(listing.get()))
    {
        const std::string name = item->d_name;
        const std::string full = base + "/" + name;
        if (IsDotEntry(name) || !DiskDiagnostics::IsDirectory(full.c_str()))
        {
            continue;
        }
        if (version.IsDos())
        {
            if (name == dosName)
            {
                return true;
            }
            continue;
        }

        const std::string json = full + "/" + ManifestFilenameJs;
        const std::string text = full + "/" + ManifestFilenameTxt;
        std::ifstream jsonStream(json);
        if (jsonStream.is_open())
        {
            if (PackageVersion::ParseJs(jsonStream) == version)
            {
                return true;
            }
            continue;
        }
        std::ifstream textStream(text);
        if (textStream.is_open() && PackageVersion::ParseTxt(textStream) == version)
        {
            return true;
        }
    }
    return false;
}

bool InstallPackage::IsInstalled(const char* disk) const
{
    const bool mounted = version.IsDos() ? MountOn(DosMountPoint, disk, 1, "fat16")
                                         : MountOn(SystemMountPoint, disk, 2, "ext4");
    return mounted && IsPackageInstalled(version);
}

bool InstallPackage::IsInstalled() const
{
    return IsPackageInstalled(version);
}

bool InstallPackage::ChangeCurrentVersion(const PackageVersion& version, std::ostream& log)
{
    if (version.IsDos())
    {
        return GenerateDosPreboot(version);
    }
    if (version == GetCurrentLinuxVersion())
    {
        return false;
    }

    // Replaced as a whole: a power cut here must not leave a machine that cannot boot.
    {
        AtomicFile configuration(SystemVersionsDirectory + "/boot/syslinux/syslinux.cfg");
        if (!configuration.IsOpen())
        {
            return false;
        }
        if (!configuration.Write(detail::TopLevelSyslinuxConfiguration(version.GetVersion(true))) ||
            !configuration.Commit())
        {
            return false;
        }
    }

    if (!Run(detail::ExtlinuxCommand(SystemVersionsDirectory + "/boot/syslinux"), log))
    {
        return false;
    }
    return Run(detail::LinkCommand(version.GetPath(), SystemVersionsDirectory + "/current"), log);
}

bool InstallPackage::UninstallPackageVersion(const PackageVersion& version, std::ostream& log)
{
    const std::string path = version.GetPath() != nullptr ? version.GetPath() : "";
    if (version.IsDos())
    {
        return Run(detail::RemoveCommand(path), log);
    }
    // The running system's version stays; refusing counts as done.
    if (version == GetCurrentLinuxVersion())
    {
        return true;
    }

    // extlinux marks its loader immutable, and rm cannot remove it otherwise.
    const std::string loader = path + "/boot/syslinux/ldlinux.sys";
    if (DiskDiagnostics::IsFile(loader.c_str()) && !Run(detail::ChattrCommand(loader), log))
    {
        return false;
    }
    return Run(detail::RemoveCommand(path), log);
}

bool InstallPackage::UninstallAllPackageVersions(std::ostream& log)
{
    std::unique_ptr<std::vector<PackageVersion>> versions(GetInstalledPackages());
    const PackageVersion current = GetCurrentLinuxVersion();
    for (const PackageVersion& version : *versions)
    {
        if (version != current && !UninstallPackageVersion(version, log))
        {
            return false;
        }
    }
    return true;
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
