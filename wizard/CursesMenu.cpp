#include "CursesMenu.h"

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

CursesMenu::CursesMenu(std::vector<std::pair<std::string, std::string>> lines, WINDOW* window,
                       WINDOW* subWindow, int rows, const std::vector<int>& greyed)
    : texts(std::move(lines))
{
    for (const auto& line : texts)
    {
        items.push_back(new_item(line.first.c_str(), line.second.c_str()));
    }
    for (int index : greyed)
    {
        if (index >= 0 && static_cast<size_t>(index) < texts.size())
        {
            item_opts_off(items[static_cast<size_t>(index)], O_SELECTABLE);
        }
    }
    items.push_back(nullptr);
    menu = new_menu(items.data());
    set_menu_fore(menu, COLOR_PAIR(3));
    set_menu_grey(menu, COLOR_PAIR(5));
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

bool CursesMenu::IsCurrentSelectable() const
{
    const ITEM* current = current_item(menu);
    return current != nullptr && (item_opts(current) & O_SELECTABLE) != 0;
}

int CursesMenu::CurrentIndex() const
{
    const ITEM* current = current_item(menu);
    return current != nullptr ? item_index(current) : -1;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
