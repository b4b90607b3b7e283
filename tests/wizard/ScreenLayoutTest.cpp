// Where the texts of a screen go: their own rows when free, the first free row
// below when not, and never outside the content window.
#include "ScreenLayout.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

using Kel::Vidorama::InstallerWizard::ScreenLayout;

std::vector<int> Of(const ScreenLayout::Block& block)
{
    return {block.row, block.count};
}

TEST(ScreenLayout, TextsOnFreeRowsKeepTheirRows)
{
    ScreenLayout layout(20);
    EXPECT_EQ(layout.Place(1), 1);
    EXPECT_EQ(layout.Place(2), 2);
    EXPECT_EQ(layout.Place(4), 4);
    EXPECT_EQ(layout.Place(9, 3), 9);
    for (int row : {1, 2, 4, 9, 10, 11})
        EXPECT_FALSE(layout.IsFree(row)) << row;
    for (int row : {0, 3, 5, 8, 12, 19})
        EXPECT_TRUE(layout.IsFree(row)) << row;
}

TEST(ScreenLayout, ALaterTextOnATakenRowMovesDownToTheFirstFreeRow)
{
    ScreenLayout layout(20);
    EXPECT_EQ(layout.Place(3), 3);
    EXPECT_EQ(layout.Place(3), 4);
    EXPECT_EQ(layout.Place(3), 5);
    // A block goes where all of its rows are free.
    ScreenLayout blocks(20);
    blocks.Place(6);
    EXPECT_EQ(blocks.Place(5, 2), 7);
    EXPECT_EQ(blocks.Place(5, 1), 5);
}

TEST(ScreenLayout, NothingIsPlacedOutsideTheWindow)
{
    ScreenLayout layout(20);
    // Wanted under the window's end: its last rows.
    EXPECT_EQ(layout.Place(25), 19);
    EXPECT_EQ(layout.Place(19, 2), 17);
    // Wanted above the window: its first row.
    EXPECT_EQ(layout.Place(-3), 0);
    EXPECT_FALSE(layout.IsFree(-1));
    EXPECT_FALSE(layout.IsFree(20));
    // The window full below: the lowest free rows above.
    ScreenLayout full(6);
    full.Place(4, 2);
    full.Place(2);
    EXPECT_EQ(full.Place(3), 3);
    EXPECT_EQ(full.Place(4), 1);
}

TEST(ScreenLayout, AMenuOnFreeRowsKeepsItsRowAndItsItems)
{
    ScreenLayout layout(20);
    layout.Place(3);
    EXPECT_EQ(Of(layout.PlaceMenu(5, 10)), std::vector<int>({5, 10}));
    for (int row = 5; row < 15; ++row)
        EXPECT_FALSE(layout.IsFree(row)) << row;
    EXPECT_TRUE(layout.IsFree(15));
}

TEST(ScreenLayout, AMenuOnTheHeadingsRowGoesUnderIt)
{
    // The disk list at 80x25: (23 - 16) / 2 = 3 is the heading's row.
    ScreenLayout layout(20);
    EXPECT_EQ(layout.Place(3), 3);
    EXPECT_EQ(Of(layout.PlaceMenu(3, 2)), std::vector<int>({4, 2}));
    // A menu whose items would run over a taken row starts under it.
    ScreenLayout heading(20);
    heading.Place(4);
    EXPECT_EQ(Of(heading.PlaceMenu(1, 8)), std::vector<int>({5, 8}));
}

TEST(ScreenLayout, AMenuLongerThanTheWindowScrollsAndKeepsRoomBelow)
{
    ScreenLayout layout(20);
    layout.Place(4);
    EXPECT_EQ(Of(layout.PlaceMenu(1, 30, 1)), std::vector<int>({5, 14}));
    EXPECT_EQ(layout.Place(36), 19);
    ScreenLayout noRoom(20);
    EXPECT_EQ(Of(noRoom.PlaceMenu(0, 30)), std::vector<int>({0, 20}));
    // Always one item at least.
    ScreenLayout tiny(3);
    EXPECT_EQ(Of(tiny.PlaceMenu(2, 5, 4)), std::vector<int>({2, 1}));
}

TEST(ScreenLayout, AnEmptyMenuStillHasItsRow)
{
    ScreenLayout layout(20);
    EXPECT_EQ(Of(layout.PlaceMenu(3, 0)), std::vector<int>({3, 1}));
}

} // namespace
