#pragma once

#include <curses.h>
#include <menu.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// The one way a screen of the wizard shows a menu: a posted curses menu of
// text lines (name and description) in a sub-window of its own, freed the way
// ncurses needs it: unpost, free the menu, then the items, then the
// sub-window. The texts are copied first and live as long as the menu, since
// items only point at them.
class CursesMenu
{
public:
    // Where the menu goes in its window: a sub-window of windowRows rows and
    // columns columns at (row, column), showing visibleItems items at a time.
    // The sub-window is cut to the window's edges, so that nothing is drawn
    // outside it.
    struct Place
    {
        int row;
        int column;
        int windowRows;
        int columns;
        int visibleItems;
    };

    // Lines: name and description of each item, in order, marked " > ", the
    // current one in colour pair 3. Items whose index is in greyed are shown
    // in colour pair 5: the highlight may rest on them, but they cannot be
    // selected (IsCurrentSelectable).
    CursesMenu(std::vector<std::pair<std::string, std::string>> lines, WINDOW* window,
               const Place& place, const std::vector<int>& greyed = {});
    ~CursesMenu();
    CursesMenu(const CursesMenu&) = delete;
    CursesMenu& operator=(const CursesMenu&) = delete;

    MENU* Get() const { return menu; }
    int ItemCount() const { return static_cast<int>(texts.size()); }
    // The row of the first item in the window.
    int Row() const { return place.row; }
    // The index of the current item; -1 for an empty menu.
    int CurrentIndex() const;
    // Whether the current item can be selected; false for an empty menu.
    bool IsCurrentSelectable() const;
    // Makes the item at index current; ignored when there is no such item.
    void SetCurrent(int index);
    // The arrows: one item down or up (the menu library's own behaviour at
    // the ends).
    void Down();
    void Up();

private:
    struct WindowDeleter
    {
        void operator()(WINDOW* window) const
        {
            if (window != nullptr)
                delwin(window);
        }
    };

    std::vector<std::pair<std::string, std::string>> texts;
    Place place;
    // Declared before the menu: deleted after it.
    std::unique_ptr<WINDOW, WindowDeleter> subWindow;
    std::vector<ITEM*> items;
    MENU* menu = nullptr;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
