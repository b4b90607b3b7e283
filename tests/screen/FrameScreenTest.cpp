// The step frame's progress pop-up and the main menu's optional items, driven
// through small programs built only for the tests.
#include "ScreenTest.h"

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

using namespace ScreenTest;

namespace
{

void Pause(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::string MenuRow(bool current, const std::string& name, const std::string& text,
                    size_t nameWidth)
{
    std::string padded = name;
    padded.resize(nameWidth, ' ');
    return std::string(23, ' ') + (current ? " > " : "   ") + padded + " " + text;
}

class Frame : public GuestSuite
{
protected:
    std::string ReadWorkFile(const std::string& name) const
    {
        std::ifstream in(HostWorkDir() + "/" + name);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    // The pop-up's middle row with `dots` dots: box side, text, dot area, box side.
    static std::string PopupRow(int dots)
    {
        return std::string(27, ' ') + "x Disk partitioning" +
               std::string(static_cast<size_t>(dots), '.') +
               std::string(static_cast<size_t>(5 - dots + 1), ' ') + "x";
    }

    void ExpectMenuProgram(const std::string& options, const std::vector<std::string>& items,
                           size_t nameWidth)
    {
        Start(Program("StartStepProgram") + " " + options);
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
        const std::string screen = Screen();
        for (size_t i = 0; i < items.size(); ++i)
            EXPECT_EQ(Row(screen, 5 + static_cast<int>(i)),
                      MenuRow(i == 0, std::to_string(i + 1), items[i], nameWidth))
                << screen;
        EXPECT_EQ(Row(screen, 5 + static_cast<int>(items.size())), "") << screen;
    }

    void ExpectSelection(const std::string& expected)
    {
        auto status = WaitExit();
        ASSERT_TRUE(status.has_value()) << Screen();
        EXPECT_EQ(*status, 0);
        EXPECT_EQ(ReadWorkFile("selections.txt"), expected + "\n");
    }

    void ExpectNothingSelected(const std::string& key)
    {
        const std::string before = Screen();
        Keys({key});
        Pause(2000);
        EXPECT_EQ(Screen(), before);
        EXPECT_EQ(ReadWorkFile("installer.log"), "");
    }
};

} // namespace

TEST_F(Frame, ProgressDotsRestartFromAnEmptyLineAfterSizeUpdates)
{
    Start(Program("ProgressPopupProgram") + " 'Disk partitioning' 5");
    ASSERT_TRUE(WaitFor("Disk partitioning")) << Screen();
    EXPECT_EQ(ReadWorkFile("popup.txt"), "popup created\n");
    // The title stored before the frame existed appears with the frame.
    EXPECT_EQ(ReadWorkFile("title.txt"), "stored\n");
    EXPECT_EQ(Row(Screen(), 1), std::string(35, ' ') + "Popup test");
    EXPECT_EQ(Row(Screen(), 11), std::string(27, ' ') + "l" + std::string(24, 'q') + "k")
        << Screen();
    EXPECT_EQ(Row(Screen(), 12), PopupRow(0)) << Screen();
    EXPECT_EQ(Row(Screen(), 13), std::string(27, ' ') + "m" + std::string(24, 'q') + "j")
        << Screen();

    for (int update = 1; update <= 12; ++update)
    {
        Keys({"Space"});
        const int dots = (update - 1) % 5 + 1;
        ASSERT_TRUE(Guest().WaitForScreen(
            [&](const std::string& screen) { return Row(screen, 12) == PopupRow(dots); }, 10))
            << "update " << update << "\n"
            << Screen();
    }

    // Hiding brings back what lay under the pop-up (an empty content area).
    Keys({"h"});
    ASSERT_TRUE(WaitGone("Disk partitioning", 10)) << Screen();
    for (int row = 11; row <= 13; ++row)
        EXPECT_EQ(Row(Screen(), row), "") << Screen();

    // Size 0: a boxed message.
    Keys({"m"});
    ASSERT_TRUE(WaitFor("Message box")) << Screen();
    EXPECT_EQ(Row(Screen(), 12), std::string(32, ' ') + "x Message box x") << Screen();
    Keys({"h"});
    ASSERT_TRUE(WaitGone("Message box", 10)) << Screen();

    Keys({"q"});
    auto status = WaitExit();
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(*status, 0);
}

TEST_F(Frame, WaitingOnABackgroundTaskAddsOneDotPerSecond)
{
    Start(Program("ProgressPopupProgram") + " 'Disk partitioning' 5");
    ASSERT_TRUE(WaitFor("Disk partitioning")) << Screen();
    Keys({"h", "w"});
    ASSERT_TRUE(WaitFor("Working")) << Screen();
    ASSERT_TRUE(WaitFor("Working..", 10)) << Screen();
    ASSERT_TRUE(WaitFor("Task result 42", 20)) << Screen();
    EXPECT_EQ(Screen().find("Working"), std::string::npos) << Screen();
    Keys({"q"});
    auto status = WaitExit();
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(*status, 0);
}

TEST_F(Frame, APopupWiderThanTheStepIsRefusedByCurses)
{
    const std::string text(78, 'W');
    Start(Program("ProgressPopupProgram") + " '" + text + "' 5");
    ASSERT_TRUE(WaitFor("<SPACE> dot")) << Screen();
    Pause(1000);
    EXPECT_EQ(ReadWorkFile("popup.txt"), "popup refused\n");
    EXPECT_EQ(Screen().find("WWWW"), std::string::npos) << Screen();
    // Updating a refused pop-up draws nothing and does not fail.
    Keys({"Space", "Space"});
    Pause(1000);
    EXPECT_EQ(Screen().find("WWWW"), std::string::npos) << Screen();
    Keys({"q"});
    auto status = WaitExit();
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(*status, 0);
}

TEST_F(Frame, TenItemsAndColonSelectsShutdown)
{
    ExpectMenuProgram("--hw --bios",
                      {"Install Vidorama", "Format and Install Vidorama", "Versions",
                       "Clear configuration lines", "Hardware maintenance",
                       "Reset bios (RB417 only)", "Exit to shell", "Support contact", "Licenses",
                       "Shutdown"},
                      2);
    Keys({":"});
    ExpectSelection("13 count 10");
}

TEST_F(Frame, HardwareItemWithoutBiosLeavesTheTenthSlotEmpty)
{
    ExpectMenuProgram("--hw",
                      {"Install Vidorama", "Format and Install Vidorama", "Versions",
                       "Clear configuration lines", "Hardware maintenance", "Exit to shell",
                       "Support contact", "Licenses", "Shutdown"},
                      1);
    ExpectNothingSelected(":");
    Keys({"5"});
    ExpectSelection("8 count 10");
}

TEST_F(Frame, BiosItemWithoutHardwareItem)
{
    ExpectMenuProgram("--bios",
                      {"Install Vidorama", "Format and Install Vidorama", "Versions",
                       "Clear configuration lines", "Reset bios (RB417 only)", "Exit to shell",
                       "Support contact", "Licenses", "Shutdown"},
                      1);
    ExpectNothingSelected(":");
    Keys({"5"});
    ExpectSelection("9 count 9");
}

TEST_F(Frame, MaintenanceMenuWithBothExtraItems)
{
    ExpectMenuProgram("--disk --hw --bios",
                      {"Start version", "Versions", "Clear Configuration lines",
                       "Hardware maintenance", "Reset bios (RB417 only)", "Exit to shell",
                       "Support contact", "Licenses", "Shutdown"},
                      1);
    Keys({"9"});
    ExpectSelection("13 count 9");
}

TEST_F(Frame, MaintenanceMenuWithHardwareItemOnly)
{
    ExpectMenuProgram("--disk --hw",
                      {"Start version", "Versions", "Clear Configuration lines",
                       "Hardware maintenance", "Exit to shell", "Support contact", "Licenses",
                       "Shutdown"},
                      1);
    ExpectNothingSelected("9");
    Keys({"4"});
    ExpectSelection("8 count 9");
}
