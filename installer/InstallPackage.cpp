#include "InstallPackage.h"

#include "ArchiveReading.h"
#include "GzipStream.h"
#include "PackageScan.h"
#include "PackageScanCache.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>

#include <archive.h>
#include <archive_entry.h>
#include <dirent.h>
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

std::string FromCString(const char* text)
{
    return text != nullptr ? std::string(text) : std::string();
}

// Read size handed to libarchive for package files.
constexpr size_t BlockSize = 10240;

// Permissions, times, ACLs and file flags as the package stores them; ownership is left at
// its default.
constexpr int StoredAttributes =
    ARCHIVE_EXTRACT_PERM | ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_ACL | ARCHIVE_EXTRACT_FFLAGS;
static_assert(StoredAttributes == 102, "packages keep the attributes of the flags 102");

// A package comes from a USB key and is extracted as root: its entry names must not reach
// outside the directory they are extracted to, neither by "..", nor as absolute paths, nor
// through a symbolic link on the way (libarchive refuses such an entry; the extraction then
// fails).
constexpr int SecureNames = ARCHIVE_EXTRACT_SECURE_NODOTDOT |
                            ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS |
                            ARCHIVE_EXTRACT_SECURE_SYMLINKS;

// The handles below are released when the call that opened them returns, whatever path it
// takes out.
using ArchiveReading::Reader;

struct WriterDeleter
{
    void operator()(archive* writer) const
    {
        archive_write_close(writer);
        archive_write_free(writer);
    }
};
using Writer = std::unique_ptr<archive, WriterDeleter>;

struct DirectoryCloser
{
    void operator()(DIR* directory) const { ::closedir(directory); }
};

// An open package: a Linux package is a gzip-compressed tar, inflated through GzipStream
// (whose checks libarchive's own gzip reader lacks), a DOS package a zip, whose entries
// libarchive checks itself. The stream outlives the reader that reads from it.
class Package
{
public:
    archive* get() const { return reader.get(); }
    explicit operator bool() const { return static_cast<bool>(reader); }

    // Whether the whole file was sound, once the reader is done with it.
    bool Finish() { return !gzip || gzip->Finish(); }

    // Whether the gzip layer of a Linux package proved the file damaged.
    bool GzipDamaged() const { return gzip && gzip->IsDamaged(); }
    // After the tar reader failed on a Linux package: whether the file is at fault rather
    // than its reading. A tar that cannot be read out of a sound gzip stream is no package
    // either.
    bool TarFailureIsDamage() const { return gzip && !gzip->ReadFailed(); }

    std::unique_ptr<GzipStream> gzip;
    Reader reader;
};

// Null when the file cannot be opened.
Package OpenPackage(const std::string& path, bool zip)
{
    Package package;
    package.reader.reset(archive_read_new());
    if (!package.reader)
    {
        return package;
    }
    if (zip)
    {
        archive_read_support_format_zip(package.reader.get());
        if (archive_read_open_filename(package.reader.get(), path.c_str(), BlockSize) != ARCHIVE_OK)
        {
            package.reader.reset();
        }
        return package;
    }
    archive_read_support_format_tar(package.reader.get());
    package.gzip = std::make_unique<GzipStream>();
    if (!package.gzip->OpenFor(package.reader.get(), path))
    {
        package.reader.reset();
    }
    return package;
}

Writer OpenDiskWriter(int flags)
{
    Writer writer(archive_write_disk_new());
    if (writer)
    {
        archive_write_disk_set_options(writer.get(), flags);
        archive_write_disk_set_standard_lookup(writer.get());
    }
    return writer;
}

// Whether a path name of the package stays below the directory it is extracted to: not
// absolute, no ".." component. (Checked here where the writer cannot: for names that are
// put below another directory.)
bool StaysInside(const std::string& name)
{
    if (name.empty() || name[0] == '/')
    {
        return false;
    }
    std::string::size_type start = 0;
    while (start <= name.size())
    {
        std::string::size_type end = name.find('/', start);
        if (end == std::string::npos)
        {
            end = name.size();
        }
        if (name.compare(start, end - start, "..") == 0 && end - start == 2)
        {
            return false;
        }
        start = end + 1;
    }
    return true;
}

// Whether a symbolic link stands on the way from directory down to directory + name, among
// the directories that exist already. (A link in the last place is replaced by the file, not
// followed.)
bool LinkOnTheWay(const std::string& directory, const std::string& name)
{
    std::string path = directory;
    std::string::size_type start = 0;
    while (start < name.size())
    {
        std::string::size_type end = name.find('/', start);
        if (end == std::string::npos)
        {
            return false;
        }
        if (end > start)
        {
            if (!path.empty() && path.back() != '/')
            {
                path += '/';
            }
            path.append(name, start, end - start);
            struct stat status;
            if (::lstat(path.c_str(), &status) != 0)
            {
                return false;
            }
            if (S_ISLNK(status.st_mode))
            {
                return true;
            }
        }
        start = end + 1;
    }
    return false;
}

using ArchiveReading::EntryName;
using ArchiveReading::HeaderResult;
using ArchiveReading::NextHeader;

// What becomes of an entry of the package.
enum class Selection
{
    Take,
    Skip,
    // A name that must not be written: the extraction fails.
    Refuse
};

// Streams the selected entries of a Linux package to disk with the writer's flags.
// select(name, target) tells what becomes of the entry named name and may give it another
// path name in target.
template <typename Selector>
bool ExtractEntries(const std::string& package, int flags, Selector select)
{
    Package reader = OpenPackage(package, false);
    if (!reader)
    {
        return false;
    }
    Writer writer = OpenDiskWriter(flags);
    if (!writer)
    {
        return false;
    }

    archive_entry* entry = nullptr;
    for (;;)
    {
        const HeaderResult header = NextHeader(reader.get(), &entry);
        if (header == HeaderResult::End)
        {
            // What was extracted only counts when the package proves whole to its end.
            return reader.Finish();
        }
        if (header == HeaderResult::Failed)
        {
            return false;
        }

        const std::string name = EntryName(entry);
        std::string target = name;
        // Directories and links have no data of their own and are left alone; so is a hard
        // link that carries data, which would be written into the file it names.
        const bool regular =
            archive_entry_filetype(entry) == AE_IFREG && archive_entry_hardlink(entry) == nullptr;
        const Selection selection = select(name, target);
        if (selection == Selection::Skip || archive_entry_size(entry) <= 0 || !regular)
        {
            continue;
        }
        if (selection == Selection::Refuse)
        {
            return false;
        }
        if (target != name)
        {
            archive_entry_set_pathname(entry, target.c_str());
        }
        if (archive_write_header(writer.get(), entry) != ARCHIVE_OK)
        {
            return false;
        }
        if (CopyData(reader.get(), writer.get()) != ARCHIVE_OK)
        {
            return false;
        }
        if (archive_write_finish_entry(writer.get()) < ARCHIVE_WARN)
        {
            return false;
        }
    }
}

// Writes the installer entries of a package's reading under their own path names, relative
// to the current working directory.
bool WriteEntries(const std::vector<PackageScan::Entry>& entries, int flags)
{
    Writer writer = OpenDiskWriter(flags);
    if (!writer)
    {
        return false;
    }
    for (const PackageScan::Entry& kept : entries)
    {
        // The kept header stays as it was read, for the next installation of the package.
        std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(
            archive_entry_clone(kept.header.get()), archive_entry_free);
        if (!entry || archive_write_header(writer.get(), entry.get()) != ARCHIVE_OK)
        {
            return false;
        }
        if (!kept.data.empty() && archive_write_data_block(writer.get(), kept.data.data(),
                                                           kept.data.size(), 0) < ARCHIVE_OK)
        {
            return false;
        }
        if (archive_write_finish_entry(writer.get()) < ARCHIVE_WARN)
        {
            return false;
        }
    }
    return true;
}

} // namespace

const std::string InstallPackage::LinuxExtension = "tar.gz";
const std::string InstallPackage::DosExtension = "zip";
const std::string InstallPackage::ManifestFilenameTxt = "Version.txt";
const std::string InstallPackage::ManifestFilenameJs = "Version.json";
const std::string InstallPackage::InstallerFilename = "Install.sh";

InstallPackage::InstallPackage(const char* packagePath)
    : path(FromCString(packagePath)), version(), valid(false)
{
    version.SetPath(path.c_str());
    version.SetDos(IsPackageDosFile(path));
    if (version.IsDos())
    {
        valid = ExtractDosInfos();
    }
    else if (IsPackageLinuxFile(path))
    {
        valid = ExtractLinuxInfos();
    }
}

InstallPackage::InstallPackage(const InstallPackage& other)
    : path(other.path), version(other.version), valid(other.valid)
{
}

InstallPackage& InstallPackage::operator=(const InstallPackage& other) = default;

InstallPackage::~InstallPackage() = default;

const char* InstallPackage::GetPath() const
{
    return path.c_str();
}

const PackageVersion& InstallPackage::GetVersion() const
{
    return version;
}

bool InstallPackage::IsValid() const
{
    return valid;
}

std::vector<InstallPackage>* InstallPackage::GetAvailablePackages(const char* directory)
{
    auto* packages = new std::vector<InstallPackage>();
    const std::string base = FromCString(directory);
    std::unique_ptr<DIR, DirectoryCloser> listing(::opendir(base.c_str()));
    if (!listing)
    {
        return packages;
    }

    while (const dirent* item = ::readdir(listing.get()))
    {
        const std::string name = item->d_name;
        if (!IsPackageDosFile(name) && !IsPackageLinuxFile(name))
        {
            continue;
        }
        InstallPackage package((base + "/" + name).c_str());
        if (package.valid)
        {
            packages->push_back(package);
        }
    }

    // operator> is not a strict weak ordering (its revision clause ignores the names), which
    // std::sort may answer by running past the end of the range; the merge sort stays inside.
    std::stable_sort(packages->begin(), packages->end(),
                     [](const InstallPackage& a, const InstallPackage& b)
                     { return a.version > b.version; });
    return packages;
}

bool InstallPackage::ExtractLinuxInfos()
{
    // Searched in the whole path; the greedy name takes every "_" but the last one.
    static const std::regex pattern(R"((\w+)[_]([a-zA-Z0-9.]+)\.tar\.gz)");
    std::smatch match;
    if (!std::regex_search(path, match, pattern) || !match[1].matched || !match[2].matched)
    {
        return false;
    }
    version.SetName(match.str(1).c_str());
    version.ParseFullVersion(match.str(2).c_str());
    return true;
}

bool InstallPackage::ExtractDosInfos()
{
    static const std::regex pattern(R"(([a-zA-Z0-9.]+)\.zip)");
    std::smatch match;
    if (!std::regex_search(path, match, pattern) || !match[1].matched)
    {
        return false;
    }
    // DOS packages carry only their version in the name; the product is always the same.
    version.SetName("Vidorama");
    version.ParseDosVersion(match.str(1).c_str());
    return true;
}

bool InstallPackage::ExtractInfosFromManifest()
{
    if (version.IsDos())
    {
        return false;
    }
    Package reader = OpenPackage(path, false);
    if (!reader)
    {
        return false;
    }

    bool previousWasInstaller = false;
    bool manifestFound = false;
    archive_entry* entry = nullptr;
    while (NextHeader(reader.get(), &entry) == HeaderResult::Entry)
    {
        if (manifestFound || previousWasInstaller)
        {
            break;
        }

        const std::string name = EntryName(entry);
        previousWasInstaller = IsInstallerFile(name);
        if ((IsManifestJsFile(name) || IsManifestTextFile(name)) && archive_entry_size(entry) > 0)
        {
            // A manifest is a few lines of text; it is the one entry read into memory.
            std::string content;
            const void* block = nullptr;
            size_t size = 0;
            la_int64_t offset = 0;
            while (archive_read_data_block(reader.get(), &block, &size, &offset) == ARCHIVE_OK)
            {
                content.append(static_cast<const char*>(block), size);
            }
            std::istringstream stream(content);
            version = IsManifestJsFile(name) ? PackageVersion::ParseJs(stream)
                                             : PackageVersion::ParseTxt(stream);
            version.SetPath(path.c_str());
            manifestFound = true;
        }
    }

    // The walk ends on the entry after a manifest, and that manifest is the entry processed
    // last, so this is false whenever a manifest was read. Left as it is: nothing uses it.
    return previousWasInstaller && manifestFound;
}

bool InstallPackage::ExtractFileFomTar(const char* fileName)
{
    if (fileName == nullptr)
    {
        return false;
    }
    const std::string wanted = fileName;
    if (wanted == InstallerFilename && !IsPackageDosFile(path))
    {
        // The installer comes out of the package's one reading, which also measured it:
        // nothing is written unless the whole package proved sound, and a package read
        // already is not read again.
        const std::shared_ptr<const PackageScan> scan = PackageScanCache::Instance().Get(path);
        if (!scan->Complete() || scan->InstallerTooLarge())
        {
            return false;
        }
        return WriteEntries(scan->Installers(), StoredAttributes | SecureNames);
    }
    return ExtractEntries(path, StoredAttributes | SecureNames,
                          [&wanted](const std::string& name, std::string&)
                          { return EndsWith(name, wanted) ? Selection::Take : Selection::Skip; });
}

bool InstallPackage::ExtractDirectoryFomTar(const char* sourceDirectory, const char* destination)
{
    if (sourceDirectory == nullptr || destination == nullptr)
    {
        return false;
    }
    const std::string prefix = sourceDirectory;
    const std::string target = destination;
    // The destination is the caller's and may well be absolute or pass through a link of
    // its own; what the package adds below it is held to the same rules as any entry name.
    return ExtractEntries(path, StoredAttributes | ARCHIVE_EXTRACT_SECURE_NODOTDOT,
                          [&prefix, &target](const std::string& name, std::string& renamed)
                          {
                              if (name.compare(0, prefix.size(), prefix) != 0)
                              {
                                  return Selection::Skip;
                              }
                              const std::string rest = name.substr(prefix.size());
                              // The rest is appended as text ("pay" + "load/a" gives
                              // "<target>load/a"); only the part below the destination's own
                              // directory is the package's.
                              const std::string::size_type slash = target.rfind('/');
                              const std::string base = slash == std::string::npos
                                                           ? std::string(".")
                                                           : target.substr(0, slash + 1);
                              const std::string below =
                                  (slash == std::string::npos ? target : target.substr(slash + 1)) +
                                  rest;
                              if (!StaysInside(below) || LinkOnTheWay(base, below))
                              {
                                  return Selection::Refuse;
                              }
                              renamed = target + rest;
                              return Selection::Take;
                          });
}

int InstallPackage::GetExtractedSize() const
{
    const std::int64_t total = GetExtractedSize64();
    if (total < 0)
    {
        return -1;
    }
    // The size is reported as a 32-bit signed byte count, as the callers expect it.
    return static_cast<std::int32_t>(total);
}

std::int64_t InstallPackage::GetExtractedSize64(bool* damaged) const
{
    // One reading of the package gives its size, its soundness and its installer together.
    const std::shared_ptr<const PackageScan> scan = PackageScanCache::Instance().Get(path);
    if (damaged != nullptr)
    {
        *damaged = scan->Damaged();
    }
    return scan->Complete() ? scan->Size() : -1;
}

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

int CopyData(archive* reader, archive* writer)
{
    const void* block = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    for (;;)
    {
        const int status = archive_read_data_block(reader, &block, &size, &offset);
        if (status == ARCHIVE_EOF)
        {
            return ARCHIVE_OK;
        }
        if (status < ARCHIVE_OK)
        {
            return status;
        }
        const la_ssize_t written = archive_write_data_block(writer, block, size, offset);
        if (written < ARCHIVE_OK)
        {
            return static_cast<int>(written);
        }
    }
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
