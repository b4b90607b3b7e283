#include "GzipStream.h"

#include <archive.h>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

namespace
{

// 16 + the largest window: a gzip wrapper, whose trailer zlib checks.
constexpr int GzipWindowBits = 16 + MAX_WBITS;

la_ssize_t ReadCallback(archive*, void* clientData, const void** block)
{
    return static_cast<GzipStream*>(clientData)->Read(block);
}

} // namespace

GzipStream::~GzipStream()
{
    if (_streamReady)
        inflateEnd(&_stream);
    if (_fd >= 0)
        ::close(_fd);
}

bool GzipStream::OpenFor(archive* reader, const std::string& path)
{
    _fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (_fd < 0)
        return false;
    if (inflateInit2(&_stream, GzipWindowBits) != Z_OK)
        return false;
    _streamReady = true;
    // An empty file is no package: the reader is told at once, like
    // libarchive's own open would.
    if (!Fill())
        return false;
    if (_stream.avail_in == 0)
    {
        _damaged = true;
        return false;
    }
    if (archive_read_open(reader, this, nullptr, ReadCallback, nullptr) != ARCHIVE_OK)
    {
        // The reader looks at the first bytes when it opens: what it refuses, read without
        // an error, is no package either.
        _damaged = _damaged || !_readFailed;
        return false;
    }
    return true;
}

bool GzipStream::Fill()
{
    if (_stopCheck && _stopCheck())
    {
        _failed = true;
        _stopped = true;
        return false;
    }
    for (;;)
    {
        const ssize_t count = ::read(_fd, _input.data(), _input.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
        {
            _failed = true;
            _readFailed = true;
            return false;
        }
        _stream.next_in = _input.data();
        _stream.avail_in = static_cast<uInt>(count);
        return true;
    }
}

ssize_t GzipStream::Read(const void** block)
{
    *block = _output.data();
    while (!_failed && !_ended)
    {
        if (_stream.avail_in == 0 && !Fill())
            return -1;
        if (_stream.avail_in == 0)
        {
            // The file ends inside a member: cut short.
            _failed = true;
            _damaged = true;
            return -1;
        }
        _stream.next_out = _output.data();
        _stream.avail_out = static_cast<uInt>(_output.size());
        const int status = inflate(&_stream, Z_NO_FLUSH);
        const ssize_t produced = static_cast<ssize_t>(_output.size() - _stream.avail_out);
        if (status == Z_STREAM_END)
        {
            // Another member may follow, as gzip itself allows; anything
            // else after a member is damage.
            if (_stream.avail_in == 0 && !Fill())
                return -1;
            if (_stream.avail_in == 0)
                _ended = true;
            else if (inflateReset(&_stream) != Z_OK)
                _failed = true;
        }
        else if (status != Z_OK && status != Z_BUF_ERROR)
        {
            // Only a lack of memory says nothing about the file.
            _failed = true;
            _damaged = status != Z_MEM_ERROR;
            return -1;
        }
        if (produced > 0)
            return produced;
    }
    return _failed ? -1 : 0;
}

bool GzipStream::Finish()
{
    const void* block = nullptr;
    ssize_t count = 0;
    while ((count = Read(&block)) > 0)
    {
    }
    return count == 0 && _ended && !_failed;
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
