// The menu holder of every screen, on a file-backed curses screen: where it
// draws, what it keeps, and that it never draws outside its window.
#include "CursesMenu.h"

#include "FileScreen.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace
{

using Kel::Vidorama::InstallerWizard::CursesMenu;
using Lines = std::vector<std::pair<std::string, std::string>>;

class CursesMenuTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(screen.IsOpen());
        window = newwin(20, 76, 2, 2);
        ASSERT_NE(window, nullptr);
    }
    void TearDown() override
    {
        if (window != nullptr)
            delwin(window);
    }

    std::vector<std::string> Rows() const
    {
        std::vector<std::string> rows;
        for (int row = 0; row < getmaxy(window); ++row)
            rows.push_back(Sandbox::FileScreen::Row(window, row));
        return rows;
    }

    // The texts handed over are gone before the menu is drawn again: the
    // menu keeps its own copies.
    static Lines Disks()
    {
        std::string model = "QEMU HARDDISK";
        Lines lines = {{"/dev/vda", model}, {"/dev/vdb", model}, {"/dev/vdc", model}};
        model.assign(40, 'x');
        return lines;
    }

    Sandbox::TempDir dir{"/tmp/CursesMenuTest-"};
    Sandbox::FileScreen screen{dir.Path(), 25, 80};
    WINDOW* window = nullptr;
};

TEST_F(CursesMenuTest, ItemsAreDrawnAtTheirPlaceWithTheMark)
{
    CursesMenu menu(Disks(), window, CursesMenu::Place{4, 21, 11, 41, 10});
    const auto rows = Rows();
    EXPECT_EQ(rows[4], std::string(21, ' ') + " > /dev/vda QEMU HARDDISK");
    EXPECT_EQ(rows[5], std::string(21, ' ') + "   /dev/vdb QEMU HARDDISK");
    EXPECT_EQ(rows[6], std::string(21, ' ') + "   /dev/vdc QEMU HARDDISK");
    EXPECT_EQ(rows[3], "");
    EXPECT_EQ(rows[7], "");
    EXPECT_EQ(menu.Row(), 4);
    EXPECT_EQ(menu.ItemCount(), 3);
    EXPECT_EQ(menu.CurrentIndex(), 0);
}

TEST_F(CursesMenuTest, TheArrowsAndSetCurrentMoveTheHighlight)
{
    CursesMenu menu(Disks(), window, CursesMenu::Place{4, 21, 11, 41, 10});
    menu.Down();
    EXPECT_EQ(menu.CurrentIndex(), 1);
    EXPECT_EQ(Rows()[5], std::string(21, ' ') + " > /dev/vdb QEMU HARDDISK");
    menu.Down();
    menu.Down();
    EXPECT_EQ(menu.CurrentIndex(), 2);
    menu.Up();
    EXPECT_EQ(menu.CurrentIndex(), 1);
    menu.SetCurrent(0);
    EXPECT_EQ(menu.CurrentIndex(), 0);
    // An index out of range changes nothing.
    menu.SetCurrent(3);
    menu.SetCurrent(-1);
    EXPECT_EQ(menu.CurrentIndex(), 0);
}

TEST_F(CursesMenuTest, GreyedItemsCanBeHighlightedButNotSelected)
{
    CursesMenu menu(Disks(), window, CursesMenu::Place{4, 21, 11, 41, 10}, {0, 2});
    EXPECT_EQ(menu.CurrentIndex(), 0);
    EXPECT_FALSE(menu.IsCurrentSelectable());
    menu.Down();
    EXPECT_EQ(menu.CurrentIndex(), 1);
    EXPECT_TRUE(menu.IsCurrentSelectable());
    menu.Down();
    EXPECT_EQ(menu.CurrentIndex(), 2);
    EXPECT_FALSE(menu.IsCurrentSelectable());
    EXPECT_EQ(Rows()[6], std::string(21, ' ') + " > /dev/vdc QEMU HARDDISK");
}

TEST_F(CursesMenuTest, AnEmptyMenuHasNoCurrentItem)
{
    CursesMenu menu({}, window, CursesMenu::Place{4, 21, 11, 41, 10});
    EXPECT_EQ(menu.CurrentIndex(), -1);
    EXPECT_FALSE(menu.IsCurrentSelectable());
    menu.Down();
    EXPECT_EQ(menu.CurrentIndex(), -1);
}

TEST_F(CursesMenuTest, APlaceReachingPastTheWindowIsCutToIt)
{
    // Eleven rows from row 15 of a 20-row window: five rows, five items.
    Lines lines;
    for (int i = 1; i <= 8; ++i)
        lines.emplace_back(std::to_string(i), "Item " + std::to_string(i));
    CursesMenu menu(std::move(lines), window, CursesMenu::Place{15, 21, 11, 41, 10});
    const auto rows = Rows();
    EXPECT_EQ(rows[15], std::string(21, ' ') + " > 1 Item 1");
    EXPECT_EQ(rows[19], std::string(21, ' ') + "   5 Item 5");
    // It scrolls to the items below.
    for (int i = 0; i < 7; ++i)
        menu.Down();
    EXPECT_EQ(menu.CurrentIndex(), 7);
    EXPECT_EQ(Rows()[19], std::string(21, ' ') + " > 8 Item 8");
    // Nothing outside the window was touched.
    WINDOW* whole = stdscr;
    EXPECT_EQ(Sandbox::FileScreen::Row(whole, 22), "");
}

TEST_F(CursesMenuTest, TheMenuIsGoneWithTheHolder)
{
    {
        CursesMenu menu(Disks(), window, CursesMenu::Place{4, 21, 11, 41, 10});
        EXPECT_NE(menu.Get(), nullptr);
    }
    // Unposted: its rows are blank again.
    for (const std::string& row : Rows())
        EXPECT_EQ(row, "");
}

} // namespace
