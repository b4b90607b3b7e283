#pragma once

#include "Disk.h"
#include "PackageVersion.h"
#include "WizardStep.h"

#include <memory>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Makes the chosen installed version the current one, points the default boot
// entry at its side (DOS or Linux) and restarts the server after Enter.
class ChangeVersionStep : public WizardStep
{
public:
    ChangeVersionStep();
    ~ChangeVersionStep() override;

    // The result of ChangeVersion(); after a success the server restarts.
    bool Run() override;
    // The switch and its screen.
    bool ChangeVersion();

    bool GetShowRevisions() const { return showRevisions; }
    void SetShowRevisions(bool value) { showRevisions = value; }
    void SetDisk(const std::shared_ptr<ZarnLinuxTools::Disk>& value) { disk = value; }
    void SetVersion(const InstallerLib::PackageVersion& value) { version = value; }
    const InstallerLib::PackageVersion& GetVersion() const { return version; }

private:
    std::shared_ptr<ZarnLinuxTools::Disk> disk;
    InstallerLib::PackageVersion version;
    bool showRevisions = false;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
