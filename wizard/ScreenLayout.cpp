#include "ScreenLayout.h"

#include <algorithm>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

ScreenLayout::ScreenLayout(int rows) : taken(static_cast<size_t>(std::max(0, rows)), false) {}

bool ScreenLayout::IsFree(int row) const
{
    return row >= 0 && row < Rows() && !taken[static_cast<size_t>(row)];
}

bool ScreenLayout::AllFree(int row, int count) const
{
    for (int i = 0; i < count; ++i)
        if (!IsFree(row + i))
            return false;
    return true;
}

int ScreenLayout::FreeRun(int row) const
{
    int run = 0;
    while (IsFree(row + run))
        ++run;
    return run;
}

void ScreenLayout::Take(int row, int count)
{
    for (int i = 0; i < count; ++i)
        if (row + i >= 0 && row + i < Rows())
            taken[static_cast<size_t>(row + i)] = true;
}

int ScreenLayout::Place(int wanted, int count)
{
    count = std::max(1, count);
    const int start = std::max(0, wanted);
    const int last = Rows() - count;
    for (int row = start; row <= last; ++row)
    {
        if (AllFree(row, count))
        {
            Take(row, count);
            return row;
        }
    }
    // Below there is no room left: the lowest place above that holds it.
    for (int row = std::min(start, last); row >= 0; --row)
    {
        if (AllFree(row, count))
        {
            Take(row, count);
            return row;
        }
    }
    const int row = std::max(0, std::min(start, last));
    Take(row, count);
    return row;
}

ScreenLayout::Block ScreenLayout::PlaceMenu(int wanted, int items, int keepBelow)
{
    items = std::max(1, items);
    keepBelow = std::max(0, keepBelow);
    for (int row = std::max(0, wanted); row < Rows(); ++row)
    {
        const int run = FreeRun(row);
        // Every item fits, or the free rows reach the window's end: it scrolls.
        if (run == 0 || (run < items && row + run < Rows()))
            continue;
        int count = std::min(items, run);
        if (row + count > Rows() - keepBelow)
            count = std::max(1, Rows() - keepBelow - row);
        Take(row, count);
        return {row, count};
    }
    const int row = std::max(0, std::min(wanted, Rows() - 1));
    const int count = std::max(1, std::min(items, Rows() - row));
    Take(row, count);
    return {row, count};
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
