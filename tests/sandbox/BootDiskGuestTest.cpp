// Booting disk images as a PC does (sandbox/boot-disk, Sandbox::BootDisk):
// a sandbox guest lays out two small syslinux disks the way the wizard lays
// out partition 1 (msdos table, FAT16, syslinux, mbr.bin), one with
// menu.c32 and one with vesamenu.c32 like the appliance's boot menu; then
// the host boots them and reads the menu off the first serial port. A blank
// image shows what a disk without boot code gives.
#include "BootDisk.h"
#include "Guest.h"
#include "HostCommand.h"
#include "SparseImage.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <sys/stat.h>

using Sandbox::BootDisk;
using Sandbox::BootResult;
using Sandbox::Guest;
using Sandbox::GuestOptions;
using Sandbox::HostCommand;
using Sandbox::SparseImage;
using Sandbox::TempDir;

namespace
{

const uint64_t MiB = 1024 * 1024;
const uint64_t ImageBytes = 64 * MiB;
const std::string Launcher = std::string(WIZARD_SOURCE_DIR) + "/sandbox/boot-disk";
const std::string Background =
    std::string(WIZARD_SOURCE_DIR) + "/sample/usbkey/data/KELVidorama.jpg";

bool Exists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

std::string Contents(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// A syslinux menu that waits for a key for ever, with the appliance's three
// kinds of entries.
std::string MenuConfig(const std::string& ui, const std::string& title, bool background)
{
    std::string config = "SERIAL 0 115200\n"
                         "UI " +
                         ui + "\nMENU TITLE " + title + "\n";
    if (background)
        config += "MENU BACKGROUND KELVidorama.jpg\nMENU SAVE\n";
    config += "PROMPT 0\n"
              "TIMEOUT 0\n"
              "DEFAULT first\n"
              "\n"
              "LABEL first\n"
              "  MENU LABEL First entry\n"
              "  LOCALBOOT -1\n"
              "\n"
              "LABEL restart\n"
              "  MENU LABEL Restart\n"
              "  COM32 reboot.c32\n"
              "\n"
              "LABEL poweroff\n"
              "  MENU LABEL Power off\n"
              "  COM32 poweroff.c32\n";
    return config;
}

// Guest shell text that makes device a bootable syslinux disk: partition 1
// FAT16 and active, syslinux on it with the modules of ui, mbr.bin in the
// first 440 bytes.
std::string MakeDiskScript(const std::string& device, const std::string& ui,
                           const std::string& config, bool background)
{
    const std::string partition = device + "1";
    const std::string mountPoint = "/mnt/boot-disk-test";
    std::string script = "set -ex\n";
    // Only the test's own scratch image, never anything else.
    script +=
        "test \"$(blockdev --getsize64 " + device + ")\" = " + std::to_string(ImageBytes) + "\n";
    script +=
        "parted -s " + device + " mklabel msdos mkpart primary fat16 1MiB 100% set 1 boot on\n";
    script += "udevadm settle\n";
    script += "mkfs.vfat -F 16 -n BOOTTEST " + partition + "\n";
    script += "syslinux --install " + partition + "\n";
    script += "mkdir -p " + mountPoint + "\n";
    script += "mount -t vfat " + partition + " " + mountPoint + "\n";
    script += "for m in ldlinux.c32 libcom32.c32 libutil.c32 " + ui +
              " reboot.c32 poweroff.c32; do cp /usr/share/syslinux/$m " + mountPoint + "/; done\n";
    if (background)
        script += "cp " + HostCommand::ShellQuote(Background) + " " + mountPoint + "/\n";
    script += "cat > " + mountPoint + "/syslinux.cfg <<'EOF'\n" + config + "EOF\n";
    script += "umount " + mountPoint + "\n";
    script += "dd if=/usr/share/syslinux/mbr.bin of=" + device + " bs=440 count=1 conv=notrunc\n";
    script += "sync\n";
    return script;
}

std::string Report(const BootResult& result)
{
    return "--- launcher ---\n" + result.messages + "--- serial ---\n" + result.serial +
           "\n--- firmware (end) ---\n" +
           result.firmware.substr(result.firmware.size() > 2000 ? result.firmware.size() - 2000
                                                                : 0);
}

} // namespace

class BootDiskGuest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        _files = std::make_unique<TempDir>("/tmp/boot-disk-test-");
        _menuDisk = std::make_unique<SparseImage>(_files->Path() + "/menu.img", ImageBytes);
        _vesaDisk = std::make_unique<SparseImage>(_files->Path() + "/vesa.img", ImageBytes);
        _blankDisk = std::make_unique<SparseImage>(_files->Path() + "/blank.img", ImageBytes);
        _withBackground = Exists(Background);
        try
        {
            GuestOptions options;
            options.disks = {_menuDisk->Path(), _vesaDisk->Path()};
            options.timeoutSec = 600;
            // qemu keeps its images locked: the guest must be gone before
            // the disks are booted.
            Guest guest(options);
            const auto menu =
                guest.Run(MakeDiskScript("/dev/vda", "menu.c32",
                                         MenuConfig("menu.c32", "BootDiskTest", false), false),
                          300);
            const auto vesa = guest.Run(
                MakeDiskScript("/dev/vdb", "vesamenu.c32",
                               MenuConfig("vesamenu.c32", "BootDiskVesa", _withBackground),
                               _withBackground),
                300);
            _made = menu.rc == 0 && vesa.rc == 0;
            _makeOutput = menu.output + vesa.output;
        }
        catch (const std::exception& error)
        {
            _made = false;
            _makeOutput = error.what();
        }
    }

    static void TearDownTestSuite()
    {
        _blankDisk.reset();
        _vesaDisk.reset();
        _menuDisk.reset();
        _files.reset();
    }

    void SetUp() override
    {
        ASSERT_TRUE(_made) << "the test disks were not made:\n" << _makeOutput;
    }

    static std::unique_ptr<TempDir> _files;
    static std::unique_ptr<SparseImage> _menuDisk;
    static std::unique_ptr<SparseImage> _vesaDisk;
    static std::unique_ptr<SparseImage> _blankDisk;
    static bool _withBackground;
    static bool _made;
    static std::string _makeOutput;
};

std::unique_ptr<TempDir> BootDiskGuest::_files;
std::unique_ptr<SparseImage> BootDiskGuest::_menuDisk;
std::unique_ptr<SparseImage> BootDiskGuest::_vesaDisk;
std::unique_ptr<SparseImage> BootDiskGuest::_blankDisk;
bool BootDiskGuest::_withBackground = false;
bool BootDiskGuest::_made = false;
std::string BootDiskGuest::_makeOutput;

TEST_F(BootDiskGuest, MenuTitleOnSerial)
{
    const auto start = std::chrono::steady_clock::now();
    const BootResult result = BootDisk(_menuDisk->Path(), {"BootDiskTest"});
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    RecordProperty("menu_seconds", std::to_string(seconds));
    std::cout << "menu.c32 title on the serial port after " << seconds << " s\n";

    EXPECT_TRUE(result.found) << Report(result);
    EXPECT_NE(result.serial.find("SYSLINUX"), std::string::npos) << Report(result);
    EXPECT_NE(result.serial.find("BootDiskTest"), std::string::npos) << Report(result);
    EXPECT_EQ(result.serial.find('\x1b'), std::string::npos) << Report(result);
    EXPECT_EQ(result.serial.find('\r'), std::string::npos) << Report(result);
    EXPECT_NE(result.firmware.find("Booting from Hard Disk"), std::string::npos) << Report(result);
}

TEST_F(BootDiskGuest, WholeMenuDrawnAsText)
{
    const BootResult result =
        BootDisk(_menuDisk->Path(), {"BootDiskTest", "First entry", "Restart", "Power off"});
    ASSERT_TRUE(result.found) << Report(result);
    // The frame's line-drawing glyphs come out as plain characters, one
    // screen row a line.
    EXPECT_NE(result.serial.find("\n+----"), std::string::npos) << Report(result);
    EXPECT_NE(result.serial.find("\n| First entry "), std::string::npos) << Report(result);
    EXPECT_NE(result.serial.find("\n| Restart "), std::string::npos) << Report(result);
    EXPECT_NE(result.serial.find("BootDiskTest"), std::string::npos) << Report(result);
}

// The appliance's menu is vesamenu.c32 (with a background picture when the
// sample key has one): it draws on the VGA screen and copies the same text
// menu to the serial port.
TEST_F(BootDiskGuest, VesaMenuOnSerial)
{
    const auto start = std::chrono::steady_clock::now();
    const BootResult result =
        BootDisk(_vesaDisk->Path(), {"BootDiskVesa", "First entry", "Restart", "Power off"});
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::cout << "vesamenu.c32 menu (background: " << (_withBackground ? "yes" : "no")
              << ") on the serial port after " << seconds << " s\n";
    EXPECT_TRUE(result.found) << Report(result);
    EXPECT_NE(result.serial.find("\n| First entry "), std::string::npos) << Report(result);
    // vesamenu switched the VGA card to a VESA mode.
    EXPECT_NE(result.firmware.find("VBE mode set"), std::string::npos) << Report(result);
}

TEST_F(BootDiskGuest, OtherTitleNotFound)
{
    const BootResult result = BootDisk(_menuDisk->Path(), {"BootDiskTest", "Vidorama"}, 5);
    EXPECT_FALSE(result.found) << Report(result);
    EXPECT_NE(result.serial.find("BootDiskTest"), std::string::npos) << Report(result);
    EXPECT_NE(result.messages.find("not seen: Vidorama\n"), std::string::npos) << Report(result);
    EXPECT_EQ(result.messages.find("not seen: BootDiskTest"), std::string::npos) << Report(result);
}

// SeaBIOS prints its messages on the screen and the debug port only: a
// serial console of its own would copy every character the boot loader
// prints through the BIOS a second time onto the serial port. So the serial
// output of a disk without boot code stays empty, and "No bootable device."
// is in the firmware log.
TEST_F(BootDiskGuest, BlankDiskDoesNotBoot)
{
    const BootResult result = BootDisk(_blankDisk->Path(), {"BootDiskTest"}, 10);
    EXPECT_FALSE(result.found) << Report(result);
    EXPECT_EQ(result.serial, "") << Report(result);
    EXPECT_NE(result.firmware.find("Boot failed: not a bootable disk"), std::string::npos)
        << Report(result);
    EXPECT_NE(result.firmware.find("No bootable device."), std::string::npos) << Report(result);
    EXPECT_NE(result.messages.find("within 10 s"), std::string::npos) << Report(result);
}

TEST_F(BootDiskGuest, ImageIsNeverWritten)
{
    // MENU SAVE would write to the disk once an entry is chosen; here the
    // machine runs the menu and is stopped, and nothing at all may change.
    const std::string before = Contents(_vesaDisk->Path());
    struct stat statBefore = {};
    ASSERT_EQ(stat(_vesaDisk->Path().c_str(), &statBefore), 0);
    const BootResult result = BootDisk(_vesaDisk->Path(), {"BootDiskVesa", "Power off"});
    EXPECT_TRUE(result.found) << Report(result);
    struct stat statAfter = {};
    ASSERT_EQ(stat(_vesaDisk->Path().c_str(), &statAfter), 0);
    EXPECT_EQ(statAfter.st_mtim.tv_sec, statBefore.st_mtim.tv_sec);
    EXPECT_EQ(statAfter.st_mtim.tv_nsec, statBefore.st_mtim.tv_nsec);
    EXPECT_TRUE(Contents(_vesaDisk->Path()) == before);
}

TEST_F(BootDiskGuest, LauncherWritesRawSerialAndLeavesNoFiles)
{
    TempDir out("/tmp/boot-disk-raw-");
    const std::string tmp = out.Path() + "/tmp";
    ASSERT_EQ(mkdir(tmp.c_str(), 0700), 0);
    std::string messages;
    const int status = HostCommand::Run({"env", "TMPDIR=" + tmp, Launcher, "--expect", "Power off",
                                         "--serial", out.Path() + "/serial", _menuDisk->Path()},
                                        &messages);
    EXPECT_EQ(status, 0) << messages;
    // Its working files go under TMPDIR and are gone at the end.
    std::string left;
    HostCommand::Run({"find", tmp, "-mindepth", "1"}, &left);
    EXPECT_EQ(left, "");
    const std::string raw = Contents(out.Path() + "/serial");
    // Without --plain the serial output is as the machine wrote it.
    EXPECT_NE(raw.find("\x1b["), std::string::npos) << raw;
    EXPECT_NE(raw.find("Power off"), std::string::npos) << raw;
    EXPECT_NE(messages.find("every expected text appeared after "), std::string::npos) << messages;
}

// What the launcher refuses before it starts anything.
TEST(BootDiskLauncher, UsageErrorsGiveTwo)
{
    TempDir files("/tmp/boot-disk-usage-");
    const std::string image = files.Path() + "/disk.img";
    std::ofstream(image) << "x";
    std::string output;
    EXPECT_EQ(HostCommand::Run({Launcher}, &output), 2) << output;
    EXPECT_EQ(HostCommand::Run({Launcher, "--timeout", "x", image}, &output), 2) << output;
    EXPECT_EQ(HostCommand::Run({Launcher, "--timeout", "0", image}, &output), 2) << output;
    EXPECT_EQ(HostCommand::Run({Launcher, "--expect", "", image}, &output), 2) << output;
    EXPECT_EQ(HostCommand::Run({Launcher, "--bogus", image}, &output), 2) << output;
    EXPECT_EQ(HostCommand::Run({Launcher, files.Path() + "/missing.img"}, &output), 2) << output;
    EXPECT_EQ(HostCommand::Run({Launcher, image, image, image, image, image}, &output), 2)
        << output;
    EXPECT_EQ(HostCommand::Run({Launcher, "--help"}, &output), 0) << output;
}
