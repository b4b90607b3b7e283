#include "AtomicFile.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

namespace
{

std::atomic<unsigned> temporaryCounter{0};

std::string DirectoryOf(const std::string& path)
{
    const std::string::size_type slash = path.rfind('/');
    if (slash == std::string::npos)
    {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The rename is only durable once the directory entry itself reached the disk.
// Some file systems refuse to sync a directory; the file's data is synced
// anyway, so that is not treated as a failure.
void SyncDirectory(const std::string& directory)
{
    const int handle = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle >= 0)
    {
        ::fsync(handle);
        ::close(handle);
    }
}

} // namespace

AtomicFile::AtomicFile(const std::string& target) : target(target), descriptor(-1), failed(false)
{
    // Created with 0666 so that the process's file-creation mask decides the
    // permissions, as for a file opened the ordinary way. The name is unique to
    // the process and the call; a leftover of a crashed run is simply skipped.
    for (int attempt = 0; attempt < 100 && descriptor < 0; ++attempt)
    {
        temporary = target + "." + std::to_string(::getpid()) + "." +
                    std::to_string(temporaryCounter++) + ".tmp";
        descriptor = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor < 0 && errno != EEXIST)
        {
            break;
        }
    }
    if (descriptor < 0)
    {
        temporary.clear();
    }
}

AtomicFile::~AtomicFile()
{
    Discard();
}

bool AtomicFile::Write(const std::string& text)
{
    if (descriptor < 0 || failed)
    {
        return false;
    }
    const char* data = text.data();
    std::string::size_type left = text.size();
    while (left > 0)
    {
        const ssize_t written = ::write(descriptor, data, left);
        if (written < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            failed = true;
            return false;
        }
        data += written;
        left -= static_cast<std::string::size_type>(written);
    }
    return true;
}

bool AtomicFile::Commit()
{
    if (descriptor < 0 || failed)
    {
        Discard();
        return false;
    }
    const bool synced = ::fsync(descriptor) == 0;
    const bool closed = ::close(descriptor) == 0;
    descriptor = -1;
    if (!synced || !closed || ::rename(temporary.c_str(), target.c_str()) != 0)
    {
        Discard();
        return false;
    }
    temporary.clear();
    SyncDirectory(DirectoryOf(target));
    return true;
}

void AtomicFile::Discard()
{
    if (descriptor >= 0)
    {
        ::close(descriptor);
        descriptor = -1;
    }
    if (!temporary.empty())
    {
        ::unlink(temporary.c_str());
        temporary.clear();
    }
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
