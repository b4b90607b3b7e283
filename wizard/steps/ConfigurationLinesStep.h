#pragma once

#include "Disk.h"
#include "WizardStep.h"

#include <memory>
#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Deletes, after "y", the DOS side's configuration-line files (names ending in
// ".lin", in any case) of the product's setup directory on the DOS partition.
class ConfigurationLinesStep : public WizardStep
{
public:
    ConfigurationLinesStep();
    ~ConfigurationLinesStep() override;

    // True when the lines were deleted.
    bool Run() override;
    // The deletion without any screen.
    bool CleanConfigurationLines();

    void SetDisk(const std::shared_ptr<ZarnLinuxTools::Disk>& value) { disk = value; }

    // The names that are configuration lines, matched as a whole (ECMAScript):
    // word characters, a dot and "lin" in any case.
    static const char* const LinePattern;

private:
    std::shared_ptr<ZarnLinuxTools::Disk> disk;
    // Why the last cleaning did not start: the DOS mount point is held by
    // another disk. Empty otherwise.
    std::string refusal;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
