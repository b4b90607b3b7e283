#pragma once

#include "WizardStep.h"

#include <functional>
#include <string>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

namespace detail
{

// True when the board is neither of the supported ones. The second model is
// asked only when the first one answers no.
bool IsIncompatibleBoard(const std::function<bool()>& isRb417, const std::function<bool()>& isK9Q);

// The memory reading as the check sees it: the kernel's figure taken as a
// signed 32-bit count. -1 (no reading) and anything below 512,000,000 fail.
bool IsMemoryEnough(long reportedTotalRam);

// The warnings for what was found, board first, each one line.
std::vector<std::string> WarningTexts(bool incompatibleBoard, bool memoryEnough);

} // namespace detail

// First screen of an installation: warns about a board the product does not
// support and about too little memory. It only warns; the workflow goes on.
class HardwareCheckStep : public WizardStep
{
public:
    HardwareCheckStep();
    ~HardwareCheckStep() override;

    // Always true.
    bool Run() override;
    // Draws the warnings into the content window, shows them and logs them;
    // always true.
    bool CheckHardware();
    // The warnings that apply to this server now (board, then memory), for a
    // later screen that repeats them where the operator decides.
    static std::vector<std::string> CurrentWarnings();

protected:
    // Content row of the first warning; a second one goes on the next row.
    static const int WarningRow = 5;
    void ShowWarnings(const std::vector<std::string>& warnings);
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
