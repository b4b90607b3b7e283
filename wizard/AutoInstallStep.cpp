#include "AutoInstallStep.h"

#include "WrapText.h"

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

namespace
{

const int KeyEnter = 10;
const int FirstRow = 3;
const int Margin = 3;

} // namespace

AutoInstallStep::AutoInstallStep() : WizardStep("Unattended installation", "") {}

AutoInstallStep::~AutoInstallStep() = default;

void AutoInstallStep::SetContent(const std::string& heading, bool failed,
                                 const std::vector<std::string>& lines,
                                 const std::string& bottomText)
{
    this->heading = heading;
    this->failed = failed;
    this->lines = lines;
    SetBottomText(bottomText.c_str());
}

bool AutoInstallStep::Run()
{
    CreateWindow();
    const int rows = getmaxy(_contentWindow);
    const attr_t attributes = A_BOLD | COLOR_PAIR(failed ? 6 : 4);
    wattron(_contentWindow, attributes);
    mvwprintw(_contentWindow, FirstRow, Margin, "%s", heading.c_str());
    wattroff(_contentWindow, attributes);
    int row = FirstRow + 2;
    for (const std::string& line : lines)
        for (const std::string& part : WrapText(line, _width - 2 * Margin))
            if (row < rows)
                mvwprintw(_contentWindow, row++, Margin, "%s", part.c_str());
    wrefresh(_contentWindow);
    while (ReadKeyFrom(_contentWindow) != KeyEnter)
    {
    }
    DestroyWindow();
    return true;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
