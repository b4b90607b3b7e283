#include "BiosStep.h"

#include "Bios.h"
#include "InstallWizard.h"
#include "ScreenLayout.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using InstallerLib::Bios;

namespace
{

const int KeyEscape = 27;
const int KeyEnter = 10;
// Where the help of the highlighted settings goes.
const int HelpRow = 9;
const int HelpColumn = 19;

struct Settings
{
    const char* name;
    const char* text;
    // Both 37 characters, so that each fully overwrites the other.
    const char* help;
    const char* file;
};

const Settings settings[2] = {
    {"1", "Default settings (720x400)", "      (Legacy settings for VGA)      ", "rb417s.bios"},
    {"2", "Enhanced settings (1024x768)", "(Recommended for SVGA & Multiviewers)", "rb417e.bios"},
};

} // namespace

BiosStep::BiosStep() : WizardStep("Reset Bios", "") {}

BiosStep::~BiosStep()
{
    DestroyWindow();
}

bool BiosStep::IsAvailable() const
{
    return Bios::IsRb417();
}

std::string BiosStep::SettingsFile(int index)
{
    if (index != 0 && index != 1)
        return "";
    return std::string(InstallWizard::GetDataPath()) + settings[index].file;
}

void BiosStep::CreateWindow()
{
    WizardStep::CreateWindow();
    ScreenLayout layout(getmaxy(_contentWindow));
    if (withinInstallation)
    {
        mvwprintw(_contentWindow, layout.Place(1), 3, "%s",
                  "The system needs to change the BIOS to ensure valid settings");
        mvwprintw(_contentWindow, layout.Place(2), 3, "%s", "for this version of Vidorama.");
    }
    mvwprintw(_contentWindow, layout.Place(4), 3, "%s",
              "As part of the BIOS load, you may select one of two VGA settings:  ");

    const ScreenLayout::Block place = layout.PlaceMenu((_height - 11) / 2, 2);
    helpRow = layout.Place(HelpRow);
    menu = std::make_unique<CursesMenu>(
        std::vector<std::pair<std::string, std::string>>{{settings[0].name, settings[0].text},
                                                         {settings[1].name, settings[1].text}},
        _contentWindow,
        CursesMenu::Place{place.row, (_width - 34) / 2, 6, _width - 35, std::min(5, place.count)});
    DisplayHelpMessage(0);
    wrefresh(_contentWindow);
}

void BiosStep::DestroyWindow()
{
    menu.reset();
    if (_mainWindow != nullptr)
        WizardStep::DestroyWindow();
}

void BiosStep::DisplayHelpMessage(int index)
{
    if (index != 0 && index != 1)
        return;
    mvwprintw(_contentWindow, helpRow, HelpColumn, "%s", settings[index].help);
}

bool BiosStep::ReadMenuSelection(bool escapeAllowed)
{
    selection = -1;
    for (;;)
    {
        const int key = ReadKeyFrom(_contentWindow);
        switch (key)
        {
        case KeyEscape:
            if (escapeAllowed)
                return false;
            break;
        case KEY_DOWN:
            menu->Down();
            DisplayHelpMessage(menu->CurrentIndex());
            break;
        case KEY_UP:
            menu->Up();
            DisplayHelpMessage(menu->CurrentIndex());
            break;
        case KeyEnter:
            selection = menu->CurrentIndex();
            break;
        case '1':
        case '2':
            selection = key - '1';
            break;
        default:
            break;
        }
        wrefresh(_contentWindow);
        if (selection != -1)
            return true;
    }
}

bool BiosStep::ResetBios()
{
    if (selection != 0 && selection != 1)
        return false;
    return Bios::WriteCmos(SettingsFile(selection).c_str());
}

bool BiosStep::Run()
{
    CreateWindow();
    SetBottomText(withinInstallation
                      ? "<ENTER> or number to select the settings"
                      : "<ESC> return to the main menu, <ENTER> or number to select the settings");

    bool result = false;
    if (ReadMenuSelection(!withinInstallation))
    {
        result = ResetBios();
        if (!result)
        {
            InstallWizard::log(3, "Error writing cmos settings");
            ShowProgressPopup("Error during bios settings reset!", 0);
            SetBottomText(withinInstallation ? "<ENTER> to continue"
                                             : "<ENTER> return to the main menu");
            while (ReadKeyFrom(_contentWindow) != KeyEnter)
            {
            }
            HideProgressPopup();
        }
        else if (!withinInstallation)
        {
            SetBottomText("<ENTER> to reboot");
            ShowProgressPopup(InstallWizard::IsRunningFromUsbKey()
                                  ? "Settings are applied, remove the USB key then press <ENTER>"
                                  : "Settings are applied, press <ENTER> to reboot",
                              0);
            while (ReadKeyFrom(_contentWindow) != KeyEnter)
            {
            }
            HideProgressPopup();
        }
    }

    DestroyWindow();
    return result;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
