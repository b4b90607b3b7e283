// "Install Vidorama" and "Format and Install Vidorama" from the main menu of
// the real program, run from the sample USB key to the final restart. After
// the restart the target disk is looked at from outside: through a second
// guest that mounts it, and by booting a machine from it.
//
// Each suite is one machine. Its tests run in order; the last one ends the
// machine with the restart.
#include "BootDisk.h"
#include "Cmos.h"
#include "HostCommand.h"
#include "ScreenTest.h"
#include "SparseImage.h"
#include "TempDir.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

using namespace ScreenTest;

namespace
{

const std::string Rb417Vendor = "Phoenix Technologies LTD";
const std::string K9QVendor = "American Megatrends Inc.";
// The guest's CMOS at start (read back as it is: its checksum is right).
const std::string CmosBefore = Sandbox::CmosImage("CMOS as the board left it\n");
const std::string MainMenuTitle = "Vidorama Install and Rescue";
const std::string FinalPopup = "Installation is done, remove the USB key then press <ENTER>";

std::string FileText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// With WIZARD_SCREENS set to a directory, the screens the operator meets are
// written there as text (the README shows them).
void Keep(const std::string& name, const std::string& screen)
{
    if (const char* directory = std::getenv("WIZARD_SCREENS"))
        std::ofstream(std::string(directory) + "/" + name + ".txt") << screen;
}

class InstallationSuite : public GuestSuite
{
protected:
    static std::unique_ptr<Sandbox::TempDir> _files;
    static std::unique_ptr<Sandbox::SparseImage> _disk;

    static void TearDownTestSuite()
    {
        GuestSuite::TearDownTestSuite();
        _disk.reset();
        _files.reset();
    }

    std::string GuestOutput(const std::string& command) { return Guest().Run(command).output; }

    bool Logged(const std::string& message) const
    {
        const auto messages = LogMessages();
        return std::find(messages.begin(), messages.end(), message) != messages.end();
    }

    // The wizard from the key; waits for its main menu.
    void StartWizard()
    {
        Start(Wizard());
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    }

    // On an RB417 board "Reset bios (RB417 only)" comes before it: item 6.
    void ExitToShell()
    {
        ASSERT_TRUE(WaitFor(MainMenuTitle)) << Screen();
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
        Keys({"6"});
        ASSERT_EQ(WaitExit().value_or(-1), 2) << Screen();
    }

    // Empties a form field whose cursor stands at its end, then types text.
    void Retype(const std::string& text, int width)
    {
        Keys(std::vector<std::string>(static_cast<size_t>(width), "BSpace"));
        if (!text.empty())
            Guest().SendText(text);
    }

    // After the final pop-up: Enter restarts the machine.
    void ConfirmAndExpectRestart()
    {
        ASSERT_TRUE(WaitFor(FinalPopup, 120)) << Screen();
        EXPECT_NE(Screen().find("<ENTER> to reboot"), std::string::npos) << Screen();
        Keys({"Escape", "y"});
        Settle();
        EXPECT_FALSE(Guest().WaitEnded(0)) << "only Enter restarts";
        Keys({"Enter"});
        ASSERT_TRUE(Guest().WaitEnded(120)) << Screen();
        EXPECT_EQ(Guest().Outcome(), "reboot");
    }

    // A second machine that only looks at the disk the installation left.
    static std::string Inspect(const std::string& commands)
    {
        return LookAtDisk(_disk->Path(), commands);
    }

    // The installation leaves a boot-once entry for the new version: the
    // first boot goes straight to it and clears it, the next one shows the
    // menu. A copy of the disk is booted, so that the second boot sees what
    // the first one wrote.
    static void ExpectBoots(const std::vector<std::string>& firstBoot,
                            const std::vector<std::string>& menu, std::string* firstSerial)
    {
        const std::string copy = _files->Path() + "/boot.img";
        ASSERT_EQ(Sandbox::HostCommand::Run({"cp", "--sparse=always", _disk->Path(), copy}), 0);
        const auto first = Sandbox::BootDisk(copy, firstBoot, 240, true);
        EXPECT_TRUE(first.found) << first.serial << first.messages;
        *firstSerial = first.serial;
        const auto second = Sandbox::BootDisk(copy, menu, 240, true);
        EXPECT_TRUE(second.found) << second.serial << second.messages;
        std::remove(copy.c_str());
    }
};

std::unique_ptr<Sandbox::TempDir> InstallationSuite::_files;
std::unique_ptr<Sandbox::SparseImage> InstallationSuite::_disk;

// A blank 4 GiB disk and a 1 GiB one beside it on an RB417 board; the key
// holds one Linux package.
class FormatAndInstallLinux : public InstallationSuite
{
protected:
    static std::unique_ptr<Sandbox::SparseImage> _small;

    static void SetUpTestSuite()
    {
        _files = std::make_unique<Sandbox::TempDir>("/tmp/wizard-installvidorama-");
        _disk = std::make_unique<Sandbox::SparseImage>(_files->Path() + "/disk.img", 4ULL << 30);
        _small = std::make_unique<Sandbox::SparseImage>(_files->Path() + "/small.img", 1ULL << 30);
        std::ofstream(_files->Path() + "/nvram", std::ios::binary) << CmosBefore;
        auto options = SuiteDefaults();
        options.disks = {_disk->Path(), _small->Path()};
        options.biosVendor = Rb417Vendor;
        options.nvramFile = _files->Path() + "/nvram";
        options.setupScript += std::string(WIZARD_SOURCE_DIR) +
                               "/scripts/make-sample-packages.sh /mnt/USB/Packages "
                               "--linux 12.05.01.3456 >/dev/null\n";
        StartGuest(options);
    }

    static void TearDownTestSuite()
    {
        InstallationSuite::TearDownTestSuite();
        _small.reset();
    }

    void SelectTargetDisk()
    {
        // The menu starts under the heading.
        ASSERT_TRUE(WaitFor("<ENTER> to select the disk")) << Screen();
        ASSERT_TRUE(WaitFor("/dev/vdb")) << Screen();
        EXPECT_EQ(Row(Screen(), 5), std::string(23, ' ') + "Select the target disk:") << Screen();
        const int firstRow = 6;
        if (Row(Screen(), firstRow).find("/dev/vda") == std::string::npos)
            Keys({"Down"});
        ASSERT_TRUE(Guest().WaitForScreen(
            [](const std::string& screen)
            {
                for (const auto& row : Rows(screen))
                    if (row.find(" > /dev/vda") != std::string::npos)
                        return true;
                return false;
            },
            10))
            << Screen();
        Keys({"Enter"});
    }

    std::string PartitionTable() { return GuestOutput("parted -s /dev/vda print 2>&1"); }
};

std::unique_ptr<Sandbox::SparseImage> FormatAndInstallLinux::_small;

TEST_F(FormatAndInstallLinux, CancellingTheDiskSelectionReturnsToTheMenuUntouched)
{
    StartWizard();
    Keys({"2"});
    ASSERT_TRUE(WaitFor("<ESC> return to the main menu, <ENTER> to select the disk")) << Screen();
    EXPECT_NE(Row(Screen(), 1).find("Format and Install Vidorama"), std::string::npos) << Screen();
    Keys({"Escape"});
    ExitToShell();
    EXPECT_TRUE(InOrder(LogMessages(), {"0 StartStep selected item: 2", "0 No disk selected",
                                        "0 StartStep selected item: 10"}))
        << Log();
    EXPECT_NE(PartitionTable().find("Partition Table: unknown"), std::string::npos);
}

TEST_F(FormatAndInstallLinux, APlainInstallationExplainsThatTheDiskIsNotReady)
{
    StartWizard();
    Keys({"1"});
    SelectTargetDisk();
    ASSERT_TRUE(WaitFor("Disk not ready for installation!")) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(Row(screen, 1).find("Install Vidorama"), std::string::npos) << screen;
    EXPECT_EQ(Row(screen, 1).find("Format"), std::string::npos) << screen;
    EXPECT_EQ(Row(screen, 6), "     Choose \"Format and Install Vidorama\" in the main menu.");
    Keys({"Escape"});
    ExitToShell();
    EXPECT_TRUE(Logged("0 Selected disk: /dev/vda")) << Log();
    EXPECT_NE(PartitionTable().find("Partition Table: unknown"), std::string::npos);
}

TEST_F(FormatAndInstallLinux, TheWholeChainOnABlankDiskEndsWithARestart)
{
    StartWizard();
    Keys({"2"});
    SelectTargetDisk();

    ASSERT_TRUE(WaitFor("Continue? (y/n)")) << Screen();
    ASSERT_TRUE(WaitFor("boot code")) << Screen();
    Keep("plan", Screen());
    // The question names the disk and every destructive action of the plan.
    EXPECT_EQ(Row(Screen(), 7), "     Disk: /dev/vda Virtio Block Device, 4.0 GiB") << Screen();
    EXPECT_EQ(Row(Screen(), 8), "     - A new partition table: everything on the disk is lost.")
        << Screen();
    EXPECT_EQ(Row(Screen(), 10),
              "     - Partitions 2 (EXT4 \"LINUX\") and 3 (swap \"SWAP\") are made anew.")
        << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor("Disk partitioning", 60)) << Screen();
    Keep("partitioning", Screen());

    // After a format the package cannot be left unchosen.
    ASSERT_TRUE(WaitFor("Select the package to install:", 900)) << Screen();
    Keep("package", Screen());
    EXPECT_NE(Screen().find("<ENTER> to select the package"), std::string::npos) << Screen();
    EXPECT_EQ(Screen().find("<ESC>"), std::string::npos) << Screen();
    Keys({"Escape"});
    Settle();
    EXPECT_NE(Screen().find("Select the package to install:"), std::string::npos) << Screen();
    Keys({"Enter"});
    if (WaitFor("Installation in progress", 20))
        Keep("installation", Screen());

    // The BIOS settings come right after the installation, without ESC.
    ASSERT_TRUE(WaitFor("As part of the BIOS load, you may select one of two VGA settings:", 300))
        << Screen();
    std::string screen = Screen();
    EXPECT_NE(screen.find("The system needs to change the BIOS to ensure valid settings"),
              std::string::npos)
        << screen;
    EXPECT_NE(screen.find("<ENTER> or number to select the settings"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("<ESC>"), std::string::npos) << screen;
    Keys({"Escape", "3"});
    Settle();
    EXPECT_NE(Screen().find("As part of the BIOS load"), std::string::npos) << Screen();
    // "2" takes the enhanced settings at once.
    Keys({"2"});

    // The network form with the proposed host name of this server.
    ASSERT_TRUE(WaitFor("<ENTER> to apply configuration", 120)) << Screen();
    screen = Screen();
    Keep("network", screen);
    // The enhanced settings of the key are in CMOS (read now: the restart
    // ends the guest and its CMOS). The sample sets carry a right checksum.
    EXPECT_EQ(Sandbox::GuestCmos(Guest()), FileText(SampleUsbKey() + "/data/rb417e.bios"));
    EXPECT_NE(Row(screen, 4).find("Hostname:"), std::string::npos) << screen;
    EXPECT_NE(Row(screen, 4).find("Vidorama-DEMO-0001"), std::string::npos) << screen;
    EXPECT_NE(Row(screen, 6).find("PC Lan 1"), std::string::npos) << screen;
    EXPECT_NE(Row(screen, 7).find("static"), std::string::npos) << screen;
    EXPECT_NE(Row(screen, 8).find("192.168.1.1"), std::string::npos) << screen;
    EXPECT_NE(Row(screen, 7).find("192.168.1.254"), std::string::npos) << screen;
    EXPECT_NE(Row(screen, 9).find("example.com"), std::string::npos) << screen;

    // Host name, then mode (kept), address, mask, gateway, primary DNS,
    // secondary DNS (kept) and domain; Down leaves the cursor at the end of
    // the next field.
    Keys({"Down", "Up"});
    Retype("studio-a", 24);
    Keys({"Down", "Down"});
    Retype("10.1.2.30", 15);
    Keys({"Down"});
    Retype("255.255.0.0", 15);
    Keys({"Down"});
    Retype("10.1.2.1", 15);
    Keys({"Down"});
    Retype("10.1.2.53", 15);
    Keys({"Down", "Down"});
    Retype("studio.example", 24);
    Settle();
    Keys({"Enter"});
    if (WaitFor(FinalPopup, 120))
        Keep("done", Screen());
    ConfirmAndExpectRestart();

    // What the operator was told and what was done, in order.
    const auto messages = LogMessages();
    EXPECT_TRUE(InOrder(
        messages, {"0 StartStep selected item: 2", "0 Selected disk: /dev/vda",
                   "0 TODO : Create a msdos partitions table", "0 TODO : Create a FAT16 partition",
                   "0 TODO : Set the FAT16 partition bootable", "0 TODO : Create a EXT4 partition",
                   "0 TODO : Create a Linux Swap partition", "0 Perform a format and install",
                   "0 Selected package: Vidorama 12.05.01.3456", "0 Installation succeed!"}))
        << Log();
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(),
                            [](const std::string& line)
                            { return line.rfind("3 Syslinux change default entry -> ", 0) == 0; }))
        << Log();
    EXPECT_FALSE(Logged("3 Unable to save network configuration")) << Log();
    EXPECT_FALSE(Logged("3 Error writing cmos settings")) << Log();

    // The disk from outside: layout, boot code, version and network files.
    const std::string outside =
        Inspect("parted -m -s /dev/vda unit s print | sed -n '3,5p' | cut -d: -f1,4,5,7; "
                "blkid -o value -s LABEL /dev/vda1 /dev/vda2 /dev/vda3; "
                "blkid -o value -s TYPE /dev/vda3; "
                "cmp -n 440 /dev/vda /usr/share/syslinux/mbr.bin && echo mbr; "
                "test -f /mnt/DOS/boot/syslinux/ldlinux.sys && echo ldlinux; "
                "cmp /mnt/DOS/boot/syslinux/syslinux.cfg " +
                SampleUsbKey() +
                "/data/bootLinux.config && echo config; "
                "readlink /mnt/SYS/Versions/current; "
                "cat /mnt/SYS/Versions/12.05.01.3456/Version.json; "
                "grep -A4 'iface pc_lan_1' /mnt/SYS/Versions/12.05.01.3456/etc/network/interfaces; "
                "cat /mnt/SYS/Versions/12.05.01.3456/etc/hostname; "
                "grep 127.0.1.1 /mnt/SYS/Versions/12.05.01.3456/etc/hosts; "
                "cat /mnt/SYS/Versions/12.05.01.3456/etc/resolv.conf");
    std::vector<std::string> lines;
    {
        std::istringstream in(outside);
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
    }
    ASSERT_GE(lines.size(), 20u) << outside;
    EXPECT_EQ(lines[0], "1:4096513s:fat16:boot;") << outside;
    EXPECT_EQ(lines[1].substr(0, 2), "2:") << outside;
    EXPECT_NE(lines[1].find(":ext4:"), std::string::npos) << outside;
    EXPECT_EQ(lines[2].substr(0, 2), "3:") << outside;
    EXPECT_NE(lines[2].find(":linux-swap(v1):"), std::string::npos) << outside;
    EXPECT_TRUE(
        InOrder(lines, {"DOS", "LINUX", "SWAP", "swap", "mbr", "ldlinux", "config",
                        "/mnt/SYS/Versions/12.05.01.3456",
                        R"({"name": "Vidorama", "version": "12.05.01", "revision": "3456"})"}))
        << outside;
    EXPECT_NE(outside.find("address 10.1.2.30"), std::string::npos) << outside;
    EXPECT_NE(outside.find("netmask 255.255.0.0"), std::string::npos) << outside;
    EXPECT_NE(outside.find("gateway 10.1.2.1"), std::string::npos) << outside;
    EXPECT_TRUE(InOrder(lines, {"studio-a", "127.0.1.1\tstudio-a"})) << outside;
    EXPECT_NE(outside.find("nameserver 10.1.2.53"), std::string::npos) << outside;
    EXPECT_EQ(outside.find("nameserver 192.168.1.254"), std::string::npos) << outside;
    EXPECT_NE(outside.find("search studio.example"), std::string::npos) << outside;

    // And the disk boots: first through the Linux partition's extlinux into
    // the installed version's own boot configuration, then to syslinux's menu.
    std::string firstBoot;
    ExpectBoots({"Loading /Versions/12.05.01.3456/boot/vmlinuz"},
                {"Vidorama", "Restart", "Power off"}, &firstBoot);
    // Two loaders spoke: syslinux on the DOS partition, then the extlinux of
    // the Linux partition it chained to.
    const size_t banner = firstBoot.find("SYSLINUX ");
    ASSERT_NE(banner, std::string::npos) << firstBoot;
    EXPECT_NE(firstBoot.find("SYSLINUX ", banner + 1), std::string::npos) << firstBoot;
}

// A disk that holds a DOS installation on partition 1, on an RB417 board whose
// key lacks the BIOS settings files; the key holds one DOS package.
class FormatAndInstallDos : public InstallationSuite
{
protected:
    static void SetUpTestSuite()
    {
        _files = std::make_unique<Sandbox::TempDir>("/tmp/wizard-installdos-");
        _disk = std::make_unique<Sandbox::SparseImage>(_files->Path() + "/disk.img", 4ULL << 30);
        std::ofstream(_files->Path() + "/nvram", std::ios::binary) << CmosBefore;
        auto options = SuiteDefaults();
        options.disks = {_disk->Path()};
        options.biosVendor = Rb417Vendor;
        options.nvramFile = _files->Path() + "/nvram";
        // The DOS side as an older installation left it: a 2 GiB FAT16
        // partition with DOS, configuration lines and its network settings.
        options.setupScript +=
            std::string(WIZARD_SOURCE_DIR) +
            "/scripts/make-sample-packages.sh /mnt/USB/Packages --dos 120501 >/dev/null\n"
            "rm -f /mnt/USB/data/rb417s.bios /mnt/USB/data/rb417e.bios\n"
            "parted -s /dev/vda mklabel msdos mkpart primary fat16 2048s 4196351s set 1 boot on\n"
            "udevadm settle\n"
            "mkfs.fat -F 16 -n DOS /dev/vda1 >/dev/null\n"
            "mkdir -p /mnt/DOS && mount -t vfat /dev/vda1 /mnt/DOS\n"
            "touch /mnt/DOS/COMMAND.COM /mnt/DOS/IO.SYS /mnt/DOS/MSDOS.SYS\n"
            "mkdir -p /mnt/DOS/dorim/data/setup && touch /mnt/DOS/dorim/data/setup/video.lin "
            "/mnt/DOS/dorim/data/setup/keep.txt\n"
            "printf 'set NET_IP=192.168.7.20\\r\\nset NET_MASK=255.255.255.0\\r\\n"
            "set NET_GATEWAY=192.168.7.1\\r\\n' > /mnt/DOS/cecfg.bat\n"
            "umount /mnt/DOS\n";
        StartGuest(options);
    }
};

TEST_F(FormatAndInstallDos, TheDosSideIsKeptAndGetsTheNewVersion)
{
    StartWizard();
    Keys({"2"});
    // One disk: taken without a menu.
    ASSERT_TRUE(WaitFor("Continue? (y/n)")) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor("Select the package to install:", 900)) << Screen();
    EXPECT_NE(Screen().find("Vidorama 12.05.01"), std::string::npos) << Screen();
    Keys({"Enter"});

    // No settings file on the key: the failure is shown, the installation goes on.
    ASSERT_TRUE(WaitFor("As part of the BIOS load", 300)) << Screen();
    Keys({"1"});
    ASSERT_TRUE(WaitFor("Error during bios settings reset!")) << Screen();
    EXPECT_NE(Screen().find("<ENTER> to continue"), std::string::npos) << Screen();
    Keys({"Enter"});

    // A DOS version: no host name, no mode; the address comes first and the
    // values are those of the DOS side's batch file.
    ASSERT_TRUE(WaitFor("<ENTER> to apply configuration", 120)) << Screen();
    std::string screen = Screen();
    Keep("network-dos", screen);
    // Nothing was loaded: CMOS as the board left it (read now: the restart
    // ends the guest and its CMOS).
    EXPECT_EQ(Sandbox::GuestCmos(Guest()), CmosBefore);
    EXPECT_EQ(screen.find("Hostname:"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("Mode:"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("Vidorama-"), std::string::npos) << screen;
    EXPECT_NE(Row(screen, 8).find("192.168.7.20"), std::string::npos) << screen;
    EXPECT_NE(Row(screen, 9).find("255.255.255.0"), std::string::npos) << screen;
    EXPECT_NE(Row(screen, 10).find("192.168.7.1"), std::string::npos) << screen;
    // The address field is current: Down, Up puts the cursor at its end.
    Keys({"Down", "Up"});
    Retype("10.9.8.7", 15);
    Keys({"Down"});
    Retype("255.255.252.0", 15);
    Keys({"Down"});
    Retype("10.9.8.1", 15);
    Settle();
    Keys({"Enter"});
    ConfirmAndExpectRestart();

    const auto messages = LogMessages();
    EXPECT_TRUE(InOrder(messages,
                        {"0 TODO : Create a EXT4 partition",
                         "0 TODO : Create a Linux Swap partition", "0 Perform a format and install",
                         "0 Installation succeed!", "3 Error writing cmos settings"}))
        << Log();
    EXPECT_FALSE(Logged("0 TODO : Create a FAT16 partition")) << Log();
    EXPECT_FALSE(Logged("3 Unable to save network configuration")) << Log();

    const std::string outside =
        Inspect("parted -m -s /dev/vda unit s print | sed -n '3p' | cut -d: -f1,2,4,5,7; "
                "blkid -o value -s LABEL /dev/vda2 /dev/vda3; "
                "ls /mnt/DOS/COMMAND.COM /mnt/DOS/dorim/data/setup; "
                "test -f /mnt/DOS/boot/syslinux/msdosmbr.bin && echo saved; "
                "cmp /mnt/DOS/boot/syslinux/syslinux.cfg " +
                SampleUsbKey() +
                "/data/bootDosLinux.config && echo config; "
                "ls /mnt/DOS/Versions; "
                "tr -d '\\r' < /mnt/DOS/cecfg.bat; "
                "test -e /mnt/SYS/Versions/current || echo 'no linux version'");
    // Partition 1 as it was.
    EXPECT_EQ(outside.rfind("1:2048s:4194304s:fat16:boot", 0), 0u) << outside;
    EXPECT_NE(outside.find("LINUX\nSWAP\n"), std::string::npos) << outside;
    EXPECT_NE(outside.find("/mnt/DOS/COMMAND.COM"), std::string::npos) << outside;
    // The configuration-lines directory is emptied, whatever its files.
    EXPECT_NE(outside.find("/mnt/DOS/dorim/data/setup:\nsaved\n"), std::string::npos) << outside;
    EXPECT_NE(outside.find("saved\nconfig\n"), std::string::npos) << outside;
    EXPECT_NE(outside.find("120501"), std::string::npos) << outside;
    EXPECT_NE(
        outside.find("set NET_IP=10.9.8.7\nset NET_MASK=255.255.252.0\nset NET_GATEWAY=10.9.8.1\n"),
        std::string::npos)
        << outside;
    EXPECT_NE(outside.find("no linux version"), std::string::npos) << outside;

    // The first boot hands over to the saved DOS boot sector at once, without
    // a menu; the next one shows the menu with the DOS side.
    std::string firstBoot;
    ExpectBoots({"SYSLINUX"}, {"Vidorama 14 or older (DOS)", "Restart"}, &firstBoot);
    EXPECT_EQ(firstBoot.find("Restart"), std::string::npos) << firstBoot;
}

} // namespace
