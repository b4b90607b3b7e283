#pragma once

#include "Disk.h"
#include "WizardStep.h"

#include <cstdint>
#include <memory>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// The target disk of an installation, a version change or a removal: a menu
// of the disks found (none shown when there is only one), then a size check.
// The last choice stays here for the steps that follow.
class SelectDiskStep : public WizardStep
{
public:
    SelectDiskStep();
    ~SelectDiskStep() override;

    // False when no disk was chosen or the chosen one is too small.
    bool Run() override;
    bool SelectDisk();
    bool CheckDiskSize();

    std::shared_ptr<ZarnLinuxTools::Disk> GetDisk() const { return disk; }

    // At least 2,304 MiB, compared as a signed 64-bit count of bytes.
    static bool IsLargeEnough(int64_t size) { return size > 0x8FFFFFFFLL; }

private:
    std::shared_ptr<ZarnLinuxTools::Disk> disk;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
