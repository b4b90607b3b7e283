#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// How far the processes started by an installation have read the package file: the file
// position of whichever of them has the package open (/proc/PID/fd and /proc/PID/fdinfo),
// against the package's size. Read from /proc only; the parsing is kept apart so that it
// can be tried on texts.
class PackageReadProgress
{
public:
    // Percent (0 to 100) of the package at packagePath read by the processes below root
    // (root itself left out: it is the wizard, which reads the package for its own ends);
    // -1 when none of them has it open or it cannot be told. proc is where /proc is.
    static int Percent(pid_t root, const std::string& packagePath,
                       const std::string& proc = "/proc");

    // The "pos:" field of a /proc/PID/fdinfo/FD text; -1 when there is none.
    static std::int64_t FdinfoPosition(const std::string& fdinfo);
    // The parent process id in a /proc/PID/stat text (after the name in parentheses, which
    // may itself hold blanks and parentheses); -1 when it cannot be read.
    static pid_t StatParent(const std::string& stat);
    // The processes below root (not root itself) given every process's (id, parent id).
    static std::vector<pid_t> Descendants(pid_t root,
                                          const std::vector<std::pair<pid_t, pid_t>>& parents);
    // position against size in whole percent, at most 100; -1 when either is unknown.
    static int ToPercent(std::int64_t position, std::int64_t size);
};

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
