#pragma once

#include "WizardStep.h"

#include <string>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// The unattended installation's own screen: why an answer file cannot be
// used, how a run ended and where its report lies. It stays until ENTER.
class AutoInstallStep : public WizardStep
{
public:
    AutoInstallStep();
    ~AutoInstallStep() override;

    // Shows the heading and the lines (wrapped to the window), then waits for
    // ENTER; always true.
    bool Run() override;

    // What the next Run() shows: a heading in colour (red when failed,
    // yellow otherwise), the lines under it, and the bottom text.
    void SetContent(const std::string& heading, bool failed, const std::vector<std::string>& lines,
                    const std::string& bottomText);

private:
    std::string heading;
    bool failed = false;
    std::vector<std::string> lines;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
