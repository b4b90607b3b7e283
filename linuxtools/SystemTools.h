#pragma once

#include <ctime>
#include <ostream>
#include <string>
#include <vector>

namespace Kel
{
namespace ZarnLinuxTools
{

// a + b, nanoseconds kept in 0..999 999 999.
timespec AddTimseSpec(timespec a, timespec b);
// result = a - b, nanoseconds kept in 0..999 999 999; false when a - b < 0.
bool SubTimseSpec(timespec a, timespec b, timespec& result);

namespace detail
{

// Replaces keep with the first line of the file at path (without its newline)
// when the file opens; leaves keep untouched and returns false otherwise.
bool ReadFirstLine(const char* path, std::string& keep);

// Splits a command line into program arguments without any shell: blanks
// separate arguments (each blank opens a new one, so two blanks in a row give
// an empty argument), double quotes group blanks and are dropped. A null or
// empty line gives no argument at all.
std::vector<std::string> SplitCommandLine(const char* commandLine);

} // namespace detail

// Starting programs and asking the kernel about the machine. All static; the
// only state is the cached kernel command line.
class SystemTools
{
public:
    // Runs command through the shell and copies its output to out. True when
    // the command's wait status is 0.
    static bool ExecuteCommand(const char* command, std::ostream& out, bool asRoot);
    static bool ExecuteCommand(const char* command, std::ostream& out);

    // Starts a program without a shell and with an empty environment; the
    // program must be given by its full path. Returns the child's pid or -1.
    // Leaves SIGCHLD blocked in the calling thread.
    static int ExecuteBackgroundCommand(const char* commandLine, bool asRoot);
    static int ExecuteBackgroundCommand(const char* commandLine);

    // Both waits leave the child waitable; the caller reaps it.
    static bool WaitEndBackgroundCommand(int pid, unsigned long& status);
    static bool WaitEndBackgroundCommand(int pid, unsigned long timeoutMs, unsigned long& status);

    static bool Reboot();
    static int Reboot(int delay);

    // Owned by the class, valid until the next call; not thread-safe.
    static const char* GetKernelCommandLine();
    static long GetRamTotalSize();
    // Appends the executable names of the running processes; returns the
    // vector's size afterwards.
    static int GetProcessList(std::vector<std::string>& processes);
};

} // namespace ZarnLinuxTools
} // namespace Kel
