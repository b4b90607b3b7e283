#pragma once

#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Where the texts of one screen go in its content window, in the order they
// are drawn. Each text keeps the row it asks for while that row is free; one
// that would share a row with an earlier text moves down to the first free
// row, and nothing is ever placed outside the window's rows. No curses here:
// the rules are plain arithmetic.
class ScreenLayout
{
public:
    // rows: the content window's number of rows.
    explicit ScreenLayout(int rows);

    int Rows() const { return static_cast<int>(taken.size()); }
    // False for a row outside the window.
    bool IsFree(int row) const;

    // A text of count rows wanted from row wanted: the first row, at or below
    // wanted, where count free rows follow. When the window ends first, the
    // lowest free rows above that hold it; when there are none, wanted
    // brought into the window. The rows are then taken.
    int Place(int wanted, int count = 1);

    struct Block
    {
        int row;
        int count;
    };
    // A menu of items rows (the rows it shows at a time) wanted from row
    // wanted: placed like a text, but when the window ends before its last
    // item it shows fewer items at a time (it scrolls, at least one row), so
    // that keepBelow rows stay free under it for what is drawn next.
    Block PlaceMenu(int wanted, int items, int keepBelow = 0);

private:
    bool AllFree(int row, int count) const;
    int FreeRun(int row) const;
    void Take(int row, int count);

    std::vector<bool> taken;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
