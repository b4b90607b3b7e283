#include "CursesMenu.h"

#include <algorithm>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

CursesMenu::CursesMenu(std::vector<std::pair<std::string, std::string>> lines, WINDOW* window,
                       const Place& wanted, const std::vector<int>& greyed)
    : texts(std::move(lines)), place(wanted)
{
    // Cut to the window: a sub-window reaching past it would not be made at
    // all, and the menu would then draw over the whole window.
    const int windowRows = getmaxy(window);
    const int windowColumns = getmaxx(window);
    place.row = std::max(0, std::min(place.row, windowRows - 1));
    place.column = std::max(0, std::min(place.column, windowColumns - 1));
    place.windowRows = std::max(1, std::min(place.windowRows, windowRows - place.row));
    place.columns = std::max(1, std::min(place.columns, windowColumns - place.column));
    place.visibleItems = std::max(1, std::min(place.visibleItems, place.windowRows));
    subWindow.reset(derwin(window, place.windowRows, place.columns, place.row, place.column));

    for (const auto& line : texts)
        items.push_back(new_item(line.first.c_str(), line.second.c_str()));
    for (int index : greyed)
    {
        if (index >= 0 && static_cast<size_t>(index) < items.size() &&
            items[static_cast<size_t>(index)] != nullptr)
            item_opts_off(items[static_cast<size_t>(index)], O_SELECTABLE);
    }
    items.push_back(nullptr);
    menu = new_menu(items.data());
    set_menu_fore(menu, COLOR_PAIR(3));
    set_menu_grey(menu, COLOR_PAIR(5));
    set_menu_win(menu, window);
    set_menu_sub(menu, subWindow.get());
    set_menu_format(menu, place.visibleItems, 1);
    set_menu_mark(menu, " > ");
    post_menu(menu);
}

CursesMenu::~CursesMenu()
{
    // ncurses needs this order: unpost, free the menu, then its items; the
    // sub-window goes last, with the members.
    unpost_menu(menu);
    free_menu(menu);
    for (ITEM* item : items)
    {
        if (item != nullptr)
            free_item(item);
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

void CursesMenu::SetCurrent(int index)
{
    if (menu != nullptr && index >= 0 && index < item_count(menu))
        set_current_item(menu, items[static_cast<size_t>(index)]);
}

void CursesMenu::Down()
{
    menu_driver(menu, REQ_DOWN_ITEM);
}

void CursesMenu::Up()
{
    menu_driver(menu, REQ_UP_ITEM);
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
