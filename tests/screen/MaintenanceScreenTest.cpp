// Version maintenance through the real wizard: "Change active version",
// "Delete specific version", "Delete all unused versions" and "Clear
// configuration lines", from the installed disk's maintenance menu and from
// the USB key. Each test lays out an installed disk (three Linux versions, one
// of them current, a DOS version, configuration lines), works the menus, and
// then looks at the disk: which version directories remain, where "current"
// points, the top-level boot configuration, the DOS side's files.
//
// Three machines: two disks side by side (one of them without a usable DOS
// partition), then one disk where a Linux version is made current, then one
// disk where a DOS version is. A switch ends in a restart, so it is the last
// test of its machine; the disk is then mounted by a second guest.
#include "DiskLook.h"
#include "ScreenTest.h"
#include "SparseImage.h"
#include "TempDir.h"

#include <algorithm>
#include <chrono>
#include <sstream>
#include <thread>

using namespace ScreenTest;

namespace
{

const int TitleRow = 1;
const int HeadingRow = 5;
const int FirstVersionRow = 7;
const int BottomRow = 23;

const std::string MaintenanceMenu = "Vidorama Maintenance";
const std::string InstallMenu = "Vidorama Install and Rescue";
const std::string DiskBottom = "<ESC> return to the main menu, <ENTER> to select the disk";
const std::string VersionBottom = "<ESC> return to the main menu, <ENTER> to select the version";
const std::string RemoveBottom = "<ENTER> return to main menu";
const std::string RemoveAllQuestion =
    "   All versions of Vidorama will be deleted, continue ? (y/n)";
const std::string ClearQuestion =
    "All configuration lines of Vidorama will be deleted, continue? (y/n)";

const std::string Current = "12.05.01.3456";
const std::string Newer = "12.06.02.3501";
const std::string Older = "11.02.03.77";
const std::string DosVersion = "100407";

// Where the running system's boot loader and the switch point the machine.
const std::string TopLevelConfiguration = "DEFAULT Vidorama\n"
                                          "LABEL Vidorama\n"
                                          "  CONFIG /Versions/" +
                                          Current + "/boot/syslinux/syslinux.cfg\n";

std::string Centered(const std::string& text, int width = 76, int offset = 2)
{
    return std::string(static_cast<size_t>(offset + (width - static_cast<int>(text.size())) / 2),
                       ' ') +
           text;
}

// One line of the installed-version menu; every version is named "Vidorama".
std::string VersionRow(bool highlighted, const std::string& version)
{
    return std::string(23, ' ') + (highlighted ? " > " : "   ") + "Vidorama " + version;
}

void Pause(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

size_t Count(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// What a test lays out on the disk before the wizard starts. The current
// version is always there; "current" points at it.
struct Layout
{
    // Linux versions besides the current one: Newer carries a boot loader
    // file that extlinux left immutable, Older a text manifest.
    std::vector<std::string> others = {Newer, Older};
    bool dosVersion = true;
    // The DOS partition's own syslinux directory.
    bool dosBootLoader = true;
    // A file of Newer that cannot be deleted.
    bool newerLocked = false;
};

// Commands run with the disk's partitions below one directory: "sys" (the
// Linux partition) and "dos" (the DOS partition); their status is the result.
std::string OnPartitions(const std::string& device, const std::string& commands)
{
    return ScreenTest::OnPartitions(device + "1", device + "2", commands);
}

class MaintenanceSuite : public GuestSuite
{
protected:
    static std::unique_ptr<Sandbox::TempDir> _files;
    static std::unique_ptr<Sandbox::SparseImage> _disk;
    static std::string _diskProblem;

    // A 3 GiB disk (the size check wants 2,304 MiB) with small partitions:
    // 64 MiB FAT16 (left blank when dos is false) and 256 MiB ext4.
    static void PrepareDisk(const std::string& device, bool dos)
    {
        const auto result = Guest().Run(
            "parted -s " + device +
                " mklabel msdos mkpart primary fat16 2048s 133119s "
                "mkpart primary ext4 133120s 657407s set 1 boot on && udevadm settle && " +
                (dos ? "mkfs.fat -F 16 -n DOS " + device + "1 >/dev/null && " : std::string()) +
                "mkfs.ext4 -q -F -L LINUX -O ^64bit " + device + "2 2>&1",
            600);
        if (result.rc != 0)
            _diskProblem += device + ": " + result.output;
    }

    static void MakeMachine(const std::string& prefix, int disks)
    {
        _files = std::make_unique<Sandbox::TempDir>(prefix);
        _disk = std::make_unique<Sandbox::SparseImage>(_files->Path() + "/disk.img", 3ULL << 30);
        auto options = SuiteDefaults();
        options.disks.push_back(_disk->Path());
        if (disks > 1)
        {
            _second =
                std::make_unique<Sandbox::SparseImage>(_files->Path() + "/second.img", 3ULL << 30);
            options.disks.push_back(_second->Path());
        }
        _diskProblem.clear();
        StartGuest(options);
        PrepareDisk("/dev/vda", true);
        if (disks > 1)
            PrepareDisk("/dev/vdb", false);
    }

    static void TearDownTestSuite()
    {
        GuestSuite::TearDownTestSuite();
        _second.reset();
        _disk.reset();
        _files.reset();
    }

    void SetUp() override
    {
        GuestSuite::SetUp();
        ASSERT_EQ(_diskProblem, "");
    }

    // An installed disk (/dev/vda unless told) as a test wants it, from scratch.
    void LayOut(const Layout& layout, const std::string& device = "/dev/vda")
    {
        std::string script =
            "chattr -R -i sys 2>/dev/null; "
            "find sys dos -mindepth 1 -maxdepth 1 ! -name lost+found -exec rm -rf {} + && "
            "mkdir -p sys/Versions/boot/syslinux && printf '" +
            TopLevelConfiguration + "' > sys/Versions/boot/syslinux/syslinux.cfg && ";
        std::vector<std::string> versions = layout.others;
        versions.push_back(Current);
        for (const auto& version : versions)
        {
            const std::string directory = "sys/Versions/" + version;
            script += "mkdir -p " + directory +
                      "/boot/syslinux && printf 'DEFAULT Vidorama\\n' > " + directory +
                      "/boot/syslinux/syslinux.cfg && ";
            if (version == Older)
                script += "printf 'Vidorama\\r\\n" + version + "\\r\\n' > " + directory +
                          "/Version.txt && ";
            else
                script += "printf '{\"name\": \"Vidorama\", \"version\": \"" +
                          version.substr(0, 8) + "\", \"revision\": \"" + version.substr(9) +
                          "\"}' > " + directory + "/Version.json && ";
            if (version == Newer)
                script += "printf 'loader' > " + directory +
                          "/boot/syslinux/ldlinux.sys && chattr +i " + directory +
                          "/boot/syslinux/ldlinux.sys && ";
        }
        if (layout.newerLocked)
            script += "chattr +i sys/Versions/" + Newer + "/Version.json && ";
        script += "ln -s /mnt/SYS/Versions/" + Current + " sys/Versions/current && ";

        script += "touch dos/COMMAND.COM dos/IO.SYS dos/MSDOS.SYS && ";
        if (layout.dosBootLoader)
            script += "mkdir -p dos/boot/syslinux && "
                      "printf 'DEFAULT VidoramaLinux\\r\\n' > dos/boot/syslinux/syslinux.cfg && ";
        if (layout.dosVersion)
            script += "mkdir -p dos/Versions/" + DosVersion + " && printf 'PK' > dos/Versions/" +
                      DosVersion + "/img.zip && ";
        script += "mkdir -p dos/dorim/data/setup/site && cd dos/dorim/data/setup && "
                  "touch video.lin audio_2.lin a-b.lin keep.txt site/studio.lin site/site.cfg";
        RunInGuest(OnPartitions(device, script));
    }

    // A disk (/dev/vda unless told) as seen from outside the wizard, while this
    // guest runs.
    std::string Look(const std::string& commands, const std::string& device = "/dev/vda")
    {
        return Guest().Run(OnPartitions(device, commands)).output;
    }

    std::string VersionDirectories(const std::string& device = "/dev/vda")
    {
        return Look("ls sys/Versions; ls dos/Versions 2>/dev/null", device);
    }

    std::string SetupFiles() { return Look("cd dos/dorim/data/setup && find . -type f | sort"); }

    // A second machine that only looks at the disk the restart left.
    static std::string Inspect(const std::string& commands)
    {
        Sandbox::GuestOptions options;
        options.disks.push_back(_disk->Path());
        options.timeoutSec = 600;
        Sandbox::Guest inspector(options);
        return inspector.Run(OnPartitions("/dev/vda", commands)).output;
    }

    bool Logged(const std::string& message) const
    {
        const auto messages = LogMessages();
        return std::find(messages.begin(), messages.end(), message) != messages.end();
    }

    size_t CountLogged(const std::string& message) const
    {
        const auto messages = LogMessages();
        return static_cast<size_t>(std::count(messages.begin(), messages.end(), message));
    }

    // The wizard as the installed system starts it: the Linux partition is
    // in place on /mnt/SYS, so the menu names the running version.
    void StartFromDisk()
    {
        SetKernelCommandLine(DiskCmdline);
        RunInGuest("mount -t ext4 /dev/vda2 /mnt/SYS");
        Start(Wizard());
        ASSERT_TRUE(WaitFor(MaintenanceMenu)) << Screen();
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
        EXPECT_NE(Screen().find("Start version 12.05.01"), std::string::npos) << Screen();
    }

    void StartFromKey()
    {
        Start(Wizard());
        ASSERT_TRUE(WaitFor(InstallMenu)) << Screen();
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    }

    // "Versions", then the item of the sub-menu.
    void Versions(const std::string& menuKey, const std::string& item)
    {
        Keys({menuKey});
        ASSERT_TRUE(WaitFor("Delete all unused versions")) << Screen();
        Keys({item});
    }

    void BackToMenu(const std::string& title)
    {
        ASSERT_TRUE(WaitFor(title)) << Screen();
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    }

    void ExitToShell(const std::string& key)
    {
        Keys({key});
        const auto status = WaitExit();
        ASSERT_TRUE(status.has_value()) << Screen();
        EXPECT_EQ(*status, 2);
    }

    // The disk selection of a two-disk machine, under the workflow's title:
    // moves to device and takes it.
    void ChooseDisk(const std::string& device, const std::string& title)
    {
        ASSERT_TRUE(WaitFor(DiskBottom)) << Screen();
        ASSERT_TRUE(WaitFor("/dev/vdb")) << Screen();
        EXPECT_EQ(Row(Screen(), TitleRow), Centered(title)) << Screen();
        const std::string mark = " > " + device;
        for (int moves = 0; moves < 2 && Screen().find(mark) == std::string::npos; ++moves)
        {
            Keys({"Down"});
            Settle();
        }
        ASSERT_NE(Screen().find(mark), std::string::npos) << Screen();
        Keys({"Enter"});
    }

    // The installed-version menu under its heading: the rows from the first
    // item on, up to the first empty one.
    std::vector<std::string> VersionMenu() const
    {
        const auto rows = Rows(Screen());
        EXPECT_EQ(rows[HeadingRow], std::string(23, ' ') + "Select the version :");
        EXPECT_EQ(rows[HeadingRow + 1], "");
        std::vector<std::string> menu;
        for (int row = FirstVersionRow; row < BottomRow && !rows[static_cast<size_t>(row)].empty();
             ++row)
            menu.push_back(rows[static_cast<size_t>(row)]);
        return menu;
    }

    // The running version is greyed: the highlight may stand on it, but
    // Enter takes nothing and the screen stays.
    void ExpectEnterIgnored()
    {
        Settle();
        const std::string before = Screen();
        const size_t logged = LogMessages().size();
        Keys({"Enter"});
        Pause(2000);
        Settle();
        EXPECT_EQ(Screen(), before);
        EXPECT_EQ(LogMessages().size(), logged) << Log();
    }

private:
    static std::unique_ptr<Sandbox::SparseImage> _second;
};

std::unique_ptr<Sandbox::TempDir> MaintenanceSuite::_files;
std::unique_ptr<Sandbox::SparseImage> MaintenanceSuite::_disk;
std::unique_ptr<Sandbox::SparseImage> MaintenanceSuite::_second;
std::string MaintenanceSuite::_diskProblem;

const std::string AllVersions =
    "11.02.03.77\n12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n" + DosVersion + "\n";
const std::string AllSetupFiles =
    "./a-b.lin\n./audio_2.lin\n./keep.txt\n./site/site.cfg\n./site/studio.lin\n./video.lin\n";

// ---------------------------------------------------------------------------
// Two disks: /dev/vda installed, /dev/vdb whose DOS partition was never
// formatted (its Linux partition is an empty ext4).
class TwoDisks : public MaintenanceSuite
{
protected:
    static void SetUpTestSuite() { MakeMachine("/tmp/wizard-maintenance-two-", 2); }
};

TEST_F(TwoDisks, ChangeActiveVersionListsTheVersionsAndEscapeLeavesThem)
{
    LayOut(Layout());
    StartFromDisk();
    Versions("2", "1");
    ChooseDisk("/dev/vda", "Change active versions");
    ASSERT_TRUE(WaitFor(VersionBottom)) << Screen();
    std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Change active versions")) << screen;
    EXPECT_EQ(VersionMenu(),
              std::vector<std::string>({VersionRow(true, "12.06.02"), VersionRow(false, "12.05.01"),
                                        VersionRow(false, "11.02.03"),
                                        VersionRow(false, "10.04.07 (DOS)")}))
        << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  " + VersionBottom) << screen;

    Keys({"Down"});
    ASSERT_TRUE(WaitFor(VersionRow(true, "12.05.01"))) << Screen();
    ExpectEnterIgnored();
    // Other keys do nothing either; digits are not offered here.
    Keys({"2", "y"});
    Pause(1500);
    EXPECT_NE(Screen().find(VersionRow(true, "12.05.01")), std::string::npos) << Screen();
    Keys({"Escape"});
    BackToMenu(MaintenanceMenu);
    ExitToShell("4");

    EXPECT_TRUE(InOrder(LogMessages(),
                        {"0 StartStep selected item: 4", "0 Selected disk: /dev/vda",
                         "3 Could not read installed version from disk /dev/vda in directory "
                         "/mnt/SYS/Versions",
                         "0 No version selected!", "0 StartStep selected item: 10"}))
        << Log();
    EXPECT_FALSE(Logged("0 Change current version succeed!")) << Log();
    EXPECT_EQ(VersionDirectories(), AllVersions);
    EXPECT_EQ(Look("readlink sys/Versions/current; cat sys/Versions/boot/syslinux/syslinux.cfg"),
              "/mnt/SYS/Versions/" + Current + "\n" + TopLevelConfiguration);
}

TEST_F(TwoDisks, LeavingTheDiskScreenOfAChangeReturnsToTheMenu)
{
    LayOut(Layout());
    StartFromDisk();
    Versions("2", "1");
    ASSERT_TRUE(WaitFor(DiskBottom)) << Screen();
    ASSERT_TRUE(WaitFor("/dev/vdb")) << Screen();
    EXPECT_EQ(Row(Screen(), TitleRow), Centered("Change active versions")) << Screen();
    Keys({"Escape"});
    BackToMenu(MaintenanceMenu);
    ExitToShell("4");
    EXPECT_TRUE(InOrder(LogMessages(), {"0 StartStep selected item: 4", "0 No disk selected",
                                        "0 StartStep selected item: 10"}))
        << Log();
}

TEST_F(TwoDisks, CancellingTheDiskSelectionChangesNothing)
{
    LayOut(Layout());
    StartFromKey();
    for (const auto& [key, title] : std::vector<std::pair<std::string, std::string>>{
             {"1", "Delete specific version"}, {"2", "Delete all unused versions"}})
    {
        Versions("3", key);
        ASSERT_TRUE(WaitFor(DiskBottom)) << Screen();
        ASSERT_TRUE(WaitFor("/dev/vdb")) << Screen();
        EXPECT_EQ(Row(Screen(), TitleRow), Centered(title)) << Screen();
        Keys({"Escape"});
        BackToMenu(InstallMenu);
    }
    Keys({"4"});
    ASSERT_TRUE(WaitFor(DiskBottom)) << Screen();
    ASSERT_TRUE(WaitFor("/dev/vdb")) << Screen();
    EXPECT_EQ(Row(Screen(), TitleRow), Centered("Clear configuration lines")) << Screen();
    Keys({"Escape"});
    BackToMenu(InstallMenu);
    // Nothing was even mounted.
    EXPECT_EQ(Guest().Run("grep -c ' /mnt/SYS \\| /mnt/DOS ' /proc/mounts").output, "0\n");
    ExitToShell("5");

    EXPECT_EQ(LogMessages(),
              std::vector<std::string>({"0 Log created!", "0 StartStep selected item: 5",
                                        "0 No disk selected", "0 StartStep selected item: 6",
                                        "0 No disk selected", "0 StartStep selected item: 7",
                                        "0 No disk selected", "0 StartStep selected item: 10"}))
        << Log();
    EXPECT_EQ(VersionDirectories(), AllVersions);
    EXPECT_EQ(SetupFiles(), AllSetupFiles);
}

TEST_F(TwoDisks, ADiskWhoseDosPartitionCannotBeMountedIsRefused)
{
    StartFromKey();
    Versions("3", "1");
    ChooseDisk("/dev/vdb", "Delete specific version");
    ASSERT_TRUE(WaitFor("Disk not correctly prepare for installation!")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Delete specific version")) << screen;
    EXPECT_EQ(Row(screen, 5), "     Disk not correctly prepare for installation!") << screen;
    EXPECT_EQ(Row(screen, 6), "     See installer.log for details") << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  <ENTER> return to the main menu") << screen;
    // The Linux partition did mount; the DOS one decides.
    EXPECT_EQ(Guest().Run("grep -c '^/dev/vdb2 /mnt/SYS ' /proc/mounts").output, "1\n");
    // Only Enter leaves.
    Keys({"Escape", "y"});
    Pause(1500);
    EXPECT_NE(Screen().find("Disk not correctly prepare for installation!"), std::string::npos)
        << Screen();
    Keys({"Enter"});
    BackToMenu(InstallMenu);
    ExitToShell("5");

    const auto messages = LogMessages();
    EXPECT_TRUE(InOrder(messages, {"0 StartStep selected item: 5", "0 Selected disk: /dev/vdb",
                                   "0 StartStep selected item: 10"}))
        << Log();
    // No version menu was shown, so no choice is reported either way.
    EXPECT_FALSE(Logged("0 No version selected!")) << Log();
    EXPECT_FALSE(Logged("0 Remove version succeed!")) << Log();
}

TEST_F(TwoDisks, NoToClearingConfigurationLinesKeepsEveryFile)
{
    LayOut(Layout());
    StartFromKey();
    Keys({"4"});
    ChooseDisk("/dev/vda", "Clear configuration lines");
    ASSERT_TRUE(WaitFor(ClearQuestion)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Clear configuration lines")) << screen;
    EXPECT_EQ(Row(screen, 3), "     " + ClearQuestion) << screen;
    Keys({"x", "Enter", "Escape"});
    Pause(1500);
    EXPECT_NE(Screen().find(ClearQuestion), std::string::npos) << Screen();
    // "n" returns at once, without an Enter prompt.
    Keys({"n"});
    BackToMenu(InstallMenu);
    ExitToShell("5");

    EXPECT_TRUE(InOrder(LogMessages(),
                        {"0 StartStep selected item: 7", "0 Selected disk: /dev/vda",
                         "0 Cancel clear configuration lines", "0 StartStep selected item: 10"}))
        << Log();
    EXPECT_EQ(SetupFiles(), AllSetupFiles);
    EXPECT_EQ(VersionDirectories(), AllVersions);
}

TEST_F(TwoDisks, YesClearsOnlyTheConfigurationLineFiles)
{
    LayOut(Layout());
    StartFromDisk();
    Keys({"3"});
    ChooseDisk("/dev/vda", "Clear configuration lines");
    ASSERT_TRUE(WaitFor(ClearQuestion)) << Screen();
    EXPECT_EQ(Row(Screen(), TitleRow), Centered("Clear configuration lines")) << Screen();
    Keys({"y"});
    // Success shows nothing more: straight back to the menu.
    BackToMenu(MaintenanceMenu);
    EXPECT_EQ(Screen().find("Error deleting configuration lines!"), std::string::npos) << Screen();
    ExitToShell("4");

    EXPECT_TRUE(InOrder(LogMessages(), {"0 StartStep selected item: 7", "0 Selected disk: /dev/vda",
                                        "0 StartStep selected item: 10"}))
        << Log();
    EXPECT_FALSE(Logged("3 Error cleaning configuration lines")) << Log();
    EXPECT_FALSE(Logged("0 Error deleting configuration lines")) << Log();
    // "a-b.lin" is no "\w+\.lin"; the subdirectory is cleaned as well.
    EXPECT_EQ(SetupFiles(), "./a-b.lin\n./keep.txt\n./site/site.cfg\n");
    EXPECT_EQ(Look("ls dos"), "COMMAND.COM\nIO.SYS\nMSDOS.SYS\nVersions\nboot\ndorim\n");
    EXPECT_EQ(VersionDirectories(), AllVersions);
}

TEST_F(TwoDisks, YesClearsTheDosSidesUpperCaseConfigurationLinesToo)
{
    LayOut(Layout());
    // Beside the usual files, names as the DOS side writes them (upper-case
    // 8.3, shown as stored) and a long one in mixed case.
    ASSERT_EQ(Look("cd dos/dorim/data/setup && touch CAM3.LIN Studio.Lin LAN-3.LIN X.LIN.BAK "
                   "site/CAM4.LIN && echo done"),
              "done\n");
    StartFromDisk();
    Keys({"3"});
    ChooseDisk("/dev/vda", "Clear configuration lines");
    ASSERT_TRUE(WaitFor(ClearQuestion)) << Screen();
    Keys({"y"});
    BackToMenu(MaintenanceMenu);
    EXPECT_EQ(Screen().find("Error deleting configuration lines!"), std::string::npos) << Screen();
    ExitToShell("4");

    EXPECT_FALSE(Logged("3 Error cleaning configuration lines")) << Log();
    EXPECT_EQ(SetupFiles(), "./LAN-3.LIN\n./X.LIN.BAK\n./a-b.lin\n./keep.txt\n./site/site.cfg\n");
    EXPECT_EQ(Look("ls dos"), "COMMAND.COM\nIO.SYS\nMSDOS.SYS\nVersions\nboot\ndorim\n");
    EXPECT_EQ(VersionDirectories(), AllVersions);
}

TEST_F(TwoDisks, RemovingAllUnusedVersionsActsOnTheChosenDiskAfterAnotherWasLookedAt)
{
    // Both disks installed alike for this test; /dev/vdb gets its blank DOS
    // partition and empty Linux partition back afterwards, pass or fail.
    struct SecondDiskInstalled
    {
        ~SecondDiskInstalled()
        {
            Guest().Run("umount /mnt/SYS /mnt/DOS 2>/dev/null; " +
                        OnPartitions("/dev/vdb", "chattr -R -i sys 2>/dev/null; find sys "
                                                 "-mindepth 1 -maxdepth 1 ! -name lost+found "
                                                 "-exec rm -rf {} +") +
                        " ; wipefs -q -a /dev/vdb1");
        }
    } restore;
    RunInGuest("mkfs.fat -F 16 -n DOS /dev/vdb1 >/dev/null");
    LayOut(Layout());
    LayOut(Layout(), "/dev/vdb");
    StartFromKey();

    // The second disk's versions are looked at and left: its partitions stay
    // on the mount points.
    Versions("3", "1");
    ChooseDisk("/dev/vdb", "Delete specific version");
    ASSERT_TRUE(WaitFor(VersionBottom)) << Screen();
    Keys({"Escape"});
    BackToMenu(InstallMenu);
    EXPECT_EQ(Guest().Run("grep -c '^/dev/vdb[12] /mnt/\\(SYS\\|DOS\\) ' /proc/mounts").output,
              "2\n");

    // Then all unused versions of the first disk: the question names it, and
    // the removal takes its partitions, not the ones left there.
    Versions("3", "2");
    ChooseDisk("/dev/vda", "Delete all unused versions");
    ASSERT_TRUE(WaitFor(RemoveAllQuestion)) << Screen();
    EXPECT_EQ(Row(Screen(), 2), "     Disk: /dev/vda Virtio Block Device, 3.0 GiB") << Screen();
    EXPECT_EQ(Row(Screen(), 3), "  " + RemoveAllQuestion) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(screen.find("   Remove version 12.06.02 succeed!"), std::string::npos) << screen;
    EXPECT_NE(screen.find("   Remove version 11.02.03 succeed!"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("failed!"), std::string::npos) << screen;
    Keys({"Enter"});
    BackToMenu(InstallMenu);
    ExitToShell("5");

    EXPECT_TRUE(InOrder(LogMessages(), {"0 StartStep selected item: 5", "0 Selected disk: /dev/vdb",
                                        "0 No version selected!", "0 StartStep selected item: 6",
                                        "0 Selected disk: /dev/vda", "0 Remove version succeed!",
                                        "0 StartStep selected item: 10"}))
        << Log();
    EXPECT_EQ(CountLogged("0 Remove version succeed!"), 3u) << Log();
    // The chosen disk keeps its current version alone; the other lost nothing.
    EXPECT_EQ(VersionDirectories(), Current + "\nboot\ncurrent\n");
    EXPECT_EQ(VersionDirectories("/dev/vdb"), AllVersions);
    EXPECT_EQ(Look("cd dos/dorim/data/setup && find . -type f | sort", "/dev/vdb"), AllSetupFiles);
}

// ---------------------------------------------------------------------------
// One installed disk; the last test makes another Linux version current.
class OneDisk : public MaintenanceSuite
{
protected:
    static void SetUpTestSuite() { MakeMachine("/tmp/wizard-maintenance-one-", 1); }
};

TEST_F(OneDisk, WithOnlyTheRunningVersionNothingCanBeRemoved)
{
    Layout layout;
    layout.others.clear();
    layout.dosVersion = false;
    LayOut(layout);
    StartFromDisk();

    // One disk: no disk screen. One greyed line that Enter does not take.
    Versions("2", "2");
    ASSERT_TRUE(WaitFor(VersionBottom)) << Screen();
    EXPECT_EQ(Row(Screen(), TitleRow), Centered("Delete specific version")) << Screen();
    EXPECT_EQ(VersionMenu(), std::vector<std::string>({VersionRow(true, "12.05.01")})) << Screen();
    ExpectEnterIgnored();
    Keys({"Escape"});
    BackToMenu(MaintenanceMenu);

    // Nothing to ask about.
    Versions("2", "3");
    ASSERT_TRUE(WaitFor("No unused version to be removed!")) << Screen();
    std::string screen = Screen();
    EXPECT_NE(screen.find("   No unused version to be removed!"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("(y/n)"), std::string::npos) << screen;
    EXPECT_EQ(Row(screen, TitleRow), Centered("Delete all unused versions")) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  " + RemoveBottom) << screen;
    Keys({"y", "n"});
    Pause(1500);
    EXPECT_EQ(Screen().find("(y/n)"), std::string::npos) << Screen();
    Keys({"Enter"});
    BackToMenu(MaintenanceMenu);
    ExitToShell("4");

    const auto messages = LogMessages();
    EXPECT_TRUE(InOrder(messages, {"0 StartStep selected item: 5", "0 Selected disk: /dev/vda",
                                   "0 No version selected!", "0 StartStep selected item: 6",
                                   "0 Selected disk: /dev/vda", "0 StartStep selected item: 10"}))
        << Log();
    EXPECT_FALSE(Logged("0 Cancel remove all version")) << Log();
    EXPECT_FALSE(Logged("0 Remove version succeed!")) << Log();
    EXPECT_EQ(VersionDirectories(), Current + "\nboot\ncurrent\n");
}

TEST_F(OneDisk, AfterASuccessfulRemovalAllUnusedVersionsGo)
{
    LayOut(Layout());
    StartFromDisk();

    Versions("2", "2");
    ASSERT_TRUE(WaitFor(VersionBottom)) << Screen();
    Keys({"Down", "Down"});
    ASSERT_TRUE(WaitFor(VersionRow(true, "11.02.03"))) << Screen();
    Keys({"Enter"});
    ASSERT_TRUE(WaitFor("Remove version 11.02.03 succeed!")) << Screen();
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    std::string screen = Screen();
    EXPECT_NE(screen.find("   Remove version 11.02.03 succeed!"), std::string::npos) << screen;
    EXPECT_EQ(Row(screen, TitleRow), Centered("Delete specific version")) << screen;
    Keys({"Enter"});
    BackToMenu(MaintenanceMenu);
    EXPECT_EQ(VersionDirectories(),
              "12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n" + DosVersion + "\n");

    // The step holds no version any more: every unused one is offered, and
    // "n" keeps them all.
    Versions("2", "3");
    ASSERT_TRUE(WaitFor(RemoveAllQuestion)) << Screen();
    EXPECT_EQ(Row(Screen(), TitleRow), Centered("Delete all unused versions")) << Screen();
    Keys({"x", "Enter"});
    Pause(1500);
    EXPECT_EQ(Screen().find("Remove version"), std::string::npos) << Screen();
    Keys({"n"});
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    EXPECT_EQ(Screen().find("Remove version"), std::string::npos) << Screen();
    Keys({"Enter"});
    BackToMenu(MaintenanceMenu);
    EXPECT_TRUE(WaitForLog("0 Cancel remove all version", 1)) << Log();

    // Asked once, then one line per removed version; the running one is
    // passed over without a word.
    Versions("2", "3");
    ASSERT_TRUE(WaitFor(RemoveAllQuestion)) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    ASSERT_TRUE(WaitFor("Remove version 10.04.07")) << Screen();
    screen = Screen();
    EXPECT_EQ(Count(screen, "(y/n)"), 1u) << screen;
    EXPECT_EQ(Count(screen, "Remove version"), 2u) << screen;
    EXPECT_NE(screen.find("   Remove version 12.06.02 succeed!"), std::string::npos) << screen;
    EXPECT_NE(screen.find("   Remove version 10.04.07 succeed!"), std::string::npos) << screen;
    EXPECT_LT(screen.find("12.06.02 succeed!"), screen.find("10.04.07 succeed!")) << screen;
    EXPECT_EQ(screen.find("12.05.01"), std::string::npos) << screen;
    Keys({"Enter"});
    BackToMenu(MaintenanceMenu);
    ExitToShell("4");

    EXPECT_TRUE(InOrder(LogMessages(),
                        {"0 StartStep selected item: 5", "0 Selected disk: /dev/vda",
                         "0 Selected version: Vidorama 11.02.03.77", "0 Remove version succeed!",
                         "0 StartStep selected item: 6", "0 Selected disk: /dev/vda",
                         "0 Cancel remove all version", "0 StartStep selected item: 6",
                         "0 Selected disk: /dev/vda", "0 Remove version succeed!",
                         "0 Remove version succeed!", "0 StartStep selected item: 10"}))
        << Log();
    EXPECT_EQ(CountLogged("0 Remove version succeed!"), 3u) << Log();
    EXPECT_FALSE(Logged("3 Remove version failed!")) << Log();
    // The extlinux loader of 12.06.02 was immutable; it went too.
    EXPECT_EQ(VersionDirectories(), Current + "\nboot\ncurrent\n");
    EXPECT_EQ(Look("readlink sys/Versions/current; cat sys/Versions/boot/syslinux/syslinux.cfg"),
              "/mnt/SYS/Versions/" + Current + "\n" + TopLevelConfiguration);
}

TEST_F(OneDisk, AfterAFailedRemovalTheSameVersionAloneIsTriedAgain)
{
    Layout layout;
    layout.newerLocked = true;
    LayOut(layout);
    StartFromDisk();

    Versions("2", "2");
    ASSERT_TRUE(WaitFor(VersionBottom)) << Screen();
    ASSERT_TRUE(WaitFor(VersionRow(true, "12.06.02"))) << Screen();
    Keys({"Enter"});
    ASSERT_TRUE(WaitFor("Remove version 12.06.02 failed!")) << Screen();
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    EXPECT_NE(Screen().find("   Remove version 12.06.02 failed!"), std::string::npos) << Screen();
    Keys({"Enter"});
    BackToMenu(MaintenanceMenu);
    // rm went as far as it could: the locked manifest keeps the version listed.
    EXPECT_EQ(Look("find sys/Versions/" + Newer + " | sort"),
              "sys/Versions/" + Newer + "\nsys/Versions/" + Newer + "/Version.json\n");

    // Unlocked behind the wizard's back; the partition is still mounted.
    RunInGuest("chattr -i /mnt/SYS/Versions/" + Newer + "/Version.json");

    // No question: the version the step still holds is removed, alone.
    Versions("2", "3");
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    ASSERT_TRUE(WaitFor("Remove version 12.06.02")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Delete all unused versions")) << screen;
    EXPECT_EQ(screen.find("(y/n)"), std::string::npos) << screen;
    EXPECT_EQ(Count(screen, "Remove version"), 1u) << screen;
    EXPECT_NE(screen.find("   Remove version 12.06.02 succeed!"), std::string::npos) << screen;
    Keys({"Enter"});
    BackToMenu(MaintenanceMenu);
    ExitToShell("4");

    EXPECT_TRUE(InOrder(LogMessages(),
                        {"0 StartStep selected item: 5", "0 Selected disk: /dev/vda",
                         "0 Selected version: Vidorama 12.06.02.3501", "3 Remove version failed!",
                         "0 StartStep selected item: 6", "0 Selected disk: /dev/vda",
                         "0 Remove version succeed!", "0 StartStep selected item: 10"}))
        << Log();
    EXPECT_EQ(CountLogged("0 Remove version succeed!"), 1u) << Log();
    EXPECT_FALSE(Logged("0 Cancel remove all version")) << Log();
    EXPECT_EQ(VersionDirectories(),
              "11.02.03.77\n12.05.01.3456\nboot\ncurrent\n" + DosVersion + "\n");
}

// A switch to the current version was made, but the machine was not
// restarted: the kernel still runs Newer.
TEST_F(OneDisk, AVersionStillRunningAfterASwitchIsNeitherOfferedNorRemoved)
{
    LayOut(Layout());
    SetKernelCommandLine("BOOT_IMAGE=/Versions/" + Newer + "/boot/vmlinuz root=/dev/sda2 quiet");
    RunInGuest("mount -t ext4 /dev/vda2 /mnt/SYS");
    Start(Wizard());
    ASSERT_TRUE(WaitFor(MaintenanceMenu)) << Screen();
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();

    // Both the running and the current version are greyed, and Enter takes
    // neither.
    Versions("2", "2");
    ASSERT_TRUE(WaitFor(VersionBottom)) << Screen();
    EXPECT_EQ(Row(Screen(), TitleRow), Centered("Delete specific version")) << Screen();
    EXPECT_EQ(VersionMenu(),
              std::vector<std::string>({VersionRow(true, "12.06.02"), VersionRow(false, "12.05.01"),
                                        VersionRow(false, "11.02.03"),
                                        VersionRow(false, "10.04.07 (DOS)")}))
        << Screen();
    const std::string styled = StyledScreen();
    const int greyed = 6; // colour pair 5, cyan on black
    EXPECT_EQ(ForegroundOf(styled, FirstVersionRow, "Vidorama 12.06.02"), greyed) << styled;
    EXPECT_EQ(ForegroundOf(styled, FirstVersionRow + 1, "Vidorama 12.05.01"), greyed) << styled;
    EXPECT_NE(ForegroundOf(styled, FirstVersionRow + 2, "Vidorama 11.02.03"), greyed) << styled;
    EXPECT_NE(ForegroundOf(styled, FirstVersionRow + 3, "Vidorama 10.04.07"), greyed) << styled;
    ExpectEnterIgnored();
    Keys({"Down"});
    ASSERT_TRUE(WaitFor(VersionRow(true, "12.05.01"))) << Screen();
    ExpectEnterIgnored();
    Keys({"Escape"});
    BackToMenu(MaintenanceMenu);

    // Removing all unused versions passes over both without a word.
    Versions("2", "3");
    ASSERT_TRUE(WaitFor(RemoveAllQuestion)) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    ASSERT_TRUE(WaitFor("Remove version 10.04.07")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Count(screen, "Remove version"), 2u) << screen;
    EXPECT_NE(screen.find("   Remove version 11.02.03 succeed!"), std::string::npos) << screen;
    EXPECT_NE(screen.find("   Remove version 10.04.07 succeed!"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("12.06.02"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("12.05.01"), std::string::npos) << screen;
    Keys({"Enter"});
    BackToMenu(MaintenanceMenu);
    ExitToShell("4");

    EXPECT_EQ(CountLogged("0 Remove version succeed!"), 2u) << Log();
    EXPECT_FALSE(Logged("3 Remove version failed!")) << Log();
    EXPECT_EQ(VersionDirectories(), "12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n");
    EXPECT_EQ(Look("readlink sys/Versions/current; cat sys/Versions/boot/syslinux/syslinux.cfg"),
              "/mnt/SYS/Versions/" + Current + "\n" + TopLevelConfiguration);
}

// Restarts the machine: the last test of the suite.
TEST_F(OneDisk, ChangingToAnotherLinuxVersionRestartsIntoIt)
{
    LayOut(Layout());
    StartFromDisk();
    Versions("2", "1");
    ASSERT_TRUE(WaitFor(VersionBottom)) << Screen();
    EXPECT_EQ(Row(Screen(), TitleRow), Centered("Change active versions")) << Screen();
    ASSERT_TRUE(WaitFor(VersionRow(true, "12.06.02"))) << Screen();
    Keys({"Enter"});

    ASSERT_TRUE(WaitFor("Change current version to 12.06.02 succeed!", 60)) << Screen();
    ASSERT_TRUE(WaitFor("<ENTER> to reboot")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Change version")) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  <ENTER> to reboot") << screen;
    EXPECT_TRUE(InOrder(LogMessages(), {"0 StartStep selected item: 4", "0 Selected disk: /dev/vda",
                                        "0 Selected version: Vidorama 12.06.02.3501",
                                        "0 Change current version succeed!"}))
        << Log();
    Keys({"Escape", "y"});
    Pause(1500);
    EXPECT_FALSE(Guest().WaitEnded(0)) << "only Enter restarts";
    Keys({"Enter"});
    ASSERT_TRUE(Guest().WaitEnded(120)) << Screen();
    EXPECT_EQ(Guest().Outcome(), "reboot");

    // The DOS partition's syslinux now starts the Linux side; a success is
    // not logged.
    EXPECT_NE(Guest().ReadIoFile("events").find(
                  "syslinux --update --menu-save=VidoramaLinux --once=VidoramaLinux "
                  "-d /boot/syslinux /dev/vda1"),
              std::string::npos)
        << Guest().ReadIoFile("events");
    for (const auto& message : LogMessages())
        EXPECT_NE(message.rfind("3 Syslinux change default entry -> ", 0), 0u) << Log();

    const std::string outside =
        Inspect("readlink sys/Versions/current; cat sys/Versions/boot/syslinux/syslinux.cfg; "
                "test -f sys/Versions/boot/syslinux/ldlinux.sys && echo extlinux; "
                "ls sys/Versions dos/Versions; test -e dos/preboot.bat || echo 'no preboot'");
    EXPECT_EQ(outside, "/mnt/SYS/Versions/" + Newer +
                           "\n"
                           "DEFAULT Vidorama\n"
                           "LABEL Vidorama\n"
                           "  CONFIG /Versions/" +
                           Newer +
                           "/boot/syslinux/syslinux.cfg\n"
                           "extlinux\n"
                           "dos/Versions:\n" +
                           DosVersion +
                           "\n\n"
                           "sys/Versions:\n"
                           "11.02.03.77\n12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n"
                           "no preboot\n");
}

// ---------------------------------------------------------------------------
// One disk whose DOS partition lacks its syslinux directory, so that the
// default boot entry cannot be set; the DOS version is made current.
class DosSwitch : public MaintenanceSuite
{
protected:
    static void SetUpTestSuite() { MakeMachine("/tmp/wizard-maintenance-dos-", 1); }
};

TEST_F(DosSwitch, AFailedBootEntryIsLoggedAndTheMachineStillRestarts)
{
    Layout layout;
    layout.others.clear();
    layout.dosBootLoader = false;
    LayOut(layout);
    StartFromDisk();
    Versions("2", "1");
    ASSERT_TRUE(WaitFor(VersionBottom)) << Screen();
    EXPECT_EQ(VersionMenu(), std::vector<std::string>({VersionRow(true, "12.05.01"),
                                                       VersionRow(false, "10.04.07 (DOS)")}))
        << Screen();
    Keys({"Down"});
    ASSERT_TRUE(WaitFor(VersionRow(true, "10.04.07 (DOS)"))) << Screen();
    Keys({"Enter"});
    ASSERT_TRUE(WaitFor("Change current version to 10.04.07 succeed!", 60)) << Screen();
    ASSERT_TRUE(WaitFor("<ENTER> to reboot")) << Screen();
    Keys({"Enter"});
    ASSERT_TRUE(Guest().WaitEnded(120)) << Screen();
    EXPECT_EQ(Guest().Outcome(), "reboot");

    EXPECT_TRUE(InOrder(LogMessages(), {"0 Selected version: Vidorama 10.04.07",
                                        "0 Change current version succeed!"}))
        << Log();
    const auto messages = LogMessages();
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(),
                            [](const std::string& line)
                            { return line.rfind("3 Syslinux change default entry -> ", 0) == 0; }))
        << Log();
    EXPECT_NE(Guest().ReadIoFile("events").find(
                  "syslinux --update --menu-save=VidoramaDos --once=VidoramaDos "
                  "-d /boot/syslinux /dev/vda1"),
              std::string::npos)
        << Guest().ReadIoFile("events");

    // DOS installs the version at its next start; the Linux side is as it was.
    const std::string outside =
        Inspect("cat dos/preboot.bat; echo '--'; readlink sys/Versions/current; "
                "cat sys/Versions/boot/syslinux/syslinux.cfg; ls sys/Versions dos/Versions");
    EXPECT_EQ(outside, "path=C:\\;C:\\DOS;C:\\UTILS\r\n"
                       "\r\n"
                       "cls\r\n"
                       "\r\n"
                       "set SOURCE_DRIVE=c:\\versions\\" +
                           DosVersion +
                           "\r\n"
                           "set DESTINATION_DRIVE=c:\r\n"
                           "set CURRENT_OS_TYPE=WCE\r\n"
                           "set INSTALL_ADDONS=YES\r\n"
                           "\r\n"
                           "call %SOURCE_DRIVE%\\SCRIPTS\\REINSTAL.BAT\r\n"
                           "echo.\r\n"
                           "echo System updated.\r\n"
                           "seconds 1\r\n"
                           "reset\r\n"
                           "--\n"
                           "/mnt/SYS/Versions/" +
                           Current + "\n" + TopLevelConfiguration + "dos/Versions:\n" + DosVersion +
                           "\n\n"
                           "sys/Versions:\n" +
                           Current + "\nboot\ncurrent\n");
}

} // namespace
