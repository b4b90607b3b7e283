// The wizard on the disks of today's servers: "Format and Install Vidorama"
// on a blank NVMe disk and on a blank SD card, each the machine's only
// target, then the disk looked at from outside (a second guest) and booted
// as a PC boots it; and the version maintenance ("Delete specific version",
// "Delete all unused versions", "Change active version") on an installed
// NVMe disk. Every partition the wizard touches must be the chosen disk's,
// under the kernel's name (nvme0n1p1, mmcblk0p2).
//
// Each suite is one machine; a suite's last test ends it with the restart.
#include "BootDisk.h"
#include "DiskLook.h"
#include "HostCommand.h"
#include "ScreenTest.h"
#include "SparseImage.h"
#include "TempDir.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <thread>

using namespace ScreenTest;

namespace
{

const std::string FinalPopup = "Installation is done, remove the USB key then press <ENTER>";
const std::string MaintenanceMenu = "Vidorama Maintenance";
const std::string VersionBottom = "<ESC> return to the main menu, <ENTER> to select the version";
const std::string RemoveBottom = "<ENTER> return to main menu";
const std::string RemoveAllQuestion =
    "   All versions of Vidorama will be deleted, continue ? (y/n)";

// How a disk kind is attached and named.
struct DiskKind
{
    const char* name;   // "nvme" | "sd": the guest and boot-disk option
    const char* device; // the disk in the guest
    const char* first;  // its first partition
    const char* second; // its second partition
    const char* third;  // its third partition
};

const DiskKind Nvme = {"nvme", "/dev/nvme0n1", "/dev/nvme0n1p1", "/dev/nvme0n1p2",
                       "/dev/nvme0n1p3"};
const DiskKind Sd = {"sd", "/dev/mmcblk0", "/dev/mmcblk0p1", "/dev/mmcblk0p2", "/dev/mmcblk0p3"};

void Attach(Sandbox::GuestOptions& options, const DiskKind& kind, const std::string& image)
{
    if (std::string(kind.name) == "nvme")
        options.nvmeDisks.push_back(image);
    else
        options.sdDisks.push_back(image);
}

// Commands run with the disk's partitions mounted read-only below /run/look:
// "sys" (Linux) and "dos" (DOS).
std::string OnPartitions(const DiskKind& kind, const std::string& commands, bool readOnly)
{
    return ScreenTest::OnPartitions(kind.first, kind.second, commands, readOnly);
}

// A second machine that only looks at the disk an earlier one left.
std::string Inspect(const DiskKind& kind, const std::string& image, const std::string& commands)
{
    Sandbox::GuestOptions options;
    Attach(options, kind, image);
    options.timeoutSec = 600;
    Sandbox::Guest inspector(options);
    return inspector.Run(OnPartitions(kind, commands, true)).output;
}

// --- "Format and Install Vidorama" on a blank disk ------------------------------

template <const DiskKind& Kind> class Installation : public GuestSuite
{
protected:
    static std::unique_ptr<Sandbox::TempDir> _files;
    static std::unique_ptr<Sandbox::SparseImage> _disk;

    static void SetUpTestSuite()
    {
        _files = std::make_unique<Sandbox::TempDir>(std::string("/tmp/wizard-diskkind-") +
                                                    Kind.name + "-");
        // 4 GiB: above the 2,304 MiB the size check wants, and a power of
        // two as an SD card must be.
        _disk = std::make_unique<Sandbox::SparseImage>(_files->Path() + "/disk.img", 4ULL << 30);
        auto options = SuiteDefaults();
        Attach(options, Kind, _disk->Path());
        options.setupScript += std::string(WIZARD_SOURCE_DIR) +
                               "/scripts/make-sample-packages.sh /mnt/USB/Packages "
                               "--linux 12.05.01.3456 >/dev/null\n";
        StartGuest(options);
    }

    static void TearDownTestSuite()
    {
        GuestSuite::TearDownTestSuite();
        _disk.reset();
        _files.reset();
    }

    void InstallOnTheOnlyDisk()
    {
        Start(Wizard());
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
        Keys({"2"});
        // The only target: taken without a menu. The question names it and
        // what the format destroys.
        ASSERT_TRUE(WaitFor("Continue? (y/n)")) << Screen();
        ASSERT_TRUE(WaitFor("boot code")) << Screen();
        const std::string screen = Screen();
        const std::string disk = Row(screen, 7);
        EXPECT_EQ(disk.find(std::string("     Disk: ") + Kind.device + " "), 0u) << screen;
        EXPECT_NE(disk.find(", 4.0 GiB"), std::string::npos) << screen;
        EXPECT_EQ(Row(screen, 8), "     - A new partition table: everything on the disk is lost.")
            << screen;
        Keys({"y"});
        ASSERT_TRUE(WaitFor("Select the package to install:", 900)) << Screen();
        Keys({"Enter"});
        // No RB417 board here: no BIOS settings; the network form as proposed.
        ASSERT_TRUE(WaitFor("<ENTER> to apply configuration", 600)) << Screen();
        Keys({"Enter"});
        ASSERT_TRUE(WaitFor(FinalPopup, 120)) << Screen();
        Keys({"Enter"});
        ASSERT_TRUE(Guest().WaitEnded(120)) << Screen();
        EXPECT_EQ(Guest().Outcome(), "reboot");
    }

    void ExpectInstalledDisk()
    {
        const auto messages = LogMessages();
        EXPECT_TRUE(InOrder(
            messages,
            {"0 StartStep selected item: 2", std::string("0 Selected disk: ") + Kind.device,
             "0 TODO : Create a msdos partitions table", "0 TODO : Create a FAT16 partition",
             "0 TODO : Set the FAT16 partition bootable", "0 TODO : Create a EXT4 partition",
             "0 TODO : Create a Linux Swap partition", "0 Perform a format and install",
             "0 Selected package: Vidorama 12.05.01.3456", "0 Installation succeed!"}))
            << Log();
        // syslinux's own report is logged at level 3 on every installation;
        // no step failed.
        for (const auto& message : messages)
        {
            EXPECT_EQ(message.rfind("3 Fail", 0), std::string::npos) << Log();
            EXPECT_EQ(message.rfind("3 Cannot", 0), std::string::npos) << Log();
        }

        // The disk from outside: table, labels, boot code, loader, version.
        const std::string device = Kind.device;
        const std::string outside = Inspect(
            Kind, _disk->Path(),
            "parted -m -s " + device + " unit s print | sed -n '2p;3,5p' | cut -d: -f1,5,6,7; " +
                "blkid -o value -s LABEL " + Kind.first + " " + Kind.second + " " + Kind.third +
                "; blkid -o value -s TYPE " + Kind.first + " " + Kind.second + " " + Kind.third +
                "; cmp -n 440 " + device + " /usr/share/syslinux/mbr.bin && echo mbr; " +
                "test -f dos/boot/syslinux/ldlinux.sys && echo ldlinux; " +
                "test -f sys/Versions/boot/syslinux/ldlinux.sys && echo extlinux; " +
                "readlink sys/Versions/current; cat sys/Versions/12.05.01.3456/Version.json; "
                "echo; ls /dev | grep -E '^(nvme0n1|mmcblk0)[0-9]+$' || echo 'no other names'");
        const auto lines = Lines(outside);
        ASSERT_GE(lines.size(), 14u) << outside;
        // parted -m: the disk line ("path:size:type:sector sizes:table:model")
        // cut to its table, then partitions "number:type:name:flags".
        EXPECT_NE(lines[0].find(":msdos:"), std::string::npos) << outside;
        EXPECT_EQ(lines[1], "1:fat16::boot;") << outside;
        EXPECT_EQ(lines[2].rfind("2:ext4:", 0), 0u) << outside;
        EXPECT_EQ(lines[3].rfind("3:linux-swap(v1):", 0), 0u) << outside;
        EXPECT_TRUE(
            InOrder(lines, {"DOS", "LINUX", "SWAP", "vfat", "ext4", "swap", "mbr", "ldlinux",
                            "extlinux", "/mnt/SYS/Versions/12.05.01.3456",
                            R"({"name": "Vidorama", "version": "12.05.01", "revision": "3456"})",
                            "no other names"}))
            << outside;
    }
};

template <const DiskKind& Kind> std::unique_ptr<Sandbox::TempDir> Installation<Kind>::_files;
template <const DiskKind& Kind> std::unique_ptr<Sandbox::SparseImage> Installation<Kind>::_disk;

using NvmeInstallation = Installation<Nvme>;
using SdInstallation = Installation<Sd>;

TEST_F(NvmeInstallation, FormatAndInstallOnTheOnlyNvmeDiskBootsFromIt)
{
    InstallOnTheOnlyDisk();
    ExpectInstalledDisk();

    // SeaBIOS boots NVMe disks: the boot-once entry goes straight to the
    // installed version through the Linux partition's extlinux.
    const std::string copy = _files->Path() + "/boot.img";
    ASSERT_EQ(Sandbox::HostCommand::Run({"cp", "--sparse=always", _disk->Path(), copy}), 0);
    const auto boot = Sandbox::BootDisk(copy, {"Loading /Versions/12.05.01.3456/boot/vmlinuz"}, 240,
                                        true, "nvme");
    EXPECT_TRUE(boot.found) << boot.serial << boot.messages << boot.firmware;
    std::remove(copy.c_str());
}

TEST_F(SdInstallation, FormatAndInstallOnTheOnlySdCard)
{
    InstallOnTheOnlyDisk();
    ExpectInstalledDisk();
}

// --- version maintenance on an installed NVMe disk --------------------------------

const std::string Current = "12.05.01.3456";
const std::string Newer = "12.06.02.3501";
const std::string Older = "11.02.03.77";

class NvmeMaintenance : public GuestSuite
{
protected:
    static std::unique_ptr<Sandbox::TempDir> _files;
    static std::unique_ptr<Sandbox::SparseImage> _disk;
    static std::string _problem;

    // Three Linux versions, the middle one current, on small partitions of
    // a 3 GiB disk (the size check wants 2,304 MiB).
    static void SetUpTestSuite()
    {
        _files = std::make_unique<Sandbox::TempDir>("/tmp/wizard-diskkind-versions-");
        _disk = std::make_unique<Sandbox::SparseImage>(_files->Path() + "/disk.img", 3ULL << 30);
        auto options = SuiteDefaults();
        options.nvmeDisks.push_back(_disk->Path());
        StartGuest(options);
        std::string script = "chattr -R -i sys 2>/dev/null; mkdir -p sys/Versions/boot/syslinux && "
                             "printf 'DEFAULT Vidorama\\nLABEL Vidorama\\n  CONFIG /Versions/" +
                             Current +
                             "/boot/syslinux/syslinux.cfg\\n' > "
                             "sys/Versions/boot/syslinux/syslinux.cfg && ";
        for (const auto& version : {Older, Current, Newer})
        {
            const std::string directory = "sys/Versions/" + version;
            script += "mkdir -p " + directory +
                      "/boot/syslinux && printf 'DEFAULT Vidorama\\n' > " + directory +
                      "/boot/syslinux/syslinux.cfg && printf '{\"name\": \"Vidorama\", " +
                      "\"version\": \"" + version.substr(0, 8) + "\", \"revision\": \"" +
                      version.substr(9) + "\"}' > " + directory + "/Version.json && ";
        }
        script += "ln -s /mnt/SYS/Versions/" + Current +
                  " sys/Versions/current && "
                  "touch dos/COMMAND.COM dos/IO.SYS dos/MSDOS.SYS && mkdir -p dos/boot/syslinux && "
                  "printf 'DEFAULT VidoramaLinux\\r\\n' > dos/boot/syslinux/syslinux.cfg";
        auto result =
            Guest().Run(std::string("parted -s ") + Nvme.device +
                            " mklabel msdos mkpart primary fat16 2048s 133119s "
                            "mkpart primary ext4 133120s 657407s set 1 boot on && "
                            "udevadm settle && mkfs.fat -F 16 -n DOS " +
                            Nvme.first + " >/dev/null && mkfs.ext4 -q -F -L LINUX -O ^64bit " +
                            Nvme.second + " 2>&1",
                        600);
        if (result.rc == 0)
            result = Guest().Run(OnPartitions(Nvme, script, false) + " 2>&1", 120);
        if (result.rc != 0)
            _problem = result.output;
    }

    static void TearDownTestSuite()
    {
        GuestSuite::TearDownTestSuite();
        _disk.reset();
        _files.reset();
    }

    void SetUp() override
    {
        GuestSuite::SetUp();
        ASSERT_EQ(_problem, "");
    }

    std::string Look(const std::string& commands)
    {
        return Guest().Run(OnPartitions(Nvme, commands, false)).output;
    }

    // The installed system's start: the Linux partition is on /mnt/SYS.
    void StartFromDisk()
    {
        SetKernelCommandLine(DiskCmdline);
        RunInGuest(std::string("mountpoint -q /mnt/SYS || mount -t ext4 ") + Nvme.second +
                   " /mnt/SYS");
        Start(Wizard());
        ASSERT_TRUE(WaitFor(MaintenanceMenu)) << Screen();
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    }

    void Versions(const std::string& item)
    {
        Keys({"2"});
        ASSERT_TRUE(WaitFor("Delete all unused versions")) << Screen();
        Keys({item});
    }

    void BackToMenu()
    {
        ASSERT_TRUE(WaitFor(MaintenanceMenu)) << Screen();
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    }
};

std::unique_ptr<Sandbox::TempDir> NvmeMaintenance::_files;
std::unique_ptr<Sandbox::SparseImage> NvmeMaintenance::_disk;
std::string NvmeMaintenance::_problem;

TEST_F(NvmeMaintenance, OneVersionThenEveryUnusedOneIsRemoved)
{
    StartFromDisk();
    // One disk: no disk menu. The newest first; Down to the oldest.
    Versions("2");
    ASSERT_TRUE(WaitFor(VersionBottom)) << Screen();
    Keys({"Down", "Down"});
    ASSERT_TRUE(WaitFor(" > Vidorama 11.02.03")) << Screen();
    Keys({"Enter"});
    ASSERT_TRUE(WaitFor("Remove version 11.02.03 succeed!", 60)) << Screen();
    Keys({"Enter"});
    BackToMenu();
    EXPECT_EQ(Look("ls sys/Versions"), Current + "\n" + Newer + "\nboot\ncurrent\n");

    Versions("3");
    ASSERT_TRUE(WaitFor(RemoveAllQuestion)) << Screen();
    EXPECT_EQ(Row(Screen(), 2).rfind("     Disk: /dev/nvme0n1 ", 0), 0u) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor("Remove version 12.06.02 succeed!", 60)) << Screen();
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    Keys({"Enter"});
    BackToMenu();
    Keys({"4"});
    ASSERT_EQ(WaitExit().value_or(-1), 2) << Screen();

    EXPECT_TRUE(InOrder(LogMessages(),
                        {"0 Selected disk: /dev/nvme0n1",
                         "0 Selected version: Vidorama 11.02.03.77", "0 Remove version succeed!",
                         "0 Selected disk: /dev/nvme0n1", "0 Remove version succeed!"}))
        << Log();
    // The running version and what points at it are as they were.
    EXPECT_EQ(Look("ls sys/Versions; readlink sys/Versions/current; "
                   "grep CONFIG sys/Versions/boot/syslinux/syslinux.cfg"),
              Current + "\nboot\ncurrent\n/mnt/SYS/Versions/" + Current + "\n  CONFIG /Versions/" +
                  Current + "/boot/syslinux/syslinux.cfg\n");
}

// Restarts the machine: the suite's last test.
TEST_F(NvmeMaintenance, ChangingTheActiveVersionRestartsIntoIt)
{
    // A version to change to, beside the current one.
    ASSERT_EQ(Guest()
                  .Run(OnPartitions(Nvme,
                                    "mkdir -p sys/Versions/" + Newer +
                                        "/boot/syslinux && printf 'DEFAULT Vidorama\\n' > "
                                        "sys/Versions/" +
                                        Newer +
                                        "/boot/syslinux/syslinux.cfg && printf '{\"name\": "
                                        "\"Vidorama\", \"version\": \"12.06.02\", \"revision\": "
                                        "\"3501\"}' > sys/Versions/" +
                                        Newer + "/Version.json",
                                    false))
                  .rc,
              0);
    StartFromDisk();
    Versions("1");
    ASSERT_TRUE(WaitFor(VersionBottom)) << Screen();
    ASSERT_TRUE(WaitFor(" > Vidorama 12.06.02")) << Screen();
    Keys({"Enter"});
    ASSERT_TRUE(WaitFor("Change current version to 12.06.02 succeed!", 120)) << Screen();
    ASSERT_TRUE(WaitFor("<ENTER> to reboot")) << Screen();
    Keys({"Enter"});
    ASSERT_TRUE(Guest().WaitEnded(120)) << Screen();
    EXPECT_EQ(Guest().Outcome(), "reboot");
    // The boot entry was set on the NVMe disk's own first partition.
    EXPECT_NE(Guest().ReadIoFile("events").find(
                  "syslinux --update --menu-save=VidoramaLinux --once=VidoramaLinux "
                  "-d /boot/syslinux /dev/nvme0n1p1"),
              std::string::npos)
        << Guest().ReadIoFile("events");

    const std::string outside = Inspect(
        Nvme, _disk->Path(),
        "readlink sys/Versions/current; grep CONFIG sys/Versions/boot/syslinux/syslinux.cfg; "
        "test -f sys/Versions/boot/syslinux/ldlinux.sys && echo extlinux; ls sys/Versions");
    EXPECT_EQ(outside, "/mnt/SYS/Versions/" + Newer + "\n  CONFIG /Versions/" + Newer +
                           "/boot/syslinux/syslinux.cfg\nextlinux\n" + Current + "\n" + Newer +
                           "\nboot\ncurrent\n");
}

} // namespace
