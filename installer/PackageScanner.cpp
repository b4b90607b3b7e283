#include "PackageScanner.h"

#include "PackageScanCache.h"

#include <chrono>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

namespace
{

// Below the user-interface thread and the installation: the operator does not feel it.
constexpr int BackgroundNice = 10;

// Linux gives each thread its own nice value and I/O priority.
void SetThreadPriority(int nice, int ioLevel)
{
    const pid_t thread = static_cast<pid_t>(::syscall(SYS_gettid));
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(thread), nice);
#ifdef SYS_ioprio_set
    // IOPRIO_WHO_PROCESS, best-effort class at the given level (0 highest, 7 lowest).
    constexpr int IoprioWhoProcess = 1;
    constexpr int IoprioClassBestEffort = 2;
    ::syscall(SYS_ioprio_set, IoprioWhoProcess, thread, (IoprioClassBestEffort << 13) | ioLevel);
#else
    (void)ioLevel;
#endif
}

} // namespace

PackageScanner::~PackageScanner()
{
    Stop();
}

void PackageScanner::Start(const std::vector<std::string>& paths)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _pending.assign(paths.begin(), paths.end());
    if (!_thread.joinable())
    {
        _stop = false;
        _thread = std::thread(&PackageScanner::Loop, this);
    }
    _changed.notify_all();
}

void PackageScanner::Stop()
{
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _stop = true;
        _pending.clear();
        _changed.notify_all();
    }
    if (_thread.joinable())
    {
        _thread.join();
    }
}

void PackageScanner::WaitIdle()
{
    std::unique_lock<std::mutex> lock(_mutex);
    _changed.wait(lock, [this] { return _stop || (_pending.empty() && !_busy); });
}

std::size_t PackageScanner::Pending() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _pending.size() + (_busy ? 1 : 0);
}

void PackageScanner::Loop()
{
    SetThreadPriority(BackgroundNice, 7);
    PackageScanCache& cache = PackageScanCache::Instance();
    std::unique_lock<std::mutex> lock(_mutex);
    for (;;)
    {
        _changed.wait(lock, [this] { return _stop || !_pending.empty(); });
        if (_stop)
        {
            break;
        }
        // An installation under way has the key to itself; it is looked at again now and
        // then, since the installation does not tell this thread when it ends.
        if (cache.InUse())
        {
            _changed.wait_for(lock, std::chrono::milliseconds(200));
            continue;
        }
        const std::string path = _pending.front();
        _pending.pop_front();
        _busy = true;
        lock.unlock();

        bool raised = false;
        const bool read = cache.Prepare(path,
                                        [this, &cache, &path, &raised]
                                        {
                                            if (_stop)
                                            {
                                                return true;
                                            }
                                            if (!cache.InUse())
                                            {
                                                return false;
                                            }
                                            if (!cache.InUse(path))
                                            {
                                                // Another package is being installed: give way,
                                                // read this one later.
                                                return true;
                                            }
                                            // The installation waits for this very reading: it goes
                                            // on at full speed.
                                            if (!raised)
                                            {
                                                SetThreadPriority(0, 4);
                                                raised = true;
                                            }
                                            return false;
                                        });
        if (raised)
        {
            SetThreadPriority(BackgroundNice, 7);
        }

        lock.lock();
        _busy = false;
        if (!read && !_stop)
        {
            _pending.push_front(path);
        }
        _changed.notify_all();
    }
    _busy = false;
    _changed.notify_all();
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
