#include "InstallWizard.h"

#include <sys/stat.h>

using Kel::Vidorama::InstallerWizard::CommandLineOptions;
using Kel::Vidorama::InstallerWizard::InstallWizard;

int main(int argc, char* argv[])
{
    // Files created by the program and its children lose write and execute for others.
    umask(3);
    try
    {
        // Opens the curses session before any option is read.
        InstallWizard wizard;
        CommandLineOptions options = wizard.DefaultOptions();
        options.Parse(argc, argv);
        wizard.ApplyOptions(options);
        return wizard.Start();
    }
    catch (...)
    {
        // Reached only after the wizard was destroyed (curses ended); the
        // runtime then ends the process as for any uncaught exception.
        throw;
    }
}
