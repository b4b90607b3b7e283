#include "HardwareCheckStep.h"

#include "Bios.h"
#include "InstallWizard.h"
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
    const bool incompatibleBoard = detail::IsIncompatibleBoard(&Bios::IsRb417, &Bios::IsK9Q);
    const bool memoryEnough = detail::IsMemoryEnough(SystemTools::GetRamTotalSize());
    ShowWarnings(incompatibleBoard, memoryEnough);
    return true;
}

void HardwareCheckStep::ShowWarnings(bool incompatibleBoard, bool memoryEnough)
{
    // Each warning has a row of its own, so both are read when both apply;
    // they reach the terminal at once, since the step returns without a pause
    // and the log keeps them for whoever looks later.
    int row = WarningRow;
    if (incompatibleBoard)
    {
        const char* warning = "Incompatible Zarn board to install Vidorama";
        PrintInMiddle(_contentWindow, row++, 0, _width, warning, COLOR_PAIR(2));
        InstallWizard::log(2, warning);
    }
    if (!memoryEnough)
    {
        const char* warning = "Not enough memory to install or start Vidorama";
        PrintInMiddle(_contentWindow, row++, 0, _width, warning, COLOR_PAIR(2));
        InstallWizard::log(2, warning);
    }
    wrefresh(_contentWindow);
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
