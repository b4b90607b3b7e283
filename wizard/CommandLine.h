#pragma once

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// What the command line asks for. The mode flags start from the kernel command
// line's answers and are overwritten by -m / -i; the last of them wins.
struct CommandLineOptions
{
    bool runningFromDisk = false;
    bool runningFromUsbKey = false;
    bool timer = false;
    bool showRevisions = false;
    std::string message;

    // Parses argv with getopt_long ("mite:r"). Unknown options and missing
    // arguments are ignored silently: no usage text ever reaches the console.
    void Parse(int argc, char* argv[]);
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
