#pragma once

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

struct archive;

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// The gzip layer of a Linux package, inflated here rather than by libarchive:
// libarchive's own gzip reader never checks a stream's CRC-32 and length, so
// damage that deflate decodes into other bytes of the same length would go
// unnoticed, and the extracted installer is run as root. The inflater checks
// both at the end of each gzip member; Finish() reads up to there. The
// inflater is ISA-L's where the build has it (two to three times zlib's speed
// on x86-64), zlib's otherwise; both check the same things.
class GzipStream
{
public:
    GzipStream();
    ~GzipStream();
    GzipStream(const GzipStream&) = delete;
    GzipStream& operator=(const GzipStream&) = delete;

    // Opens the file and makes its inflated bytes reader's input (a tar is
    // then read from them). False when the file cannot be opened or read.
    bool OpenFor(archive* reader, const std::string& path);

    // Inflates whatever the reader left unread and tells whether the whole
    // file was sound: every member ended with a matching CRC-32 and length,
    // and nothing but further members followed.
    bool Finish();

    // Whether the file's bytes proved it damaged: empty, not gzip, a member
    // cut short or failing its checks, something else after a member, or
    // inflated bytes that the reader refused when it was opened. A file that
    // could not be read is not known to be damaged.
    bool IsDamaged() const { return _damaged; }
    // Whether reading the file failed (an I/O error, not its contents).
    bool ReadFailed() const { return _readFailed; }

    // Asked before each block is read from the file: true gives up the
    // reading there (the stream then fails without being damaged), so that
    // a pass nobody waits for any more ends promptly.
    void SetStopCheck(std::function<bool()> check) { _stopCheck = std::move(check); }
    // Whether the stop check ended the reading.
    bool Stopped() const { return _stopped; }

    // The next inflated block for libarchive: its size, 0 at the end, -1 on
    // damage or a read error.
    ssize_t Read(const void** block);

    // The inflater this build uses: "isa-l" or "zlib".
    static const char* InflaterName();

private:
    class Inflater;

    bool Fill();

    int _fd = -1;
    bool _ended = false;  // the last member ended cleanly and the file is consumed
    bool _failed = false; // damage or a read error; sticks
    bool _damaged = false;
    bool _readFailed = false;
    bool _stopped = false;
    std::function<bool()> _stopCheck;
    std::unique_ptr<Inflater> _inflater;
    // The part of _input not yet inflated.
    unsigned char* _next = nullptr;
    std::size_t _available = 0;
    std::vector<unsigned char> _input = std::vector<unsigned char>(65536);
    std::vector<unsigned char> _output = std::vector<unsigned char>(131072);
};

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
