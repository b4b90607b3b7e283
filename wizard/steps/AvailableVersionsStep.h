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

// The installed version to change to or to remove, chosen among the versions
// of the selected disk. The current version and the one running now (they
// differ after a switch that was not followed by a restart) are shown greyed
// and cannot be chosen. Both partitions stay mounted for the step that
// follows.
class AvailableVersionsStep : public WizardStep
{
public:
    AvailableVersionsStep();
    ~AvailableVersionsStep() override;

    bool Run() override;
    // True when a version was chosen in this call.
    bool SelectVersion();

    bool GetShowRevisions() const { return showRevisions; }
    void SetShowRevisions(bool value) { showRevisions = value; }
    const InstallerLib::PackageVersion& GetSelectedVersion() const { return selectedVersion; }
    void SetDisk(const std::shared_ptr<ZarnLinuxTools::Disk>& value) { disk = value; }
    std::shared_ptr<ZarnLinuxTools::Disk> GetDisk() const { return disk; }

private:
    // Mounts both partitions of the disk; false when the versions cannot be
    // read from it.
    bool MountPartitions();
    // The failure screen: a message, then Enter.
    void WaitForEnter();

    bool showRevisions = false;
    InstallerLib::PackageVersion selectedVersion;
    std::shared_ptr<ZarnLinuxTools::Disk> disk;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
