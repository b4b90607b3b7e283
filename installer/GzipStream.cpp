#include "GzipStream.h"

#include <archive.h>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#ifdef WIZARD_HAVE_ISAL
#include <isa-l/igzip_lib.h>
#else
#include <zlib.h>
#endif

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

namespace
{

la_ssize_t ReadCallback(archive*, void* clientData, const void** block)
{
    return static_cast<GzipStream*>(clientData)->Read(block);
}

} // namespace

// One gzip member at a time: inflates what it is given, and tells when the member ended with
// its CRC-32 and length checked.
class GzipStream::Inflater
{
public:
    enum class Status
    {
        // Went on; more input or more room may be needed.
        Going,
        // The member ended and its trailer matched.
        MemberEnd,
        // The bytes are no sound gzip member.
        Damage,
        // Out of memory: says nothing about the file.
        NoMemory
    };

#ifdef WIZARD_HAVE_ISAL
    Inflater()
    {
        isal_inflate_init(&_state);
        _state.crc_flag = ISAL_GZIP;
    }
    bool Ready() const
    {
        return true;
    }

    Status Run(unsigned char*& next, std::size_t& available, unsigned char* out, std::size_t room,
               std::size_t& produced)
    {
        // ISA-L lets a member's reserved flag bits pass; zlib, gzip and the package's own
        // installer refuse such a member, so it is refused here too before it is inflated.
        if (_headerSeen <= FlagsOffset && FlagsOffset - _headerSeen < available &&
            (next[FlagsOffset - _headerSeen] & ReservedFlags) != 0)
        {
            return Status::Damage;
        }
        const std::size_t before = available;
        _state.next_in = next;
        _state.avail_in = static_cast<uint32_t>(available);
        _state.next_out = out;
        _state.avail_out = static_cast<uint32_t>(room);
        const int status = isal_inflate(&_state);
        next = _state.next_in;
        available = _state.avail_in;
        produced = room - _state.avail_out;
        if (_headerSeen <= FlagsOffset)
        {
            _headerSeen += before - available;
        }
        if (status != ISAL_DECOMP_OK)
        {
            // Every other answer (bad block, symbol, distance, wrapper, checksum) is the data's.
            return Status::Damage;
        }
        return _state.block_state == ISAL_BLOCK_FINISH ? Status::MemberEnd : Status::Going;
    }

    bool Reset()
    {
        isal_inflate_reset(&_state);
        _state.crc_flag = ISAL_GZIP;
        _headerSeen = 0;
        return true;
    }

private:
    // The member header's flag byte and its bits that no gzip version defines.
    static constexpr std::size_t FlagsOffset = 3;
    static constexpr unsigned char ReservedFlags = 0xE0;

    inflate_state _state;
    // Bytes of the current member given to ISA-L so far, counted until past the flags.
    std::size_t _headerSeen = 0;
#else
    Inflater()
    {
        _ready = inflateInit2(&_stream, GzipWindowBits) == Z_OK;
    }
    ~Inflater()
    {
        if (_ready)
            inflateEnd(&_stream);
    }
    bool Ready() const
    {
        return _ready;
    }

    Status Run(unsigned char*& next, std::size_t& available, unsigned char* out, std::size_t room,
               std::size_t& produced)
    {
        _stream.next_in = next;
        _stream.avail_in = static_cast<uInt>(available);
        _stream.next_out = out;
        _stream.avail_out = static_cast<uInt>(room);
        const int status = inflate(&_stream, Z_NO_FLUSH);
        next = _stream.next_in;
        available = _stream.avail_in;
        produced = room - _stream.avail_out;
        if (status == Z_STREAM_END)
            return Status::MemberEnd;
        if (status == Z_OK || status == Z_BUF_ERROR)
            return Status::Going;
        return status == Z_MEM_ERROR ? Status::NoMemory : Status::Damage;
    }

    bool Reset()
    {
        return inflateReset(&_stream) == Z_OK;
    }

private:
    // 16 + the largest window: a gzip wrapper, whose trailer zlib checks.
    static constexpr int GzipWindowBits = 16 + MAX_WBITS;

    z_stream _stream = {};
    bool _ready = false;
#endif
};

GzipStream::GzipStream() = default;

GzipStream::~GzipStream()
{
    if (_fd >= 0)
        ::close(_fd);
}

const char* GzipStream::InflaterName()
{
#ifdef WIZARD_HAVE_ISAL
    return "isa-l";
#else
    return "zlib";
#endif
}

bool GzipStream::OpenFor(archive* reader, const std::string& path)
{
    _fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (_fd < 0)
        return false;
    _inflater = std::make_unique<Inflater>();
    if (!_inflater->Ready())
        return false;
    // An empty file is no package: the reader is told at once, like
    // libarchive's own open would.
    if (!Fill())
        return false;
    if (_available == 0)
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
        _next = _input.data();
        _available = static_cast<std::size_t>(count);
        return true;
    }
}

ssize_t GzipStream::Read(const void** block)
{
    *block = _output.data();
    while (!_failed && !_ended)
    {
        if (_available == 0 && !Fill())
            return -1;
        if (_available == 0)
        {
            // The file ends inside a member: cut short.
            _failed = true;
            _damaged = true;
            return -1;
        }
        std::size_t produced = 0;
        const Inflater::Status status =
            _inflater->Run(_next, _available, _output.data(), _output.size(), produced);
        if (status == Inflater::Status::MemberEnd)
        {
            // Another member may follow, as gzip itself allows; anything
            // else after a member is damage.
            if (_available == 0 && !Fill())
                return -1;
            if (_available == 0)
                _ended = true;
            else if (!_inflater->Reset())
                _failed = true;
        }
        else if (status != Inflater::Status::Going)
        {
            // Only a lack of memory says nothing about the file.
            _failed = true;
            _damaged = status == Inflater::Status::Damage;
            return -1;
        }
        if (produced > 0)
            return static_cast<ssize_t>(produced);
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
