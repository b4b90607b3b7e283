#pragma once

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
    // they are unpacked in turn. -1 when the package cannot be read.
    int GetExtractedSize() const;

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

private:
    std::string path;
    PackageVersion version;
    bool valid;
};

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
