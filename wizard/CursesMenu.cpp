#include "CursesMenu.h"

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

CursesMenu::CursesMenu(std::vector<std::pair<std::string, std::string>> lines, WINDOW* window,
                       WINDOW* subWindow, int rows)
    : texts(std::move(lines))
{
    for (const auto& line : texts)
    {
        items.push_back(new_item(line.first.c_str(), line.second.c_str()));
    }
    items.push_back(nullptr);
    menu = new_menu(items.data());
    set_menu_fore(menu, COLOR_PAIR(3));
    set_menu_win(menu, window);
    set_menu_sub(menu, subWindow);
    set_menu_format(menu, rows, 1);
    set_menu_mark(menu, " > ");
    post_menu(menu);
}

CursesMenu::~CursesMenu()
{
    unpost_menu(menu);
    free_menu(menu);
    for (ITEM* item : items)
    {
        if (item != nullptr)
        {
            free_item(item);
        }
    }
}

int CursesMenu::CurrentIndex() const
{
    const ITEM* current = current_item(menu);
    return current != nullptr ? item_index(current) : -1;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
