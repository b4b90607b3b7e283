#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// Reads package files ahead of need on a thread of its own, one at a time and at a lower
// priority, into PackageScanCache, so that an installation finds its package already read.
// It gives way while an installation is under way (PackageScanCache::Use), reads nothing
// twice, writes nothing, and stops at its next block when it is stopped or destroyed.
class PackageScanner
{
public:
    PackageScanner() = default;
    // Stops the reading and waits for the thread.
    ~PackageScanner();
    PackageScanner(const PackageScanner&) = delete;
    PackageScanner& operator=(const PackageScanner&) = delete;

    // The packages to read, in this order (highest first), replacing those not yet begun.
    // Returns at once.
    void Start(const std::vector<std::string>& paths);
    // Ends the reading under way at its next block and forgets the rest; the thread ends.
    void Stop();
    // Waits until every package given has been read (or the scanner stopped). For callers
    // that have nothing else to do; not for the user-interface thread.
    void WaitIdle();
    // Packages given and not yet read.
    std::size_t Pending() const;

private:
    void Loop();

    mutable std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<std::string> _pending;
    bool _busy = false;
    std::atomic<bool> _stop{false};
    std::thread _thread;
};

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
