// Linux packages as they come from the key: the input is the package file,
// read through the gzip layer of the package reader (GzipStream) as tar reads
// it. Whatever it accepts as whole must be exactly what zlib inflates from
// the same bytes, member after member, with nothing left over. The package's
// one reading (PackageScan) on the same file: complete only for a sound
// stream, and then with the size and installer bytes that a tar reader finds
// in zlib's output.
#include "FuzzCheck.h"
#include "FuzzScratchDirectory.h"
#include "GzipStream.h"
#include "InstallPackage.h"
#include "PackageScan.h"

#include <archive.h>
#include <archive_entry.h>
#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

using Kel::Vidorama::Fuzz::FuzzScratchDirectory;
using Kel::Vidorama::InstallerLib::GzipStream;
using Kel::Vidorama::InstallerLib::PackageScan;

namespace
{

struct ReaderFree
{
    void operator()(archive* reader) const { archive_read_free(reader); }
};

// The reference: every gzip member inflated in turn; false on any damage or
// on bytes that are not a further member.
bool InflateAll(const uint8_t* data, size_t size, std::string& out)
{
    z_stream stream = {};
    if (inflateInit2(&stream, 16 + MAX_WBITS) != Z_OK)
        return false;
    stream.next_in = const_cast<Bytef*>(data);
    stream.avail_in = static_cast<uInt>(size);
    unsigned char block[16384];
    bool sound = size > 0;
    while (sound)
    {
        stream.next_out = block;
        stream.avail_out = sizeof(block);
        const int status = inflate(&stream, Z_NO_FLUSH);
        out.append(reinterpret_cast<char*>(block), sizeof(block) - stream.avail_out);
        if (status == Z_STREAM_END)
        {
            if (stream.avail_in == 0)
                break;
            sound = inflateReset(&stream) == Z_OK;
        }
        else if (status != Z_OK || (stream.avail_in == 0 && stream.avail_out != 0))
        {
            sound = false;
        }
    }
    inflateEnd(&stream);
    return sound;
}

// The reference walk of a tar held in memory: the unpacked size as the package
// reading counts it and the installer entries' bytes; false when the tar
// cannot be walked to its end.
bool WalkTar(const std::string& tar, std::int64_t& size, std::string& installers)
{
    std::unique_ptr<archive, ReaderFree> reader(archive_read_new());
    archive_read_support_format_tar(reader.get());
    if (archive_read_open_memory(reader.get(), tar.data(), tar.size()) != ARCHIVE_OK)
        return false;
    size = 0;
    archive_entry* entry = nullptr;
    for (;;)
    {
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            return true;
        if (status < ARCHIVE_WARN)
            return false;
        const char* raw = archive_entry_pathname(entry);
        const std::string name = raw != nullptr ? raw : "";
        const la_int64_t length = archive_entry_size(entry);
        if (length > 0)
            size += Kel::Vidorama::InstallerLib::IsPackageDosFile(name) ? 2 * length : length;
        if (Kel::Vidorama::InstallerLib::IsInstallerFile(name) && length > 0 &&
            archive_entry_filetype(entry) == AE_IFREG && archive_entry_hardlink(entry) == nullptr)
        {
            char block[8192];
            la_ssize_t count = 0;
            while ((count = archive_read_data(reader.get(), block, sizeof(block))) > 0)
                installers.append(block, static_cast<size_t>(count));
            if (count < 0)
                return false;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string path = FuzzScratchDirectory::Get().GetPath() + "/package.tar.gz";
    if (!FuzzScratchDirectory::WriteFile(path,
                                         std::string(reinterpret_cast<const char*>(data), size)))
        return 0;

    std::string read;
    bool accepted = false;
    {
        GzipStream stream;
        std::unique_ptr<archive, ReaderFree> reader(archive_read_new());
        archive_read_support_format_raw(reader.get());
        if (stream.OpenFor(reader.get(), path))
        {
            archive_entry* entry = nullptr;
            if (archive_read_next_header(reader.get(), &entry) == ARCHIVE_OK)
            {
                char block[8192];
                la_ssize_t count = 0;
                while ((count = archive_read_data(reader.get(), block, sizeof(block))) > 0)
                    read.append(block, static_cast<size_t>(count));
                accepted = count == 0 && stream.Finish();
            }
        }
    }

    std::string expected;
    const bool sound = InflateAll(data, size, expected);
    if (accepted)
    {
        FUZZ_CHECK(sound);
        FUZZ_CHECK(read == expected);
    }

    const auto scan = PackageScan::Read(path);
    FUZZ_CHECK(!(scan->Complete() && scan->Damaged()));
    FUZZ_CHECK(!scan->Stopped());
    if (!sound)
        FUZZ_CHECK(!scan->Complete());
    if (scan->Complete())
    {
        std::int64_t size = -1;
        std::string installers;
        FUZZ_CHECK(WalkTar(expected, size, installers));
        FUZZ_CHECK(scan->Size() == size);
        if (!scan->InstallerTooLarge())
        {
            std::string kept;
            for (const PackageScan::Entry& entry : scan->Installers())
                kept += entry.data;
            FUZZ_CHECK(kept == installers);
        }
    }
    else
    {
        FUZZ_CHECK(scan->Size() == -1 && scan->Installers().empty());
    }
    return 0;
}
