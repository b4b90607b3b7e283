#pragma once

#include <cstdint>
#include <string>

namespace Sandbox
{

// Small helpers of the test programs that run inside the sandbox guest.

// True only in the guest, where run mode starts programs in /io/work. Tests that
// partition, format or mount check this first and refuse to run anywhere else.
bool InSandbox();

struct ShellResult
{
    // The wait status as pclose gives it; -1 when the shell could not be started.
    int status = -1;
    // Standard output and standard error together.
    std::string output;
};

// Runs command with /bin/sh, its standard error merged into the output.
ShellResult Shell(const std::string& command);

// The whole file; empty when it cannot be read.
std::string ReadFile(const std::string& path);

// Replaces the file with text; false when it cannot be written.
bool WriteFile(const std::string& path, const std::string& text);

// The size of a block device in bytes; 0 when it cannot be asked. Tests check
// it before they touch a disk, so that only their own scratch images are used.
std::uint64_t BlockDeviceBytes(const char* device);

} // namespace Sandbox
