// The main menu, the main loop and the text viewer on the sandbox console.
#include "ScreenTest.h"

#include <chrono>
#include <thread>

using namespace ScreenTest;

namespace
{

const int TitleRow = 1;
const int FirstMenuRow = 5;
const int MessageRow = 17;
const int CountdownRow = 18;
const int BottomRow = 23;

std::string MenuRow(bool current, const std::string& name, const std::string& text,
                    size_t nameWidth = 1)
{
    std::string padded = name;
    padded.resize(nameWidth, ' ');
    return std::string(23, ' ') + (current ? " > " : "   ") + padded + " " + text;
}

std::string Centered(const std::string& text, int width, int offset = 2)
{
    return std::string(static_cast<size_t>(offset + (width - static_cast<int>(text.size())) / 2),
                       ' ') +
           text;
}

void Pause(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

const std::vector<std::string> InstallItems = {"Install Vidorama", "Format and Install Vidorama",
                                               "Versions",         "Clear configuration lines",
                                               "Exit to shell",    "Support contact",
                                               "Licenses",         "Shutdown"};

class MainMenu : public GuestSuite
{
protected:
    void ExpectMenu(const std::string& screen, const std::vector<std::string>& items, int current)
    {
        for (size_t i = 0; i < items.size(); ++i)
            EXPECT_EQ(Row(screen, FirstMenuRow + static_cast<int>(i)),
                      MenuRow(static_cast<int>(i) == current, std::to_string(i + 1), items[i]))
                << screen;
        EXPECT_EQ(Row(screen, FirstMenuRow + static_cast<int>(items.size())), "") << screen;
    }

    void MakeCurrentVersion(const std::string& manifestName, const std::string& manifest)
    {
        // The manifest is printf's format, so "\\r\\n" in it become CR LF.
        RunInGuest("mkdir -p /mnt/SYS/Versions/12.05.01.3456 && printf '" + manifest +
                   "' > /mnt/SYS/Versions/12.05.01.3456/" + manifestName +
                   " && ln -sfn /mnt/SYS/Versions/12.05.01.3456 /mnt/SYS/Versions/current");
    }

    // This machine has no disk: the selection offers nothing, ESC leaves it.
    void LeaveTheDiskSelection(const std::string& title)
    {
        ASSERT_TRUE(WaitFor("<ESC> return to the main menu, <ENTER> to select the disk"))
            << Screen();
        EXPECT_EQ(Row(Screen(), TitleRow), Centered(title, 76)) << Screen();
        Keys({"Escape"});
    }

    void ExitToShell(const std::string& key)
    {
        Keys({key});
        auto status = WaitExit();
        ASSERT_TRUE(status.has_value()) << Screen();
        EXPECT_EQ(*status, 2);
    }
};

const std::string JsonManifest =
    R"({"name": "Vidorama", "version": "12.05.01", "revision": "3456"})";

} // namespace

TEST_F(MainMenu, InstallationMenuFromTheUsbKey)
{
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Vidorama Install and Rescue", 76)) << screen;
    ExpectMenu(screen, InstallItems, 0);
    EXPECT_EQ(Row(screen, BottomRow), "  <ENTER> or number to select the operation.");
    EXPECT_EQ(Row(screen, 0), "");
    EXPECT_EQ(Row(screen, 24), "");
    ExitToShell("5");
    const auto log = LogMessages();
    ASSERT_EQ(log.size(), 2u) << Log();
    EXPECT_EQ(log[0], "0 Log created!");
    EXPECT_EQ(log[1], "0 StartStep selected item: 10");
}

TEST_F(MainMenu, EightItemsAndNineSelectsNothing)
{
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    const std::string before = Screen();
    Keys({"9"});
    Pause(2500);
    EXPECT_EQ(Screen(), before);
    EXPECT_EQ(Log(), "") << "nothing may be selected";
    // Escape does nothing on the main menu either.
    Keys({"Escape"});
    Pause(2500);
    EXPECT_EQ(Screen(), before);
    EXPECT_EQ(Log(), "");
    ExitToShell("5");
}

TEST_F(MainMenu, ArrowsMoveTheHighlightAndEnterSelects)
{
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Keys({"Up"});
    Pause(1000);
    ExpectMenu(Screen(), InstallItems, 0);
    Keys({"Down", "Down", "Down", "Down"});
    ASSERT_TRUE(WaitFor(MenuRow(true, "5", "Exit to shell"))) << Screen();
    ExpectMenu(Screen(), InstallItems, 4);
    ExitToShell("Enter");
    EXPECT_TRUE(WaitForLog("0 StartStep selected item: 10", 1)) << Log();
}

// The console changes size while the menu is up (the serial line's size set
// with stty, which signals the program): the next key finds the frame drawn
// again at the new size, the menu as it was, and the key acted upon.
TEST_F(MainMenu, AtANewConsoleSizeTheNextKeyRedrawsTheMenu)
{
    const std::string bottom = "  <ENTER> or number to select the operation.";
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    const std::string before = Screen();

    SetConsoleSize(24);
    Keys({"Down"});
    for (int i = 0; i < 50 && Row(Screen(), BottomRow - 1) != bottom; ++i)
        Settle();
    std::string screen = Screen();
    EXPECT_EQ(Row(screen, BottomRow - 1), bottom) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "") << screen;
    EXPECT_EQ(Row(screen, TitleRow), Row(before, TitleRow)) << screen;
    ExpectMenu(screen, InstallItems, 1);

    // Back to 25 rows: the frame as it was at the start.
    SetConsoleSize(25);
    Keys({"Up"});
    for (int i = 0; i < 50 && Row(Screen(), BottomRow) != bottom; ++i)
        Settle();
    screen = Screen();
    EXPECT_EQ(screen, before);
    ExitToShell("5");
    EXPECT_TRUE(WaitForLog("0 StartStep selected item: 10", 1)) << Log();
}

TEST_F(MainMenu, ACancelledInstallationShowsTheMenuAgain)
{
    // No disk in this machine: the disk selection offers nothing and ESC
    // leaves it.
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    for (const auto& [key, title] : std::vector<std::pair<std::string, std::string>>{
             {"1", "Install Vidorama"}, {"2", "Format and Install Vidorama"}})
    {
        Keys({key});
        ASSERT_TRUE(WaitFor("Select the target disk:")) << Screen();
        EXPECT_NE(Row(Screen(), 1).find(title), std::string::npos) << Screen();
        Keys({"Escape"});
        ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
        ASSERT_TRUE(WaitFor(MenuRow(false, "8", "Shutdown"))) << Screen();
    }
    ExitToShell("5");
    EXPECT_EQ(
        LogMessages(),
        std::vector<std::string>(
            {"0 Log created!", "0 StartStep selected item: 0",
             // The hardware check first: this machine's 512 MiB are too little.
             "2 Not enough memory to install or start Vidorama", "0 No disk selected",
             "0 StartStep selected item: 2", "2 Not enough memory to install or start Vidorama",
             "0 No disk selected", "0 StartStep selected item: 10"}))
        << Log();
}

TEST_F(MainMenu, ClearingConfigurationLinesStartsWithTheDiskSelection)
{
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Keys({"4"});
    ASSERT_TRUE(WaitForLog("0 StartStep selected item: 7")) << Log();
    LeaveTheDiskSelection("Clear configuration lines");
    ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
    ASSERT_TRUE(WaitFor(MenuRow(false, "8", "Shutdown"))) << Screen();
    ExitToShell("5");
}

TEST_F(MainMenu, EscapeInTheVersionsSubMenuKeepsTheHighlight)
{
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Keys({"Down", "Down"});
    ASSERT_TRUE(WaitFor(MenuRow(true, "3", "Versions"))) << Screen();
    Keys({"Enter"});
    ASSERT_TRUE(WaitFor("Delete all unused versions")) << Screen();
    std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Versions", 76)) << screen;
    EXPECT_EQ(Row(screen, FirstMenuRow), MenuRow(true, "1", "Delete specific version")) << screen;
    EXPECT_EQ(Row(screen, FirstMenuRow + 1), MenuRow(false, "2", "Delete all unused versions"));
    EXPECT_EQ(Row(screen, FirstMenuRow + 2), "");
    EXPECT_EQ(Row(screen, BottomRow),
              "  <ESC> return to the main menu, <ENTER> or number to select the operation");
    Keys({"Escape"});
    ASSERT_TRUE(WaitForLog("0 StartStep selected item: -1")) << Log();
    ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
    ASSERT_TRUE(WaitFor(MenuRow(false, "8", "Shutdown"))) << Screen();
    ExpectMenu(Screen(), InstallItems, 2);
    ExitToShell("5");
}

TEST_F(MainMenu, SubMenuItemsReachTheMainLoop)
{
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Keys({"3"});
    ASSERT_TRUE(WaitFor("Delete all unused versions")) << Screen();
    Keys({"3"});
    Pause(1500);
    EXPECT_EQ(Row(Screen(), TitleRow), Centered("Versions", 76)) << "a third item does not exist";
    Keys({"2"});
    ASSERT_TRUE(WaitForLog("0 StartStep selected item: 6")) << Log();
    LeaveTheDiskSelection("Delete all unused versions");
    ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
    Keys({"3"});
    ASSERT_TRUE(WaitFor("Delete all unused versions")) << Screen();
    Keys({"1"});
    ASSERT_TRUE(WaitForLog("0 StartStep selected item: 5")) << Log();
    LeaveTheDiskSelection("Delete specific version");
    ASSERT_TRUE(WaitFor(MenuRow(false, "8", "Shutdown"))) << Screen();
    ExitToShell("5");
}

TEST_F(MainMenu, ControlCDoesNotEndTheProgram)
{
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    const std::string before = Screen();
    Keys({"C-c"});
    Pause(2500);
    EXPECT_EQ(Screen(), before);
    RunInGuest("pidof InstallWizard");
    ExitToShell("5");
}

TEST_F(MainMenu, AnInterruptFromOutsideOnlyEndsCursesMode)
{
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    RunInGuest("kill -INT $(pidof InstallWizard)");
    ASSERT_TRUE(WaitGone("Vidorama Install and Rescue", 10)) << Screen();
    Pause(1000);
    // Still running, now on a terminal that has left curses mode (line input).
    RunInGuest("pidof InstallWizard");
    Keys({"5", "Enter"});
    auto status = WaitExit();
    ASSERT_TRUE(status.has_value()) << Screen();
    EXPECT_EQ(*status, 2);
    EXPECT_TRUE(WaitForLog("0 StartStep selected item: 10", 1)) << Log();
}

TEST_F(MainMenu, MessageIsShownBoldInTheMiddle)
{
    const std::string message = "Maintenance window until 18:00";
    Start(Wizard() + " -e '" + message + "'");
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    EXPECT_EQ(Row(Screen(), MessageRow), Centered(message, 72)) << Screen();
    ExitToShell("5");
}

// 120 characters: more than the 72 columns the message is centred over.
const std::string LongMessage = "Maintenance tonight from 22:00 to 23:30: the video server "
                                "restarts twice; recordings are kept and live playout pauses!!!";
const std::string LongMessageFirst =
    "Maintenance tonight from 22:00 to 23:30: the video server restarts twice;";
const std::string LongMessageSecond = "recordings are kept and live playout pauses!!!";

TEST_F(MainMenu, ALongMessageIsShownWholeUnderTheMenu)
{
    ASSERT_EQ(LongMessage.size(), 120u);
    Start(Wizard() + " -e '" + LongMessage + "'");
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    ASSERT_TRUE(WaitFor(LongMessageSecond)) << Screen();
    const std::string screen = Screen();
    // Each row centred in the 76 columns of the content window.
    EXPECT_EQ(Row(screen, MessageRow), Centered(LongMessageFirst, 76)) << screen;
    EXPECT_EQ(Row(screen, MessageRow + 1), Centered(LongMessageSecond, 76)) << screen;
    EXPECT_EQ(Row(screen, MessageRow + 2), "") << screen;
    ExpectMenu(screen, InstallItems, 0);
    EXPECT_EQ(Row(screen, BottomRow), "  <ENTER> or number to select the operation.") << screen;
    ExitToShell("5");
}

TEST_F(MainMenu, EmptyMessageAndUnknownOptionsShowNothing)
{
    Start(Wizard() + " -x -e '' --bogus");
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, MessageRow), "") << screen;
    EXPECT_EQ(screen.find("invalid"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("unrecognized"), std::string::npos) << screen;
    ExpectMenu(screen, InstallItems, 0);
    ExitToShell("5");
}

TEST_F(MainMenu, WithoutBootImageTheInstallationMenuIsShownAndNoCountdown)
{
    SetKernelCommandLine(std::nullopt);
    Start(Wizard() + " -t");
    ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
    ExpectMenu(Screen(), InstallItems, 0);
    Pause(2500);
    EXPECT_EQ(Screen().find("Automatically"), std::string::npos) << Screen();
    ExitToShell("5");
}

TEST_F(MainMenu, TimerFromTheUsbKeyNeverCountsDown)
{
    Start(Wizard() + " --timer");
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Pause(2500);
    EXPECT_EQ(Screen().find("Automatically"), std::string::npos) << Screen();
    ExitToShell("5");
}

TEST_F(MainMenu, MaintenanceMenuFromTheDisk)
{
    SetKernelCommandLine(DiskCmdline);
    MakeCurrentVersion("Version.json", JsonManifest);
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Vidorama Maintenance")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Vidorama Maintenance", 76)) << screen;
    ExpectMenu(screen,
               {"Start version 12.05.01", "Versions", "Clear Configuration lines", "Exit to shell",
                "Support contact", "Licenses", "Shutdown"},
               0);
    // Eight slots for seven items: the eighth selects nothing.
    Keys({"8"});
    Pause(2500);
    EXPECT_EQ(Screen(), screen);
    EXPECT_EQ(Log(), "");
    Keys({"1"});
    auto status = WaitExit();
    ASSERT_TRUE(status.has_value()) << Screen();
    EXPECT_EQ(*status, 0);
    EXPECT_TRUE(WaitForLog("0 StartStep selected item: 1", 1)) << Log();
}

TEST_F(MainMenu, StartVersionShowsTheRevisionOnRequest)
{
    SetKernelCommandLine(DiskCmdline);
    MakeCurrentVersion("Version.json", JsonManifest);
    Start(Wizard() + " -r");
    ASSERT_TRUE(WaitFor(MenuRow(true, "1", "Start version 12.05.01.3456"))) << Screen();
    ExitToShell("4");
}

TEST_F(MainMenu, StartVersionFromATextManifest)
{
    SetKernelCommandLine(DiskCmdline);
    MakeCurrentVersion("Version.txt", "Vidorama\\r\\n11.02.03.77\\r\\n");
    Start(Wizard() + " --show-revisions");
    ASSERT_TRUE(WaitFor(MenuRow(true, "1", "Start version 11.02.03.77"))) << Screen();
    ExitToShell("4");
}

TEST_F(MainMenu, StartVersionWithoutCurrentVersion)
{
    SetKernelCommandLine(DiskCmdline);
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Vidorama Maintenance")) << Screen();
    EXPECT_EQ(Row(Screen(), FirstMenuRow), MenuRow(true, "1", "Start version")) << Screen();
    ExitToShell("4");
}

TEST_F(MainMenu, MaintenanceVersionsSubMenu)
{
    SetKernelCommandLine(DiskCmdline);
    MakeCurrentVersion("Version.json", JsonManifest);
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Vidorama Maintenance")) << Screen();
    Keys({"Down", "Enter"});
    ASSERT_TRUE(WaitFor("Change active version")) << Screen();
    const std::string screen = Screen();
    // The remembered position (1) also highlights the second item here.
    EXPECT_EQ(Row(screen, FirstMenuRow), MenuRow(false, "1", "Change active version")) << screen;
    EXPECT_EQ(Row(screen, FirstMenuRow + 1), MenuRow(true, "2", "Delete specific version"));
    EXPECT_EQ(Row(screen, FirstMenuRow + 2), MenuRow(false, "3", "Delete all unused versions"));
    Keys({"1"});
    ASSERT_TRUE(WaitForLog("0 StartStep selected item: 4")) << Log();
    LeaveTheDiskSelection("Change active versions");
    ASSERT_TRUE(WaitFor("Vidorama Maintenance")) << Screen();
    ExitToShell("4");
}

TEST_F(MainMenu, CountdownStartsTheVersionAfterSevenSeconds)
{
    SetKernelCommandLine(DiskCmdline);
    MakeCurrentVersion("Version.json", JsonManifest);
    Start(Wizard() + " -t");
    // Row and number read from one look at the screen: a slow machine may be a
    // second further on at the next look.
    const std::string seven = std::string(23, ' ') + "Automatically start in 7 seconds";
    EXPECT_TRUE(Guest().WaitForScreen(
        [&](const std::string& screen) { return Row(screen, CountdownRow) == seven; }, 30))
        << Screen();
    const auto shown = std::chrono::steady_clock::now();
    ASSERT_TRUE(WaitFor("Automatically start in 5 seconds", 10)) << Screen();
    ASSERT_TRUE(WaitFor("Automatically start in 2 seconds", 10)) << Screen();
    auto status = WaitExit(20);
    const auto elapsed = std::chrono::steady_clock::now() - shown;
    ASSERT_TRUE(status.has_value()) << Screen();
    EXPECT_EQ(*status, 0);
    EXPECT_GE(elapsed, std::chrono::seconds(6));
    EXPECT_TRUE(WaitForLog("0 StartStep selected item: 1", 1)) << Log();
}

TEST_F(MainMenu, TheCountdownGoesUnderALongMessage)
{
    SetKernelCommandLine(DiskCmdline);
    MakeCurrentVersion("Version.json", JsonManifest);
    Start(Wizard() + " -t -e '" + LongMessage + "'");
    ASSERT_TRUE(WaitFor("Automatically start in")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, MessageRow), Centered(LongMessageFirst, 76)) << screen;
    EXPECT_EQ(Row(screen, MessageRow + 1), Centered(LongMessageSecond, 76)) << screen;
    // One row lower than without the message.
    EXPECT_EQ(Row(screen, CountdownRow + 1).substr(0, 45),
              std::string(23, ' ') + "Automatically start in")
        << screen;
    EXPECT_EQ(Row(screen, CountdownRow + 2), "") << screen;
    auto status = WaitExit(20);
    ASSERT_TRUE(status.has_value()) << Screen();
    EXPECT_EQ(*status, 0);
}

TEST_F(MainMenu, AnyKeyCancelsTheCountdownAndIsActedUpon)
{
    SetKernelCommandLine(DiskCmdline);
    MakeCurrentVersion("Version.json", JsonManifest);
    Start(Wizard() + " -t");
    ASSERT_TRUE(WaitFor("Automatically start in")) << Screen();
    Keys({"Down"});
    ASSERT_TRUE(WaitGone("Automatically start in", 5)) << Screen();
    EXPECT_EQ(Row(Screen(), CountdownRow), "");
    EXPECT_EQ(Row(Screen(), FirstMenuRow + 1), MenuRow(true, "2", "Versions")) << Screen();
    Pause(9000);
    EXPECT_EQ(Screen().find("Automatically"), std::string::npos) << Screen();
    EXPECT_EQ(Log(), "") << "nothing was started";
    ExitToShell("4");
}

TEST_F(MainMenu, TheCountdownRunsOncePerProcess)
{
    SetKernelCommandLine(DiskCmdline);
    MakeCurrentVersion("Version.json", JsonManifest);
    Start(Wizard() + " -t");
    ASSERT_TRUE(WaitFor("Automatically start in")) << Screen();
    Keys({"6"});
    ASSERT_TRUE(WaitFor("Licenses")) << Screen();
    ASSERT_TRUE(WaitFor("<ESC> return to main menu")) << Screen();
    Keys({"Escape"});
    ASSERT_TRUE(WaitFor("Vidorama Maintenance")) << Screen();
    Pause(3000);
    EXPECT_EQ(Screen().find("Automatically"), std::string::npos) << Screen();
    ExitToShell("4");
}

TEST_F(MainMenu, TheLastOfMaintenanceAndInstallWins)
{
    Start(Wizard() + " -m");
    ASSERT_TRUE(WaitFor("Vidorama Maintenance")) << Screen();
    ExitToShell("4");
    Start(Wizard() + " -m -i");
    ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
    ExitToShell("5");
    SetKernelCommandLine(DiskCmdline);
    Start(Wizard() + " --install");
    ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
    ExitToShell("5");
    Start(Wizard() + " -i --maintenance");
    ASSERT_TRUE(WaitFor("Vidorama Maintenance")) << Screen();
    ExitToShell("4");
}
