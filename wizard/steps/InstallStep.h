#pragma once

#include "Disk.h"
#include "InstallPackage.h"
#include "WizardStep.h"

#include <memory>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Installs the chosen package on the chosen, prepared disk: asks before
// overwriting an installed version, shows the installer's output while a
// worker thread installs, reports the outcome, and on success makes the new
// kind of version (DOS or Linux) the default boot entry.
class InstallStep : public WizardStep
{
public:
    InstallStep();
    ~InstallStep() override;

    // The result of InstallPackage(); the boot entry change does not alter it.
    bool Run() override;
    // True only when the package was installed.
    bool InstallPackage();

    void SetPackage(const std::shared_ptr<InstallerLib::InstallPackage>& value) { package = value; }
    std::shared_ptr<InstallerLib::InstallPackage> GetPackage() const { return package; }
    void SetDisk(const std::shared_ptr<ZarnLinuxTools::Disk>& value) { disk = value; }
    std::shared_ptr<ZarnLinuxTools::Disk> GetDisk() const { return disk; }

    // The log line of an installation's outcome (level 0 for success, 3 otherwise). A
    // damaged package gives "Installation failed!", after a line that names the package.
    static const char* StatusText(int status);

private:
    // Adds to the progress pop-up how far the installer has read the package (" 42%"), or
    // takes the figure away when it cannot be known (percent -1).
    void ShowReadFigure(int percent);

    std::shared_ptr<InstallerLib::InstallPackage> package;
    std::shared_ptr<ZarnLinuxTools::Disk> disk;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
