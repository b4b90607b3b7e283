#pragma once

// What the step programs share: a curses session (Wizard) that keeps its
// command-line words for Start(), and the first target disk the steps work on.

#include "Disk.h"
#include "DiskDiagnostics.h"
#include "Wizard.h"

#include <memory>
#include <string>
#include <vector>

namespace StepPrograms
{

inline std::shared_ptr<Kel::ZarnLinuxTools::Disk> FirstDisk()
{
    std::unique_ptr<std::vector<Kel::ZarnLinuxTools::Disk>> disks(
        Kel::ZarnLinuxTools::DiskDiagnostics::GetDisks());
    if (!disks || disks->empty())
        return nullptr;
    return std::make_shared<Kel::ZarnLinuxTools::Disk>(disks->front());
}

class StepProgram : public Kel::Vidorama::InstallerWizard::Wizard
{
public:
    StepProgram(int argc, char* argv[]) : _arguments(argv + 1, argv + argc) {}

protected:
    // The word after the mode words, or "" when there are fewer.
    std::string Argument(size_t index) const
    {
        return index < _arguments.size() ? _arguments[index] : "";
    }

private:
    std::vector<std::string> _arguments;
};

// main() of a step program: builds it (which opens the curses session) and runs it.
template <class Program> int Main(int argc, char* argv[])
{
    Program program(argc, argv);
    return program.Start();
}

} // namespace StepPrograms
