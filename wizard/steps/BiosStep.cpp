#include "BiosStep.h"

#include "Bios.h"
#include "InstallWizard.h"

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
    if (withinInstallation)
    {
        mvwprintw(_contentWindow, 1, 3,
                  "The system needs to change the BIOS to ensure valid settings");
        mvwprintw(_contentWindow, 2, 3, "for this version of Vidorama.");
    }
    mvwprintw(_contentWindow, 4, 3,
              "As part of the BIOS load, you may select one of two VGA settings:  ");

    for (int i = 0; i < 2; ++i)
        items[i] = new_item(settings[i].name, settings[i].text);
    items[2] = nullptr;
    menu = new_menu(items);
    set_menu_fore(menu, COLOR_PAIR(3));
    set_menu_win(menu, _contentWindow);
    menuWindow = derwin(_contentWindow, 6, _width - 35, (_height - 11) / 2, (_width - 34) / 2);
    set_menu_sub(menu, menuWindow);
    set_menu_format(menu, 5, 1);
    set_menu_mark(menu, " > ");
    post_menu(menu);
    DisplayHelpMessage(0);
    wrefresh(_contentWindow);
}

void BiosStep::DestroyWindow()
{
    // ncurses needs this order: unpost, free the menu, then its items.
    if (menu != nullptr)
    {
        unpost_menu(menu);
        free_menu(menu);
        menu = nullptr;
    }
    if (menuWindow != nullptr)
    {
        delwin(menuWindow);
        menuWindow = nullptr;
    }
    for (ITEM*& item : items)
    {
        if (item != nullptr)
            free_item(item);
        item = nullptr;
    }
    if (_mainWindow != nullptr)
        WizardStep::DestroyWindow();
}

void BiosStep::DisplayHelpMessage(int index)
{
    if (index != 0 && index != 1)
        return;
    mvwprintw(_contentWindow, 9, 19, "%s", settings[index].help);
}

bool BiosStep::ReadMenuSelection(bool escapeAllowed)
{
    selection = -1;
    for (;;)
    {
        const int key = wgetch(_contentWindow);
        switch (key)
        {
        case KeyEscape:
            if (escapeAllowed)
                return false;
            break;
        case KEY_DOWN:
            menu_driver(menu, REQ_DOWN_ITEM);
            DisplayHelpMessage(item_index(current_item(menu)));
            break;
        case KEY_UP:
            menu_driver(menu, REQ_UP_ITEM);
            DisplayHelpMessage(item_index(current_item(menu)));
            break;
        case KeyEnter:
            selection = item_index(current_item(menu));
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
            while (wgetch(_contentWindow) != KeyEnter)
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
            while (wgetch(_contentWindow) != KeyEnter)
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
