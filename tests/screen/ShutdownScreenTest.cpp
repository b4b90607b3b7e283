// "Shutdown" runs halt as root; the menu is drawn again while the machine goes
// down, and the guest really halts.
#include "ScreenTest.h"

#include <fstream>
#include <sstream>

using namespace ScreenTest;

namespace
{

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

TEST(Shutdown, HaltsTheMachineWhileTheMenuIsDrawnAgain)
{
    Sandbox::GuestOptions options;
    options.usbKeyDir = SampleUsbKey();
    options.kernelCmdline = UsbKeyCmdline;
    Sandbox::Guest guest(options);

    guest.StartOnConsole(Wizard(), "/io/work/shutdown");
    ASSERT_TRUE(guest.WaitForText("Shutdown", 60)) << guest.Screen();
    // The sample key's maintenance tools add "Hardware maintenance": Shutdown is item 9.
    guest.SendKeys({"9"});

    // The halt stand-in returns at once and takes the machine down a little later.
    const std::string log = guest.IoDir() + "/work/shutdown/installer.log";
    ASSERT_TRUE(guest.WaitForScreen(
        [&](const std::string&)
        { return ReadFile(log).find("StartStep selected item: 13") != std::string::npos; },
        30))
        << ReadFile(log);
    // halt runs after the menu was taken down; the menu drawn once it has
    // returned is the redrawn one.
    ASSERT_TRUE(guest.WaitForScreen(
        [&](const std::string&)
        { return guest.ReadIoFile("events").find("halt") != std::string::npos; },
        30));
    ASSERT_TRUE(guest.WaitForScreen(
        [](const std::string& screen)
        {
            return screen.find("Vidorama Install and Rescue") != std::string::npos &&
                   screen.find("9 Shutdown") != std::string::npos &&
                   screen.find("<ENTER> or number to select the operation.") != std::string::npos;
        },
        10))
        << guest.Screen();

    ASSERT_TRUE(guest.WaitEnded(60));
    EXPECT_EQ(guest.Outcome(), "halt");
    EXPECT_NE(guest.ReadIoFile("events").find("halt"), std::string::npos)
        << guest.ReadIoFile("events");
    // The program never exited by itself.
    EXPECT_EQ(ReadFile(guest.IoDir() + "/console.rc"), "");
}
