// Loading BIOS settings on an RB417 board: from the main menu (ending in a
// restart) and within an installation, into the guest's CMOS through the
// kernel's /dev/nvram. CMOS is read back through the guest, before a restart
// ends it; every image here has a right checksum, so it reads back as it is.
#include "Cmos.h"
#include "ScreenTest.h"

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

using namespace ScreenTest;

namespace
{

const int FirstMenuRow = 5;
const int BottomRow = 23;
const int SettingsRow = 8;
const int HelpRow = 11;
const int PopupRow = 12;

const std::string Rb417Vendor = "Phoenix Technologies LTD";
const std::string CmosBefore = Sandbox::CmosImage("CMOS as the board left it\n", 0x10);
const std::string Standard = Sandbox::CmosImage("standard VGA settings for the board\n", 0x20);
const std::string Enhanced = Sandbox::CmosImage("enhanced SVGA settings for the board\n", 0x30);

const std::string LegacyHelp = "      (Legacy settings for VGA)      ";
const std::string SvgaHelp = "(Recommended for SVGA & Multiviewers)";

void Pause(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::string Trimmed(const std::string& text)
{
    const size_t end = text.find_last_not_of(' ');
    return end == std::string::npos ? "" : text.substr(0, end + 1);
}

std::string Centered(const std::string& text)
{
    return std::string(static_cast<size_t>(2 + (76 - static_cast<int>(text.size())) / 2), ' ') +
           text;
}

std::string MenuRow(bool current, const std::string& name, const std::string& text)
{
    return std::string(23, ' ') + (current ? " > " : "   ") + name + " " + text;
}

class Rb417Suite : public GuestSuite
{
public:
    static void SetUpTestSuite()
    {
        _files = SuiteFiles();
        // Written before the guest starts, so that it sees them as they are.
        std::ofstream(_files + "/nvram", std::ios::binary) << CmosBefore;
        std::ofstream(_files + "/standard.bios", std::ios::binary) << Standard;
        std::ofstream(_files + "/enhanced.bios", std::ios::binary) << Enhanced;
        auto options = SuiteDefaults();
        options.biosVendor = Rb417Vendor;
        options.nvramFile = _files + "/nvram";
        StartGuest(options);
    }

protected:
    void SetUp() override
    {
        GuestSuite::SetUp();
        // Every test starts with the CMOS driver, the board's own CMOS and no
        // settings files.
        RunInGuest("modprobe nvram && udevadm settle && dd if=" + _files +
                   "/nvram of=/dev/nvram bs=114 conv=notrunc status=none && "
                   "rm -f /mnt/USB/data/rb417*.bios");
    }

    // "standard" or "enhanced" under the key's name for it.
    void WriteSettings(const std::string& name, const std::string& set)
    {
        RunInGuest("cp " + _files + "/" + set + ".bios /mnt/USB/data/" + name);
    }

    std::string Cmos() const { return Sandbox::GuestCmos(Guest()); }

    void OpenFromMainMenu()
    {
        Start(Wizard());
        ASSERT_TRUE(WaitFor("Reset bios (RB417 only)")) << Screen();
        Keys({"5"});
        ASSERT_TRUE(WaitFor("Reset Bios")) << Screen();
        ASSERT_TRUE(WaitFor(Trimmed(LegacyHelp))) << Screen();
    }

    void ExpectSettingsMenu(const std::string& screen, int current)
    {
        EXPECT_EQ(Row(screen, SettingsRow),
                  MenuRow(current == 0, "1", "Default settings (720x400)"))
            << screen;
        EXPECT_EQ(Row(screen, SettingsRow + 1),
                  MenuRow(current == 1, "2", "Enhanced settings (1024x768)"))
            << screen;
        EXPECT_EQ(Row(screen, HelpRow),
                  Trimmed(std::string(21, ' ') + (current == 0 ? LegacyHelp : SvgaHelp)))
            << screen;
    }

    static std::string _files;
};

std::string Rb417Suite::_files;

class BiosFromMainMenu : public Rb417Suite
{
};

// A successful reset restarts the machine, which ends the guest.
class BiosRestart : public Rb417Suite
{
};

} // namespace

TEST_F(BiosFromMainMenu, MainMenuOffersTheResetOnAnRb417)
{
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Reset bios (RB417 only)")) << Screen();
    const std::vector<std::string> items = {"Install Vidorama",
                                            "Format and Install Vidorama",
                                            "Versions",
                                            "Clear configuration lines",
                                            "Reset bios (RB417 only)",
                                            "Exit to shell",
                                            "Support contact",
                                            "Licenses",
                                            "Shutdown"};
    const std::string screen = Screen();
    for (size_t i = 0; i < items.size(); ++i)
        EXPECT_EQ(Row(screen, FirstMenuRow + static_cast<int>(i)),
                  MenuRow(i == 0, std::to_string(i + 1), items[i]))
            << screen;
    Keys({"6"});
    ASSERT_TRUE(WaitExit().has_value());
}

TEST_F(BiosFromMainMenu, TheScreenAndItsHelpFollowingTheHighlight)
{
    OpenFromMainMenu();
    std::string screen = Screen();
    EXPECT_EQ(Row(screen, 1), Centered("Reset Bios")) << screen;
    EXPECT_EQ(Row(screen, 6),
              "     As part of the BIOS load, you may select one of two VGA settings:")
        << screen;
    EXPECT_EQ(Row(screen, 3), "") << screen;
    EXPECT_EQ(Row(screen, 4), "") << screen;
    EXPECT_EQ(Row(screen, BottomRow),
              "  <ESC> return to the main menu, <ENTER> or number to select the settings")
        << screen;
    ExpectSettingsMenu(screen, 0);

    Keys({"Down"});
    ASSERT_TRUE(WaitFor(SvgaHelp)) << Screen();
    ExpectSettingsMenu(Screen(), 1);
    Keys({"Up"});
    ASSERT_TRUE(WaitFor(Trimmed(LegacyHelp))) << Screen();
    ExpectSettingsMenu(Screen(), 0);

    // "3" is not a settings set.
    screen = Screen();
    Keys({"3", "x"});
    Pause(2000);
    EXPECT_EQ(Screen(), screen);

    Keys({"Escape"});
    ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
    EXPECT_EQ(Cmos(), CmosBefore);
    Keys({"6"});
    ASSERT_TRUE(WaitExit().has_value());
    EXPECT_EQ(LogMessages(),
              std::vector<std::string>({"0 Log created!", "0 StartStep selected item: 9",
                                        "0 StartStep selected item: 10"}))
        << Log();
}

TEST_F(BiosFromMainMenu, AMissingSettingsFileIsReportedAndTheMenuComesBack)
{
    OpenFromMainMenu();
    Keys({"1"});
    ASSERT_TRUE(WaitFor("Error during bios settings reset!")) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(Row(screen, PopupRow).find("x Error during bios settings reset! x"),
              std::string::npos)
        << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  <ENTER> return to the main menu") << screen;
    EXPECT_TRUE(WaitForLog("3 Error writing cmos settings", 5)) << Log();
    Keys({"Escape", "1"});
    Pause(2000);
    EXPECT_EQ(Screen(), screen);
    Keys({"Enter"});
    ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
    Keys({"6"});
    ASSERT_TRUE(WaitExit().has_value());
    EXPECT_EQ(Cmos(), CmosBefore);
}

TEST_F(BiosFromMainMenu, WithoutTheCmosDriverTheResetFailsAndNothingRestarts)
{
    // A board whose kernel has no nvram driver: no /dev/nvram at all.
    RunInGuest("rmmod nvram && ! test -e /dev/nvram");
    WriteSettings("rb417s.bios", "standard");
    OpenFromMainMenu();
    Keys({"1"});
    ASSERT_TRUE(WaitFor("Error during bios settings reset!")) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(Row(screen, PopupRow).find("x Error during bios settings reset! x"),
              std::string::npos)
        << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  <ENTER> return to the main menu") << screen;
    EXPECT_EQ(screen.find("Settings are applied"), std::string::npos) << screen;
    EXPECT_TRUE(WaitForLog("3 Error writing cmos settings", 5)) << Log();
    Keys({"Enter"});
    ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
    EXPECT_FALSE(Guest().WaitEnded(3)) << "nothing restarts";
    Keys({"6"});
    ASSERT_EQ(WaitExit().value_or(-1), 2) << Screen();
    EXPECT_EQ(LogMessages(),
              std::vector<std::string>({"0 Log created!", "0 StartStep selected item: 9",
                                        "3 Error writing cmos settings",
                                        "0 StartStep selected item: 10"}))
        << Log();
    // No plain file was left in the device's place; with the driver back,
    // CMOS is as it was.
    EXPECT_EQ(Guest().Run("test -e /dev/nvram").rc, 1);
    RunInGuest("modprobe nvram && udevadm settle");
    EXPECT_EQ(Cmos(), CmosBefore);
}

TEST_F(BiosFromMainMenu, WithinInstallationEscapeIsNotOffered)
{
    WriteSettings("rb417s.bios", "standard");
    Start(Program("BiosStepProgram"));
    ASSERT_TRUE(WaitFor(Trimmed(LegacyHelp))) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 1), Centered("Format and Install Vidorama")) << screen;
    EXPECT_EQ(Row(screen, 3), "     The system needs to change the BIOS to ensure valid settings")
        << screen;
    EXPECT_EQ(Row(screen, 4), "     for this version of Vidorama.") << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  <ENTER> or number to select the settings") << screen;
    Keys({"Escape"});
    Pause(2500);
    EXPECT_EQ(Screen(), screen);
    // Enter takes the highlighted set; nothing more is shown within an installation.
    Keys({"Enter"});
    ASSERT_TRUE(WaitExit().has_value()) << Screen();
    EXPECT_EQ(Result(), "run 1 selection 0\n");
    EXPECT_EQ(Cmos(), Standard);
}

TEST_F(BiosFromMainMenu, WithinInstallationAFailureAsksToContinue)
{
    Start(Program("BiosStepProgram"));
    ASSERT_TRUE(WaitFor(Trimmed(LegacyHelp))) << Screen();
    Keys({"2"});
    ASSERT_TRUE(WaitFor("Error during bios settings reset!")) << Screen();
    EXPECT_EQ(Row(Screen(), BottomRow), "  <ENTER> to continue");
    Keys({"Enter"});
    ASSERT_TRUE(WaitExit().has_value()) << Screen();
    EXPECT_EQ(Result(), "run 0 selection 1\n");
    EXPECT_EQ(LogMessages(),
              std::vector<std::string>({"0 Log created!", "3 Error writing cmos settings"}))
        << Log();
    EXPECT_EQ(Cmos(), CmosBefore);
}

TEST_F(BiosRestart, TwoLoadsTheEnhancedSetAtOnceAndRestartsAfterEnter)
{
    WriteSettings("rb417e.bios", "enhanced");
    OpenFromMainMenu();
    Keys({"2"});
    const std::string message = "Settings are applied, remove the USB key then press <ENTER>";
    ASSERT_TRUE(WaitFor(message)) << Screen();
    EXPECT_EQ(Row(Screen(), BottomRow), "  <ENTER> to reboot");
    EXPECT_EQ(Cmos(), Enhanced);
    // Nothing restarts before Enter.
    Keys({"x", "Escape"});
    EXPECT_FALSE(Guest().WaitEnded(3));
    EXPECT_TRUE(WaitFor(message, 1));
    Keys({"Enter"});
    ASSERT_TRUE(Guest().WaitEnded(60));
    EXPECT_EQ(Guest().Outcome(), "reboot");
}
