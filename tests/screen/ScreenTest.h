#pragma once

// Common ground of the screen tests: one sandbox guest per test program, the
// wizard started on its console, and helpers to read the 80x25 screen.

#include "Guest.h"
#include "SparseImage.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ScreenTest
{

const std::string UsbKeyCmdline = "BOOT_IMAGE=/boot/vmlinuz initrd=/boot/initrd.img quiet";
const std::string DiskCmdline =
    "BOOT_IMAGE=/Versions/12.05.01.3456/boot/vmlinuz root=/dev/sda2 quiet";

std::string Wizard();
std::string Program(const std::string& name);
std::string SampleUsbKey();

// The text of one screen row, without trailing blanks.
std::string Row(const std::string& screen, int row);
std::vector<std::string> Rows(const std::string& screen);
// The lines of a command's output or a file, without their line ends.
std::vector<std::string> Lines(const std::string& text);
// Whether wanted appear in lines in this order (other lines may come between).
bool InOrder(const std::vector<std::string>& lines, const std::vector<std::string>& wanted);

// The foreground colour (0 to 7, as the colour pairs name them; -1 for the
// terminal's default) in which text begins on a row of a styled screen
// (Guest::StyledScreen); -2 when the row does not hold text.
int ForegroundOf(const std::string& styledScreen, int row, const std::string& text);

class GuestSuite : public testing::Test
{
protected:
    // Boots the suite's guest from the sample USB key. A suite that needs
    // another machine (disks, board, memory) defines its own SetUpTestSuite
    // calling StartGuest with options built from SuiteDefaults().
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    static Sandbox::GuestOptions SuiteDefaults();
    static void StartGuest(const Sandbox::GuestOptions& options);
    void SetUp() override;
    void TearDown() override;

    static Sandbox::Guest& Guest() { return *_guest; }

    // A directory on the host for the suite's files (disk images, CMOS files), made at the
    // first call and removed with all it holds after the suite's guest has stopped.
    static std::string SuiteFiles();
    // A sparse disk image of bytes in SuiteFiles(), removed with it.
    static std::string NewDiskImage(const std::string& name, unsigned long long bytes);
    // Guest setup commands that lay /dev/vda out as an installation does, without its
    // contents: FAT16 "DOS" of 40 MiB, ext4 "LINUX" on the rest, and the mount points.
    static const std::string DosAndLinuxPartitions;
    // Boots a second machine with only the disk image, mounts its partitions read-only on
    // /mnt/SYS (and /mnt/DOS with dos), runs commands there in the C locale and returns
    // their output: the disk as the wizard left it, seen from outside.
    static std::string LookAtDisk(const std::string& image, const std::string& commands,
                                  bool dos = true);

    // Kernel command line the program sees; nullopt: an empty /proc/cmdline.
    void SetKernelCommandLine(const std::optional<std::string>& text);
    void RunInGuest(const std::string& command);

    // Starts a program on the console in this test's own working directory.
    void Start(const std::string& commandLine);
    // Waits for the program on the console to end and returns its status.
    std::optional<int> WaitExit(int timeoutSec = 30);
    std::string WorkDir() const;                  // guest path
    std::string HostWorkDir() const;              // same directory seen from the host
    std::string Log() const;                      // installer.log of this test
    std::vector<std::string> LogMessages() const; // the message column
    bool WaitForLog(const std::string& message, int timeoutSec = 20) const;
    // result.txt, where the test programs write what their steps returned.
    std::string Result() const;

    // The board as the program sees it: a BIOS vendor text, or none at all; the real one
    // comes back after the test.
    void SetBiosVendor(const std::optional<std::string>& vendor);
    // Sets the size of the guest's console (stty on its serial line, which signals the
    // program on it); the suite's own size comes back after the test, whatever happens.
    void SetConsoleSize(int rows, int columns = 80);

    std::string Screen() const { return _guest->Screen(); }
    std::string StyledScreen() const { return _guest->StyledScreen(); }
    bool WaitFor(const std::string& text, int timeoutSec = 30) const;
    bool WaitGone(const std::string& text, int timeoutSec = 30) const;
    void Settle() const;
    void Keys(const std::vector<std::string>& keys) const { _guest->SendKeys(keys); }

private:
    static std::unique_ptr<Sandbox::Guest> _guest;
    static std::unique_ptr<Sandbox::TempDir> _suiteFiles;
    static std::vector<std::unique_ptr<Sandbox::SparseImage>> _diskImages;
    bool _running = false;
    bool _biosVendorSet = false;
    bool _consoleResized = false;
    static int _suiteRows;
    static int _suiteColumns;
};

} // namespace ScreenTest
