#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct archive_entry;

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// What one reading of a package file tells, so that an installation reads the package only
// once: its unpacked size, whether it proved damaged, and the installer script entries with
// their bytes. A Linux package is inflated to its very end (every gzip member's CRC-32 and
// length checked); a DOS package's entries are walked as libarchive's zip reader gives them.
// Nothing is written anywhere.
class PackageScan
{
public:
    // An installer entry as the package holds it: its header (name, mode, times) and data.
    struct Entry
    {
        std::shared_ptr<archive_entry> header;
        std::string data;
    };

    // The most installer bytes a reading keeps; a package whose installer entries hold more
    // is read all the same (size, soundness), but its installer is refused.
    static constexpr std::size_t InstallerLimit = 1u << 20;

    // Reads the package at path once. stop is asked before each block read from the file
    // (Linux) or before each entry (DOS); when it answers true the reading ends there and
    // the result says Stopped().
    static std::shared_ptr<const PackageScan> Read(const std::string& path,
                                                   const std::function<bool()>& stop = {});

    // The unpacked size (entries ending in "zip" twice); -1 unless Complete().
    std::int64_t Size() const { return _size; }
    // Read to its end and sound.
    bool Complete() const { return _complete; }
    // The file's bytes proved it damaged (cut short, corrupted, not a gzip-compressed tar).
    bool Damaged() const { return _damaged; }
    // The stop check ended the reading: nothing is known.
    bool Stopped() const { return _stopped; }
    // The installer entries held more than InstallerLimit bytes and were not kept.
    bool InstallerTooLarge() const { return _installerTooLarge; }
    // Whether this was a Linux package (gzip-compressed tar).
    bool Linux() const { return _linux; }
    // The regular, non-empty entries whose name ends with "Install.sh", in package order
    // (Linux packages only).
    const std::vector<Entry>& Installers() const { return _installers; }

private:
    void ReadLinux(const std::string& path, const std::function<bool()>& stop);
    void ReadDos(const std::string& path, const std::function<bool()>& stop);

    std::int64_t _size = -1;
    bool _complete = false;
    bool _damaged = false;
    bool _stopped = false;
    bool _installerTooLarge = false;
    bool _linux = false;
    std::vector<Entry> _installers;
};

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
