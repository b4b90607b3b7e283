// The version maintenance steps alone on the sandbox console: the version
// selection, the change of the current version, the removal of versions and
// the clearing of the DOS configuration lines. Every suite is one machine with
// a 3 GiB disk: a small FAT16 partition 1 and a small ext4 partition 2, made
// once when the machine starts. Each test lays out its own installed versions
// on it, runs one step and looks at the disk afterwards. A restart ends a
// machine, so the Linux switch that restarts is the last test of its suite,
// and the disk it leaves is then looked at by a second machine. (The switch
// to a DOS version, which restarts as well, is covered through the whole
// program in MaintenanceScreenTest.)
#include "ScreenTest.h"

#include <algorithm>
#include <fstream>
#include <sstream>

using namespace ScreenTest;

namespace
{

const int TitleRow = 1;
const int BottomRow = 23;
const int HeadingRow = 5;
const int FirstMenuRow = 7;
const std::string VersionsBottom = "<ESC> return to the main menu, <ENTER> to select the version";
const std::string FailureBottom = "<ENTER> return to the main menu";
const std::string RemoveBottom = "<ENTER> return to main menu";
const std::string LinesQuestion =
    "All configuration lines of Vidorama will be deleted, continue? (y/n)";
const std::string RemoveAllQuestion =
    "   All versions of Vidorama will be deleted, continue ? (y/n)";

// Items that cannot be chosen are drawn in colour pair 5, cyan on black.
const int Greyed = 6;
// The kernel command line of a machine that still runs 12.06.02 after a
// switch to another version without the restart.
const std::string StillRunningNewer =
    "BOOT_IMAGE=/Versions/12.06.02.3501/boot/vmlinuz root=/dev/sda2 quiet";

const std::string SysVersions = "/mnt/SYS/Versions";
const std::string DosVersions = "/mnt/DOS/Versions";
const std::string SetupDirectory = "/mnt/DOS/dorim/data/setup";
const std::string Running = "12.05.01.3456";

// The disk of every suite: partition 1 FAT16 (64 MiB), partition 2 ext4
// (256 MiB), both empty.
const std::string PrepareDisk =
    "parted -s /dev/vda mklabel msdos mkpart primary fat16 1MiB 65MiB "
    "mkpart primary ext4 65MiB 321MiB\n"
    "udevadm settle\n"
    "for i in $(seq 50); do [ -b /dev/vda2 ] && break; sleep 0.1; done\n"
    "mkfs.fat -F 16 -n DOS /dev/vda1 >/dev/null\n"
    "mkfs.ext4 -q -F -O ^64bit -L LINUX /dev/vda2\n";

// Both partitions on their mount points, whether the last step left them
// there or not.
const std::string MountBoth =
    "{ grep -q '^/dev/vda2 /mnt/SYS ' /proc/mounts || mount -t ext4 /dev/vda2 /mnt/SYS; } && "
    "{ grep -q '^/dev/vda1 /mnt/DOS ' /proc/mounts || mount -t vfat /dev/vda1 /mnt/DOS; }";

std::string Centered(const std::string& text, int width = 76, int offset = 2)
{
    return std::string(static_cast<size_t>(offset + (width - static_cast<int>(text.size())) / 2),
                       ' ') +
           text;
}

// One line of the version menu as the screen shows it.
std::string VersionRow(bool current, const std::string& version)
{
    return std::string(23, ' ') + (current ? " > " : "   ") + "Vidorama " + version;
}

// Content window text at column c is on screen column c + 2.
std::string ContentRow(const std::string& text, int column)
{
    return std::string(static_cast<size_t>(column + 2), ' ') + text;
}

// Shell text laying out an installed Linux version in a directory named after
// it, with its manifest as JSON or as DOS-edited text.
std::string LinuxVersion(const std::string& full, bool json)
{
    const size_t revisionAt = full.rfind('.');
    const std::string directory = SysVersions + "/" + full;
    std::string text = "mkdir -p " + directory + "/boot/syslinux " + directory + "/bin && " +
                       "printf 'LABEL linux\\n' > " + directory +
                       "/boot/syslinux/syslinux.cfg && " + "printf 'server\\n' > " + directory +
                       "/bin/server && ";
    if (json)
        text += "printf '%s' '{\"name\": \"Vidorama\", \"version\": \"" +
                full.substr(0, revisionAt) + "\", \"revision\": \"" + full.substr(revisionAt + 1) +
                "\"}' > " + directory + "/Version.json";
    else
        text += "printf 'Vidorama\\r\\n" + full + "\\r\\n' > " + directory + "/Version.txt";
    return text + " && ";
}

std::string DosVersion(const std::string& dosVersion)
{
    return "mkdir -p " + DosVersions + "/" + dosVersion + " && printf 'zip' > " + DosVersions +
           "/" + dosVersion + "/img.zip && ";
}

std::string TopLevelConfiguration(const std::string& full)
{
    return "DEFAULT Vidorama\nLABEL Vidorama\n  CONFIG /Versions/" + full +
           "/boot/syslinux/syslinux.cfg\n";
}

// The running version: the "current" link and the top-level boot configuration.
std::string CurrentVersion(const std::string& full)
{
    return "ln -sfn " + SysVersions + "/" + full + " " + SysVersions + "/current && mkdir -p " +
           SysVersions +
           "/boot/syslinux && printf 'DEFAULT Vidorama\\nLABEL Vidorama\\n  "
           "CONFIG /Versions/" +
           full + "/boot/syslinux/syslinux.cfg\\n' > " + SysVersions +
           "/boot/syslinux/syslinux.cfg && ";
}

const std::string DosSystem = "touch /mnt/DOS/COMMAND.COM /mnt/DOS/IO.SYS /mnt/DOS/MSDOS.SYS && ";

// The running 12.05.01 and three other Linux versions, two of them with a
// text manifest, and the DOS version 120501.
const std::string SeveralVersions =
    LinuxVersion(Running, true) + LinuxVersion("12.06.02.3501", true) +
    LinuxVersion("12.04.01.3000", false) + LinuxVersion("11.02.03.77", false) +
    DosVersion("120501") + CurrentVersion(Running) + DosSystem;

// The first screen row equal to text; -1 when there is none.
int RowOf(const std::string& screen, const std::string& text)
{
    const auto rows = Rows(screen);
    const auto at = std::find(rows.begin(), rows.end(), text);
    return at == rows.end() ? -1 : static_cast<int>(at - rows.begin());
}

size_t Count(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// A partition whose first two KiB (the FAT boot sector, the ext4 superblock)
// are zeroed, so that it can no longer be mounted, until the end of the test.
class UnmountablePartition
{
public:
    UnmountablePartition(Sandbox::Guest& guest, int number)
        : _guest(guest), _device("/dev/vda" + std::to_string(number)),
          _saved("/run/vda" + std::to_string(number) + ".head")
    {
        _result =
            _guest.Run("umount " + _device + " 2>/dev/null; dd if=" + _device + " of=" + _saved +
                       " bs=1024 count=2 2>&1 && dd if=/dev/zero of=" + _device +
                       " bs=1024 count=2 conv=fsync 2>&1");
    }
    ~UnmountablePartition()
    {
        _guest.Run("umount " + _device + " 2>/dev/null; dd if=" + _saved + " of=" + _device +
                   " bs=1024 count=2 conv=fsync 2>&1 && rm -f " + _saved);
    }
    UnmountablePartition(const UnmountablePartition&) = delete;
    UnmountablePartition& operator=(const UnmountablePartition&) = delete;

    bool Done() const { return _result.rc == 0; }
    const std::string& Output() const { return _result.output; }

private:
    Sandbox::Guest& _guest;
    std::string _device;
    std::string _saved;
    Sandbox::Guest::Result _result{-1, ""};
};

// A file that cannot be deleted (immutable) until the end of the test.
class ImmutableFile
{
public:
    ImmutableFile(Sandbox::Guest& guest, const std::string& path) : _guest(guest), _path(path)
    {
        _done = _guest.Run("chattr +i " + _path).rc == 0;
    }
    ~ImmutableFile() { Release(); }
    ImmutableFile(const ImmutableFile&) = delete;
    ImmutableFile& operator=(const ImmutableFile&) = delete;

    bool Done() const { return _done; }
    void Release()
    {
        if (_done)
            _done = _guest.Run("chattr -i " + _path).rc != 0;
    }

private:
    Sandbox::Guest& _guest;
    std::string _path;
    bool _done = false;
};

class VersionStepsSuite : public GuestSuite
{
protected:
    static std::string _disk;

    static void StartWithDisk()
    {
        _disk = NewDiskImage("disk.img", 3ULL << 30);
        auto options = SuiteDefaults();
        options.disks = {_disk};
        options.setupScript += PrepareDisk;
        StartGuest(options);
    }

    // A second machine that only looks at the disk a restarted one left.
    static std::string Inspect(const std::string& commands) { return LookAtDisk(_disk, commands); }

    // Empties both partitions, then lays out what layout (shell text ending
    // in "&& ") makes. Mounted: left on the mount points, as the version
    // selection leaves them for the steps that follow it.
    void Layout(const std::string& layout, bool mounted)
    {
        RunInGuest(MountBoth + " && { chattr -R -i " + SysVersions +
                   " 2>/dev/null; true; } && rm -rf " + SysVersions + " /mnt/DOS/* && mkdir -p " +
                   SysVersions + " " + DosVersions + " && " + layout +
                   (mounted ? "true" : "umount /mnt/SYS /mnt/DOS"));
    }

    // Commands run with both partitions mounted.
    std::string OnDisk(const std::string& commands)
    {
        return Guest().Run("export LC_ALL=C; " + MountBoth + " && { " + commands + "; }").output;
    }

    std::string Mounts()
    {
        return Guest()
            .Run("grep -e ' /mnt/SYS ' -e ' /mnt/DOS ' /proc/mounts | cut -d' ' -f1,2")
            .output;
    }

    bool Logged(const std::string& message) const
    {
        const auto messages = LogMessages();
        return std::find(messages.begin(), messages.end(), message) != messages.end();
    }

    // The log lines of the step, without the line that opens every log.
    std::vector<std::string> Messages() const
    {
        auto messages = LogMessages();
        if (!messages.empty() && messages.front() == "0 Log created!")
            messages.erase(messages.begin());
        return messages;
    }

    void Run(const std::string& arguments)
    {
        Start(Program("VersionStepsProgram") + " " + arguments);
    }

    // Keys that must change nothing: the program is still there afterwards.
    void ExpectIgnored(const std::vector<std::string>& keys)
    {
        const std::string before = Screen();
        Keys(keys);
        Settle();
        EXPECT_FALSE(WaitExit(2).has_value()) << Screen();
        EXPECT_EQ(Screen(), before);
    }

    bool WaitForRow(int row, const std::string& text, int timeoutSec = 10)
    {
        return Guest().WaitForScreen(
            [&](const std::string& screen) { return Row(screen, row) == text; }, timeoutSec);
    }
};

std::string VersionStepsSuite::_disk;

// ---------------------------------------------------------------------------
// The version selection.

class VersionSelection : public VersionStepsSuite
{
protected:
    static void SetUpTestSuite() { StartWithDisk(); }

    // The list refused for a disk it cannot read: its two lines, ENTER back
    // with nothing chosen. Returns the screen as it was refused.
    std::string ExpectRefused()
    {
        EXPECT_TRUE(WaitFor(FailureBottom)) << Screen();
        const std::string screen = Screen();
        EXPECT_EQ(Row(screen, 5), ContentRow("Disk not correctly prepare for installation!", 3))
            << screen;
        EXPECT_EQ(Row(screen, 6), ContentRow("See installer.log for details", 3)) << screen;
        Keys({"Enter"});
        EXPECT_EQ(WaitExit().value_or(-1), 0) << Screen();
        EXPECT_EQ(Result(), "run 0 version none\n");
        return screen;
    }
};

TEST_F(VersionSelection, TheInstalledVersionsWithTheRunningOneOutOfReach)
{
    Layout(SeveralVersions, false);
    Run("available 1");
    ASSERT_TRUE(WaitFor(VersionsBottom)) << Screen();
    std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Available versions")) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  " + VersionsBottom) << screen;
    EXPECT_EQ(Row(screen, HeadingRow), std::string(23, ' ') + "Select the version :") << screen;
    EXPECT_EQ(Row(screen, HeadingRow + 1), "") << screen;
    // Highest first, the DOS version beside the Linux one of the same number
    // and told apart from it; revisions are not shown.
    const std::vector<std::string> versions = {"12.06.02", "12.05.01", "12.05.01 (DOS)", "12.04.01",
                                               "11.02.03"};
    for (size_t i = 0; i < versions.size(); ++i)
        EXPECT_EQ(Row(screen, FirstMenuRow + static_cast<int>(i)), VersionRow(i == 0, versions[i]))
            << screen;
    EXPECT_EQ(Row(screen, FirstMenuRow + 5), "") << screen;

    // The running version takes the highlight, but Enter on it does nothing;
    // nor do digits.
    Keys({"Down"});
    ASSERT_TRUE(WaitForRow(FirstMenuRow + 1, VersionRow(true, "12.05.01"))) << Screen();
    Settle();
    ExpectIgnored({"Enter"});
    ExpectIgnored({"4"});
    EXPECT_EQ(Log(), "");

    Keys({"Down", "Down"});
    ASSERT_TRUE(WaitForRow(FirstMenuRow + 3, VersionRow(true, "12.04.01"))) << Screen();
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 version Vidorama 12.04.01.3000\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"0 Selected version: Vidorama 12.04.01.3000"})
        << Log();
    // Both partitions stay mounted for the step that follows.
    EXPECT_EQ(Mounts(), "/dev/vda2 /mnt/SYS\n/dev/vda1 /mnt/DOS\n");
}

TEST_F(VersionSelection, TheDosVersionCanBeChosen)
{
    Layout(SeveralVersions, false);
    Run("available 1");
    ASSERT_TRUE(WaitFor(VersionsBottom)) << Screen();
    Keys({"Down", "Down"});
    ASSERT_TRUE(WaitForRow(FirstMenuRow + 2, VersionRow(true, "12.05.01 (DOS)"))) << Screen();
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 version Vidorama 12.05.01\n");
    EXPECT_TRUE(Logged("0 Selected version: Vidorama 12.05.01")) << Log();
}

TEST_F(VersionSelection, OnlyTheRunningVersionLeavesOnlyEscape)
{
    Layout(LinuxVersion(Running, true) + CurrentVersion(Running), false);
    Run("available 1");
    ASSERT_TRUE(WaitFor(VersionsBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, FirstMenuRow), VersionRow(true, "12.05.01")) << screen;
    EXPECT_EQ(Row(screen, FirstMenuRow + 1), "") << screen;
    ExpectIgnored({"Enter"});
    ExpectIgnored({"Down", "Up", "1", "y", "Enter"});
    Keys({"Escape"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 version none\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"0 No version selected!"}) << Log();
}

TEST_F(VersionSelection, NoVersionAtAll)
{
    Layout("", false);
    Run("available 1");
    ASSERT_TRUE(WaitFor("No available version")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 5), ContentRow("No available version", 3)) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  " + FailureBottom) << screen;
    ExpectIgnored({"Escape", "y"});
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 version none\n");
    EXPECT_EQ(Log(), "");
}

TEST_F(VersionSelection, PartitionsAlreadyInPlaceAreUsedAndLogged)
{
    Layout(SeveralVersions, true);
    Run("available 1");
    ASSERT_TRUE(WaitFor(VersionsBottom)) << Screen();
    EXPECT_EQ(Row(Screen(), FirstMenuRow + 4), VersionRow(false, "11.02.03")) << Screen();
    Keys({"Escape"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 version none\n");
    EXPECT_EQ(Messages(), (std::vector<std::string>{
                              "3 Could not read installed version from disk /dev/vda in directory "
                              "/mnt/SYS/Versions",
                              "3 Could not read installed version from disk /dev/vda in directory "
                              "/mnt/DOS/Versions",
                              "0 No version selected!"}))
        << Log();
    EXPECT_EQ(Mounts(), "/dev/vda2 /mnt/SYS\n/dev/vda1 /mnt/DOS\n");
}

// A Linux partition that cannot be mounted while another disk keeps /mnt/SYS
// busy: the step would list that disk's versions; it names the holder and
// stops instead.
TEST_F(VersionSelection, AMountPointHeldByAnotherDiskStopsTheStep)
{
    Layout(SeveralVersions, false);
    RunInGuest("mkdir -p /tmp/held-sys/Versions/11.01.01.1 && printf '{\"name\": \"Vidorama\", "
               "\"version\": \"11.01.01\", \"revision\": \"1\"}' > "
               "/tmp/held-sys/Versions/11.01.01.1/Version.json && "
               "mount --bind /tmp/held-sys /mnt/SYS && "
               "(cd /mnt/SYS && sleep 600 </dev/null >/dev/null 2>&1 &)");
    Run("available 1");
    const std::string screen = ExpectRefused();
    EXPECT_NE(Row(screen, 8).find("/mnt/SYS is held by "), std::string::npos) << screen;
    EXPECT_NE(Row(screen, 8).find(", not by /dev/vda: it cannot be released."), std::string::npos)
        << screen;
    EXPECT_EQ(screen.find("11.01.01"), std::string::npos) << screen;
    RunInGuest("pkill -x sleep; sleep 1; umount /mnt/SYS; umount /mnt/DOS 2>/dev/null; true");
    bool named = false;
    for (const auto& message : Messages())
        named = named || message.rfind("3 /mnt/SYS is held by ", 0) == 0;
    EXPECT_TRUE(named) << Log();
    EXPECT_EQ(Guest().Run("ls /tmp/held-sys/Versions").output, "11.01.01.1\n");
}

TEST_F(VersionSelection, ADosPartitionThatCannotBeMountedStopsTheStep)
{
    Layout(SeveralVersions, false);
    const UnmountablePartition dos(Guest(), 1);
    ASSERT_TRUE(dos.Done()) << dos.Output();
    Run("available 1");
    ASSERT_TRUE(WaitFor(FailureBottom)) << Screen();
    ExpectIgnored({"Escape", "n"});
    const std::string screen = ExpectRefused();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Available versions")) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  " + FailureBottom) << screen;
    EXPECT_EQ(screen.find("Vidorama 12"), std::string::npos) << screen;
    EXPECT_EQ(Log(), "");
    // The Linux partition was mounted all the same.
    EXPECT_EQ(Mounts(), "/dev/vda2 /mnt/SYS\n");
}

TEST_F(VersionSelection, ADosPartitionThatCannotBeMountedStopsEvenBesideAMountedLinuxOne)
{
    Layout(SeveralVersions, false);
    const UnmountablePartition dos(Guest(), 1);
    ASSERT_TRUE(dos.Done()) << dos.Output();
    RunInGuest("mount -t ext4 /dev/vda2 /mnt/SYS");
    Run("available 1");
    ExpectRefused();
    EXPECT_EQ(Messages(),
              std::vector<std::string>{"3 Could not read installed version from disk /dev/vda in "
                                       "directory /mnt/SYS/Versions"})
        << Log();
}

TEST_F(VersionSelection, ALinuxPartitionThatCannotBeMountedDoesNotStopTheStep)
{
    Layout(SeveralVersions, false);
    const UnmountablePartition linux(Guest(), 2);
    ASSERT_TRUE(linux.Done()) << linux.Output();
    Run("available 1");
    ASSERT_TRUE(WaitFor(VersionsBottom)) << Screen();
    // Only the DOS side is readable, and no version runs there.
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, FirstMenuRow), VersionRow(true, "12.05.01 (DOS)")) << screen;
    EXPECT_EQ(Row(screen, FirstMenuRow + 1), "") << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 version Vidorama 12.05.01\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"0 Selected version: Vidorama 12.05.01"})
        << Log();
    EXPECT_EQ(Mounts(), "/dev/vda1 /mnt/DOS\n");
}

TEST_F(VersionSelection, ALinuxPartitionThatCannotBeMountedStopsBesideAMountedDosOne)
{
    // The Linux side counts only when the DOS partition was already in place.
    Layout(SeveralVersions, false);
    const UnmountablePartition linux(Guest(), 2);
    ASSERT_TRUE(linux.Done()) << linux.Output();
    RunInGuest("mount -t vfat /dev/vda1 /mnt/DOS");
    Run("available 1");
    ExpectRefused();
    EXPECT_EQ(Messages(),
              std::vector<std::string>{"3 Could not read installed version from disk /dev/vda in "
                                       "directory /mnt/DOS/Versions"})
        << Log();
}

TEST_F(VersionSelection, EveryRunStartsWithoutAChoice)
{
    Layout(SeveralVersions, false);
    Run("available 2");
    ASSERT_TRUE(WaitFor(VersionsBottom)) << Screen();
    Keys({"Enter"});
    ASSERT_TRUE(WaitForLog("0 Selected version: Vidorama 12.06.02.3501")) << Log();
    ASSERT_TRUE(WaitFor(VersionsBottom)) << Screen();
    ASSERT_TRUE(WaitForRow(FirstMenuRow, VersionRow(true, "12.06.02"))) << Screen();
    Keys({"Escape"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 version Vidorama 12.06.02.3501\nrun 0 version none\n");
    EXPECT_EQ(Messages(), (std::vector<std::string>{
                              "0 Selected version: Vidorama 12.06.02.3501",
                              "3 Could not read installed version from disk /dev/vda in directory "
                              "/mnt/SYS/Versions",
                              "3 Could not read installed version from disk /dev/vda in directory "
                              "/mnt/DOS/Versions",
                              "0 No version selected!"}))
        << Log();
}

TEST_F(VersionSelection, AVersionStillRunningAfterASwitchIsOutOfReachLikeTheCurrentOne)
{
    Layout(SeveralVersions, false);
    SetKernelCommandLine(StillRunningNewer);
    Run("available 1");
    ASSERT_TRUE(WaitFor(VersionsBottom)) << Screen();
    const std::string screen = Screen();
    const std::vector<std::string> versions = {"12.06.02", "12.05.01", "12.05.01 (DOS)", "12.04.01",
                                               "11.02.03"};
    for (size_t i = 0; i < versions.size(); ++i)
        EXPECT_EQ(Row(screen, FirstMenuRow + static_cast<int>(i)), VersionRow(i == 0, versions[i]))
            << screen;
    // The running and the current version are greyed; the DOS version and
    // the older ones are not.
    const std::string styled = StyledScreen();
    EXPECT_EQ(ForegroundOf(styled, FirstMenuRow, "Vidorama 12.06.02"), Greyed) << styled;
    EXPECT_EQ(ForegroundOf(styled, FirstMenuRow + 1, "Vidorama 12.05.01"), Greyed) << styled;
    for (int row = FirstMenuRow + 2; row < FirstMenuRow + 5; ++row)
    {
        const int colour = ForegroundOf(styled, row, "Vidorama 1");
        EXPECT_NE(colour, Greyed) << row << "\n" << styled;
        EXPECT_NE(colour, -2) << row << "\n" << styled;
    }

    // Enter takes neither of them.
    ExpectIgnored({"Enter"});
    Keys({"Down"});
    ASSERT_TRUE(WaitForRow(FirstMenuRow + 1, VersionRow(true, "12.05.01"))) << Screen();
    Settle();
    ExpectIgnored({"Enter"});
    EXPECT_EQ(Log(), "");
    Keys({"Down", "Down"});
    ASSERT_TRUE(WaitForRow(FirstMenuRow + 3, VersionRow(true, "12.04.01"))) << Screen();
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 version Vidorama 12.04.01.3000\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"0 Selected version: Vidorama 12.04.01.3000"})
        << Log();
}

TEST_F(VersionSelection, OnlyTheCurrentVersionIsGreyedWhenItIsTheRunningOne)
{
    Layout(SeveralVersions, false);
    SetKernelCommandLine(DiskCmdline);
    Run("available 1");
    ASSERT_TRUE(WaitFor(VersionsBottom)) << Screen();
    const std::string styled = StyledScreen();
    EXPECT_EQ(ForegroundOf(styled, FirstMenuRow + 1, "Vidorama 12.05.01"), Greyed) << styled;
    for (const int row : {FirstMenuRow, FirstMenuRow + 2, FirstMenuRow + 3, FirstMenuRow + 4})
        EXPECT_NE(ForegroundOf(styled, row, "Vidorama 1"), Greyed) << row << "\n" << styled;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 version Vidorama 12.06.02.3501\n");
}

// ---------------------------------------------------------------------------
// The DOS configuration lines.

class ConfigurationLines : public VersionStepsSuite
{
protected:
    static void SetUpTestSuite() { StartWithDisk(); }

    // Configuration lines, and files beside them that are not: "-" is not a
    // word character, and the name must end in ".lin".
    static std::string SetupFiles()
    {
        return "mkdir -p " + SetupDirectory + "/old " + SetupDirectory + "/sub && cd " +
               SetupDirectory +
               " && touch video.lin Studio_2.lin a-b.lin x.lin.bak keep.txt old/deep.lin "
               "sub/inner.lin sub/notes.txt && cd / && ";
    }

    std::string SetupListing() { return OnDisk("cd " + SetupDirectory + " && find . | sort"); }
};

const std::string AllSetupFiles = ".\n./Studio_2.lin\n./a-b.lin\n./keep.txt\n./old\n"
                                  "./old/deep.lin\n./sub\n./sub/inner.lin\n./sub/notes.txt\n"
                                  "./video.lin\n./x.lin.bak\n";

TEST_F(ConfigurationLines, NoKeepsEveryFileWithoutAPrompt)
{
    Layout(SetupFiles(), false);
    Run("lines");
    ASSERT_TRUE(WaitFor(LinesQuestion)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Clear configuration lines")) << screen;
    EXPECT_EQ(Row(screen, 3), ContentRow(LinesQuestion, 3)) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "") << screen;
    ExpectIgnored({"x", "Enter", "Escape"});
    Keys({"n"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"0 Cancel clear configuration lines"}) << Log();
    EXPECT_EQ(SetupListing(), AllSetupFiles);
}

TEST_F(ConfigurationLines, YesDeletesOnlyTheConfigurationLines)
{
    Layout(SetupFiles(), false);
    Run("lines");
    ASSERT_TRUE(WaitFor(LinesQuestion)) << Screen();
    Keys({"Y"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1\n");
    EXPECT_EQ(Log(), "");
    // The step mounted the DOS partition, and only that one.
    EXPECT_EQ(Mounts(), "/dev/vda1 /mnt/DOS\n");
    // A directory left empty goes; one that keeps a file stays.
    EXPECT_EQ(SetupListing(), ".\n./a-b.lin\n./keep.txt\n./sub\n./sub/notes.txt\n./x.lin.bak\n");
}

TEST_F(ConfigurationLines, TheDosSidesUpperCaseNamesAreClearedToo)
{
    // The DOS side writes upper-case 8.3 names, which a FAT mount shows as
    // they are stored; a long name keeps its mixed case. On FAT "video.lin"
    // and "VIDEO.LIN" would be one file, hence the other names.
    Layout(DosSystem + "mkdir -p " + SetupDirectory + "/SUB && cd " + SetupDirectory +
               " && touch CAM3.LIN video.lin Studio.Lin keep.txt lan-3.lin x.lin.bak "
               "LAN-4.LIN SUB/CAM5.LIN SUB/NOTES.TXT && cd / && ",
           false);
    ASSERT_EQ(SetupListing(), ".\n./CAM3.LIN\n./LAN-4.LIN\n./SUB\n./SUB/CAM5.LIN\n./SUB/NOTES.TXT\n"
                              "./Studio.Lin\n./keep.txt\n./lan-3.lin\n./video.lin\n./x.lin.bak\n");
    Run("lines");
    ASSERT_TRUE(WaitFor(LinesQuestion)) << Screen();
    Keys({"y"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1\n");
    EXPECT_EQ(Log(), "");
    EXPECT_EQ(SetupListing(),
              ".\n./LAN-4.LIN\n./SUB\n./SUB/NOTES.TXT\n./keep.txt\n./lan-3.lin\n./x.lin.bak\n");
    EXPECT_EQ(OnDisk("ls /mnt/DOS"), "COMMAND.COM\nIO.SYS\nMSDOS.SYS\nVersions\ndorim\n");
}

TEST_F(ConfigurationLines, AnotherDosSideLeftOnTheMountPointIsReleasedNotCleaned)
{
    // What an earlier operation left on /mnt/DOS: another DOS side (a
    // directory bound there stands for another disk's partition).
    const std::string other = "/tmp/other-dos/DORIM/DATA/SETUP";
    Layout(SetupFiles(), false);
    RunInGuest("mkdir -p " + other + " && touch " + other + "/other.lin " + other +
               "/other.txt && mount --bind /tmp/other-dos /mnt/DOS");
    Run("lines");
    ASSERT_TRUE(WaitFor(LinesQuestion)) << Screen();
    // The question names the disk it acts on.
    EXPECT_EQ(Row(Screen(), 5).rfind("     Disk: /dev/vda Virtio Block Device, ", 0), 0u)
        << Screen();
    Keys({"y"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1\n");
    // The chosen disk's lines went, the other side kept everything.
    EXPECT_EQ(Guest().Run("ls " + other).output, "other.lin\nother.txt\n");
    EXPECT_EQ(Mounts(), "/dev/vda1 /mnt/DOS\n");
    RunInGuest("umount /mnt/DOS");
    EXPECT_EQ(SetupListing(), ".\n./a-b.lin\n./keep.txt\n./sub\n./sub/notes.txt\n./x.lin.bak\n");
}

TEST_F(ConfigurationLines, AMountPointHeldByAnotherDiskStopsBeforeAnythingIsDeleted)
{
    const std::string other = "/tmp/busy-dos/DORIM/DATA/SETUP";
    Layout(SetupFiles(), false);
    // A process working inside keeps the other side busy.
    RunInGuest("mkdir -p " + other + " && touch " + other +
               "/other.lin && mount --bind /tmp/busy-dos /mnt/DOS && "
               "(cd /mnt/DOS && sleep 600 </dev/null >/dev/null 2>&1 &)");
    Run("lines");
    ASSERT_TRUE(WaitFor(LinesQuestion)) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor(FailureBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 4), ContentRow("Error deleting configuration lines!", 3)) << screen;
    EXPECT_NE(Row(screen, 7).find("/mnt/DOS is held by "), std::string::npos) << screen;
    EXPECT_NE(Row(screen, 7).find(", not by /dev/vda: it cannot be released."), std::string::npos)
        << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    RunInGuest("pkill -x sleep; sleep 1; umount /mnt/DOS");
    EXPECT_EQ(Result(), "run 0\n");
    const auto messages = Messages();
    ASSERT_EQ(messages.size(), 2u) << Log();
    EXPECT_EQ(messages[0].rfind("3 /mnt/DOS is held by ", 0), 0u) << Log();
    EXPECT_EQ(messages[1], "0 Error deleting configuration lines") << Log();
    // Nothing deleted anywhere.
    EXPECT_EQ(Guest().Run("ls " + other).output, "other.lin\n");
    EXPECT_EQ(SetupListing(), AllSetupFiles);
}

TEST_F(ConfigurationLines, NoSetupDirectoryGivesTheTwoFailureTexts)
{
    Layout(DosSystem, false);
    Run("lines");
    ASSERT_TRUE(WaitFor(LinesQuestion)) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor(FailureBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 3), ContentRow(LinesQuestion, 3)) << screen;
    EXPECT_EQ(Row(screen, 4), ContentRow("Error deleting configuration lines!", 3)) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  " + FailureBottom) << screen;
    ExpectIgnored({"Escape", "y", "n"});
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_EQ(Messages(), (std::vector<std::string>{"3 Error cleaning configuration lines",
                                                    "0 Error deleting configuration lines"}))
        << Log();
    EXPECT_EQ(OnDisk("ls /mnt/DOS"), "COMMAND.COM\nIO.SYS\nMSDOS.SYS\nVersions\n");
}

TEST_F(ConfigurationLines, AnUnmountableDosPartitionIsOnlyShown)
{
    Layout(SetupFiles(), false);
    {
        const UnmountablePartition dos(Guest(), 1);
        ASSERT_TRUE(dos.Done()) << dos.Output();
        Run("lines");
        ASSERT_TRUE(WaitFor(LinesQuestion)) << Screen();
        Keys({"y"});
        ASSERT_TRUE(WaitFor(FailureBottom)) << Screen();
        EXPECT_EQ(Row(Screen(), 4), ContentRow("Error deleting configuration lines!", 3))
            << Screen();
        Keys({"Enter"});
        ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    }
    EXPECT_EQ(Result(), "run 0\n");
    // The mount failure has no line of its own.
    EXPECT_EQ(Messages(), std::vector<std::string>{"0 Error deleting configuration lines"})
        << Log();
    EXPECT_EQ(SetupListing(), AllSetupFiles);
}

// ---------------------------------------------------------------------------
// The removal of versions. The version selection leaves both partitions
// mounted, and so does every layout here.

class RemoveVersion : public VersionStepsSuite
{
protected:
    static void SetUpTestSuite() { StartWithDisk(); }

    std::string Installed()
    {
        return OnDisk("ls -A " + SysVersions + "; echo --; ls -A " + DosVersions);
    }
};

const std::string AllInstalled =
    "11.02.03.77\n12.04.01.3000\n12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n--\n120501\n";

TEST_F(RemoveVersion, TheRunningVersionIsNeverRemoved)
{
    Layout(SeveralVersions, true);
    Run("remove 12.05.01.3456");
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Remove version")) << screen;
    EXPECT_EQ(Row(screen, 2), ContentRow("   The current version cannot be removed!", 0)) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  " + RemoveBottom) << screen;
    ExpectIgnored({"Escape", "y"});
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 version Vidorama 12.05.01.3456\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"3 The current version cannot be removed!"})
        << Log();
    EXPECT_EQ(Installed(), AllInstalled);
}

TEST_F(RemoveVersion, OneVersionIsRemovedAndForgotten)
{
    Layout(SeveralVersions, true);
    Run("remove 12.04.01.3000");
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 3), ContentRow("   Remove version 12.04.01 succeed!", 0)) << screen;
    EXPECT_EQ(screen.find("(y/n)"), std::string::npos) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 version none\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"0 Remove version succeed!"}) << Log();
    EXPECT_EQ(Installed(),
              "11.02.03.77\n12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n--\n120501\n");
}

TEST_F(RemoveVersion, RemovingAllAsksOnceAndKeepsTheRunningVersion)
{
    Layout(LinuxVersion(Running, true) + LinuxVersion("12.06.02.3501", true) +
               DosVersion("120501") + CurrentVersion(Running),
           true);
    Run("remove all");
    ASSERT_TRUE(WaitFor("continue ? (y/n)")) << Screen();
    EXPECT_EQ(Row(Screen(), 3), ContentRow(RemoveAllQuestion, 0)) << Screen();
    // The question names the disk it acts on, on the row above it.
    EXPECT_EQ(Row(Screen(), 2).rfind("     Disk: /dev/vda Virtio Block Device, ", 0), 0u)
        << Screen();
    EXPECT_EQ(Row(Screen(), BottomRow), "  <ESC> return to main menu") << Screen();
    ExpectIgnored({"x", "Enter", "Escape"});
    Keys({"y"});
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Count(screen, "(y/n)"), 1u) << screen;
    // One line for each removed version, in list order, one below the other;
    // the running one is passed over without a word.
    EXPECT_EQ(Row(screen, 5), ContentRow("   Remove version 12.06.02 succeed!", 0)) << screen;
    EXPECT_EQ(Row(screen, 6), ContentRow("   Remove version 12.05.01 succeed!", 0)) << screen;
    EXPECT_EQ(Count(screen, "Remove version 1"), 2u) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 version none\n");
    EXPECT_EQ(Messages(),
              (std::vector<std::string>{"0 Remove version succeed!", "0 Remove version succeed!"}))
        << Log();
    EXPECT_EQ(Installed(), "12.05.01.3456\nboot\ncurrent\n--\n");
}

// Another disk's partitions left on the mount points by an earlier operation
// (directories bound there stand for them): "remove all" puts the chosen
// disk's own partitions in their place and removes only its versions.
TEST_F(RemoveVersion, AnotherDisksVersionsLeftOnTheMountPointsAreNeverRemoved)
{
    Layout(LinuxVersion(Running, true) + LinuxVersion("12.06.02.3501", true) +
               CurrentVersion(Running),
           false);
    RunInGuest("mkdir -p /tmp/other-sys/Versions/11.01.01.1 /tmp/other-dos/Versions/110101 && "
               "printf '{\"name\": \"Vidorama\", \"version\": \"11.01.01\", "
               "\"revision\": \"1\"}' > /tmp/other-sys/Versions/11.01.01.1/Version.json && "
               "mount --bind /tmp/other-sys /mnt/SYS && mount --bind /tmp/other-dos /mnt/DOS");
    Run("remove all");
    ASSERT_TRUE(WaitFor("continue ? (y/n)")) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(screen.find("   Remove version 12.06.02 succeed!"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("11.01.01"), std::string::npos) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 version none\n");
    EXPECT_EQ(Mounts(), "/dev/vda2 /mnt/SYS\n/dev/vda1 /mnt/DOS\n");
    EXPECT_EQ(Installed(), "12.05.01.3456\nboot\ncurrent\n--\n");
    // The other disk kept everything.
    EXPECT_EQ(Guest().Run("ls /tmp/other-sys/Versions /tmp/other-dos/Versions").output,
              "/tmp/other-dos/Versions:\n110101\n\n/tmp/other-sys/Versions:\n11.01.01.1\n");
}

// A mount point that another disk keeps busy stops the removal before
// anything is removed, and says who holds it.
TEST_F(RemoveVersion, AMountPointHeldByAnotherDiskStopsTheRemoval)
{
    Layout(LinuxVersion(Running, true) + LinuxVersion("12.06.02.3501", true) +
               CurrentVersion(Running),
           false);
    RunInGuest("mkdir -p /tmp/busy-sys/Versions && mount --bind /tmp/busy-sys /mnt/SYS && "
               "(cd /mnt/SYS && sleep 600 </dev/null >/dev/null 2>&1 &)");
    Run("remove all");
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(screen.find("   /mnt/SYS is held by "), std::string::npos) << screen;
    EXPECT_NE(screen.find(", not by /dev/vda: it cannot be released."), std::string::npos)
        << screen;
    EXPECT_EQ(screen.find("(y/n)"), std::string::npos) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    RunInGuest("pkill -x sleep; sleep 1; umount /mnt/SYS; umount /mnt/DOS 2>/dev/null; true");
    EXPECT_EQ(Result(), "run 0 version none\n");
    const auto messages = Messages();
    ASSERT_EQ(messages.size(), 1u) << Log();
    EXPECT_EQ(messages[0].rfind("3 /mnt/SYS is held by ", 0), 0u) << Log();
    EXPECT_EQ(Installed(), "12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n--\n");
}

TEST_F(RemoveVersion, OnlyTheRunningVersionLeavesNothingToAsk)
{
    Layout(LinuxVersion(Running, true) + CurrentVersion(Running), true);
    Run("remove all");
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 3), ContentRow("   No unused version to be removed!", 0)) << screen;
    EXPECT_EQ(screen.find("(y/n)"), std::string::npos) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 version none\n");
    EXPECT_EQ(Log(), "");
    EXPECT_EQ(Installed(), "12.05.01.3456\nboot\ncurrent\n--\n");
}

TEST_F(RemoveVersion, NoToRemovingAllRemovesNothing)
{
    Layout(SeveralVersions, true);
    Run("remove all");
    ASSERT_TRUE(WaitFor("continue ? (y/n)")) << Screen();
    Keys({"N"});
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    EXPECT_EQ(Screen().find("Remove version "), std::string::npos) << Screen();
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 version none\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"0 Cancel remove all version"}) << Log();
    EXPECT_EQ(Installed(), AllInstalled);
}

TEST_F(RemoveVersion, AFailedRemovalIsHeldAndTriedAloneAgain)
{
    Layout(SeveralVersions, true);
    ImmutableFile locked(Guest(), SysVersions + "/12.04.01.3000/bin/server");
    ASSERT_TRUE(locked.Done());
    Run("remove 12.04.01.3000 then-all");
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    std::string screen = Screen();
    EXPECT_NE(RowOf(screen, ContentRow("   Remove version 12.04.01 failed!", 0)), -1) << screen;
    ASSERT_TRUE(WaitForLog("3 Remove version failed!")) << Log();
    EXPECT_EQ(OnDisk("ls -A " + SysVersions + "/12.04.01.3000"), "bin\n");

    // The next run still holds the version: it is tried again, alone, and
    // without the question of the all-versions path.
    locked.Release();
    Keys({"Enter"});
    ASSERT_TRUE(WaitForLog("0 Remove version succeed!")) << Log();
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    screen = Screen();
    EXPECT_EQ(Row(screen, 3), ContentRow("   Remove version 12.04.01 succeed!", 0)) << screen;
    EXPECT_EQ(screen.find("(y/n)"), std::string::npos) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 version Vidorama 12.04.01.3000\nrun 1 version none\n");
    EXPECT_EQ(Messages(),
              (std::vector<std::string>{"3 Remove version failed!", "0 Remove version succeed!"}))
        << Log();
    EXPECT_EQ(Installed(),
              "11.02.03.77\n12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n--\n120501\n");
}

TEST_F(RemoveVersion, AFailureAmongAllIsReportedAndTheOthersStillGo)
{
    Layout(SeveralVersions, true);
    const ImmutableFile locked(Guest(), SysVersions + "/12.06.02.3501/bin/server");
    ASSERT_TRUE(locked.Done());
    Run("remove all");
    ASSERT_TRUE(WaitFor("continue ? (y/n)")) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(RowOf(screen, ContentRow("   Remove version 12.06.02 failed!", 0)), -1) << screen;
    EXPECT_NE(RowOf(screen, ContentRow("   Remove version 12.05.01 succeed!", 0)), -1) << screen;
    EXPECT_NE(RowOf(screen, ContentRow("   Remove version 12.04.01 succeed!", 0)), -1) << screen;
    EXPECT_NE(RowOf(screen, ContentRow("   Remove version 11.02.03 succeed!", 0)), -1) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 version none\n");
    EXPECT_EQ(Messages(),
              (std::vector<std::string>{"3 Remove version failed!", "0 Remove version succeed!",
                                        "0 Remove version succeed!", "0 Remove version succeed!"}))
        << Log();
    EXPECT_EQ(Installed(), "12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n--\n");
}

TEST_F(RemoveVersion, AfterASuccessfulRemovalTheNextRunRemovesAllUnused)
{
    Layout(SeveralVersions, true);
    Run("remove 12.04.01.3000 then-all");
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    EXPECT_EQ(Row(Screen(), 3), ContentRow("   Remove version 12.04.01 succeed!", 0)) << Screen();
    Keys({"Enter"});
    ASSERT_TRUE(WaitFor("continue ? (y/n)")) << Screen();
    EXPECT_EQ(Row(Screen(), 3), ContentRow(RemoveAllQuestion, 0)) << Screen();
    EXPECT_EQ(Row(Screen(), 2).rfind("     Disk: /dev/vda Virtio Block Device, ", 0), 0u)
        << Screen();
    // The step keeps the bottom text its first run ended with.
    EXPECT_EQ(Row(Screen(), BottomRow), "  " + RemoveBottom) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor("Remove version 11.02.03")) << Screen();
    ASSERT_TRUE(WaitGone("in progress")) << Screen();
    Settle();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 5), ContentRow("   Remove version 12.06.02 succeed!", 0)) << screen;
    EXPECT_EQ(Row(screen, 6), ContentRow("   Remove version 12.05.01 succeed!", 0)) << screen;
    EXPECT_EQ(Row(screen, 7), ContentRow("   Remove version 11.02.03 succeed!", 0)) << screen;
    EXPECT_EQ(Row(screen, 8), "") << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 version none\nrun 1 version none\n");
    EXPECT_EQ(Messages(), std::vector<std::string>(4, "0 Remove version succeed!")) << Log();
    EXPECT_EQ(Installed(), "12.05.01.3456\nboot\ncurrent\n--\n");
}

TEST_F(RemoveVersion, AVersionStillRunningAfterASwitchIsNotRemoved)
{
    Layout(SeveralVersions, true);
    SetKernelCommandLine(StillRunningNewer);
    Run("remove 12.06.02.3501");
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 2), ContentRow("   The running version cannot be removed!", 0)) << screen;
    EXPECT_EQ(screen.find("Remove version 1"), std::string::npos) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 version Vidorama 12.06.02.3501\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"3 The running version cannot be removed!"})
        << Log();
    EXPECT_EQ(Installed(), AllInstalled);
}

TEST_F(RemoveVersion, RemovingAllKeepsTheRunningAndTheCurrentVersion)
{
    Layout(SeveralVersions, true);
    SetKernelCommandLine(StillRunningNewer);
    Run("remove all");
    ASSERT_TRUE(WaitFor("continue ? (y/n)")) << Screen();
    Keys({"y"});
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    ASSERT_TRUE(WaitGone("in progress")) << Screen();
    Settle();
    const std::string screen = Screen();
    // The DOS version and the two older ones, in list order; neither the
    // running nor the current version has a line.
    EXPECT_EQ(Row(screen, 5), ContentRow("   Remove version 12.05.01 succeed!", 0)) << screen;
    EXPECT_EQ(Row(screen, 6), ContentRow("   Remove version 12.04.01 succeed!", 0)) << screen;
    EXPECT_EQ(Row(screen, 7), ContentRow("   Remove version 11.02.03 succeed!", 0)) << screen;
    EXPECT_EQ(Row(screen, 8), "") << screen;
    EXPECT_EQ(screen.find("12.06.02"), std::string::npos) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 1 version none\n");
    EXPECT_EQ(Messages(), std::vector<std::string>(3, "0 Remove version succeed!")) << Log();
    EXPECT_EQ(Installed(), "12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n--\n");
    EXPECT_EQ(OnDisk("readlink " + SysVersions + "/current"), SysVersions + "/" + Running + "\n");
}

TEST_F(RemoveVersion, OnlyTheRunningAndTheCurrentVersionLeaveNothingToAsk)
{
    Layout(LinuxVersion(Running, true) + LinuxVersion("12.06.02.3501", true) +
               CurrentVersion(Running),
           true);
    SetKernelCommandLine(StillRunningNewer);
    Run("remove all");
    ASSERT_TRUE(WaitFor(RemoveBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 3), ContentRow("   No unused version to be removed!", 0)) << screen;
    EXPECT_EQ(screen.find("(y/n)"), std::string::npos) << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0 version none\n");
    EXPECT_EQ(Log(), "");
    EXPECT_EQ(Installed(), "12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n--\n");
}

// ---------------------------------------------------------------------------
// The change of the current version, to a Linux version. The last test
// restarts the machine.

const std::string ChangeFailedBottom = "<ENTER> to exit";
const std::string RebootBottom = "<ENTER> to reboot";

class ChangeLinuxVersion : public VersionStepsSuite
{
protected:
    static void SetUpTestSuite() { StartWithDisk(); }

    // Where "current" points and what the top-level configuration says.
    std::string BootState()
    {
        return OnDisk("readlink " + SysVersions + "/current; cat " + SysVersions +
                      "/boot/syslinux/syslinux.cfg");
    }

    std::string Events() const { return Guest().ReadIoFile("events"); }
};

TEST_F(ChangeLinuxVersion, WithoutAVersionNothingIsTried)
{
    Layout(SeveralVersions, true);
    Run("change none");
    ASSERT_EQ(WaitExit(10).value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_EQ(Log(), "");

    // The message, seen with the frame held open after it: no pop-up, no
    // bottom text.
    Run("change none hold");
    ASSERT_TRUE(WaitFor("No disk or available version selected !")) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Change version")) << screen;
    EXPECT_EQ(Row(screen, 5), ContentRow("No disk or available version selected !", 3)) << screen;
    EXPECT_EQ(screen.find("in progress"), std::string::npos) << screen;
    EXPECT_EQ(Row(screen, BottomRow), "") << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_EQ(Log(), "");
    EXPECT_EQ(BootState(), SysVersions + "/" + Running + "\n" + TopLevelConfiguration(Running));
    EXPECT_EQ(Events(), "");
}

TEST_F(ChangeLinuxVersion, SwitchingToTheRunningVersionFails)
{
    Layout(SeveralVersions, true);
    Run("change " + Running);
    ASSERT_TRUE(WaitFor(ChangeFailedBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Change version")) << screen;
    EXPECT_NE(RowOf(screen, ContentRow("Change current version to 12.05.01 failed!", 0)), -1)
        << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  " + ChangeFailedBottom) << screen;
    EXPECT_EQ(screen.find("in progress"), std::string::npos) << screen;
    ExpectIgnored({"Escape", "y"});
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_FALSE(Guest().WaitEnded(0));
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"3 Change current version failed!"}) << Log();
    EXPECT_EQ(BootState(), SysVersions + "/" + Running + "\n" + TopLevelConfiguration(Running));
    EXPECT_EQ(Events(), "");
}

TEST_F(ChangeLinuxVersion, WithoutTheTopLevelBootDirectoryTheSwitchFails)
{
    Layout(SeveralVersions + "rm -rf " + SysVersions + "/boot && ", true);
    Run("change 12.04.01.3000");
    ASSERT_TRUE(WaitFor(ChangeFailedBottom)) << Screen();
    EXPECT_NE(RowOf(Screen(), ContentRow("Change current version to 12.04.01 failed!", 0)), -1)
        << Screen();
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_FALSE(Guest().WaitEnded(0));
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"3 Change current version failed!"}) << Log();
    EXPECT_EQ(OnDisk("readlink " + SysVersions + "/current; ls -A " + SysVersions),
              SysVersions + "/" + Running +
                  "\n11.02.03.77\n12.04.01.3000\n12.05.01.3456\n12.06.02.3501\ncurrent\n");
    EXPECT_EQ(Events(), "");
}

TEST_F(ChangeLinuxVersion, AFailingExtlinuxPutsTheBootConfigurationBack)
{
    // A directory where extlinux writes its loader: extlinux fails after the
    // new configuration was written.
    Layout(SeveralVersions + "mkdir -p " + SysVersions + "/boot/syslinux/ldlinux.sys && ", true);
    Run("change 12.04.01.3000 hold");
    ASSERT_TRUE(WaitFor(ChangeFailedBottom)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Change version")) << screen;
    const int putBack =
        RowOf(screen, ContentRow("The previous boot configuration was put back.", 0));
    EXPECT_NE(putBack, -1) << screen;
    EXPECT_EQ(RowOf(screen, ContentRow("Change current version to 12.04.01 failed!", 0)),
              putBack + 2)
        << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  " + ChangeFailedBottom) << screen;
    EXPECT_EQ(screen.find("in progress"), std::string::npos) << screen;
    Keys({"Enter"});
    Settle();
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_FALSE(Guest().WaitEnded(0));
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"3 Change current version failed!"}) << Log();
    EXPECT_EQ(BootState(), SysVersions + "/" + Running + "\n" + TopLevelConfiguration(Running));
    EXPECT_EQ(OnDisk("ls -A " + SysVersions + "/boot/syslinux"), "ldlinux.sys\nsyslinux.cfg\n");
    EXPECT_EQ(Events(), "");
}

TEST_F(ChangeLinuxVersion, AFailingLinkPutsTheBootConfigurationBack)
{
    // The versions directory takes no new entry: ln fails after extlinux ran.
    Layout(SeveralVersions, true);
    ImmutableFile locked(Guest(), SysVersions);
    ASSERT_TRUE(locked.Done());
    Run("change 12.04.01.3000");
    ASSERT_TRUE(WaitFor(ChangeFailedBottom, 120)) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(RowOf(screen, ContentRow("The previous boot configuration was put back.", 0)), -1)
        << screen;
    EXPECT_NE(RowOf(screen, ContentRow("Change current version to 12.04.01 failed!", 0)), -1)
        << screen;
    Keys({"Enter"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    locked.Release();
    EXPECT_FALSE(Guest().WaitEnded(0));
    EXPECT_EQ(Result(), "run 0\n");
    EXPECT_EQ(Messages(), std::vector<std::string>{"3 Change current version failed!"}) << Log();
    EXPECT_EQ(BootState(), SysVersions + "/" + Running + "\n" + TopLevelConfiguration(Running));
    EXPECT_EQ(OnDisk("ls -A " + SysVersions),
              "11.02.03.77\n12.04.01.3000\n12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n");
    EXPECT_EQ(Events(), "");
}

TEST_F(ChangeLinuxVersion, ALinuxSwitchRestartsIntoTheChosenVersion)
{
    // Syslinux on the DOS partition, whose default entry is changed.
    Layout(SeveralVersions + "mkdir -p /mnt/DOS/boot/syslinux && ", true);
    Run("change 12.04.01.3000");
    ASSERT_TRUE(WaitFor(RebootBottom, 120)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, TitleRow), Centered("Change version")) << screen;
    EXPECT_NE(RowOf(screen, ContentRow("Change current version to 12.04.01 succeed!", 0)), -1)
        << screen;
    EXPECT_EQ(Row(screen, BottomRow), "  " + RebootBottom) << screen;
    EXPECT_EQ(screen.find("in progress"), std::string::npos) << screen;
    EXPECT_EQ(Messages(), std::vector<std::string>{"0 Change current version succeed!"}) << Log();
    // Only Enter restarts.
    Keys({"Escape", "y"});
    Settle();
    EXPECT_FALSE(Guest().WaitEnded(2)) << "only Enter restarts";
    Keys({"Enter"});
    ASSERT_TRUE(Guest().WaitEnded(120)) << Screen();
    EXPECT_EQ(Guest().Outcome(), "reboot");
    // The default entry was changed: a success is not logged.
    EXPECT_EQ(Messages(), std::vector<std::string>{"0 Change current version succeed!"}) << Log();
    EXPECT_EQ(Lines(Guest().ReadIoFile("events")),
              std::vector<std::string>{"syslinux --update --menu-save=VidoramaLinux "
                                       "--once=VidoramaLinux -d /boot/syslinux /dev/vda1"});

    const std::string outside = Inspect(
        "readlink " + SysVersions + "/current; cat " + SysVersions +
        "/boot/syslinux/syslinux.cfg; test -f " + SysVersions +
        "/boot/syslinux/ldlinux.sys && echo extlinux; ls " + SysVersions +
        "; tail -c 1024 /mnt/DOS/boot/syslinux/ldlinux.sys | head -c 512 | tr -c 'A-Za-z' '\\n' "
        "| grep Vidorama");
    EXPECT_EQ(outside, SysVersions + "/12.04.01.3000\n" + TopLevelConfiguration("12.04.01.3000") +
                           "extlinux\n11.02.03.77\n12.04.01.3000\n12.05.01.3456\n12.06.02.3501\n"
                           "boot\ncurrent\nVidoramaLinux\nVidoramaLinux\n");
}

} // namespace
