#pragma once

#include "CursesMenu.h"
#include "WizardStep.h"

#include <memory>
#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Loads one of the two stored BIOS settings sets (they differ in VGA mode)
// into the CMOS of an RB417 board, from the main menu or at the end of a
// formatting installation.
class BiosStep : public WizardStep
{
public:
    BiosStep();
    ~BiosStep() override;

    // True only when a settings file was written to CMOS.
    bool Run() override;
    void CreateWindow() override;
    void DestroyWindow() override;

    // Only an RB417 board takes these settings.
    bool IsAvailable() const;

    bool IsWithinInstallation() const { return withinInstallation; }
    void SetWithinInstallation(bool value) { withinInstallation = value; }
    int GetSelection() const { return selection; }

    // The settings file of a selection; empty for none.
    static std::string SettingsFile(int index);

protected:
    bool ReadMenuSelection(bool escapeAllowed);
    bool ResetBios();
    void DisplayHelpMessage(int index);

private:
    std::unique_ptr<CursesMenu> menu;
    // Row of the settings' help: its own unless the menu took it.
    int helpRow = 9;
    int selection = -1;
    bool withinInstallation = false;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
