// The members of InstallPackage that change the target disk: mounting the destination,
// the space check, installing, listing, switching and removing versions.
#include "InstallPackage.h"

#include "AtomicFile.h"
#include "DiskDiagnostics.h"
#include "DiskTools.h"
#include "MsDos.h"
#include "NetworkTools.h"
#include "PackageScanCache.h"
#include "ShellArgument.h"
#include "SystemTools.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
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

const std::string TopLevelConfigurationFile =
    SystemVersionsDirectory + "/boot/syslinux/syslinux.cfg";
const std::string CurrentLink = SystemVersionsDirectory + "/current";

// Whether version is the Linux version known, when one is known (known is not empty). A DOS
// record is never the same as a Linux one, even with equal texts.
bool IsSameLinuxVersion(const PackageVersion& version, const PackageVersion& known)
{
    return !known.IsEmpty() && !version.IsDos() && !known.IsDos() && version == known;
}

bool IsRunning(const PackageVersion& version)
{
    return IsSameLinuxVersion(version, InstallPackage::GetRunningLinuxVersion());
}

// Run, passing the command's output on to log as it is, and telling whether it left its last
// line open (output that does not end with a line end).
bool RunTellingTheLine(const std::string& command, std::ostream& log, bool& lineOpen)
{
    std::ostringstream output;
    const bool result = Run(command, output);
    const std::string text = output.str();
    log << text;
    if (!text.empty())
    {
        lineOpen = text.back() != '\n';
    }
    return result;
}

bool ReplaceFile(const std::string& path, const std::string& contents)
{
    AtomicFile file(path);
    return file.IsOpen() && file.Write(contents) && file.Commit();
}

// The top-level boot configuration and the "current" link as they were before a switch.
class BootState
{
public:
    // False when the present state cannot be read, so could not be put back.
    bool Save()
    {
        struct stat status;
        configurationExisted = ::lstat(TopLevelConfigurationFile.c_str(), &status) == 0;
        if (!configurationExisted && errno != ENOENT)
        {
            return false;
        }
        if (configurationExisted)
        {
            std::ifstream in(TopLevelConfigurationFile, std::ios::binary);
            if (!in.is_open())
            {
                return false;
            }
            configuration.assign(std::istreambuf_iterator<char>(in),
                                 std::istreambuf_iterator<char>());
            if (in.bad())
            {
                return false;
            }
        }
        linkTarget.clear();
        if (::lstat(CurrentLink.c_str(), &status) == 0 && S_ISLNK(status.st_mode))
        {
            linkTarget = ReadLink(CurrentLink);
            if (linkTarget.empty())
            {
                return false;
            }
        }
        return true;
    }

    // Puts both back where they changed; true when both are as they were.
    bool Restore() const
    {
        const bool configurationBack =
            configurationExisted
                ? ReplaceFile(TopLevelConfigurationFile, configuration)
                : (::unlink(TopLevelConfigurationFile.c_str()) == 0 || errno == ENOENT);
        return configurationBack && RestoreLink();
    }

private:
    static std::string ReadLink(const std::string& link)
    {
        std::vector<char> buffer(4096);
        const ssize_t length = ::readlink(link.c_str(), buffer.data(), buffer.size());
        if (length <= 0 || static_cast<size_t>(length) >= buffer.size())
        {
            return "";
        }
        return std::string(buffer.data(), static_cast<size_t>(length));
    }

    bool RestoreLink() const
    {
        struct stat status;
        const bool isLink = ::lstat(CurrentLink.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
        if (linkTarget.empty())
        {
            // There was no link: one the failed command made goes again.
            return !isLink || ::unlink(CurrentLink.c_str()) == 0;
        }
        if (isLink && ReadLink(CurrentLink) == linkTarget)
        {
            return true;
        }
        // Made beside and renamed over, so that "current" is never missing.
        const std::string temporary = CurrentLink + ".restore." + std::to_string(::getpid());
        ::unlink(temporary.c_str());
        if (::symlink(linkTarget.c_str(), temporary.c_str()) != 0)
        {
            return false;
        }
        if (::rename(temporary.c_str(), CurrentLink.c_str()) != 0)
        {
            ::unlink(temporary.c_str());
            return false;
        }
        return true;
    }

    bool configurationExisted = false;
    std::string configuration;
    std::string linkTarget; // empty: there was no link
};

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

std::string RunningVersionDirectory(const std::string& kernelCommandLine)
{
    static const std::string prefix =
        std::string("BOOT_IMAGE=") + InstallPackage::VersionsPath + "/";
    // The boot loader puts BOOT_IMAGE first; the first one given is the one it used.
    std::string::size_type at = 0;
    for (;;)
    {
        at = kernelCommandLine.find_first_not_of(" \t\n", at);
        if (at == std::string::npos)
        {
            return "";
        }
        std::string::size_type end = kernelCommandLine.find_first_of(" \t\n", at);
        if (end == std::string::npos)
        {
            end = kernelCommandLine.size();
        }
        const std::string word = kernelCommandLine.substr(at, end - at);
        if (word.compare(0, 11, "BOOT_IMAGE=") == 0)
        {
            if (word.compare(0, prefix.size(), prefix) != 0)
            {
                return "";
            }
            // The kernel lies inside the version's directory.
            const std::string::size_type slash = word.find('/', prefix.size());
            if (slash == std::string::npos)
            {
                return "";
            }
            const std::string directory = word.substr(prefix.size(), slash - prefix.size());
            return directory == "." || directory == ".." ? "" : directory;
        }
        at = end;
    }
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
    // Readings of other packages ahead of need give way to this installation.
    const PackageScanCache::Use use(path);
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
    const PackageScanCache::Use use(path);
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

    // What the boot loader and "current" name now is kept, so that a switch that fails half
    // way can be undone. When it cannot be read, and so could not be put back, nothing is
    // changed.
    BootState previous;
    if (!previous.Save())
    {
        return false;
    }

    // Replaced as a whole: a power cut here must not leave a machine that cannot boot.
    if (!ReplaceFile(TopLevelConfigurationFile,
                     detail::TopLevelSyslinuxConfiguration(version.GetVersion(true))))
    {
        return false;
    }

    bool lineOpen = false;
    if (!RunTellingTheLine(detail::ExtlinuxCommand(SystemVersionsDirectory + "/boot/syslinux"), log,
                           lineOpen) ||
        !RunTellingTheLine(detail::LinkCommand(version.GetPath(), CurrentLink), log, lineOpen))
    {
        // The command's last words may lack their line end; the message has a line of its own.
        if (lineOpen)
        {
            log << std::endl;
        }
        log << (previous.Restore() ? "The previous boot configuration was put back."
                                   : "The previous boot configuration could not be put back!")
            << std::endl;
        return false;
    }
    return true;
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
    // After a switch without a restart the version that runs is no longer the current one;
    // it stays as well, but it was not removed, and that is said.
    if (IsRunning(version))
    {
        log << "The running version cannot be removed!" << std::endl;
        return false;
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
    const PackageVersion running = GetRunningLinuxVersion();
    for (const PackageVersion& version : *versions)
    {
        if (version != current && !IsSameLinuxVersion(version, running) &&
            !UninstallPackageVersion(version, log))
        {
            return false;
        }
    }
    return true;
}

PackageVersion InstallPackage::GetRunningLinuxVersion()
{
    const std::string directory =
        detail::RunningVersionDirectory(SystemTools::GetKernelCommandLine());
    if (directory.empty())
    {
        return PackageVersion();
    }
    return ReadVersionManifest(SystemVersionsDirectory + "/" + directory + "/");
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
