// The sandbox guest as the system and screen tests use it: one boot shared
// by the checks of what the guest shows, and one guest that halts.
#include "Cmos.h"
#include "Guest.h"
#include "HostCommand.h"
#include "SparseImage.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <sys/stat.h>

using Sandbox::Guest;
using Sandbox::GuestOptions;
using Sandbox::HostCommand;
using Sandbox::SparseImage;
using Sandbox::TempDir;

namespace
{

const uint64_t MiB = 1024 * 1024;
const std::string CommandLine =
    "BOOT_IMAGE=/Versions/12.05.01.3456/boot/vmlinuz root=/dev/sda2 quiet";
const std::string BiosVendor = "Sandbox BIOS, Inc.";
const std::string BoardCmos = Sandbox::CmosImage("CMOS loaded by the sandbox");

std::string NewestKernelRelease()
{
    std::string output;
    HostCommand::Run({"sh", "-c", "ls -1v /boot/vmlinuz-*-amd64 | tail -n 1"}, &output);
    const std::string prefix = "/boot/vmlinuz-";
    const size_t start = output.find(prefix);
    if (start == std::string::npos)
        return "";
    return output.substr(start + prefix.size(), output.find('\n', start) - start - prefix.size());
}

bool Exists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

} // namespace

class SandboxGuest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        _files = std::make_unique<TempDir>("/tmp/sandbox-guest-test-");
        _disk = std::make_unique<SparseImage>(_files->Path() + "/disk.img", 64 * MiB);
        _usbDisk = std::make_unique<SparseImage>(_files->Path() + "/usb.img", 64 * MiB);
        _usbKey = std::make_unique<TempDir>("/tmp/sandbox-usbkey-");
        std::ofstream(_usbKey->Path() + "/hello.txt") << "hello from the key\n";
        std::ofstream(_files->Path() + "/cmos.bin", std::ios::binary) << BoardCmos;

        GuestOptions options;
        options.disks = {_disk->Path()};
        options.usbDisks = {_usbDisk->Path()};
        options.biosVendor = BiosVendor;
        options.kernelCmdline = CommandLine;
        options.usbKeyDir = _usbKey->Path();
        options.setupScript = "echo sourced > /run/setup-ran\nexport SETUP_VALUE=42\n";
        options.nvramFile = _files->Path() + "/cmos.bin";
        const auto start = std::chrono::steady_clock::now();
        _guest = std::make_unique<Guest>(options);
        _bootSeconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

    static void TearDownTestSuite()
    {
        _guest.reset();
        _usbKey.reset();
        _usbDisk.reset();
        _disk.reset();
        _files.reset();
    }

    void SetUp() override { ASSERT_TRUE(_guest) << "the sandbox guest did not boot"; }

    static Guest& G() { return *_guest; }

    static std::unique_ptr<TempDir> _files;
    static std::unique_ptr<SparseImage> _disk;
    static std::unique_ptr<SparseImage> _usbDisk;
    static std::unique_ptr<TempDir> _usbKey;
    static std::unique_ptr<Guest> _guest;
    static double _bootSeconds;
};

std::unique_ptr<TempDir> SandboxGuest::_files;
std::unique_ptr<SparseImage> SandboxGuest::_disk;
std::unique_ptr<SparseImage> SandboxGuest::_usbDisk;
std::unique_ptr<TempDir> SandboxGuest::_usbKey;
std::unique_ptr<Guest> SandboxGuest::_guest;
double SandboxGuest::_bootSeconds = 0;

TEST_F(SandboxGuest, BootsDebiansKernel)
{
    RecordProperty("boot_seconds", std::to_string(_bootSeconds));
    std::cout << "guest ready after " << _bootSeconds << " s\n";
    const auto result = G().Run("uname -r");
    EXPECT_EQ(result.rc, 0);
    EXPECT_EQ(result.output, NewestKernelRelease() + "\n");
}

TEST_F(SandboxGuest, RunGivesStatusAndOutput)
{
    const auto result = G().Run("echo out; echo err >&2; pwd; exit 7");
    EXPECT_EQ(result.rc, 7);
    EXPECT_EQ(result.output, "out\nerr\n/io/work\n");
}

TEST_F(SandboxGuest, VirtioDiskIsVdaAndNotUsb)
{
    const auto info = G().Run("udevadm info --query=property /dev/vda");
    ASSERT_EQ(info.rc, 0) << info.output;
    EXPECT_NE(info.output.find("DEVNAME=/dev/vda\n"), std::string::npos) << info.output;
    EXPECT_EQ(info.output.find("ID_BUS=usb"), std::string::npos) << info.output;
    EXPECT_EQ(G().Run("blockdev --getsize64 /dev/vda").output, std::to_string(64 * MiB) + "\n");
}

TEST_F(SandboxGuest, UsbDiskShowsIdBusUsb)
{
    EXPECT_EQ(G().Run("cd /sys/block && echo sd*").output, "sda\n");
    const auto info = G().Run("udevadm info --query=property /dev/sda");
    ASSERT_EQ(info.rc, 0) << info.output;
    EXPECT_NE(info.output.find("ID_BUS=usb\n"), std::string::npos) << info.output;
}

TEST_F(SandboxGuest, HostDisksAreNotVisible)
{
    // Only the two 64 MiB images (and empty loop devices): sizes in sectors.
    const auto sizes = G().Run("cat /sys/block/*/size");
    ASSERT_EQ(sizes.rc, 0) << sizes.output;
    std::istringstream in(sizes.output);
    unsigned long long sectors = 0;
    while (in >> sectors)
        EXPECT_LE(sectors, 64 * MiB / 512);
    EXPECT_EQ(G().Run("cd /sys/block && echo vd*").output, "vda\n");
}

TEST_F(SandboxGuest, ProcCmdlineIsTheConfiguredText)
{
    EXPECT_EQ(G().Run("cat /proc/cmdline").output, CommandLine + "\n");
}

TEST_F(SandboxGuest, BiosVendorIsTheConfiguredText)
{
    EXPECT_EQ(G().Run("cat /sys/class/dmi/id/bios_vendor").output, BiosVendor + "\n");
}

TEST_F(SandboxGuest, VfatMountsInTheGuest)
{
    const auto result =
        G().Run("mkfs.fat -n SANDBOX /dev/vda >/dev/null && mount -t vfat /dev/vda /mnt/DOS"
                " && echo written > /mnt/DOS/HELLO.TXT && umount /mnt/DOS"
                " && mount /dev/vda /mnt/DOS && cat /mnt/DOS/HELLO.TXT; rc=$?;"
                " umount /mnt/DOS; exit $rc");
    EXPECT_EQ(result.rc, 0) << result.output;
    EXPECT_EQ(result.output, "written\n");
}

TEST_F(SandboxGuest, ConsoleIs80x25)
{
    EXPECT_EQ(G().Run("stty -F /dev/ttyS0 size").output, "25 80\n");
    const std::string screen = G().Screen();
    EXPECT_EQ(std::count(screen.begin(), screen.end(), '\n'), 25);
}

TEST_F(SandboxGuest, ProgramOnTheConsoleShowsOnTheScreen)
{
    G().StartOnConsole(
        "clear; echo \"console $TERM in $(pwd)\"; read line; echo \"typed: $line\"; exit 3",
        "/io/work/console");
    ASSERT_TRUE(G().WaitForText("console screen in /io/work/console", 30)) << G().Screen();
    EXPECT_EQ(G().ScreenLine(0), "console screen in /io/work/console");
    G().SendText("a b;");
    G().SendKeys({"Enter"});
    EXPECT_TRUE(G().WaitForText("typed: a b;", 30)) << G().Screen();
    EXPECT_EQ(G().WaitConsoleExit(30), 3);
    EXPECT_EQ(G().ReadIoFile("console.rc"), "");
}

TEST_F(SandboxGuest, CtrlCOnTheScreenReachesTheProgram)
{
    G().StartOnConsole(
        "trap 'echo interrupted; exit 5' INT; echo waiting; while :; do sleep 1; done", "/io/work");
    ASSERT_TRUE(G().WaitForText("waiting", 30)) << G().Screen();
    G().SendKeys({"C-c"});
    EXPECT_EQ(G().WaitConsoleExit(30), 5);
}

TEST_F(SandboxGuest, KillingTheConsoleProgramByItsCommandLineReportsItsStatus)
{
    // Only the program matches: the console's own session keeps watching it.
    G().StartOnConsole("exec sleep 12345", "/io/work");
    ASSERT_EQ(G().Run("sleep 1; pkill -9 -f 'sleep 12345'").rc, 0);
    EXPECT_EQ(G().WaitConsoleExit(30), 128 + 9);
}

TEST_F(SandboxGuest, UsbKeyIsMountedAndWritableInTheGuestOnly)
{
    EXPECT_EQ(G().Run("cat /mnt/USB/hello.txt").output, "hello from the key\n");
    EXPECT_EQ(G().Run("echo new > /mnt/USB/new.txt && cat /mnt/USB/new.txt").output, "new\n");
    EXPECT_FALSE(Exists(_usbKey->Path() + "/new.txt"));
}

TEST_F(SandboxGuest, HostRootIsNotChanged)
{
    const std::string probe = std::string(WIZARD_BINARY_DIR) + "/sandbox-overlay-probe";
    const auto result = G().Run("echo x > " + probe + " && cat " + probe);
    EXPECT_EQ(result.output, "x\n");
    EXPECT_FALSE(Exists(probe));
}

TEST_F(SandboxGuest, SetupScriptIsSourcedBeforeTheAgent)
{
    EXPECT_EQ(G().Run("cat /run/setup-ran").output, "sourced\n");
    EXPECT_EQ(G().Run("echo $SETUP_VALUE").output, "42\n");
}

TEST_F(SandboxGuest, InsmodIsRecorded)
{
    const auto result = G().Run("insmod /lib/modules/board/eeprom.ko addr=0x50");
    EXPECT_EQ(result.rc, 0) << result.output;
    EXPECT_NE(G().ReadIoFile("events").find("insmod /lib/modules/board/eeprom.ko addr=0x50\n"),
              std::string::npos)
        << G().ReadIoFile("events");
}

TEST_F(SandboxGuest, SyslinuxFilesAreWhereTheApplianceKeepsThem)
{
    const auto result = G().Run("cmp /usr/lib/syslinux/mbr/mbr.bin /usr/share/syslinux/mbr.bin"
                                " && test -f /usr/share/syslinux/ldlinux.c32"
                                " && test -f /usr/share/syslinux/vesamenu.c32");
    EXPECT_EQ(result.rc, 0) << result.output;
}

TEST_F(SandboxGuest, NvramIsTheKernelsDriverHoldingTheLoadedImage)
{
    EXPECT_EQ(G().Run("test -c /dev/nvram").rc, 0);
    EXPECT_EQ(Sandbox::GuestCmos(G()), BoardCmos);
    // Written through the driver like on a board, and read back.
    const std::string other = Sandbox::CmosImage("written in the guest", 0x11);
    std::ofstream(G().IoDir() + "/other.bin", std::ios::binary) << other;
    const auto result = G().Run("dd if=/io/other.bin of=/dev/nvram bs=114 conv=notrunc 2>&1");
    EXPECT_EQ(result.rc, 0) << result.output;
    EXPECT_EQ(Sandbox::GuestCmos(G()), other);
}

TEST(SandboxNvram, AnImageLargerThanTheCmosIsRefusedBeforeBooting)
{
    TempDir files("/tmp/sandbox-nvram-test-");
    std::ofstream(files.Path() + "/large.bin", std::ios::binary) << std::string(115, 'x');
    std::string output;
    EXPECT_EQ(HostCommand::Run({std::string(WIZARD_SOURCE_DIR) + "/sandbox/guest", "--io",
                                files.Path() + "/io", "--nvram", files.Path() + "/large.bin", "run",
                                "--", "true"},
                               &output),
              2)
        << output;
    EXPECT_NE(output.find("larger than the 114 bytes of CMOS"), std::string::npos) << output;
}

TEST(SandboxHalt, HaltRecordsTheCallAndHaltsTheGuest)
{
    TempDir files("/tmp/sandbox-halt-test-");
    SparseImage disk(files.Path() + "/disk.img", 16 * MiB);
    GuestOptions options;
    options.disks = {disk.Path()};
    Guest guest(options);

    auto result = guest.Run("mkfs.fat /dev/vda >/dev/null && mount /dev/vda /mnt/DOS"
                            " && echo kept > /mnt/DOS/KEPT.TXT");
    ASSERT_EQ(result.rc, 0) << result.output;
    // Without --nvram the CMOS is qemu's own, its checksum set so that the
    // driver reads it.
    EXPECT_EQ(Sandbox::GuestCmos(guest).size(), Sandbox::CmosSize);

    // Returns at once, like the real one; the guest goes down a little later
    // with the file system still mounted: its data must reach the image.
    const auto start = std::chrono::steady_clock::now();
    result = guest.Run("halt");
    EXPECT_EQ(result.rc, 0) << result.output;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));

    ASSERT_TRUE(guest.WaitEnded(60));
    EXPECT_EQ(guest.Outcome(), "halt");
    EXPECT_EQ(guest.ReadIoFile("events"), "halt\n");
    EXPECT_EQ(guest.Run("true").rc, -1);

    std::string kept;
    EXPECT_EQ(HostCommand::Run({"mtype", "-i", disk.Path(), "::KEPT.TXT"}, &kept), 0) << kept;
    EXPECT_EQ(kept, "kept\n");
}

TEST(SandboxBoot, AGuestThatDoesNotStartIsReportedWithItsKernelLog)
{
    GuestOptions options;
    // Sourced by the guest's first process: ending it panics the kernel.
    options.setupScript = "echo giving up now; exit 3\n";
    try
    {
        Guest guest(options);
        FAIL() << "the guest started";
    }
    catch (const std::runtime_error& error)
    {
        const std::string message = error.what();
        EXPECT_NE(message.find("did not start: it ended (crash)"), std::string::npos) << message;
        EXPECT_NE(message.find("giving up now"), std::string::npos) << message;
    }
}
