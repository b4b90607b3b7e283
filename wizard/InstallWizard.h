#pragma once

#include "CommandLine.h"
#include "StartStep.h"
#include "TextStep.h"
#include "Wizard.h"

#include <fstream>

namespace Kel { namespace Vidorama { namespace InstallerWizard {

// The application: owns every step, runs the main loop and answers the
// run-context questions (where the program runs from, where its files are).
class InstallWizard : public Wizard
{
public:
    InstallWizard();
    ~InstallWizard() override;

    int Start() override;

    // Hands the parsed command line to the steps that use it.
    void ApplyOptions(const CommandLineOptions& options);
    // The options as they stand before parsing: the mode flags of the main menu.
    CommandLineOptions DefaultOptions() const;

    // One line per call to "installer.log" in the working directory.
    static void log(int level, const char* message);

    static bool IsRunningFromUsbKey();
    static bool IsRunningFromDisk();
    static const char* GetDataPath();
    static const char* GetExePath();
    static const char* GetDriversPath();
    static const char* GetUcodeZarnPath();

private:
    static std::ofstream* _log;

    // Built once, in this order, and reused for every visit of the main loop.
    StartStep _startStep;
    TextStep _contactsStep;
    TextStep _licensesStep;
};

}}} // namespace Kel::Vidorama::InstallerWizard
