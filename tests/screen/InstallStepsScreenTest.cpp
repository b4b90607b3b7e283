// The partition, package and installation steps on the sandbox console, one
// after the other on one 16 GiB disk as an installation would take them: the
// blank disk is refused by a plain installation, formatted after "y", then a
// package is chosen and installed. The tests run in order and share the disk.
#include "ScreenTest.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <sstream>

using namespace ScreenTest;

namespace
{

const std::string Bottom = "<ESC> return to the main menu";
const std::string SamplePackage = "/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz";

class InstallSteps : public GuestSuite
{
protected:
    static void SetUpTestSuite()
    {
        auto options = SuiteDefaults();
        options.disks.push_back(NewDiskImage("disk.img", 16ULL << 30));
        // The key's packages, built the same way as for the demo; the mount
        // points the installation uses.
        options.setupScript +=
            std::string(WIZARD_SOURCE_DIR) +
            "/scripts/make-sample-packages.sh /mnt/USB/Packages --linux 12.05.01.3456 "
            "--linux 12.06.02.3501 --dos 120501 >/dev/null\n"
            "mkdir -p /mnt/DOS /mnt/SYS\n";
        StartGuest(options);
    }

    bool Logged(const std::string& message) const
    {
        const auto messages = LogMessages();
        return std::find(messages.begin(), messages.end(), message) != messages.end();
    }

    std::string GuestOutput(const std::string& command) { return Guest().Run(command).output; }

    // The format confirmation of the blank disk, answered "n" once looked at.
    std::string ConfirmationScreen()
    {
        Start(Program("InstallStepsProgram") + " partition format");
        EXPECT_TRUE(WaitFor("Continue? (y/n)")) << Screen();
        Settle();
        const std::string screen = Screen();
        Keys({"n"});
        EXPECT_EQ(WaitExit().value_or(-1), 0) << Screen();
        EXPECT_EQ(Result(), "run 0 plan 100001111 keep 0\n");
        EXPECT_EQ(GuestOutput("parted -s /dev/vda print 2>&1 | grep -c 'Partition Table: unknown'"),
                  "1\n");
        return screen;
    }

    // The confirmation's own texts, as on a blank disk: the question, the
    // disk and the plan, rows 3 to 11 of the screen.
    static void ExpectConfirmationTexts(const std::string& screen)
    {
        EXPECT_EQ(Row(screen, 3),
                  "     The Linux partition will be formatted. All the data will be lost.");
        EXPECT_EQ(Row(screen, 4),
                  "     If you want to keep them, backup them before to proceed to the format.");
        EXPECT_EQ(Row(screen, 5), "     Continue? (y/n)");
        EXPECT_EQ(Row(screen, 6), "");
        EXPECT_EQ(Row(screen, 7).substr(0, 20), "     Disk: /dev/vda ") << screen;
        EXPECT_EQ(Row(screen, 8), "     - A new partition table: everything on the disk is lost.");
        EXPECT_EQ(Row(screen, 9), "     - Partition 1 is made anew: FAT16 \"DOS\", bootable.");
        EXPECT_EQ(Row(screen, 10),
                  "     - Partitions 2 (EXT4 \"LINUX\") and 3 (swap \"SWAP\") are made anew.");
        EXPECT_EQ(Row(screen, 11), "     - The disk's boot code is replaced by syslinux's.");
        EXPECT_EQ(Row(screen, 12), "");
        EXPECT_EQ(Row(screen, 1).find("Disk partitions"), (76 - 15) / 2 + 2) << screen;
    }
};

} // namespace

TEST_F(InstallSteps, APlainInstallationRefusesABlankDisk)
{
    Start(Program("InstallStepsProgram") + " partition plain");
    ASSERT_TRUE(WaitFor("Disk not ready for installation!")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 5), "     Disk not ready for installation!");
    EXPECT_EQ(Row(screen, 6), "     Choose \"Format and Install Vidorama\" in the main menu.");
    EXPECT_NE(screen.find(Bottom), std::string::npos) << screen;
    EXPECT_NE(screen.find("Disk partitions"), std::string::npos) << screen;
    // Only Escape leaves.
    Keys({"Enter", "y"});
    Settle();
    EXPECT_TRUE(WaitFor("Disk not ready for installation!", 2));
    Keys({"Escape"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 plan 100001111 keep 0\n");
}

TEST_F(InstallSteps, InstallingOnABlankDiskFindsNoDestination)
{
    Start(Program("InstallStepsProgram") + " install " + SamplePackage);
    ASSERT_TRUE(WaitFor("<ENTER> return to the main menu", 120)) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(screen.find("Package installation failed!"), std::string::npos) << screen;
    EXPECT_NE(screen.find("Disk /dev/vda not accessible for installation!"), std::string::npos)
        << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_TRUE(Logged("3 Installation failed! Destination not ready.")) << Log();
    EXPECT_EQ(GuestOutput("parted -s /dev/vda print 2>&1 | grep -c 'Partition Table: unknown'"),
              "1\n");
}

TEST_F(InstallSteps, AFormatIsRefusedWhenNotStartedFromTheKey)
{
    SetKernelCommandLine(DiskCmdline);
    Start(Program("InstallStepsProgram") + " partition format");
    ASSERT_TRUE(WaitFor("Disk not correctly prepared for installation!")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 5), "     Disk not correctly prepared for installation!");
    EXPECT_EQ(Row(screen, 6), "     Please reboot the server and retry installation of Vidorama.");
    Keys({"Escape"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_TRUE(Logged("3 Format must be executed from the USB key")) << Log();
    EXPECT_EQ(Result(), "run 0 plan 100001111 keep 0\n");
    EXPECT_EQ(GuestOutput("parted -s /dev/vda print 2>&1 | grep -c 'Partition Table: unknown'"),
              "1\n");
}

TEST_F(InstallSteps, NoToThePlanChangesNothing)
{
    Start(Program("InstallStepsProgram") + " partition format");
    ASSERT_TRUE(WaitFor("Continue? (y/n)")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 3),
              "     The Linux partition will be formatted. All the data will be lost.");
    EXPECT_EQ(Row(screen, 4),
              "     If you want to keep them, backup them before to proceed to the format.");
    EXPECT_EQ(Row(screen, 5), "     Continue? (y/n)");
    Keys({"x", "Enter", "n"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 plan 100001111 keep 0\n");
    const auto messages = LogMessages();
    const std::vector<std::string> expected = {"0 TODO : Create a msdos partitions table",
                                               "0 TODO : Create a FAT16 partition",
                                               "0 TODO : Set the FAT16 partition bootable",
                                               "0 TODO : Create a EXT4 partition",
                                               "0 TODO : Create a Linux Swap partition",
                                               "0 Cancel partitions operations",
                                               "0 Cancel format and install"};
    ASSERT_GE(messages.size(), expected.size()) << Log();
    EXPECT_EQ(std::vector<std::string>(messages.end() - static_cast<long>(expected.size()),
                                       messages.end()),
              expected);
    EXPECT_EQ(GuestOutput("parted -s /dev/vda print 2>&1 | grep -c 'Partition Table: unknown'"),
              "1\n");
}

const std::string BoardWarning = "Incompatible Zarn board to install Vidorama";
const std::string MemoryWarning = "Not enough memory to install or start Vidorama";

// 512 MiB of memory leave the kernel less than 512,000,000 bytes: the
// memory warning is there on every board of this machine.
TEST_F(InstallSteps, TheConfirmationRepeatsTheHardwareWarningsUnderThePlan)
{
    SetBiosVendor(std::nullopt);
    const std::string screen = ConfirmationScreen();
    ExpectConfirmationTexts(screen);
    EXPECT_EQ(Row(screen, 13), "     " + BoardWarning) << screen;
    EXPECT_EQ(Row(screen, 14), "     " + MemoryWarning) << screen;
    EXPECT_EQ(Row(screen, 15), "") << screen;
}

TEST_F(InstallSteps, OnASupportedBoardOnlyTheMemoryWarningIsRepeated)
{
    SetBiosVendor("Phoenix Technologies LTD");
    const std::string screen = ConfirmationScreen();
    ExpectConfirmationTexts(screen);
    EXPECT_EQ(Row(screen, 13), "     " + MemoryWarning) << screen;
    EXPECT_EQ(Row(screen, 14), "") << screen;
    EXPECT_EQ(screen.find(BoardWarning), std::string::npos) << screen;
}

// A serial console of 24 lines: the guest's console is set to 80x24 for this
// test and back to 80x25 after it; every text is still there, within the frame.
TEST_F(InstallSteps, At80x24TheConfirmationShowsEveryText)
{
    SetConsoleSize(24);
    SetBiosVendor(std::nullopt);
    const std::string screen = ConfirmationScreen();
    ExpectConfirmationTexts(screen);
    EXPECT_EQ(Row(screen, 13), "     " + BoardWarning) << screen;
    EXPECT_EQ(Row(screen, 14), "     " + MemoryWarning) << screen;
    // The frame's separator is the 24-line screen's last but one row.
    EXPECT_EQ(Row(screen, 21), "  " + std::string(76, 'q')) << screen;
    EXPECT_EQ(Row(screen, 23), "") << screen;
}

TEST_F(InstallSteps, YesFormatsTheDiskBehindTheProgressPopup)
{
    Start(Program("InstallStepsProgram") + " partition format");
    ASSERT_TRUE(WaitFor("Continue? (y/n)")) << Screen();
    Keys({"y"});
    EXPECT_TRUE(WaitFor("Disk partitioning", 60)) << Screen();
    ASSERT_EQ(WaitExit(600).value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 plan 100001111 keep 0\n") << Log();
    EXPECT_TRUE(Logged("0 Perform a format and install")) << Log();

    EXPECT_EQ(GuestOutput("blkid -o value -s LABEL /dev/vda1 /dev/vda2 /dev/vda3"),
              "DOS\nLINUX\nSWAP\n");
    EXPECT_EQ(GuestOutput("parted -m -s /dev/vda unit s print | sed -n '3p' | cut -d: -f4,5,7"),
              "4096513s:fat16:boot;\n");
    // syslinux leaves the DOS partition unmounted.
    EXPECT_EQ(
        GuestOutput("mount -t vfat /dev/vda1 /mnt/DOS && cmp /mnt/DOS/boot/syslinux/syslinux.cfg "
                    "/mnt/USB/data/bootLinux.config && echo same; umount /mnt/DOS"),
        "same\n");
    EXPECT_EQ(GuestOutput("cmp -n 440 /dev/vda /usr/share/syslinux/mbr.bin && echo same"),
              "same\n");
}

TEST_F(InstallSteps, APlainInstallationTakesThePreparedDiskWithoutAScreen)
{
    Start(Program("InstallStepsProgram") + " partition plain");
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 plan 000000000 keep 0\n");
}

TEST_F(InstallSteps, ThePackagesOfTheKeyHighestFirst)
{
    Start(Program("InstallStepsProgram") + " package escape 1");
    ASSERT_TRUE(WaitFor("Select the package to install:")) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(screen.find("Available packages"), std::string::npos) << screen;
    EXPECT_NE(screen.find("<ESC> return to the main menu, <ENTER> to select the package"),
              std::string::npos)
        << screen;
    // Two Linux versions and the DOS one with the same version, in list order;
    // the DOS one says so.
    const auto rows = Rows(screen);
    std::vector<std::string> lines;
    for (const auto& row : rows)
        if (row.find("Vidorama ") != std::string::npos)
            lines.push_back(row.substr(row.find_first_not_of(' ')));
    EXPECT_EQ(lines, (std::vector<std::string>{"> Vidorama 12.06.02", "Vidorama 12.05.01",
                                               "Vidorama 12.05.01 (DOS)"}))
        << screen;
    Keys({"Escape"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 package none\n");
    EXPECT_TRUE(Logged("0 No package selected!")) << Log();
}

TEST_F(InstallSteps, AfterAFormatThePackageMustBeChosen)
{
    Start(Program("InstallStepsProgram") + " package noescape 1");
    ASSERT_TRUE(WaitFor("Select the package to install:")) << Screen();
    EXPECT_NE(Screen().find("<ENTER> to select the package"), std::string::npos);
    EXPECT_EQ(Screen().find("<ESC>"), std::string::npos) << Screen();
    Keys({"Escape", "1", "Down"});
    Settle();
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 package " + SamplePackage + "\n");
    EXPECT_TRUE(Logged("0 Selected package: Vidorama 12.05.01.3456")) << Log();
}

TEST_F(InstallSteps, AnEmptyPackageDirectoryEndsAtOnce)
{
    RunInGuest("mv /mnt/USB/Packages /mnt/USB/Packages.away && mkdir /mnt/USB/Packages");
    Start(Program("InstallStepsProgram") + " package escape 1");
    const auto status = WaitExit();
    RunInGuest("rmdir /mnt/USB/Packages && mv /mnt/USB/Packages.away /mnt/USB/Packages");
    ASSERT_EQ(status.value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 package none\n");
    EXPECT_TRUE(Logged("0 No package selected!")) << Log();
}

TEST_F(InstallSteps, TheChosenPackageIsInstalledAndBootsByDefault)
{
    Start(Program("InstallStepsProgram") + " install " + SamplePackage);
    ASSERT_EQ(WaitExit(300).value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1\n") << Log();
    EXPECT_TRUE(Logged("0 Installation succeed!")) << Log();
    const auto messages = LogMessages();
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(),
                            [](const std::string& line)
                            { return line.rfind("3 Syslinux change default entry -> ", 0) == 0; }))
        << Log();
    EXPECT_EQ(GuestOutput("readlink /mnt/SYS/Versions/current"),
              "/mnt/SYS/Versions/12.05.01.3456\n");
}

TEST_F(InstallSteps, NoToOverwritingLeavesWithoutPopupOrPrompt)
{
    Start(Program("InstallStepsProgram") + " install " + SamplePackage);
    ASSERT_TRUE(WaitFor("Package already installed, overwrite existing installation (y/n) ?"))
        << Screen();
    Keys({"x", "n"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_TRUE(Logged("0 Cancel installation")) << Log();
    EXPECT_FALSE(Logged("0 Installation succeed!")) << Log();
}

TEST_F(InstallSteps, AFailureIsNamedAndHeldUntilEnter)
{
    // A package file that cannot be read (a directory): its size cannot be determined.
    RunInGuest("mkdir -p /var/tmp/unreadable/Vidorama_12.07.01.1.tar.gz");
    Start(Program("InstallStepsProgram") +
          " install /var/tmp/unreadable/Vidorama_12.07.01.1.tar.gz");
    ASSERT_TRUE(WaitFor("<ENTER> return to the main menu", 120)) << Screen();
    EXPECT_NE(Screen().find("Cannot determine available space for installation of Vidorama"),
              std::string::npos)
        << Screen();
    Keys({"Escape"});
    Settle();
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_TRUE(Logged("3 Installation failed! No available disk space.")) << Log();
}

// The installed disk as the installation left it: versions, "current", the
// top-level boot configuration, the DOS side.
const std::string InstalledDisk =
    "mkdir -p /run/look/sys /run/look/dos && mount /dev/vda2 /run/look/sys && "
    "mount /dev/vda1 /run/look/dos && cd /run/look && ls -A sys/Versions && "
    "readlink sys/Versions/current && cat sys/Versions/boot/syslinux/syslinux.cfg && "
    "find sys/Versions dos -type f | sort | xargs md5sum; cd / && umount /run/look/sys "
    "/run/look/dos";

TEST_F(InstallSteps, ADamagedPackageIsNamedAndNothingIsWritten)
{
    // Cut short, as by a copy that did not end, or with bytes changed in its middle.
    RunInGuest("rm -rf /var/tmp/damaged && mkdir -p /var/tmp/damaged/cut /var/tmp/damaged/changed "
               "&& cd /var/tmp/damaged && size=$(stat -c %s " +
               SamplePackage + ") && head -c $((size / 2)) " + SamplePackage +
               " > cut/Vidorama_12.07.01.1.tar.gz && cp " + SamplePackage +
               " changed/Vidorama_12.07.02.1.tar.gz && printf 'XXXXXXXXXXXXXXXX' | dd "
               "of=changed/Vidorama_12.07.02.1.tar.gz bs=1 seek=$((size / 2)) conv=notrunc "
               "2>/dev/null");
    const std::string before = GuestOutput(InstalledDisk);
    ASSERT_NE(before.find("12.05.01.3456"), std::string::npos) << before;
    for (const std::string& package : {std::string("cut/Vidorama_12.07.01.1.tar.gz"),
                                       std::string("changed/Vidorama_12.07.02.1.tar.gz")})
    {
        const std::string file = package.substr(package.find('/') + 1);
        const std::string line = "The package " + file + " is damaged and cannot be installed";
        RunInGuest("rm -f " + WorkDir() + "/installer.log " + WorkDir() + "/result.txt");
        Start(Program("InstallStepsProgram") + " install /var/tmp/damaged/" + package);
        ASSERT_TRUE(WaitFor("<ENTER> return to the main menu", 120)) << Screen();
        const std::string screen = Screen();
        const auto rows = Rows(screen);
        const auto failed = std::find(rows.begin(), rows.end(), "  Package installation failed!");
        ASSERT_NE(failed, rows.end()) << screen;
        ASSERT_NE(failed + 1, rows.end()) << screen;
        EXPECT_EQ(*(failed + 1), "  " + line) << screen;
        // Neither a space figure nor a wrong cause.
        EXPECT_EQ(screen.find("space"), std::string::npos) << screen;
        EXPECT_EQ(screen.find("in progress"), std::string::npos) << screen;
        Keys({"Escape"});
        Settle();
        Keys({"Enter"});
        ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
        EXPECT_EQ(Result(), "run 0\n");
        EXPECT_EQ(LogMessages(), (std::vector<std::string>{"0 Log created!", "3 " + line,
                                                           "3 Installation failed!"}))
            << Log();
        // The installed system is as it was; nothing was extracted or run.
        EXPECT_EQ(GuestOutput(InstalledDisk), before);
        EXPECT_EQ(GuestOutput("ls " + WorkDir()), "installer.log\nresult.txt\n");
    }
}

TEST_F(InstallSteps, ADamagedPackageOfAnInstalledVersionIsNotOfferedToOverwriteIt)
{
    // A damaged copy of the version the disk holds, dated back so that its reading is kept.
    RunInGuest("rm -rf /var/tmp/damaged-installed && mkdir -p /var/tmp/damaged-installed && "
               "size=$(stat -c %s " +
               SamplePackage + ") && head -c $((size / 2)) " + SamplePackage +
               " > /var/tmp/damaged-installed/Vidorama_12.05.01.3456.tar.gz && touch -d '-1 hour' "
               "/var/tmp/damaged-installed/Vidorama_12.05.01.3456.tar.gz");
    const std::string package = "/var/tmp/damaged-installed/Vidorama_12.05.01.3456.tar.gz";
    const std::string line =
        "The package Vidorama_12.05.01.3456.tar.gz is damaged and cannot be installed";
    const std::string before = GuestOutput(InstalledDisk);
    ASSERT_NE(before.find("12.05.01.3456"), std::string::npos) << before;

    // Already read, as the package menu reads the listed packages: refused at once.
    RunInGuest("rm -f " + WorkDir() + "/installer.log " + WorkDir() + "/result.txt");
    Start(Program("InstallStepsProgram") + " install " + package + " read-ahead");
    ASSERT_TRUE(WaitFor("<ENTER> return to the main menu", 120)) << Screen();
    std::string screen = Screen();
    EXPECT_EQ(screen.find("overwrite"), std::string::npos) << screen;
    EXPECT_NE(screen.find("  " + line), std::string::npos) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_EQ(LogMessages(),
              (std::vector<std::string>{"0 Log created!", "3 " + line, "3 Installation failed!"}))
        << Log();
    EXPECT_EQ(GuestOutput(InstalledDisk), before);

    // Not read yet: the question comes first, and "y" meets the same refusal.
    RunInGuest("rm -f " + WorkDir() + "/installer.log " + WorkDir() + "/result.txt");
    Start(Program("InstallStepsProgram") + " install " + package);
    ASSERT_TRUE(WaitFor("overwrite existing installation (y/n) ?", 60)) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor("<ENTER> return to the main menu", 120)) << Screen();
    screen = Screen();
    EXPECT_NE(screen.find("  " + line), std::string::npos) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_EQ(GuestOutput(InstalledDisk), before);
    EXPECT_EQ(GuestOutput("ls " + WorkDir()), "installer.log\nresult.txt\n");
}

TEST_F(InstallSteps, ADosPackageNeedsAPreviousDosInstallation)
{
    Start(Program("InstallStepsProgram") + " install /mnt/USB/Packages/120501.zip");
    ASSERT_TRUE(WaitFor("<ENTER> return to the main menu", 120)) << Screen();
    EXPECT_NE(Screen().find("No previous installation of Vidorama 14 or older found!"),
              std::string::npos)
        << Screen();
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_TRUE(Logged("3 Installation failed! No previous vidorama dos installation found."))
        << Log();
}

TEST_F(InstallSteps, APackageWithoutInstallerIsInvalid)
{
    RunInGuest("rm -rf /var/tmp/noinstaller && mkdir -p /var/tmp/noinstaller/payload && "
               "echo data > /var/tmp/noinstaller/payload/file && cd /var/tmp/noinstaller && "
               "tar -czf Vidorama_12.08.01.1.tar.gz payload");
    Start(Program("InstallStepsProgram") +
          " install /var/tmp/noinstaller/Vidorama_12.08.01.1.tar.gz");
    ASSERT_TRUE(WaitFor("<ENTER> return to the main menu", 120)) << Screen();
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_TRUE(Logged("3 Installation failed! Invalid package.")) << Log();
    EXPECT_EQ(GuestOutput("ls /mnt/SYS/Versions 2>&1 | grep -c 12.08.01"), "0\n");
}

TEST_F(InstallSteps, AFailingInstallerIsReported)
{
    RunInGuest("rm -rf /var/tmp/failing && mkdir -p /var/tmp/failing && cd /var/tmp/failing && "
               "printf '#!/bin/sh\\necho copying files\\nexit 3\\n' > Install.sh && "
               "chmod 755 Install.sh && tar -czf Vidorama_12.09.01.1.tar.gz Install.sh");
    Start(Program("InstallStepsProgram") + " install /var/tmp/failing/Vidorama_12.09.01.1.tar.gz");
    ASSERT_TRUE(WaitFor("<ENTER> return to the main menu", 120)) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(screen.find("copying files"), std::string::npos) << screen;
    EXPECT_NE(screen.find("Possible cause : USB key disconnected from the server."),
              std::string::npos)
        << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_TRUE(Logged("3 Installation failed!")) << Log();
}
