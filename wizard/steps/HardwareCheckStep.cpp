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

std::vector<std::string> WarningTexts(bool incompatibleBoard, bool memoryEnough)
{
    std::vector<std::string> warnings;
    if (incompatibleBoard)
        warnings.emplace_back("Incompatible Zarn board to install Vidorama");
    if (!memoryEnough)
        warnings.emplace_back("Not enough memory to install or start Vidorama");
    return warnings;
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

std::vector<std::string> HardwareCheckStep::CurrentWarnings()
{
    // Both checks run on every call, whatever the first found.
    const bool incompatibleBoard = detail::IsIncompatibleBoard(&Bios::IsRb417, &Bios::IsK9Q);
    const bool memoryEnough = detail::IsMemoryEnough(SystemTools::GetRamTotalSize());
    return detail::WarningTexts(incompatibleBoard, memoryEnough);
}

bool HardwareCheckStep::CheckHardware()
{
    ShowWarnings(CurrentWarnings());
    return true;
}

void HardwareCheckStep::ShowWarnings(const std::vector<std::string>& warnings)
{
    // Each warning has a row of its own, so both are read when both apply;
    // they reach the terminal at once, since the step returns without a pause
    // and the log keeps them for whoever looks later.
    int row = WarningRow;
    for (const auto& warning : warnings)
    {
        PrintInMiddle(_contentWindow, row++, 0, _width, warning.c_str(), COLOR_PAIR(2));
        InstallWizard::log(2, warning.c_str());
    }
    wrefresh(_contentWindow);
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
