#pragma once

#include "WizardStep.h"

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Hands the terminal to an interactive command: leaves curses mode, runs the
// command through the shell in a working directory, comes back.
class ExternalCommandStep : public WizardStep
{
public:
    ExternalCommandStep(const char* title, const char* command, const char* workingDirectory,
                        bool runAsRoot);

    // Always true: a failing command is not noticed.
    bool Run() override;
    // True when the command text names an existing regular file.
    bool CommandIsAFile() const;
    // Kept for callers; the command runs with the program's own ids.
    bool IsRunAsRoot() const { return _runAsRoot; }

private:
    std::string _command;
    std::string _workingDirectory;
    bool _runAsRoot;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
