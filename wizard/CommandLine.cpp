#include "CommandLine.h"

#include <getopt.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

namespace
{

// A long option without a short one.
const int NoAuto = 256;

} // namespace

void CommandLineOptions::Parse(int argc, char* argv[])
{
    static const option longOptions[] = {
        {"maintenance", no_argument, nullptr, 'm'},    {"install", no_argument, nullptr, 'i'},
        {"timer", no_argument, nullptr, 't'},          {"message", required_argument, nullptr, 'e'},
        {"show-revisions", no_argument, nullptr, 'r'}, {"auto", no_argument, nullptr, 'a'},
        {"no-auto", no_argument, nullptr, NoAuto},     {nullptr, 0, nullptr, 0},
    };

    // getopt keeps global state; 0 asks glibc for a full restart of the scan.
    optind = 0;
    // curses owns the screen: getopt must not print its own diagnostics.
    opterr = 0;
    int c;
    while ((c = getopt_long(argc, argv, "mite:ra", longOptions, nullptr)) != -1)
    {
        switch (c)
        {
        case 'm':
            runningFromDisk = true;
            runningFromUsbKey = false;
            break;
        case 'i':
            runningFromUsbKey = true;
            runningFromDisk = false;
            break;
        case 't':
            timer = true;
            break;
        case 'r':
            showRevisions = true;
            break;
        case 'e':
            message = optarg;
            break;
        case 'a':
            autoNow = true;
            noAuto = false;
            break;
        case NoAuto:
            noAuto = true;
            autoNow = false;
            break;
        default:
            break;
        }
    }
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
