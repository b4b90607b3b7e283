#include "FuzzScratchDirectory.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace Fuzz
{

FuzzScratchDirectory& FuzzScratchDirectory::Get()
{
    static FuzzScratchDirectory directory;
    return directory;
}

FuzzScratchDirectory::FuzzScratchDirectory()
{
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/wizard-fuzz-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (::mkdtemp(buffer.data()) == nullptr)
    {
        std::perror("mkdtemp");
        std::abort();
    }
    path_ = buffer.data();
}

FuzzScratchDirectory::~FuzzScratchDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

bool FuzzScratchDirectory::WriteFile(const std::string& file, const std::string& contents)
{
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    return static_cast<bool>(out);
}

} // namespace Fuzz
} // namespace Vidorama
} // namespace Kel
