#include "ExternalCommandStep.h"

#include "InstallWizard.h"

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

ExternalCommandStep::ExternalCommandStep(const char* title, const char* command,
                                         const char* workingDirectory, bool runAsRoot)
    : WizardStep(title, ""), _command(command), _workingDirectory(workingDirectory),
      _runAsRoot(runAsRoot)
{
}

bool ExternalCommandStep::CommandIsAFile() const
{
    struct stat info;
    return stat(_command.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool ExternalCommandStep::Run()
{
    // The command owns the terminal until it ends.
    endwin();

    char saved[4096];
    const bool haveSaved = getcwd(saved, sizeof(saved)) != nullptr;
    if (!haveSaved)
        InstallWizard::log(1, "Error reading working directory");

    // An empty line marks each command start in the log.
    InstallWizard::log(0, "");

    if (chdir(_workingDirectory.c_str()) != 0)
    {
        // The command still runs, in the directory the program was in.
        const std::string message = "Error changing working directory to : " + _workingDirectory;
        InstallWizard::log(1, message.c_str());
    }

    // Its exit status is not looked at.
    const int ignored = std::system(_command.c_str());
    (void)ignored;

    if (!haveSaved || chdir(saved) != 0)
        InstallWizard::log(1, "Error restoring working directory");

    // Back to curses mode; whatever the command printed last is drawn over.
    refresh();
    return true;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
