#include "TestArchive.h"

#include <archive.h>
#include <archive_entry.h>

#include <fstream>
#include <memory>
#include <sstream>

namespace TestSupport
{

namespace
{

struct WriterFree
{
    void operator()(archive* writer) const { archive_write_free(writer); }
};

struct EntryFree
{
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};

} // namespace

bool WriteArchive(const std::string& path, const std::vector<ArchiveMember>& members, bool zip)
{
    std::unique_ptr<archive, WriterFree> writer(archive_write_new());
    if (!writer)
        return false;
    if (zip)
    {
        archive_write_set_format_zip(writer.get());
    }
    else
    {
        archive_write_add_filter_gzip(writer.get());
        archive_write_set_format_pax_restricted(writer.get());
    }
    if (archive_write_open_filename(writer.get(), path.c_str()) != ARCHIVE_OK)
        return false;
    for (const ArchiveMember& member : members)
    {
        std::unique_ptr<archive_entry, EntryFree> entry(archive_entry_new());
        archive_entry_set_pathname(entry.get(), member.name.c_str());
        archive_entry_set_perm(entry.get(), member.mode);
        archive_entry_set_mtime(entry.get(), 1336000000, 0);
        switch (member.kind)
        {
        case ArchiveMember::File:
            archive_entry_set_filetype(entry.get(), AE_IFREG);
            archive_entry_set_size(entry.get(), static_cast<la_int64_t>(member.content.size()));
            break;
        case ArchiveMember::Directory:
            archive_entry_set_filetype(entry.get(), AE_IFDIR);
            archive_entry_set_size(entry.get(), 0);
            break;
        case ArchiveMember::Link:
            archive_entry_set_filetype(entry.get(), AE_IFLNK);
            archive_entry_set_symlink(entry.get(), member.content.c_str());
            archive_entry_set_size(entry.get(), 0);
            break;
        }
        if (archive_write_header(writer.get(), entry.get()) != ARCHIVE_OK)
            return false;
        if (member.kind == ArchiveMember::File && !member.content.empty() &&
            archive_write_data(writer.get(), member.content.data(), member.content.size()) !=
                static_cast<la_ssize_t>(member.content.size()))
            return false;
    }
    return archive_write_close(writer.get()) == ARCHIVE_OK;
}

std::string NoiseBytes(std::size_t count, std::uint32_t seed)
{
    std::string bytes(count, '\0');
    std::uint32_t state = seed;
    for (char& byte : bytes)
    {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void WriteFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

} // namespace TestSupport
