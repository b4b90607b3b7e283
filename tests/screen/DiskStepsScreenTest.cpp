// The hardware check and the disk selection on the sandbox console, on
// machines of different memory, boards and disks. Each suite boots its own
// guest; the board is switched per test through the BIOS vendor text.
#include "ScreenTest.h"

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

using namespace ScreenTest;

namespace
{

const int WarningRow = 7;
const int HeadingRow = 5;
// Under the heading: the menu's own row, (23 - 16) / 2 = 3, is the heading's.
const int FirstMenuRow = 6;
const int BottomRow = 23;

// Exactly 2,304 MiB: the smallest disk taken; the sector below it is refused.
const uint64_t SmallestGoodDisk = 2415919104ULL;
const uint64_t OneSectorTooSmall = SmallestGoodDisk - 512;

const std::string VirtioModel = "Virtio Block Device";
const std::string MemoryWarning = "Not enough memory to install or start Vidorama";
const std::string BoardWarning = "Incompatible Zarn board to install Vidorama";

std::string Centered(const std::string& text)
{
    return std::string(static_cast<size_t>(2 + (76 - static_cast<int>(text.size())) / 2), ' ') +
           text;
}

void Pause(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

class DiskStepsSuite : public GuestSuite
{
protected:
    static void Boot(int memMb, const std::vector<uint64_t>& disks, bool usbDisk)
    {
        auto options = SuiteDefaults();
        options.memMb = memMb;
        for (size_t i = 0; i < disks.size(); ++i)
            options.disks.push_back(NewDiskImage("disk" + std::to_string(i) + ".img", disks[i]));
        if (usbDisk)
            options.usbDisks.push_back(NewDiskImage("usb.img", 64ULL << 20));
        StartGuest(options);
    }

    // The screen while the hardware check's warnings are up, then lets the step
    // run on its own.
    std::string CheckScreen()
    {
        Start(Program("DiskStepsProgram") + " check");
        for (int i = 0; i < 300 && !std::ifstream(HostWorkDir() + "/drawn").good(); ++i)
            Pause(100);
        EXPECT_TRUE(std::ifstream(HostWorkDir() + "/drawn").good()) << Screen();
        EXPECT_TRUE(WaitFor("Hardware check")) << Screen();
        Settle();
        const std::string screen = Screen();
        RunInGuest("touch " + WorkDir() + "/go");
        const auto status = WaitExit();
        EXPECT_TRUE(status.has_value()) << Screen();
        EXPECT_EQ(status.value_or(-1), 0);
        // The step returns true whatever it found.
        EXPECT_EQ(Result(), "check 1\nrun 1\n");
        return screen;
    }

    // Moves the highlight onto the disk's row.
    void Highlight(const std::string& path)
    {
        if (Row(Screen(), FirstMenuRow).find(path) == std::string::npos)
            Keys({"Down"});
        ASSERT_TRUE(WaitFor(DiskRow(true, path, VirtioModel))) << Screen();
    }

    static std::string DiskRow(bool current, const std::string& path, const std::string& model)
    {
        return std::string(23, ' ') + (current ? " > " : "   ") + path + " " + model;
    }
};

// 512 MiB of RAM leaves the kernel less than 512,000,000 bytes.
class SmallMachineTwoDisks : public DiskStepsSuite
{
public:
    static void SetUpTestSuite() { Boot(512, {SmallestGoodDisk, OneSectorTooSmall}, true); }
};

class LargeMachineOneDisk : public DiskStepsSuite
{
public:
    static void SetUpTestSuite() { Boot(640, {SmallestGoodDisk}, false); }
};

class LargeMachineNoDisk : public DiskStepsSuite
{
public:
    static void SetUpTestSuite() { Boot(640, {}, true); }
};

} // namespace

TEST_F(SmallMachineTwoDisks, BothWarningsAreShownOneUnderTheOtherAndLogged)
{
    SetBiosVendor(std::nullopt);
    const std::string screen = CheckScreen();
    EXPECT_EQ(Row(screen, WarningRow), Centered(BoardWarning)) << screen;
    EXPECT_EQ(Row(screen, WarningRow + 1), Centered(MemoryWarning)) << screen;
    EXPECT_EQ(Row(screen, WarningRow + 2), "") << screen;
    EXPECT_EQ(Row(screen, 1), Centered("Hardware check")) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "") << screen;
    // Once for the look above, once for the step's own run.
    EXPECT_EQ(LogMessages(),
              std::vector<std::string>({"0 Log created!", "2 " + BoardWarning, "2 " + MemoryWarning,
                                        "2 " + BoardWarning, "2 " + MemoryWarning}))
        << Log();
}

TEST_F(SmallMachineTwoDisks, MemoryWarningOnASupportedBoard)
{
    SetBiosVendor("Phoenix Technologies LTD");
    const std::string screen = CheckScreen();
    EXPECT_EQ(Row(screen, WarningRow), Centered(MemoryWarning)) << screen;
    EXPECT_EQ(Row(screen, WarningRow + 1), "") << screen;
    EXPECT_EQ(LogMessages(), std::vector<std::string>(
                                 {"0 Log created!", "2 " + MemoryWarning, "2 " + MemoryWarning}))
        << Log();
}

TEST_F(SmallMachineTwoDisks, MenuListsTheTargetDisksButNotTheUsbDisk)
{
    Start(Program("DiskStepsProgram") + " disk 1");
    ASSERT_TRUE(WaitFor("/dev/vdb")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 1), Centered("Select Disk")) << screen;
    // The heading is seen with the disks under it.
    EXPECT_EQ(Row(screen, HeadingRow), std::string(23, ' ') + "Select the target disk:") << screen;
    for (int row = 2; row < HeadingRow; ++row)
        EXPECT_EQ(Row(screen, row), "") << row << "\n" << screen;
    // The disks come in the order the disk library lists them; the first is highlighted.
    const std::string first =
        Row(screen, FirstMenuRow).find("/dev/vda") != std::string::npos ? "/dev/vda" : "/dev/vdb";
    const std::string second = first == "/dev/vda" ? "/dev/vdb" : "/dev/vda";
    EXPECT_EQ(Row(screen, FirstMenuRow), DiskRow(true, first, VirtioModel)) << screen;
    EXPECT_EQ(Row(screen, FirstMenuRow + 1), DiskRow(false, second, VirtioModel)) << screen;
    EXPECT_EQ(Row(screen, FirstMenuRow + 2), "") << screen;
    EXPECT_EQ(screen.find("/dev/sda"), std::string::npos) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  <ESC> return to the main menu, <ENTER> to select the disk")
        << screen;

    // Keys other than the arrows, Enter and Escape do nothing.
    Keys({"x", "2", "Left"});
    Pause(2000);
    EXPECT_EQ(Screen(), screen);
    Keys({"Down"});
    ASSERT_TRUE(WaitFor(DiskRow(true, second, VirtioModel))) << Screen();
    EXPECT_EQ(Row(Screen(), FirstMenuRow), DiskRow(false, first, VirtioModel));
    Keys({"Escape"});
    ASSERT_TRUE(WaitExit().has_value()) << Screen();
    EXPECT_EQ(Result(), "run 0 disk none\n");
    EXPECT_EQ(LogMessages(), std::vector<std::string>({"0 Log created!", "0 No disk selected"}))
        << Log();
}

// A serial console of 24 lines (the size curses takes when a serial line
// reports none): the guest's console is set to 80x24 for this test and back
// to 80x25 after it, whatever happens; the tmux screen keeps its 25th row
// empty.
TEST_F(SmallMachineTwoDisks, At80x24TheHeadingAndEveryDiskAreSeen)
{
    SetConsoleSize(24);
    Start(Program("DiskStepsProgram") + " disk 1");
    ASSERT_TRUE(WaitFor("/dev/vdb")) << Screen();
    ASSERT_TRUE(WaitFor("<ENTER> to select the disk")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 1), Centered("Select Disk")) << screen;
    EXPECT_EQ(Row(screen, HeadingRow), std::string(23, ' ') + "Select the target disk:") << screen;
    // (22 - 16) / 2 = 3 is the heading's row too: the menu is under it.
    for (const std::string device : {"/dev/vda", "/dev/vdb"})
    {
        const bool first = Row(screen, FirstMenuRow).find(device) != std::string::npos;
        const bool second = Row(screen, FirstMenuRow + 1).find(device) != std::string::npos;
        EXPECT_TRUE(first || second) << device << "\n" << screen;
    }
    // The frame's bottom line is one row higher than on 25 lines.
    EXPECT_EQ(Row(screen, BottomRow - 1),
              "  <ESC> return to the main menu, <ENTER> to select the disk")
        << screen;
    EXPECT_EQ(Row(screen, BottomRow), "") << screen;
    Keys({"Escape"});
    ASSERT_TRUE(WaitExit().has_value()) << Screen();
    EXPECT_EQ(Result(), "run 0 disk none\n");
}

TEST_F(SmallMachineTwoDisks, TheSmallestGoodDiskPassesAndStaysChosen)
{
    Start(Program("DiskStepsProgram") + " disk 2");
    ASSERT_TRUE(WaitFor("/dev/vdb")) << Screen();
    Highlight("/dev/vda");
    Keys({"Enter"});
    // Second run: Escape keeps the earlier choice, but the step says no.
    ASSERT_TRUE(WaitForLog("0 Selected disk: /dev/vda")) << Log();
    ASSERT_TRUE(WaitFor("/dev/vdb")) << Screen();
    Keys({"Escape"});
    ASSERT_TRUE(WaitExit().has_value()) << Screen();
    EXPECT_EQ(Result(), "run 1 disk /dev/vda\nrun 0 disk /dev/vda\n");
    EXPECT_EQ(LogMessages(),
              std::vector<std::string>(
                  {"0 Log created!", "0 Selected disk: /dev/vda", "0 No disk selected"}))
        << Log();
}

TEST_F(SmallMachineTwoDisks, ADiskOneSectorTooSmallIsRefusedUntilEnter)
{
    Start(Program("DiskStepsProgram") + " disk 1");
    ASSERT_TRUE(WaitFor("/dev/vdb")) << Screen();
    Highlight("/dev/vdb");
    Keys({"Enter"});
    const std::string message = "The disk /dev/vdb is too small for Vidorama installation";
    ASSERT_TRUE(WaitFor(message)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, HeadingRow), "     " + message) << screen;
    EXPECT_EQ(Row(screen, HeadingRow + 1), "") << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  <ENTER> return to the main menu") << screen;

    // Only Enter leaves.
    Keys({"Escape", "Up", "x", "1"});
    Pause(2500);
    EXPECT_EQ(Screen(), screen);
    EXPECT_FALSE(WaitExit(1).has_value());
    Keys({"Enter"});
    ASSERT_TRUE(WaitExit().has_value()) << Screen();
    EXPECT_EQ(Result(), "run 0 disk /dev/vdb\n");
    EXPECT_EQ(LogMessages(), std::vector<std::string>(
                                 {"0 Log created!", "0 Selected disk: /dev/vdb", "3 " + message}))
        << Log();
}

TEST_F(LargeMachineOneDisk, BoardWarningAlone)
{
    SetBiosVendor(std::nullopt);
    const std::string screen = CheckScreen();
    EXPECT_EQ(Row(screen, WarningRow), Centered(BoardWarning)) << screen;
    EXPECT_EQ(Row(screen, WarningRow + 1), "") << screen;
    EXPECT_EQ(LogMessages(), std::vector<std::string>(
                                 {"0 Log created!", "2 " + BoardWarning, "2 " + BoardWarning}))
        << Log();
}

TEST_F(LargeMachineOneDisk, NoWarningOnEitherBoard)
{
    for (const std::string vendor : {"Phoenix Technologies LTD", "American Megatrends Inc."})
    {
        SetBiosVendor(vendor);
        const std::string screen = CheckScreen();
        EXPECT_EQ(screen.find("Vidorama"), std::string::npos) << vendor << "\n" << screen;
        EXPECT_EQ(Log().find("Vidorama"), std::string::npos) << Log();
        RunInGuest("rm -f " + WorkDir() + "/result.txt " + WorkDir() + "/drawn " + WorkDir() +
                   "/go");
    }
}

TEST_F(LargeMachineOneDisk, ASingleDiskIsTakenWithoutAMenu)
{
    // Nothing is asked: the program ends without a key.
    Start(Program("DiskStepsProgram") + " disk 1");
    const auto status = WaitExit();
    ASSERT_TRUE(status.has_value()) << Screen();
    EXPECT_EQ(Result(), "run 1 disk /dev/vda\n");
    EXPECT_EQ(LogMessages(),
              std::vector<std::string>({"0 Log created!", "0 Selected disk: /dev/vda"}))
        << Log();
}

TEST_F(LargeMachineNoDisk, EnterOnTheEmptyMenuIsNoChoice)
{
    Start(Program("DiskStepsProgram") + " disk 1");
    ASSERT_TRUE(WaitFor("<ENTER> to select the disk")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, HeadingRow), std::string(23, ' ') + "Select the target disk:") << screen;
    EXPECT_EQ(Row(screen, HeadingRow + 1), "") << screen;
    EXPECT_EQ(screen.find("/dev/"), std::string::npos) << screen;
    Keys({"Down", "Up"});
    Pause(1500);
    Keys({"Enter"});
    ASSERT_TRUE(WaitExit().has_value()) << Screen();
    EXPECT_EQ(Result(), "run 0 disk none\n");
    EXPECT_EQ(LogMessages(), std::vector<std::string>({"0 Log created!", "0 No disk selected"}))
        << Log();
}
