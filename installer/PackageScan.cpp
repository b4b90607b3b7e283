#include "PackageScan.h"

#include "ArchiveReading.h"
#include "GzipStream.h"
#include "InstallPackage.h"

#include <archive.h>
#include <archive_entry.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

namespace
{

// Read size handed to libarchive for DOS package files.
constexpr size_t BlockSize = 10240;

using ArchiveReading::EntryName;
using ArchiveReading::HeaderResult;
using ArchiveReading::NextHeader;
using ArchiveReading::Reader;

// An archive inside the package is unpacked as well, so it needs its room twice.
std::int64_t Room(archive_entry* entry)
{
    const la_int64_t size = archive_entry_size(entry);
    if (size <= 0)
    {
        return 0;
    }
    return IsPackageDosFile(EntryName(entry)) ? 2 * size : size;
}

// The data of the current entry, holes filled with zeros; false when the reading fails or
// the data goes past limit bytes.
bool ReadData(archive* reader, std::string& data, std::size_t limit)
{
    const void* block = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    for (;;)
    {
        const int status = archive_read_data_block(reader, &block, &size, &offset);
        if (status == ARCHIVE_EOF)
        {
            return true;
        }
        if (status < ARCHIVE_OK || offset < 0 || static_cast<std::size_t>(offset) > limit ||
            size > limit - static_cast<std::size_t>(offset))
        {
            return false;
        }
        const std::size_t at = static_cast<std::size_t>(offset);
        if (data.size() < at + size)
        {
            data.resize(at + size, '\0');
        }
        data.replace(at, size, static_cast<const char*>(block), size);
    }
}

} // namespace

std::shared_ptr<const PackageScan> PackageScan::Read(const std::string& path,
                                                     const std::function<bool()>& stop)
{
    auto scan = std::make_shared<PackageScan>();
    if (IsPackageDosFile(path))
    {
        scan->ReadDos(path, stop);
    }
    else
    {
        scan->ReadLinux(path, stop);
    }
    return scan;
}

void PackageScan::ReadLinux(const std::string& path, const std::function<bool()>& stop)
{
    _linux = true;
    // The stream outlives the reader that reads from it.
    GzipStream gzip;
    if (stop)
    {
        gzip.SetStopCheck(stop);
    }
    Reader reader(archive_read_new());
    if (!reader)
    {
        return;
    }
    archive_read_support_format_tar(reader.get());
    // After the tar reader failed: the file is at fault rather than its reading, unless the
    // reading was given up. A tar that cannot be read out of a sound gzip stream is no
    // package either. Installers kept from entries before the failure go with it: nothing
    // of a package that did not read whole may be run.
    auto failed = [this, &gzip]
    {
        _stopped = gzip.Stopped();
        _damaged = !_stopped && !gzip.ReadFailed();
        _installers.clear();
    };
    if (!gzip.OpenFor(reader.get(), path))
    {
        _stopped = gzip.Stopped();
        _damaged = gzip.IsDamaged();
        return;
    }

    std::int64_t total = 0;
    std::size_t kept = 0;
    archive_entry* entry = nullptr;
    for (;;)
    {
        const HeaderResult header = NextHeader(reader.get(), &entry);
        if (header == HeaderResult::End)
        {
            break;
        }
        if (header == HeaderResult::Failed)
        {
            failed();
            return;
        }
        total += Room(entry);

        // What an extraction of the installer takes: regular files with data of their own
        // (a hard link carrying data would be written into the file it names).
        const std::string name = EntryName(entry);
        const la_int64_t size = archive_entry_size(entry);
        if (!IsInstallerFile(name) || size <= 0 || archive_entry_filetype(entry) != AE_IFREG ||
            archive_entry_hardlink(entry) != nullptr)
        {
            continue;
        }
        if (_installerTooLarge || static_cast<std::uint64_t>(size) > InstallerLimit - kept)
        {
            // Counted and checked like any other entry, not kept.
            _installerTooLarge = true;
            continue;
        }
        Entry installer;
        installer.header.reset(archive_entry_clone(entry), archive_entry_free);
        if (!installer.header || !ReadData(reader.get(), installer.data, InstallerLimit - kept))
        {
            failed();
            return;
        }
        kept += installer.data.size();
        _installers.push_back(std::move(installer));
    }
    // What was read only counts when the package proves whole to its end.
    if (!gzip.Finish())
    {
        _stopped = gzip.Stopped();
        _damaged = gzip.IsDamaged();
        _installers.clear();
        return;
    }
    _size = total;
    _complete = true;
}

void PackageScan::ReadDos(const std::string& path, const std::function<bool()>& stop)
{
    Reader reader(archive_read_new());
    if (!reader)
    {
        return;
    }
    archive_read_support_format_zip(reader.get());
    if (archive_read_open_filename(reader.get(), path.c_str(), BlockSize) != ARCHIVE_OK)
    {
        return;
    }
    std::int64_t total = 0;
    archive_entry* entry = nullptr;
    for (;;)
    {
        if (stop && stop())
        {
            _stopped = true;
            return;
        }
        const HeaderResult header = NextHeader(reader.get(), &entry);
        if (header == HeaderResult::End)
        {
            break;
        }
        if (header == HeaderResult::Failed)
        {
            return;
        }
        total += Room(entry);
    }
    _size = total;
    _complete = true;
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
