#include "PackageScanCache.h"

#include <iterator>

#include <sys/stat.h>
#include <time.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

bool PackageScanCache::Identity::operator==(const Identity& other) const
{
    return device == other.device && inode == other.inode && size == other.size &&
           mtimeSeconds == other.mtimeSeconds && mtimeNanoseconds == other.mtimeNanoseconds;
}

PackageScanCache::Use::Use(const std::string& path) : _path(path)
{
    PackageScanCache& cache = Instance();
    std::lock_guard<std::mutex> lock(cache._mutex);
    cache._inUse.insert(_path);
    cache._changed.notify_all();
}

PackageScanCache::Use::~Use()
{
    PackageScanCache& cache = Instance();
    std::lock_guard<std::mutex> lock(cache._mutex);
    const auto found = cache._inUse.find(_path);
    if (found != cache._inUse.end())
    {
        cache._inUse.erase(found);
    }
    cache._changed.notify_all();
}

PackageScanCache& PackageScanCache::Instance()
{
    static PackageScanCache cache;
    return cache;
}

bool PackageScanCache::IdentityOf(const std::string& path, Identity& identity)
{
    struct stat status;
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
    {
        return false;
    }
    identity.device = status.st_dev;
    identity.inode = status.st_ino;
    identity.size = status.st_size;
    identity.mtimeSeconds = static_cast<std::int64_t>(status.st_mtim.tv_sec);
    identity.mtimeNanoseconds = status.st_mtim.tv_nsec;
    return true;
}

std::shared_ptr<const PackageScan> PackageScanCache::Get(const std::string& path)
{
    Identity identity;
    if (!IdentityOf(path, identity))
    {
        // Missing or no regular file: nothing worth keeping, the reading says what it is.
        {
            std::lock_guard<std::mutex> lock(_mutex);
            ++_readings;
        }
        return PackageScan::Read(path);
    }

    std::unique_lock<std::mutex> lock(_mutex);
    for (;;)
    {
        Slot& slot = _slots[path];
        if (slot.state == State::Done && slot.identity == identity)
        {
            slot.lastUse = ++_clock;
            return slot.scan;
        }
        if (slot.state == State::Reading)
        {
            // Under way elsewhere (for this file, or for the one it replaced): what is left of
            // it is waited for rather than read a second time.
            _changed.wait(lock);
            continue;
        }
        slot.state = State::Reading;
        slot.identity = identity;
        slot.scan.reset();
        lock.unlock();
        return ReadFor(path, identity, {});
    }
}

bool PackageScanCache::Prepare(const std::string& path, const std::function<bool()>& stop)
{
    Identity identity;
    if (!IdentityOf(path, identity))
    {
        return true;
    }
    {
        std::lock_guard<std::mutex> lock(_mutex);
        Slot& slot = _slots[path];
        if (slot.state == State::Reading ||
            (slot.state == State::Done && slot.identity == identity))
        {
            return true;
        }
        slot.state = State::Reading;
        slot.identity = identity;
        slot.scan.reset();
    }
    return !ReadFor(path, identity, stop)->Stopped();
}

std::shared_ptr<const PackageScan> PackageScanCache::ReadFor(const std::string& path,
                                                             const Identity& identity,
                                                             const std::function<bool()>& stop)
{
    {
        std::lock_guard<std::mutex> lock(_mutex);
        ++_readings;
    }
    struct timespec started = {};
    ::clock_gettime(CLOCK_REALTIME, &started);
    std::shared_ptr<const PackageScan> scan = PackageScan::Read(path, stop);
    // A file changed while it was read gives a reading of neither file.
    Identity after;
    const bool unchanged = IdentityOf(path, after) && after == identity;

    std::lock_guard<std::mutex> lock(_mutex);
    Slot& slot = _slots[path];
    // A file written shortly before it was read may be written again without its identity
    // changing (time stamps are coarse: two seconds on FAT), so its reading is not kept.
    const bool settled = identity.mtimeSeconds + SettleSeconds < started.tv_sec;
    // A reading that failed on an I/O error is not kept: the key may come back.
    if (unchanged && settled && !scan->Stopped() && (scan->Complete() || scan->Damaged()))
    {
        slot.state = State::Done;
        slot.scan = scan;
        slot.lastUse = ++_clock;
        Evict();
    }
    else
    {
        slot.state = State::Idle;
        slot.scan.reset();
    }
    _changed.notify_all();
    return scan;
}

void PackageScanCache::Evict()
{
    std::size_t done = 0;
    for (auto slot = _slots.begin(); slot != _slots.end();)
    {
        if (slot->second.state == State::Idle)
        {
            slot = _slots.erase(slot);
            continue;
        }
        done += slot->second.state == State::Done ? 1 : 0;
        ++slot;
    }
    while (done > Capacity)
    {
        auto oldest = _slots.end();
        for (auto slot = _slots.begin(); slot != _slots.end(); ++slot)
        {
            if (slot->second.state == State::Done &&
                (oldest == _slots.end() || slot->second.lastUse < oldest->second.lastUse))
            {
                oldest = slot;
            }
        }
        _slots.erase(oldest);
        --done;
    }
}

bool PackageScanCache::InUse() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return !_inUse.empty();
}

std::shared_ptr<const PackageScan> PackageScanCache::Kept(const std::string& path) const
{
    Identity identity;
    if (!IdentityOf(path, identity))
    {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(_mutex);
    const auto slot = _slots.find(path);
    if (slot == _slots.end() || slot->second.state != State::Done ||
        slot->second.identity != identity)
    {
        return nullptr;
    }
    return slot->second.scan;
}

bool PackageScanCache::InUse(const std::string& path) const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _inUse.count(path) != 0;
}

std::size_t PackageScanCache::Readings() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _readings;
}

void PackageScanCache::Clear()
{
    std::lock_guard<std::mutex> lock(_mutex);
    for (auto slot = _slots.begin(); slot != _slots.end();)
    {
        slot = slot->second.state == State::Reading ? std::next(slot) : _slots.erase(slot);
    }
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
