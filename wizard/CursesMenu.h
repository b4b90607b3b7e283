#pragma once

#include <curses.h>
#include <menu.h>

#include <string>
#include <utility>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// A posted curses menu of text lines (name and description), freed the way
// ncurses needs it: unpost, free the menu, then the items. The texts are
// copied first and live as long as the menu, since items only point at them.
class CursesMenu
{
public:
    // Lines: name and description of each item, in order. The menu is drawn
    // in window, its items in subWindow, rows items at a time, marked " > ",
    // in colour pair 3.
    // Items whose index is in greyed are shown in colour pair 5 and cannot be
    // selected; the highlight passes over them.
    CursesMenu(std::vector<std::pair<std::string, std::string>> lines, WINDOW* window,
               WINDOW* subWindow, int rows, const std::vector<int>& greyed = {});
    ~CursesMenu();
    CursesMenu(const CursesMenu&) = delete;
    CursesMenu& operator=(const CursesMenu&) = delete;

    MENU* Get() const { return menu; }
    // The index of the current item; -1 for an empty menu.
    int CurrentIndex() const;
    // Whether the current item can be selected; false for an empty menu.
    bool IsCurrentSelectable() const;

private:
    std::vector<std::pair<std::string, std::string>> texts;
    std::vector<ITEM*> items;
    MENU* menu = nullptr;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
