#pragma once

// The pieces of libarchive reading that the package checks and the package's one reading
// share: the reader handle that is released whatever path a call takes out, the entry names
// as text, and what an entry header's status means for a package.

#include <archive.h>
#include <archive_entry.h>

#include <memory>
#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{
namespace ArchiveReading
{

struct ReaderDeleter
{
    void operator()(archive* reader) const
    {
        archive_read_close(reader);
        archive_read_free(reader);
    }
};
using Reader = std::unique_ptr<archive, ReaderDeleter>;

enum class HeaderResult
{
    Entry,
    End,
    Failed
};

// A warning still gives a usable entry; anything worse means the package is damaged.
inline HeaderResult NextHeader(archive* reader, archive_entry** entry)
{
    const int status = archive_read_next_header(reader, entry);
    if (status == ARCHIVE_EOF)
    {
        return HeaderResult::End;
    }
    return status >= ARCHIVE_WARN ? HeaderResult::Entry : HeaderResult::Failed;
}

inline std::string EntryName(archive_entry* entry)
{
    const char* name = archive_entry_pathname(entry);
    return name != nullptr ? std::string(name) : std::string();
}

} // namespace ArchiveReading
} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
