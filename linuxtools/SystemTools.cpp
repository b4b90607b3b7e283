#include "SystemTools.h"

#include "RootUserGuard.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>

#include <dirent.h>
#include <linux/reboot.h>
#include <signal.h>
#include <sys/reboot.h>
#include <sys/sysinfo.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Kel
{
namespace ZarnLinuxTools
{

namespace
{

constexpr long NanosecondsPerSecond = 1000000000L;

// Descriptor count used when the system will not tell its limit.
constexpr long DefaultOpenMax = 8192;

// A byte of this value ends the copy of a command's output just as the end of
// the stream does: output is handled as plain chars, where 0xFF and EOF look
// the same. The cut-off is kept on purpose; the tools run here print text.
constexpr int OutputEndByte = 0xFF;

struct DirCloser
{
    void operator()(DIR* dir) const { closedir(dir); }
};

// Runs in the forked child: never returns. Only async-signal-safe calls here,
// the parent may have other threads holding locks at fork time.
[[noreturn]] void StartChild(char* const argv[], bool asRoot, long openMax)
{
    if (asRoot && setuid(0) != 0)
    {
        _exit(1);
    }

    // 0, 1 and 2 are inherited on purpose; nothing else of ours may leak into
    // the program.
    if (openMax >= 4)
    {
        for (long fd = 3; fd < openMax; ++fd)
        {
            close(static_cast<int>(fd));
        }
    }

    if (argv[0] != nullptr)
    {
        // No PATH search and no inherited variables: the program is named by
        // its full path and starts with a clean environment.
        char* const emptyEnvironment[] = {nullptr};
        execve(argv[0], argv, emptyEnvironment);
    }
    _exit(1);
}

int WaitIdRetrying(pid_t pid, siginfo_t& info, int options)
{
    int rc;
    do
    {
        rc = waitid(P_PID, static_cast<id_t>(pid), &info, options);
    } while (rc == -1 && errno == EINTR);
    return rc;
}

} // namespace

timespec AddTimseSpec(timespec a, timespec b)
{
    timespec sum;
    sum.tv_sec = a.tv_sec + b.tv_sec;
    sum.tv_nsec = a.tv_nsec + b.tv_nsec;
    if (sum.tv_nsec >= NanosecondsPerSecond)
    {
        sum.tv_nsec -= NanosecondsPerSecond;
        ++sum.tv_sec;
    }
    return sum;
}

bool SubTimseSpec(timespec a, timespec b, timespec& result)
{
    result.tv_sec = a.tv_sec - b.tv_sec;
    result.tv_nsec = a.tv_nsec - b.tv_nsec;
    if (result.tv_nsec < 0)
    {
        result.tv_nsec += NanosecondsPerSecond;
        --result.tv_sec;
    }
    return result.tv_sec >= 0;
}

namespace detail
{

bool ReadFirstLine(const char* path, std::string& keep)
{
    if (path == nullptr)
    {
        return false;
    }
    std::ifstream file(path);
    if (!file.is_open())
    {
        return false;
    }
    std::string line;
    std::getline(file, line);
    keep = line;
    return true;
}

std::vector<std::string> SplitCommandLine(const char* commandLine)
{
    std::vector<std::string> arguments;
    if (commandLine == nullptr || *commandLine == '\0')
    {
        return arguments;
    }

    arguments.emplace_back();
    bool quoted = false;
    for (const char* c = commandLine; *c != '\0'; ++c)
    {
        if (*c == '"')
        {
            quoted = !quoted;
        }
        else if (*c == ' ' && !quoted)
        {
            // Every blank opens a new argument, even right after another one;
            // the resulting empty arguments are passed on as they are.
            arguments.emplace_back();
        }
        else
        {
            arguments.back().push_back(*c);
        }
    }
    return arguments;
}

} // namespace detail

bool SystemTools::ExecuteCommand(const char* command, std::ostream& out, bool asRoot)
{
    std::optional<RootUserGuard> root;
    if (asRoot)
    {
        root.emplace();
        if (!root->Succeeded())
        {
            return false;
        }
    }

    FILE* pipe = (command != nullptr) ? popen(command, "r") : nullptr;
    if (pipe == nullptr)
    {
        // Deliberately not restored on this path: the ids stay switched.
        if (root)
        {
            root->Dismiss();
        }
        return false;
    }

    for (;;)
    {
        const int value = fgetc(pipe);
        if (value == EOF || value == OutputEndByte)
        {
            break;
        }
        out.put(static_cast<char>(value));
    }

    // The raw wait status: any exit code or signal makes it non-zero.
    return pclose(pipe) == 0;
}

bool SystemTools::ExecuteCommand(const char* command, std::ostream& out)
{
    return ExecuteCommand(command, out, false);
}

int SystemTools::ExecuteBackgroundCommand(const char* commandLine, bool asRoot)
{
    // SIGCHLD stays blocked after we return so that the timed wait can take
    // the child's signal with sigtimedwait instead of losing it to a handler.
    sigset_t childSignal;
    sigemptyset(&childSignal);
    sigaddset(&childSignal, SIGCHLD);
    pthread_sigmask(SIG_BLOCK, &childSignal, nullptr);

    std::vector<std::string> arguments = detail::SplitCommandLine(commandLine);
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments)
    {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);

    // Asked before the fork: the child should do as little as possible.
    long openMax = sysconf(_SC_OPEN_MAX);
    if (openMax == -1)
    {
        openMax = DefaultOpenMax;
    }

    const pid_t pid = fork();
    if (pid == 0)
    {
        StartChild(argv.data(), asRoot, openMax);
    }
    return static_cast<int>(pid);
}

int SystemTools::ExecuteBackgroundCommand(const char* commandLine)
{
    return ExecuteBackgroundCommand(commandLine, false);
}

bool SystemTools::WaitEndBackgroundCommand(int pid, unsigned long& status)
{
    if (pid < 1)
    {
        return false;
    }

    // WNOWAIT: the caller reaps the child; we only look at it.
    siginfo_t info;
    std::memset(&info, 0, sizeof(info));
    if (WaitIdRetrying(pid, info, WEXITED | WSTOPPED | WCONTINUED | WNOWAIT) != 0)
    {
        return false;
    }
    if (info.si_pid != pid)
    {
        return false;
    }
    status = static_cast<unsigned long>(info.si_status);
    return true;
}

bool SystemTools::WaitEndBackgroundCommand(int pid, unsigned long timeoutMs, unsigned long& status)
{
    sigset_t childSignal;
    sigemptyset(&childSignal);
    sigaddset(&childSignal, SIGCHLD);
    if (pid < 1)
    {
        return false;
    }

    timespec timeout;
    timeout.tv_sec = static_cast<time_t>(timeoutMs / 1000);
    timeout.tv_nsec = static_cast<long>(timeoutMs % 1000) * 1000000L;

    // The deadline is kept on this process's CPU-time clock: the time spent
    // asleep in sigtimedwait does not use it up, so SIGCHLDs of other children
    // do not shorten the wait for this one. The sleep itself is bounded by
    // sigtimedwait's own time-out.
    timespec now;
    if (clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now) != 0)
    {
        return false;
    }
    const timespec deadline = AddTimseSpec(now, timeout);

    for (;;)
    {
        siginfo_t info;
        std::memset(&info, 0, sizeof(info));
        if (WaitIdRetrying(pid, info, WNOHANG | WEXITED | WSTOPPED | WCONTINUED | WNOWAIT) != 0)
        {
            return false;
        }
        if (info.si_pid == pid)
        {
            status = static_cast<unsigned long>(info.si_status);
            return true;
        }

        if (clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now) != 0)
        {
            return false;
        }
        timespec remaining;
        SubTimseSpec(deadline, now, remaining);
        if (remaining.tv_sec < 0)
        {
            remaining.tv_sec = 0;
            remaining.tv_nsec = 0;
        }

        siginfo_t signalInfo;
        std::memset(&signalInfo, 0, sizeof(signalInfo));
        int signalNumber;
        do
        {
            signalNumber = sigtimedwait(&childSignal, &signalInfo, &remaining);
        } while (signalNumber == -1 && errno == EINTR);
        if (signalNumber == -1)
        {
            return false;
        }
        if (signalNumber == SIGCHLD && signalInfo.si_pid == pid)
        {
            status = static_cast<unsigned long>(signalInfo.si_status);
            return true;
        }
    }
}

bool SystemTools::Reboot()
{
    // No way back from here: the ids are not restored.
    const int switched = setuid(0);
    static_cast<void>(switched);
    sync();
    return reboot(LINUX_REBOOT_CMD_RESTART) == 0;
}

int SystemTools::Reboot(int delay)
{
    const std::string commandLine = "/sbin/reboot -d " + std::to_string(delay);
    sync();
    return ExecuteBackgroundCommand(commandLine.c_str(), true);
}

const char* SystemTools::GetKernelCommandLine()
{
    // Keeps the last text read, so a failed read still answers.
    static std::string commandLine;
    detail::ReadFirstLine("/proc/cmdline", commandLine);
    return commandLine.c_str();
}

long SystemTools::GetRamTotalSize()
{
    struct sysinfo info;
    if (sysinfo(&info) != 0)
    {
        return -1;
    }
    // In units of info.mem_unit, as the kernel gives it.
    return static_cast<long>(info.totalram);
}

int SystemTools::GetProcessList(std::vector<std::string>& processes)
{
    std::unique_ptr<DIR, DirCloser> proc(opendir("/proc"));
    if (!proc)
    {
        return 0;
    }

    // Every entry is tried, not only the numeric ones; those without an
    // "exe" link simply give nothing.
    while (const dirent* entry = readdir(proc.get()))
    {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
        {
            continue;
        }
        char linkPath[512];
        std::snprintf(linkPath, sizeof(linkPath), "/proc/%s/exe", entry->d_name);

        char target[4096];
        std::memset(target, 0, sizeof(target));
        const ssize_t length = readlink(linkPath, target, sizeof(target) - 1);
        if (length >= 1)
        {
            const char* slash = std::strrchr(target, '/');
            processes.emplace_back(slash != nullptr ? slash + 1 : target);
        }
    }
    return static_cast<int>(processes.size());
}

} // namespace ZarnLinuxTools
} // namespace Kel
