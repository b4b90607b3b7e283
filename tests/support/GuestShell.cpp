#include "GuestShell.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Sandbox
{

bool InSandbox()
{
    char cwd[64] = {};
    return ::getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work";
}

ShellResult Shell(const std::string& command)
{
    ShellResult result;
    FILE* pipe = ::popen(("{ " + command + "\n} 2>&1").c_str(), "r");
    if (pipe == nullptr)
    {
        return result;
    }
    std::array<char, 4096> buffer;
    size_t count = 0;
    while ((count = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
    {
        result.output.append(buffer.data(), count);
    }
    result.status = ::pclose(pipe);
    return result;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream input(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(input), {});
}

bool WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream output(path, std::ios::binary | std::ios::trunc);
    output << text;
    output.close();
    return !output.fail();
}

std::uint64_t BlockDeviceBytes(const char* device)
{
    const int descriptor = ::open(device, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
    {
        return 0;
    }
    std::uint64_t bytes = 0;
    if (::ioctl(descriptor, BLKGETSIZE64, &bytes) != 0)
    {
        bytes = 0;
    }
    ::close(descriptor);
    return bytes;
}

} // namespace Sandbox
