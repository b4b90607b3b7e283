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
    // An answer file on the key: installed at once (-a, --auto), or never
    // looked at (--no-auto); by default the main menu counts down before it.
    // The last of the two wins.
    bool autoNow = false;
    bool noAuto = false;

    // Parses argv with getopt_long ("mite:ra"). Unknown options and missing
    // arguments are ignored silently: no usage text ever reaches the console.
    void Parse(int argc, char* argv[]);
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
