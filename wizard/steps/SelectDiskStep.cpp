#include "SelectDiskStep.h"

#include "CursesMenu.h"
#include "DiskDiagnostics.h"
#include "InstallPackage.h"
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

using InstallerLib::InstallPackage;
using ZarnLinuxTools::Disk;
using ZarnLinuxTools::DiskDiagnostics;

namespace
{

const int KeyEscape = 27;
const int KeyEnter = 10;

} // namespace

SelectDiskStep::SelectDiskStep() : WizardStep("Select Disk", "") {}

SelectDiskStep::~SelectDiskStep() = default;

bool SelectDiskStep::Run()
{
    CreateWindow();
    bool result = SelectDisk();
    if (result)
        result = CheckDiskSize();
    DestroyWindow();
    return result;
}

bool SelectDiskStep::SelectDisk()
{
    // From the installed disk the running system's root may well lie on the
    // very disk whose versions are maintained: only the key is held back.
    // From the key, the running root is the key's (or memory) and is never
    // a target.
    std::unique_ptr<std::vector<Disk>> disks(
        InstallWizard::IsRunningFromDisk()
            ? DiskDiagnostics::GetDisks({InstallPackage::UsbMountPoint})
            : DiskDiagnostics::GetDisks());
    if (!disks)
        disks = std::make_unique<std::vector<Disk>>();

    bool result = false;
    if (disks->size() == 1)
    {
        disk = std::make_shared<Disk>(disks->front());
        result = true;
    }
    else
    {
        ScreenLayout layout(getmaxy(_contentWindow));
        mvwprintw(_contentWindow, layout.Place(3), (_width - 34) / 2, "%s",
                  "Select the target disk:");
        // Under the heading where the menu's own row would reach it.
        const int count = static_cast<int>(disks->size());
        const ScreenLayout::Block place =
            layout.PlaceMenu((_height - 16) / 2, std::min(10, std::max(1, count)));
        std::vector<std::pair<std::string, std::string>> lines;
        for (const Disk& entry : *disks)
            lines.emplace_back(entry.path, entry.model);
        {
            CursesMenu menu(std::move(lines), _contentWindow,
                            CursesMenu::Place{place.row, (_width - 34) / 2, 11, _width - 35,
                                              std::min(10, place.count)});
            SetBottomText("<ESC> return to the main menu, <ENTER> to select the disk");
            wrefresh(_contentWindow);
            refresh();

            for (bool decided = false; !decided;)
            {
                switch (ReadKeyFrom(_contentWindow))
                {
                case KeyEscape:
                    decided = true;
                    break;
                case KEY_DOWN:
                    menu.Down();
                    break;
                case KEY_UP:
                    menu.Up();
                    break;
                case KeyEnter:
                {
                    // An empty menu has no current item: that is no choice.
                    const int current = menu.CurrentIndex();
                    decided = true;
                    if (current < 0 || current >= count)
                        break;
                    disk = std::make_shared<Disk>(disks->at(static_cast<size_t>(current)));
                    result = true;
                    break;
                }
                default:
                    break;
                }
            }
        }
        wrefresh(_contentWindow);
        refresh();
    }

    if (result)
        InstallWizard::log(0, ("Selected disk: " + disk->path).c_str());
    else
        InstallWizard::log(0, "No disk selected");
    return result;
}

bool SelectDiskStep::CheckDiskSize()
{
    if (IsLargeEnough(disk->size))
        return true;

    const std::string message =
        "The disk " + disk->path + " is too small for Vidorama installation";
    mvwprintw(_contentWindow, 3, 3, "%s", message.c_str());
    InstallWizard::log(3, message.c_str());

    SetBottomText("<ENTER> return to the main menu");
    wrefresh(_contentWindow);
    refresh();
    while (ReadKeyFrom(_contentWindow) != KeyEnter)
    {
    }
    return false;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
