#include "SelectDiskStep.h"

#include "DiskDiagnostics.h"
#include "InstallPackage.h"
#include "InstallWizard.h"

#include <menu.h>
#include <string>
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

// A posted menu over the disk list. The item texts point into the disks, so
// the list outlives the menu; ncurses wants unpost, free_menu, then the items.
class DiskMenu
{
public:
    DiskMenu(const std::vector<Disk>& disks, WINDOW* window, WINDOW* subWindow)
    {
        for (const Disk& entry : disks)
            _items.push_back(new_item(entry.path.c_str(), entry.model.c_str()));
        _items.push_back(nullptr);
        _menu = new_menu(_items.data());
        set_menu_fore(_menu, COLOR_PAIR(3));
        set_menu_win(_menu, window);
        set_menu_sub(_menu, subWindow);
        set_menu_format(_menu, 10, 1);
        set_menu_mark(_menu, " > ");
        post_menu(_menu);
    }

    ~DiskMenu()
    {
        unpost_menu(_menu);
        free_menu(_menu);
        for (ITEM* item : _items)
            if (item != nullptr)
                free_item(item);
    }

    DiskMenu(const DiskMenu&) = delete;
    DiskMenu& operator=(const DiskMenu&) = delete;

    MENU* Get() const { return _menu; }

private:
    std::vector<ITEM*> _items;
    MENU* _menu = nullptr;
};

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
        const int headingRow = 3;
        mvwprintw(_contentWindow, headingRow, (_width - 34) / 2, "Select the target disk:");

        // The menu starts under the heading where its own row would reach it
        // (a console of fewer than 26 lines).
        const int menuRow = (_height - 16) / 2 > headingRow ? (_height - 16) / 2 : headingRow + 1;
        WINDOW* subWindow = derwin(_contentWindow, 11, _width - 35, menuRow, (_width - 34) / 2);
        {
            DiskMenu menu(*disks, _contentWindow, subWindow);
            SetBottomText("<ESC> return to the main menu, <ENTER> to select the disk");
            wrefresh(_contentWindow);
            refresh();

            for (bool decided = false; !decided;)
            {
                switch (wgetch(_contentWindow))
                {
                case KeyEscape:
                    decided = true;
                    break;
                case KEY_DOWN:
                    menu_driver(menu.Get(), REQ_DOWN_ITEM);
                    break;
                case KEY_UP:
                    menu_driver(menu.Get(), REQ_UP_ITEM);
                    break;
                case KeyEnter:
                {
                    // An empty menu has no current item: that is no choice.
                    ITEM* current = current_item(menu.Get());
                    if (current == nullptr || disks->empty())
                    {
                        decided = true;
                        break;
                    }
                    disk =
                        std::make_shared<Disk>(disks->at(static_cast<size_t>(item_index(current))));
                    result = true;
                    decided = true;
                    break;
                }
                default:
                    break;
                }
            }
        }
        delwin(subWindow);
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
    while (wgetch(_contentWindow) != KeyEnter)
    {
    }
    return false;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
