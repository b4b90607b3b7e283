#include "TempDir.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <stdlib.h>
#include <system_error>
#include <vector>

namespace Sandbox
{

TempDir::TempDir(const std::string& prefix)
{
    std::string pattern = prefix + "XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr)
        throw std::runtime_error("cannot create a directory " + pattern + ": " +
                                 std::strerror(errno));
    _path = buffer.data();
}

TempDir::~TempDir()
{
    std::error_code error;
    std::filesystem::remove_all(_path, error);
}

} // namespace Sandbox
