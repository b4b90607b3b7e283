// Where the screens put their texts on consoles of three sizes: on a console
// of 128x48 every text is at the row and column its formula gives; at 80x25
// (VGA text mode) and 80x24 (a serial line that tells no size) every label,
// heading, menu item and help line of every screen is on screen at once, each
// on a row of its own. One machine per console size, every screen in turn.
//
// With WIZARD_SCREEN_CAPTURES naming a host directory, the 80x25 walk also
// writes each screen there (the README's pictures are taken from them).
#include "ScreenTest.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace ScreenTest;

namespace
{

const std::string SysVersions = "/mnt/SYS/Versions";
const std::string DosVersions = "/mnt/DOS/Versions";
const std::string ToolList = "/mnt/USB/HardwareMaintenance/HWMaintenance.json";

// Both disks alike, whichever the disk list names first: partition 1 FAT16,
// partition 2 ext4, with the running Linux version 12.05.01, a newer one, and
// the DOS version of the same number.
std::string PrepareDisk(const std::string& disk)
{
    return "parted -s " + disk +
           " mklabel msdos mkpart primary fat16 1MiB 65MiB mkpart primary ext4 65MiB 321MiB\n"
           "udevadm settle\n"
           "for i in $(seq 50); do [ -b " +
           disk + "2 ] && break; sleep 0.1; done\nmkfs.fat -F 16 -n DOS " + disk +
           "1 >/dev/null\nmkfs.ext4 -q -F -O ^64bit -L LINUX " + disk + "2\n";
}

std::string LinuxVersion(const std::string& version, const std::string& revision)
{
    const std::string directory = SysVersions + "/" + version + "." + revision;
    return "mkdir -p " + directory + "/boot/syslinux && printf 'LABEL linux\\n' > " + directory +
           "/boot/syslinux/syslinux.cfg && printf '%s' '{\"name\": \"Vidorama\", \"version\": \"" +
           version + "\", \"revision\": \"" + revision + "\"}' > " + directory +
           "/Version.json && ";
}

std::string Versions(const std::string& disk)
{
    return "mkdir -p /mnt/SYS /mnt/DOS && mount -t ext4 " + disk + "2 /mnt/SYS && mount -t vfat " +
           disk + "1 /mnt/DOS && mkdir -p " + SysVersions + " " + DosVersions + "/120501 && " +
           LinuxVersion("12.05.01", "3456") + LinuxVersion("12.06.02", "3501") + "printf 'zip' > " +
           DosVersions + "/120501/img.zip && ln -sfn " + SysVersions + "/12.05.01.3456 " +
           SysVersions +
           "/current && touch /mnt/DOS/COMMAND.COM /mnt/DOS/IO.SYS /mnt/DOS/MSDOS.SYS && "
           "umount /mnt/SYS /mnt/DOS\n";
}

// Three tools, each with a help line: with a list of one to three tools the
// help's own row is a tool's row at 80x25.
const std::string Tools = R"([
  {"menu": "1", "label": "Memory test", "description": "Checks every memory bank",
   "executable": "/bin/true"},
  {"menu": "2", "label": "Disk surface scan", "description": "Reads every sector of the disks",
   "executable": "/bin/true"},
  {"menu": "3", "label": "Fan check", "description": "Runs each fan at full speed",
   "executable": "/bin/true"}
])";

const std::vector<std::string> InstallItems = {"Install Vidorama",
                                               "Format and Install Vidorama",
                                               "Versions",
                                               "Clear configuration lines",
                                               "Hardware maintenance",
                                               "Reset bios (RB417 only)",
                                               "Exit to shell",
                                               "Support contact",
                                               "Licenses",
                                               "Shutdown"};
const std::vector<std::string> BootItems = {"Start version 12.05.01",
                                            "Versions",
                                            "Clear Configuration lines",
                                            "Hardware maintenance",
                                            "Reset bios (RB417 only)",
                                            "Exit to shell",
                                            "Support contact",
                                            "Licenses",
                                            "Shutdown"};

const std::string MenuBottom = "<ENTER> or number to select the operation.";
const std::string SubMenuBottom =
    "<ESC> return to the main menu, <ENTER> or number to select the operation";
const std::string DiskBottom = "<ESC> return to the main menu, <ENTER> to select the disk";
const std::string PackageBottom = "<ESC> return to the main menu, <ENTER> to select the package";
const std::string VersionBottom = "<ESC> return to the main menu, <ENTER> to select the version";
const std::string BiosBottom = "<ENTER> or number to select the settings";
const std::string FormBottom = "<ENTER> to apply configuration";
const std::string ToolBottom =
    "<ESC> return to the main menu, <ENTER> or number to select the settings";
const std::string BiosIntro1 = "The system needs to change the BIOS to ensure valid settings";
const std::string BiosIntro2 = "for this version of Vidorama.";
const std::string BiosQuestion =
    "As part of the BIOS load, you may select one of two VGA settings:";
const std::string ToolHeading = "Select an Hardware Maintenance tool:";

std::string Spaces(int count)
{
    return std::string(static_cast<size_t>(std::max(0, count)), ' ');
}

// A text at column c of the content window is on screen column c + 2.
std::string At(int column, const std::string& text)
{
    return Spaces(column + 2) + text;
}

// A menu line: the mark of the current item, the name padded to the longest
// name, a blank, the text.
std::string Item(int column, bool current, const std::string& name, const std::string& text,
                 size_t nameWidth = 1)
{
    std::string padded = name;
    padded.resize(std::max(nameWidth, name.size()), ' ');
    return At(column, std::string(current ? " > " : "   ") + padded + " " + text);
}

class LayoutSuite : public GuestSuite
{
protected:
    static void StartMachine(int columns, int rows)
    {
        auto options = SuiteDefaults();
        options.columns = columns;
        options.rows = rows;
        options.disks = {NewDiskImage("first.img", 3ULL << 30),
                         NewDiskImage("second.img", 3ULL << 30)};
        // The key's packages: two Linux ones and the DOS one of the same
        // number as the older; the tool list.
        options.setupScript += PrepareDisk("/dev/vda") + Versions("/dev/vda") +
                               PrepareDisk("/dev/vdb") + Versions("/dev/vdb") +
                               std::string(WIZARD_SOURCE_DIR) +
                               "/scripts/make-sample-packages.sh /mnt/USB/Packages --linux "
                               "12.05.01.3456 --linux 12.06.02.3501 --dos 120501 >/dev/null\n"
                               "mkdir -p /mnt/USB/HardwareMaintenance && cat > " +
                               ToolList + " <<'JSON'\n" + Tools + "\nJSON\n";
        StartGuest(options);
    }

    void TearDown() override
    {
        GuestSuite::TearDown();
        // The base empties the tool list's directory; every test here wants it.
        RunInGuest("mkdir -p /mnt/USB/HardwareMaintenance && cat > " + ToolList + " <<'JSON'\n" +
                   Tools + "\nJSON");
    }

    // Starts a program, waits until bottom is on screen and the screen is
    // still, and returns the screen.
    std::string Show(const std::string& commandLine, const std::string& bottom)
    {
        Start(commandLine);
        return Shown(bottom);
    }

    std::string Shown(const std::string& text)
    {
        EXPECT_TRUE(WaitFor(text)) << Screen();
        return Screen();
    }

    void ExpectExit(const std::vector<std::string>& keys)
    {
        Keys(keys);
        EXPECT_TRUE(WaitExit(60).has_value()) << Screen();
    }
};

// ---------------------------------------------------------------------------
// 128x48: width 124, height 46, content rows 2 to 44 of the screen, the help
// line on row 46.

class TallConsole : public LayoutSuite
{
protected:
    static void SetUpTestSuite() { StartMachine(128, 48); }

    static const int Width = 124;
    static const int Height = 46;
    static const int BottomRow = 46;
    // Content row r is screen row r + 2.
    static int ScreenRow(int contentRow) { return contentRow + 2; }
    static std::string Title(const std::string& text)
    {
        return Spaces(2 + (Width - static_cast<int>(text.size())) / 2) + text;
    }

    void ExpectRow(const std::string& screen, int row, const std::string& text)
    {
        EXPECT_EQ(Row(screen, row), text) << "row " << row << "\n" << screen;
    }
    void ExpectEmpty(const std::string& screen, std::vector<int> rows)
    {
        for (int row : rows)
            EXPECT_EQ(Row(screen, row), "") << "row " << row << "\n" << screen;
    }
};

TEST_F(TallConsole, TheMainMenusAreWhereTheirFormulasPutThem)
{
    // Menu at (height - 16) / 2 = 15, column (width - 34) / 2 = 45.
    const int menuRow = ScreenRow((Height - 16) / 2);
    const int column = (Width - 34) / 2;
    std::string screen = Show(Program("StartStepProgram") + " --hw --bios", MenuBottom);
    EXPECT_EQ(Rows(screen).size(), 48u) << screen;
    ExpectRow(screen, 1, Title("Vidorama Install and Rescue"));
    for (size_t i = 0; i < InstallItems.size(); ++i)
        ExpectRow(screen, menuRow + static_cast<int>(i),
                  Item(column, i == 0, std::to_string(i + 1), InstallItems[i], 2));
    ExpectEmpty(screen, {menuRow - 1, menuRow + 10});
    ExpectRow(screen, BottomRow, "  " + MenuBottom);

    Keys({"3"});
    screen = Shown(SubMenuBottom);
    ExpectRow(screen, 1, Title("Versions"));
    ExpectRow(screen, menuRow, Item(column, true, "1", "Delete specific version"));
    ExpectRow(screen, menuRow + 1, Item(column, false, "2", "Delete all unused versions"));
    ExpectEmpty(screen, {menuRow - 1, menuRow + 2});
    ExpectRow(screen, BottomRow, "  " + SubMenuBottom);
    ExpectExit({"Escape"});
}

TEST_F(TallConsole, DisksPackagesAndVersionsAreWhereTheirFormulasPutThem)
{
    const int column = (Width - 34) / 2;
    // The disk list: heading on row 3, menu at (height - 16) / 2 = 15.
    std::string screen = Show(Program("DiskStepsProgram") + " disk 1", DiskBottom);
    ExpectRow(screen, 1, Title("Select Disk"));
    ExpectRow(screen, ScreenRow(3), At(column, "Select the target disk:"));
    // Both disks, in the order the disk list gives.
    const int diskRow = ScreenRow((Height - 16) / 2);
    const std::string disks = Row(screen, diskRow) + Row(screen, diskRow + 1);
    EXPECT_EQ(Row(screen, diskRow).rfind(At(column, " > /dev/vd"), 0), 0u) << screen;
    EXPECT_EQ(Row(screen, diskRow + 1).rfind(At(column, "   /dev/vd"), 0), 0u) << screen;
    EXPECT_NE(disks.find("/dev/vda"), std::string::npos) << screen;
    EXPECT_NE(disks.find("/dev/vdb"), std::string::npos) << screen;
    ExpectEmpty(screen, {diskRow - 1, diskRow + 2});
    ExpectRow(screen, BottomRow, "  " + DiskBottom);
    ExpectExit({"Escape"});

    // The packages, then the installed versions in the same place: menu at
    // (height - 13) / 2 = 16 under the heading; the DOS one says so.
    const int packageRow = ScreenRow((Height - 13) / 2);
    const auto expectVersionMenu = [&](const std::string& commandLine, const std::string& title,
                                       const std::string& heading, const std::string& bottom)
    {
        screen = Show(commandLine, bottom);
        ExpectRow(screen, 1, Title(title));
        ExpectRow(screen, ScreenRow(3), At(column, heading));
        ExpectRow(screen, packageRow, Item(column, true, "Vidorama", "12.06.02"));
        ExpectRow(screen, packageRow + 1, Item(column, false, "Vidorama", "12.05.01"));
        ExpectRow(screen, packageRow + 2, Item(column, false, "Vidorama", "12.05.01 (DOS)"));
        ExpectEmpty(screen, {packageRow - 1, packageRow + 3});
        ExpectRow(screen, BottomRow, "  " + bottom);
        ExpectExit({"Escape"});
    };
    expectVersionMenu(Program("InstallStepsProgram") + " package escape 1", "Available packages",
                      "Select the package to install:", PackageBottom);
    expectVersionMenu(Program("VersionStepsProgram") + " available", "Available versions",
                      "Select the version :", VersionBottom);
}

TEST_F(TallConsole, BiosSettingsAndToolsAreWhereTheirFormulasPutThem)
{
    const int column = (Width - 34) / 2;
    // The BIOS settings within an installation: texts on rows 1, 2 and 4,
    // menu at (height - 11) / 2 = 17, help on row 9 at column 19.
    std::string screen = Show(Program("BiosStepProgram"), BiosBottom);
    ExpectRow(screen, 1, Title("Format and Install Vidorama"));
    ExpectRow(screen, ScreenRow(1), At(3, BiosIntro1));
    ExpectRow(screen, ScreenRow(2), At(3, BiosIntro2));
    ExpectRow(screen, ScreenRow(4), At(3, BiosQuestion));
    ExpectRow(screen, ScreenRow(9), At(19, "      (Legacy settings for VGA)"));
    const int biosRow = ScreenRow((Height - 11) / 2);
    ExpectRow(screen, biosRow, Item(column, true, "1", "Default settings (720x400)"));
    ExpectRow(screen, biosRow + 1, Item(column, false, "2", "Enhanced settings (1024x768)"));
    ExpectEmpty(screen, {ScreenRow(3), ScreenRow(8), ScreenRow(10), biosRow - 1, biosRow + 2});
    ExpectRow(screen, BottomRow, "  " + BiosBottom);
    Keys({"Down"});
    screen = Shown("(Recommended for SVGA & Multiviewers)");
    ExpectRow(screen, ScreenRow(9), At(19, "(Recommended for SVGA & Multiviewers)"));
    // Leaves without a settings choice being written anywhere.
    RunInGuest("pkill -9 -f BiosStepProgram");
    EXPECT_TRUE(WaitExit().has_value()) << Screen();

    // Three tools: heading on row 4, menu at (height - 6 - 3) / 2 = 18, help
    // on row 3 + 6 = 9 centred over 76 columns from column 4.
    Start(Wizard());
    Shown(MenuBottom);
    Keys({"5"});
    screen = Shown(ToolBottom);
    ExpectRow(screen, 1, Title("Hardware maintenance"));
    ExpectRow(screen, ScreenRow(4), At(3, ToolHeading));
    const int toolRow = ScreenRow((Height - 6 - 3) / 2);
    ExpectRow(screen, toolRow, Item(column, true, "1", "Memory test"));
    ExpectRow(screen, toolRow + 1, Item(column, false, "2", "Disk surface scan"));
    ExpectRow(screen, toolRow + 2, Item(column, false, "3", "Fan check"));
    const std::string help = "Checks every memory bank";
    ExpectRow(screen, ScreenRow(9), At(4 + (76 - static_cast<int>(help.size())) / 2, help));
    ExpectEmpty(screen, {toolRow - 1, toolRow + 3, ScreenRow(8), ScreenRow(10)});
    ExpectRow(screen, BottomRow, "  " + ToolBottom);
    Keys({"Escape"});
    Shown(MenuBottom);
    Keys({"7"});
    EXPECT_TRUE(WaitFor("<ESC> return to main menu")) << Screen();
    Keys({"Escape"});
    Shown(MenuBottom);
    ExpectExit({"6"});
}

// ---------------------------------------------------------------------------
// 80x25 and 80x24: every text of every screen at once, each on its own row.

class SmallConsoles : public LayoutSuite
{
protected:
    static void SetUpTestSuite() { StartMachine(80, 25); }

    // Each text is on a row of its own that holds it whole; longer texts are
    // matched first, so that "Install Vidorama" does not take the row of
    // "Format and Install Vidorama". The bottom help line is on the
    // console's last row but one.
    void ExpectAllShown(const std::string& name, const std::string& screen,
                        std::vector<std::string> texts, const std::string& bottom)
    {
        Capture(name, screen);
        const auto rows = Rows(screen);
        ASSERT_GE(rows.size(), static_cast<size_t>(_lines)) << screen;
        EXPECT_EQ(rows[static_cast<size_t>(_lines - 2)], bottom.empty() ? "" : "  " + bottom)
            << name << "\n"
            << screen;
        for (size_t row = static_cast<size_t>(_lines); row < rows.size(); ++row)
            EXPECT_EQ(rows[row], "") << name << " row " << row << "\n" << screen;
        std::stable_sort(texts.begin(), texts.end(),
                         [](const std::string& a, const std::string& b)
                         { return a.size() > b.size(); });
        std::vector<bool> used(rows.size(), false);
        used[static_cast<size_t>(_lines - 2)] = true;
        for (const std::string& text : texts)
        {
            bool found = false;
            for (size_t row = 0; row < rows.size() && !found; ++row)
            {
                if (!used[row] && rows[row].find(text) != std::string::npos)
                {
                    used[row] = true;
                    found = true;
                }
            }
            EXPECT_TRUE(found) << name << ": \"" << text << "\" is not on a row of its own\n"
                               << screen;
        }
    }

    void Capture(const std::string& name, const std::string& screen) const
    {
        const char* directory = std::getenv("WIZARD_SCREEN_CAPTURES");
        if (directory == nullptr || *directory == '\0' || _lines != 25)
            return;
        std::ofstream(std::string(directory) + "/" + name + ".txt") << screen;
    }

    void WalkEveryScreen()
    {
        // The main menu from the key, every item offered, and its sub-menu.
        std::string screen = Show(Program("StartStepProgram") + " --hw --bios", MenuBottom);
        std::vector<std::string> texts = {"Vidorama Install and Rescue"};
        texts.insert(texts.end(), InstallItems.begin(), InstallItems.end());
        ExpectAllShown("main-menu-key", screen, texts, MenuBottom);
        Keys({"3"});
        screen = Shown(SubMenuBottom);
        ExpectAllShown("versions-menu", screen,
                       {"Versions", "1 Delete specific version", "2 Delete all unused versions"},
                       SubMenuBottom);
        ExpectExit({"Escape"});

        // The disks, their heading above them.
        screen = Show(Program("DiskStepsProgram") + " disk 1", DiskBottom);
        ExpectAllShown("disk-selection", screen,
                       {"Select Disk", "Select the target disk:", "/dev/vda", "/dev/vdb"},
                       DiskBottom);
        ExpectExit({"Escape"});

        // The packages of the key, the DOS one told apart.
        screen = Show(Program("InstallStepsProgram") + " package escape 1", PackageBottom);
        ExpectAllShown("package-selection", screen,
                       {"Available packages", "Select the package to install:", "Vidorama 12.06.02",
                        "Vidorama 12.05.01", "Vidorama 12.05.01 (DOS)"},
                       PackageBottom);
        ExpectExit({"Escape"});

        // The versions of the disk, the DOS one told apart; they stay mounted
        // for the maintenance menu's "Start version".
        screen = Show(Program("VersionStepsProgram") + " available", VersionBottom);
        ExpectAllShown("version-selection", screen,
                       {"Available versions", "Select the version :", "Vidorama 12.06.02",
                        "Vidorama 12.05.01", "Vidorama 12.05.01 (DOS)"},
                       VersionBottom);
        ExpectExit({"Escape"});

        // The questions that destroy something, each naming the disk, each
        // answered "n".
        screen = Show(Program("InstallStepsProgram") + " partition format", "Continue? (y/n)");
        ExpectAllShown("format-question", screen,
                       {"Disk partitions",
                        "The Linux partition will be formatted. All the data will be lost.",
                        "If you want to keep them, backup them before to proceed to the format.",
                        "Continue? (y/n)", "Disk: /dev/vd",
                        "- Partitions 2 (EXT4 \"LINUX\") and 3 (swap \"SWAP\") are made anew.",
                        "- The disk's boot code is replaced by syslinux's."},
                       "");
        ExpectExit({"n"});
        screen = Show(Program("VersionStepsProgram") + " remove all", "continue ? (y/n)");
        ExpectAllShown("remove-all-question", screen,
                       {"Remove version", "Disk: /dev/vd",
                        "All versions of Vidorama will be deleted, continue ? (y/n)"},
                       "<ESC> return to main menu");
        Keys({"n"});
        Shown("<ENTER> return to main menu");
        ExpectExit({"Enter"});
        screen = Show(Program("VersionStepsProgram") + " lines", "(y/n)");
        ExpectAllShown("configuration-lines-question", screen,
                       {"Clear configuration lines", "Disk: /dev/vd",
                        "All configuration lines of Vidorama will be deleted, continue? (y/n)"},
                       "");
        ExpectExit({"n"});

        // The network form at the end of an installation: its labels down the
        // left, the name servers on the right of the same rows.
        screen = Show(Program("NetworkStepProgram") + " linux", FormBottom);
        ExpectAllShown("network-form", screen,
                       {"Network Configuration", "Hostname:", "PC Lan 1",
                        "Mode:", "IP Address:", "Submask:", "Gateway:"},
                       FormBottom);
        for (const char* label : {"DNS", "Primary:", "Secondary:", "Domain:"})
            EXPECT_NE(screen.find(label), std::string::npos) << label << "\n" << screen;
        RunInGuest("pkill -9 -f NetworkStepProgram");
        EXPECT_TRUE(WaitExit().has_value()) << Screen();

        // The maintenance menu with its countdown, which ends it.
        screen = Show(Program("StartStepProgram") + " --disk --hw --bios --timer",
                      "Automatically start");
        texts = {"Vidorama Maintenance", "Automatically start in"};
        texts.insert(texts.end(), BootItems.begin(), BootItems.end());
        ExpectAllShown("main-menu-disk", screen, texts, MenuBottom);
        EXPECT_TRUE(WaitExit(30).has_value()) << Screen();

        // The BIOS settings within an installation, with the help of each.
        screen = Show(Program("BiosStepProgram"), BiosBottom);
        ExpectAllShown("bios-settings", screen,
                       {"Format and Install Vidorama", BiosIntro1, BiosIntro2, BiosQuestion,
                        "1 Default settings (720x400)", "2 Enhanced settings (1024x768)",
                        "(Legacy settings for VGA)"},
                       BiosBottom);
        Keys({"Down"});
        screen = Shown("(Recommended for SVGA & Multiviewers)");
        ExpectAllShown("bios-settings-enhanced", screen,
                       {BiosIntro1, BiosIntro2, BiosQuestion, "1 Default settings (720x400)",
                        "2 Enhanced settings (1024x768)", "(Recommended for SVGA & Multiviewers)"},
                       BiosBottom);
        RunInGuest("pkill -9 -f BiosStepProgram");
        EXPECT_TRUE(WaitExit().has_value()) << Screen();

        // The tools, each tool's help under the list, then the text viewer.
        Start(Wizard());
        Shown(MenuBottom);
        Keys({"5"});
        screen = Shown(ToolBottom);
        const std::vector<std::string> tools = {"Hardware maintenance", ToolHeading,
                                                "1 Memory test", "2 Disk surface scan",
                                                "3 Fan check"};
        texts = tools;
        texts.push_back("Checks every memory bank");
        ExpectAllShown("hardware-maintenance", screen, texts, ToolBottom);
        Keys({"Down", "Down"});
        screen = Shown("Runs each fan at full speed");
        texts = tools;
        texts.push_back("Runs each fan at full speed");
        ExpectAllShown("hardware-maintenance-third", screen, texts, ToolBottom);
        Keys({"Escape"});
        Shown(MenuBottom);
        Keys({"7"});
        screen = Shown("<ESC> return to main menu");
        EXPECT_NE(Row(screen, 1).find("Contacts"), std::string::npos) << screen;
        EXPECT_NE(screen.find("Vidorama video server - support contacts"), std::string::npos)
            << screen;
        Capture("support-contacts", screen);
        Keys({"Escape"});
        Shown(MenuBottom);
        ExpectExit({"6"});
    }

    int _lines = 25;
};

TEST_F(SmallConsoles, At80x25EveryScreenShowsAllOfItsTexts)
{
    _lines = 25;
    WalkEveryScreen();
}

// The guest's console is 80x24 for this test and back to 80x25 after it,
// whatever happens; the tmux screen keeps its 25th row empty.
TEST_F(SmallConsoles, At80x24EveryScreenShowsAllOfItsTexts)
{
    SetConsoleSize(24);
    _lines = 24;
    WalkEveryScreen();
}

} // namespace
