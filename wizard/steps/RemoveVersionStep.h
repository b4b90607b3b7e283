#pragma once

#include "Disk.h"
#include "PackageVersion.h"
#include "WizardStep.h"

#include <memory>
#include <ostream>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Deletes installed versions: the one it holds, or, when it holds none, every
// version but the current and the running one after a confirmation. Neither is
// ever removed (they differ after a switch that was not followed by a restart).
// A removed version is forgotten, so that the next run without a new choice
// removes all unused versions.
class RemoveVersionStep : public WizardStep
{
public:
    RemoveVersionStep();
    ~RemoveVersionStep() override;

    bool Run() override;
    // Removes the held version.
    bool RemoveVersion();
    // Removes every version but the current and the running one, after "y";
    // false when nothing was removable, after "n", or when a removal failed.
    bool RemoveAllVersion();

    bool GetShowRevisions() const { return showRevisions; }
    void SetShowRevisions(bool value) { showRevisions = value; }
    void SetDisk(const std::shared_ptr<ZarnLinuxTools::Disk>& value) { disk = value; }
    void SetVersion(const InstallerLib::PackageVersion& value) { version = value; }
    const InstallerLib::PackageVersion& GetVersion() const { return version; }

private:
    // Uninstalls one version and reports it on the stream and in the log.
    bool Uninstall(const InstallerLib::PackageVersion& target, std::ostream& output);

    std::shared_ptr<ZarnLinuxTools::Disk> disk;
    InstallerLib::PackageVersion version;
    bool showRevisions = false;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
