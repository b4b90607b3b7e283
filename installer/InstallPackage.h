#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "PackageVersion.h"

// libarchive's reader and writer handle; only pointers to it cross this interface.
struct archive;

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
    // The outcome of an installation; 0 is not used.
    enum InstallStatus
    {
        // Not a valid package, the wrong kind for the branch taken, or its installer could
        // not be extracted.
        InvalidPackage = 1,
        // The mount points could not be prepared on the given disk.
        DestinationNotReady = 2,
        // Free space unknown or too small.
        NotEnoughSpace = 3,
        // A DOS package, but no DOS system on the DOS partition.
        NoPreviousDosInstallation = 4,
        // The installer command, the unzip or the DOS start-up file failed.
        InstallationFailed = 5,
        InstallationSucceeded = 6,
        // The package file proved damaged (cut short or corrupted); nothing was written.
        DamagedPackage = 7
    };

    // Identifies the package from its file name; the archive itself is not opened.
    explicit InstallPackage(const char* path);
    InstallPackage(const InstallPackage& other);
    InstallPackage& operator=(const InstallPackage& other);
    ~InstallPackage();

    const char* GetPath() const;
    // The identity read from the file name; its path is the package path.
    const PackageVersion& GetVersion() const;
    // True when the file name was recognised and parsed.
    bool IsValid() const;

    // The valid packages of a directory, Linux and DOS together, highest version first.
    // The caller owns and deletes the vector; it is never null, only empty when the
    // directory cannot be read.
    static std::vector<InstallPackage>* GetAvailablePackages(const char* directory);

    // Identification from the package path ("name_version.tar.gz", "VVVVVV.zip").
    bool ExtractLinuxInfos();
    bool ExtractDosInfos();

    // Reads "Version.json" or "Version.txt" out of a Linux package into the version record.
    // The record is replaced whenever a manifest is read, but the walk ends right after
    // that manifest, so the result is false in that case as well: look at the record, not
    // at the result.
    bool ExtractInfosFromManifest();

    // Extracts every entry of a Linux package whose path name ends with fileName, under its
    // own path name relative to the current working directory. Empty entries are skipped.
    // True also when nothing matched; false when the package cannot be read or a file
    // cannot be written.
    bool ExtractFileFomTar(const char* fileName);

    // Extracts the entries of a Linux package whose path name begins with sourceDirectory,
    // each written to destination followed by the rest of its path name.
    bool ExtractDirectoryFomTar(const char* sourceDirectory, const char* destination);

    // Bytes the package occupies once unpacked: entries ending in "zip" count twice, since
    // they are unpacked in turn. -1 when the package cannot be read. A 32-bit count: larger
    // packages wrap; the space check uses GetExtractedSize64().
    int GetExtractedSize() const;

    // The same size counted in 64 bits. When damaged is given, it tells whether a -1 comes
    // from a Linux package that proved damaged (cut short, corrupted, not a gzip-compressed
    // tar) rather than from a file that could not be opened or read.
    std::int64_t GetExtractedSize64(bool* damaged = nullptr) const;

    // Makes "/mnt/SYS" the mount point of partition 2 (ext4) and "/mnt/DOS" that of
    // partition 1 (FAT16) of disk, creating the directories and replacing whatever was
    // mounted there, and makes sure "/mnt/SYS/Versions" exists. Both stay mounted.
    bool PrepareDestination(const char* disk);

    // Prepares the destination on disk, then installs. The messages go to log. A damaged
    // package is refused before the destination is touched.
    InstallStatus Install(const char* disk, std::ostream& log);
    // Installs onto the destination that is already mounted.
    InstallStatus Install(std::ostream& log);

    // True when the unpacked package fits strictly into the free space of its partition;
    // otherwise writes why not to log (a damaged package is said to be damaged).
    bool CheckAvailableDiskSpace(std::ostream& log);

    // Runs the package's "Install.sh", which copies the version below "/mnt/SYS/Versions".
    InstallStatus InstallLinuxPackage(std::ostream& log);
    // Unzips the package into "/mnt/DOS/Versions" over an existing DOS system and has DOS
    // install it at its next start.
    InstallStatus InstallDosPackage(std::ostream& log);

    // The installed versions of one versions directory (Linux by manifest, DOS by "img.zip";
    // the "current" link is skipped), highest first. Never null; the caller deletes it.
    static std::vector<PackageVersion>* GetInstalledPackages(const char* directory);
    // The Linux and the DOS versions together, highest first. Never null; the caller
    // deletes it.
    static std::vector<PackageVersion>* GetInstalledPackages();

    static bool IsPackageInstalled(const PackageVersion& version);
    // Mounts the package's own partition of disk where it belongs first.
    bool IsInstalled(const char* disk) const;
    bool IsInstalled() const;

    // Makes version the one that boots: for DOS through "preboot.bat"; for Linux through
    // the top-level syslinux configuration, extlinux and the "current" link. False, with
    // nothing changed, when the Linux version is already current. When extlinux or the link
    // fails, the previous configuration and link are put back, so that the boot loader and
    // "current" keep naming the same version, and false is returned.
    static bool ChangeCurrentVersion(const PackageVersion& version, std::ostream& log);

    // Removes an installed version. The current Linux version is never removed, and that
    // refusal answers true. Nor is the running one (GetRunningLinuxVersion()); that refusal
    // answers false.
    static bool UninstallPackageVersion(const PackageVersion& version, std::ostream& log);
    // Removes every installed version but the current and the running Linux ones, stopping
    // at the first failure.
    static bool UninstallAllPackageVersions(std::ostream& log);

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

    // The Linux version the machine runs now, which may differ from the current one after a
    // switch that was not followed by a restart: the manifest of the version directory the
    // kernel was started from ("BOOT_IMAGE=/Versions/<directory>/..." on the kernel command
    // line), read on the mounted system partition. Empty when the machine was not started
    // from an installed version or that directory holds no manifest.
    static PackageVersion GetRunningLinuxVersion();

    // Reads the manifest of one installed version directory ("Version.json" preferred,
    // "Version.txt" otherwise). directory must end with "/". Empty record when directory is
    // not a directory or holds neither manifest.
    static PackageVersion ReadVersionManifest(const std::string& directory);

private:
    // Install(log) with the package already measured.
    InstallStatus InstallMeasured(std::ostream& log, std::int64_t needed, bool damaged);

    std::string path;
    PackageVersion version;
    bool valid;
};

namespace detail
{
// The commands run by installation, switching and removal. Names that come from the disk
// or the USB key are quoted for the shell; fixed texts stay as they are.
std::string InstallerCommand(const std::string& packagePath, const std::string& packageName,
                             const std::string& fullVersion, const std::string& versionsDirectory);
std::string UnzipCommand(const std::string& packagePath, const std::string& destination);
std::string ExtlinuxCommand(const std::string& directory);
std::string LinkCommand(const std::string& target, const std::string& link);
std::string RemoveCommand(const std::string& path);
std::string ChattrCommand(const std::string& file);

// The top-level syslinux configuration that hands over to the version's own one.
std::string TopLevelSyslinuxConfiguration(const std::string& fullVersion);

// The lines written when the package does not fit: needed (not below free) and free in
// bytes.
void WriteNotEnoughSpace(std::ostream& log, bool dos, std::uint64_t needed, std::uint64_t free);

// The space check on its numbers: needed bytes (-1 when the package's size is unknown)
// against the partition's free bytes (all bits set when unknown). True when the package
// fits strictly; otherwise the reason is written to log.
bool CheckSpace(std::ostream& log, bool dos, std::int64_t needed, std::uint64_t free);

// "The package <file name> is damaged and cannot be installed".
std::string DamagedPackageLine(const std::string& packagePath);

// The directory below "/Versions" that the kernel command line's
// "BOOT_IMAGE=/Versions/<directory>/..." names; empty when it names none.
std::string RunningVersionDirectory(const std::string& kernelCommandLine);
} // namespace detail

// Copies the data blocks of the reader's current entry to the writer. 0 at the end of the
// entry, otherwise the first negative status of either side.
int CopyData(archive* reader, archive* writer);

// Plain, case-sensitive suffix tests on a path or file name.
bool IsManifestTextFile(const std::string& path);
bool IsManifestJsFile(const std::string& path);
bool IsInstallerFile(const std::string& path);
bool IsPackageLinuxFile(const std::string& path);
bool IsPackageDosFile(const std::string& path);

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
