#pragma once

#include "PackageScan.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <sys/types.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// The readings of package files (PackageScan), kept by the file's identity (device, inode,
// size, modification time): a package is read once, whoever asks first, and read again only
// when the file is another one. A file changed just before it was read is read again each
// time, since a second change might keep its identity. One process-wide instance; every member may
// be called from any thread.
class PackageScanCache
{
public:
    // A file's identity; a package whose identity changed is read anew.
    struct Identity
    {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        std::int64_t mtimeSeconds = 0;
        long mtimeNanoseconds = 0;
        bool operator==(const Identity& other) const;
        bool operator!=(const Identity& other) const { return !(*this == other); }
    };

    // While one lives, an installation of path is under way: background readings of other
    // packages give way (they stop at their next block and wait), and a background reading
    // of path itself goes on at full priority.
    class Use
    {
    public:
        explicit Use(const std::string& path);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

    private:
        std::string _path;
    };

    // A reading is kept only for a file last changed more than this long before it was read.
    static constexpr int SettleSeconds = 3;
    // The most readings kept; the least recently used goes first.
    static constexpr std::size_t Capacity = 8;

    static PackageScanCache& Instance();

    // The reading of the package at path as the file is now: the one kept, or the one under
    // way (waited for), or one made by the caller now. Never null.
    std::shared_ptr<const PackageScan> Get(const std::string& path);

    // A background reading of path: returns at once when the file's reading is kept or under
    // way elsewhere; otherwise reads it, asking stop before each block. False only when stop
    // ended the reading (nothing was kept then).
    bool Prepare(const std::string& path, const std::function<bool()>& stop);

    // The reading kept for the package at path as the file is now, without waiting or
    // reading; null when none is kept (not read yet, under way, or the file changed).
    std::shared_ptr<const PackageScan> Kept(const std::string& path) const;

    // Whether an installation is under way (a Use lives), and whether it is of path.
    bool InUse() const;
    bool InUse(const std::string& path) const;

    // Readings made since the start (kept or not): lets a caller tell that a file was read
    // only once.
    std::size_t Readings() const;
    // Forgets every kept reading (not those under way).
    void Clear();

    // The identity of the file at path; false when it cannot be had.
    static bool IdentityOf(const std::string& path, Identity& identity);

private:
    PackageScanCache() = default;

    enum class State
    {
        Idle,
        Reading,
        Done
    };
    struct Slot
    {
        Identity identity;
        State state = State::Idle;
        std::shared_ptr<const PackageScan> scan;
        std::uint64_t lastUse = 0;
    };

    // Reads path for the caller, who marked its slot Reading; keeps the result when it is
    // worth keeping and the file did not change meanwhile.
    std::shared_ptr<const PackageScan> ReadFor(const std::string& path, const Identity& identity,
                                               const std::function<bool()>& stop);
    void Evict();

    mutable std::mutex _mutex;
    std::condition_variable _changed;
    std::map<std::string, Slot> _slots;
    std::multiset<std::string> _inUse;
    std::uint64_t _clock = 0;
    std::size_t _readings = 0;
};

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
