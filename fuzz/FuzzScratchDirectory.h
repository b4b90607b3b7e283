#pragma once

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace Fuzz
{

// One private directory under $TMPDIR (or /tmp) for the parsers that only read
// files, made once per process and removed with everything in it at exit. A
// fuzzer calls its target many thousand times a second: making a fresh
// directory each time would measure the file system rather than the parser.
class FuzzScratchDirectory
{
public:
    // The process-wide directory; aborts when none can be made, since no
    // input could be tried then.
    static FuzzScratchDirectory& Get();

    // Without a trailing "/".
    const std::string& GetPath() const { return path_; }

    // Replaces the file's contents; false when it cannot be written.
    static bool WriteFile(const std::string& file, const std::string& contents);

    FuzzScratchDirectory(const FuzzScratchDirectory&) = delete;
    FuzzScratchDirectory& operator=(const FuzzScratchDirectory&) = delete;

private:
    FuzzScratchDirectory();
    ~FuzzScratchDirectory();

    std::string path_;
};

} // namespace Fuzz
} // namespace Vidorama
} // namespace Kel
