#pragma once

#include "InstallPackage.h"
#include "PackageScanner.h"
#include "WizardStep.h"

#include <memory>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// The package to install, chosen from the packages of the USB key (or of the
// installed system when no key is mounted). The choice stays here for the
// installation step.
class PackageStep : public WizardStep
{
public:
    PackageStep();
    ~PackageStep() override;

    bool Run() override;
    // True when a package was chosen in this call.
    bool SelectPackage();

    bool IsEscapeAllowed() const { return allowEscape; }
    void SetEscapeAllowed(bool value) { allowEscape = value; }
    bool GetShowRevisions() const { return showRevisions; }
    void SetShowRevisions(bool value) { showRevisions = value; }
    std::shared_ptr<InstallerLib::InstallPackage> GetPackage() const { return package; }

private:
    bool allowEscape = true;
    bool showRevisions = false;
    std::shared_ptr<InstallerLib::InstallPackage> package;
    // Reads the listed packages ahead of the operator's choice; lives as long as the step, so
    // that the reading goes on while the installation is prepared.
    InstallerLib::PackageScanner scanner;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
