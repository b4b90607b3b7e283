// The boot loader operations for real, inside the sandbox guest, on the
// scratch disk /dev/vda (a fresh sparse image of 64 MiB) laid out once for
// the whole run like the appliance's disk: partition 1 FAT16, partition 2
// ext4. syslinux there is the sandbox's stand-in, which appends every call
// to /io/events before doing the work with Debian's installer; extlinux is
// Debian's own. The modules and mbr.bin are in /usr/share/syslinux.
#include "BootLoader.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <csignal>
#include <mntent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using Kel::Vidorama::InstallerLib::BootLoader;
namespace fs = std::filesystem;

namespace
{

constexpr const char* Disk = "/dev/vda";
constexpr const char* DosPartition = "/dev/vda1";
constexpr const char* LinuxPartition = "/dev/vda2";
constexpr long long DiskSectors = 64LL * 1024 * 1024 / 512;
constexpr const char* DosMount = "/mnt/DOS";
constexpr const char* LinuxMount = "/mnt/SYS";
constexpr const char* ElsewhereMount = "/mnt/bootloader-elsewhere";
constexpr const char* SyslinuxDirectory = "/boot/syslinux";
constexpr const char* ModulesDirectory = "/usr/share/syslinux";
constexpr const char* MbrCode = "/usr/share/syslinux/mbr.bin";
constexpr const char* Events = "/io/events";
constexpr const char* Work = "/tmp/bootloader-guest";

const std::vector<std::string> Modules = {
    "hdt.c32",  "chain.c32",    "ldlinux.c32", "libcom32.c32", "libgpl.c32",   "libmenu.c32",
    "menu.c32", "poweroff.c32", "reboot.c32",  "libutil.c32",  "vesamenu.c32",
};

bool InSandbox()
{
    char cwd[64] = {};
    return getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work";
}

struct ShellResult
{
    int status = -1;
    std::string output;
};

ShellResult Shell(const std::string& command)
{
    ShellResult result;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr)
        return result;
    std::array<char, 4096> buffer;
    size_t count = 0;
    while ((count = fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        result.output.append(buffer.data(), count);
    result.status = pclose(pipe);
    return result;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// The first bytes of a device or file, read independently of the code under test.
std::string Head(const std::string& path, size_t size)
{
    std::ifstream in(path, std::ios::binary);
    std::string bytes(size, '\0');
    in.read(&bytes[0], static_cast<std::streamsize>(size));
    bytes.resize(static_cast<size_t>(in.gcount()));
    return bytes;
}

long long DeviceSectors()
{
    return std::atoll(ReadFile("/sys/block/vda/size").c_str());
}

bool IsBlockDevice(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode);
}

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

struct MountEntry
{
    std::string source;
    std::string directory;
};

std::vector<MountEntry> Mounts()
{
    std::vector<MountEntry> mounts;
    FILE* file = setmntent("/proc/self/mounts", "r");
    if (file == nullptr)
        return mounts;
    while (const mntent* entry = getmntent(file))
        mounts.push_back({entry->mnt_fsname, entry->mnt_dir});
    endmntent(file);
    return mounts;
}

// Where the partition is mounted, in mount order.
std::vector<std::string> MountsOf(const std::string& partition)
{
    std::vector<std::string> directories;
    for (const MountEntry& mount : Mounts())
    {
        if (mount.source == partition)
            directories.push_back(mount.directory);
    }
    return directories;
}

// Everything of the scratch disk that is still mounted goes, latest first.
void UnmountScratchDisk()
{
    std::vector<MountEntry> mounts = Mounts();
    for (auto mount = mounts.rbegin(); mount != mounts.rend(); ++mount)
    {
        if (mount->source.rfind(Disk, 0) == 0)
            umount2(mount->directory.c_str(), MNT_DETACH);
    }
}

// Leaves no mount of the scratch disk behind, whatever way the test ends.
class ScratchMounts
{
public:
    ScratchMounts() = default;
    ~ScratchMounts()
    {
        if (InSandbox())
            UnmountScratchDisk();
    }
    ScratchMounts(const ScratchMounts&) = delete;
    ScratchMounts& operator=(const ScratchMounts&) = delete;

    static bool Mount(const char* partition, const char* directory, const char* type)
    {
        return mount(partition, directory, type, 0, "") == 0;
    }
};

// A process whose working directory is inside a mount keeps that mount busy:
// umount(2) then fails with EBUSY. Killed and reaped at the end.
class BusyDirectory
{
public:
    explicit BusyDirectory(const std::string& directory)
    {
        _pid = fork();
        if (_pid == 0)
        {
            if (chdir(directory.c_str()) == 0)
                execlp("sleep", "sleep", "60", static_cast<char*>(nullptr));
            _exit(127);
        }
        // Busy only once the child sits in the directory.
        const std::string cwdLink = "/proc/" + std::to_string(_pid) + "/cwd";
        for (int attempt = 0; _pid > 0 && attempt < 500; ++attempt)
        {
            std::error_code error;
            if (fs::read_symlink(cwdLink, error) == fs::path(directory))
            {
                _busy = true;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    ~BusyDirectory()
    {
        if (_pid > 0)
        {
            kill(_pid, SIGKILL);
            waitpid(_pid, nullptr, 0);
        }
    }
    BusyDirectory(const BusyDirectory&) = delete;
    BusyDirectory& operator=(const BusyDirectory&) = delete;

    bool IsBusy() const { return _busy; }

private:
    pid_t _pid = -1;
    bool _busy = false;
};

// The lines that the syslinux stand-in records from now on.
class EventsSince
{
public:
    EventsSince() : _seen(Lines(ReadFile(Events)).size()) {}
    std::vector<std::string> New() const
    {
        const std::vector<std::string> all = Lines(ReadFile(Events));
        if (all.size() <= _seen)
            return {};
        return std::vector<std::string>(all.begin() + static_cast<std::ptrdiff_t>(_seen),
                                        all.end());
    }

private:
    size_t _seen;
};

// The boot-once and saved menu entries of syslinux's auxiliary data, the
// last two sectors of ldlinux.sys (the first of the two copies is read).
std::map<int, std::string> AuxiliaryData(const std::string& ldlinux)
{
    std::map<int, std::string> tags;
    const std::string file = ReadFile(ldlinux);
    if (file.size() < 1024)
        return tags;
    const std::string adv = file.substr(file.size() - 1024, 512);
    const std::string magicHead("\xa5\x2f\x2d\x5a", 4);
    const std::string magicTail("\x64\xbf\x28\xdd", 4);
    if (adv.compare(0, 4, magicHead) != 0 || adv.compare(508, 4, magicTail) != 0)
        return tags;
    for (size_t position = 8; position + 2 <= 508;)
    {
        const int tag = static_cast<unsigned char>(adv[position]);
        const size_t length = static_cast<unsigned char>(adv[position + 1]);
        if (tag == 0 || position + 2 + length > 508)
            break;
        tags[tag] = adv.substr(position + 2, length);
        position += 2 + length;
    }
    return tags;
}
constexpr int BootOnceTag = 1;
constexpr int MenuSaveTag = 2;

// Once per run: the disk's table, both file systems, and the files to install.
class BootLoaderInGuest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        // Never anywhere but in the guest, and never on a disk that is not
        // the scratch image.
        if (!InSandbox() || DeviceSectors() != DiskSectors)
            return;
        const ShellResult layout =
            Shell(std::string("parted -s ") + Disk +
                  " mklabel msdos mkpart primary fat16 1MiB 32MiB mkpart primary ext4 32MiB 100%"
                  " && udevadm settle");
        _setupOutput = layout.output;
        if (layout.status != 0)
            return;
        for (int attempt = 0; attempt < 100; ++attempt)
        {
            if (IsBlockDevice(DosPartition) && IsBlockDevice(LinuxPartition))
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        const ShellResult format = Shell(std::string("mkfs.fat -F 16 -n DOS ") + DosPartition +
                                         " && mkfs.ext4 -q -F -L LINUX " + LinuxPartition);
        _setupOutput += format.output;
        if (format.status != 0)
            return;

        for (const char* directory : {Work, DosMount, LinuxMount, ElsewhereMount})
        {
            std::error_code error;
            fs::create_directories(directory, error);
            if (!fs::is_directory(directory))
            {
                _setupOutput += std::string("cannot make ") + directory + "\n";
                return;
            }
        }
        WriteFile(ConfigFile(), "DEFAULT menu.c32\nPROMPT 0\nMENU BACKGROUND splash.png\n"
                                "LABEL VidoramaLinux\n  COM32 chain.c32\n  APPEND hd0 2\n"
                                "LABEL VidoramaDos\n  COM32 chain.c32\n"
                                "  APPEND hd0 1 file=/boot/syslinux/msdosmbr.bin\n");
        WriteFile(ExtraFile(), std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR splash", 23));
        _prepared = fs::is_regular_file(ConfigFile()) && fs::is_regular_file(ExtraFile());
    }

    void SetUp() override
    {
        ASSERT_TRUE(InSandbox()) << "runs only inside the sandbox guest";
        ASSERT_EQ(DeviceSectors(), DiskSectors) << Disk << " is not the scratch disk";
        ASSERT_TRUE(_prepared) << _setupOutput;
        UnmountScratchDisk();
        ASSERT_TRUE(MountsOf(DosPartition).empty());
        ASSERT_TRUE(MountsOf(LinuxPartition).empty());
    }

    static std::string ConfigFile() { return std::string(Work) + "/syslinux.cfg.prepared"; }
    static std::string ExtraFile() { return std::string(Work) + "/splash.png"; }

    static bool InstallSyslinux(std::ostream& log)
    {
        return BootLoader::InstallSyslinux(Disk, 1, DosMount, SyslinuxDirectory,
                                           ConfigFile().c_str(), ExtraFile().c_str(), log);
    }

    // The installed files as they are found through a mount directory.
    static void ExpectInstalledFiles(const std::string& mountDirectory)
    {
        const std::string directory = mountDirectory + SyslinuxDirectory;
        EXPECT_TRUE(fs::is_regular_file(directory + "/ldlinux.sys")) << directory;
        EXPECT_EQ(ReadFile(directory + "/syslinux.cfg"), ReadFile(ConfigFile()));
        EXPECT_EQ(ReadFile(directory + "/splash.png"), ReadFile(ExtraFile()));
        for (const std::string& module : Modules)
        {
            const std::string copy = ReadFile(directory + "/" + module);
            EXPECT_FALSE(copy.empty()) << module;
            // The installer puts in the ldlinux.c32 of its own build.
            if (module != "ldlinux.c32")
            {
                EXPECT_TRUE(copy == ReadFile(std::string(ModulesDirectory) + "/" + module))
                    << module << " differs from the original";
            }
        }
    }

    ScratchMounts _mounts;

    static bool _prepared;
    static std::string _setupOutput;
};

bool BootLoaderInGuest::_prepared = false;
std::string BootLoaderInGuest::_setupOutput;

} // namespace

// ---- boot records ----------------------------------------------------------

TEST_F(BootLoaderInGuest, BackupMbrSavesThePartitionsBootSector)
{
    const std::string backup = std::string(Work) + "/msdosmbr.bin";
    fs::remove(backup);
    const std::string sector = Head(DosPartition, 512);
    ASSERT_EQ(sector.size(), 512u);
    ASSERT_EQ(sector.substr(54, 5), "FAT16");

    ASSERT_TRUE(BootLoader::BackupMbr(DosPartition, backup.c_str()));
    EXPECT_EQ(ReadFile(backup), sector);
    struct stat status = {};
    ASSERT_EQ(stat(backup.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(BootLoaderInGuest, BackupMbrKeepsTheTailOfALongerFile)
{
    const std::string backup = std::string(Work) + "/longer.bin";
    WriteFile(backup, std::string(2000, 'x'));
    ASSERT_TRUE(BootLoader::BackupMbr(DosPartition, backup.c_str()));
    const std::string saved = ReadFile(backup);
    ASSERT_EQ(saved.size(), 2000u);
    EXPECT_EQ(saved.substr(0, 512), Head(DosPartition, 512));
    EXPECT_EQ(saved.substr(512), std::string(1488, 'x'));
}

TEST_F(BootLoaderInGuest, BackupMbrOnARegularFileCreatesNothing)
{
    const std::string image = std::string(Work) + "/not-a-disk.img";
    const std::string backup = std::string(Work) + "/never.bin";
    WriteFile(image, std::string(4096, '\x11'));
    fs::remove(backup);
    EXPECT_FALSE(BootLoader::BackupMbr(image.c_str(), backup.c_str()));
    EXPECT_FALSE(fs::exists(backup));
}

TEST_F(BootLoaderInGuest, InstallMbrWithAShortFileLeavesTheDiskAlone)
{
    const std::string shortCode = std::string(Work) + "/short.bin";
    WriteFile(shortCode, std::string(439, '\xab'));
    const std::string before = Head(Disk, 4096);
    ASSERT_EQ(before.size(), 4096u);
    EXPECT_FALSE(BootLoader::InstallMbr(Disk, shortCode.c_str()));
    EXPECT_EQ(Head(Disk, 4096), before);
}

TEST_F(BootLoaderInGuest, InstallMbrReplacesOnlyTheBootCode)
{
    const std::string code = Head(MbrCode, 512);
    ASSERT_GE(code.size(), 440u);
    // Something to replace: the boot code area is not mbr.bin's already.
    WriteFile(std::string(Work) + "/filler.bin", std::string(440, '\xcd'));
    ASSERT_EQ(Shell(std::string("dd if=") + Work + "/filler.bin of=" + Disk +
                    " bs=440 count=1 conv=notrunc,fsync status=none")
                  .status,
              0);
    const std::string before = Head(Disk, 4096);
    ASSERT_EQ(before.substr(510, 2), "\x55\xaa");

    ASSERT_TRUE(BootLoader::InstallMbr(Disk, MbrCode));
    const std::string after = Head(Disk, 4096);
    EXPECT_EQ(after.substr(0, 440), code.substr(0, 440));
    // Disk signature, partition table and boot signature, and what follows.
    EXPECT_EQ(after.substr(440), before.substr(440));
    // parted still reads both partitions from the table.
    const ShellResult table =
        Shell(std::string("udevadm settle; parted -m -s ") + Disk + " unit s print");
    EXPECT_NE(table.output.find("\n1:2048s:"), std::string::npos) << table.output;
    EXPECT_NE(table.output.find("\n2:65536s:"), std::string::npos) << table.output;
}

// ---- syslinux on the DOS partition -----------------------------------------

TEST_F(BootLoaderInGuest, InstallSyslinuxOnTheFat16Partition)
{
    // Mounted somewhere else at first: it has to come to the mount directory.
    ASSERT_TRUE(ScratchMounts::Mount(DosPartition, ElsewhereMount, "vfat"));
    const EventsSince events;
    std::ostringstream log;

    ASSERT_TRUE(InstallSyslinux(log));
    EXPECT_EQ(events.New(), std::vector<std::string>{"syslinux -i -d /boot/syslinux /dev/vda1"});
    EXPECT_FALSE(log.str().empty()) << "syslinux's output goes to the log";
    EXPECT_TRUE(MountsOf(DosPartition).empty());

    ASSERT_TRUE(ScratchMounts::Mount(DosPartition, DosMount, "vfat"));
    ExpectInstalledFiles(DosMount);
    // The partition's boot sector is syslinux's now.
    EXPECT_EQ(Head(DosPartition, 11).substr(3), "SYSLINUX");
}

TEST_F(BootLoaderInGuest, InstallSyslinuxOnABusyPartitionCopiesAndRunsNothing)
{
    ASSERT_TRUE(ScratchMounts::Mount(DosPartition, DosMount, "vfat"));
    fs::remove_all(std::string(DosMount) + "/boot");
    const BusyDirectory busy(DosMount);
    ASSERT_TRUE(busy.IsBusy());
    const EventsSince events;
    std::ostringstream log;

    EXPECT_TRUE(InstallSyslinux(log));
    EXPECT_TRUE(events.New().empty());
    EXPECT_EQ(log.str(), "");
    EXPECT_EQ(MountsOf(DosPartition), std::vector<std::string>{DosMount});
    const std::string directory = std::string(DosMount) + SyslinuxDirectory;
    EXPECT_EQ(ReadFile(directory + "/syslinux.cfg"), ReadFile(ConfigFile()));
    EXPECT_TRUE(fs::is_regular_file(directory + "/vesamenu.c32"));
    EXPECT_FALSE(fs::exists(directory + "/ldlinux.sys"));
}

// ---- boot entries ----------------------------------------------------------

TEST_F(BootLoaderInGuest, ChangeDefaultBootEntryOnABusyPartitionRunsNothing)
{
    ASSERT_TRUE(ScratchMounts::Mount(DosPartition, DosMount, "vfat"));
    const BusyDirectory busy(DosMount);
    ASSERT_TRUE(busy.IsBusy());
    const EventsSince events;
    std::ostringstream log;

    EXPECT_FALSE(BootLoader::ChangeDefaultBootEntry(Disk, 1, SyslinuxDirectory, "Vidorama", log));
    EXPECT_TRUE(events.New().empty());
    EXPECT_EQ(MountsOf(DosPartition), std::vector<std::string>{DosMount});
}

TEST_F(BootLoaderInGuest, ChangeDefaultBootEntrySavesAndBootsTheEntry)
{
    std::ostringstream installLog;
    ASSERT_TRUE(InstallSyslinux(installLog));
    // Mounted: the change unmounts it first.
    ASSERT_TRUE(ScratchMounts::Mount(DosPartition, DosMount, "vfat"));
    const EventsSince events;
    std::ostringstream log;

    ASSERT_TRUE(BootLoader::ChangeDefaultBootEntry(Disk, 1, SyslinuxDirectory, "Vidorama", log))
        << log.str();
    // The shell takes the quotes away.
    EXPECT_EQ(events.New(),
              std::vector<std::string>{"syslinux --update --menu-save=Vidorama --once=Vidorama "
                                       "-d /boot/syslinux /dev/vda1"});
    EXPECT_TRUE(MountsOf(DosPartition).empty());

    ASSERT_TRUE(ScratchMounts::Mount(DosPartition, DosMount, "vfat"));
    const std::map<int, std::string> adv =
        AuxiliaryData(std::string(DosMount) + SyslinuxDirectory + "/ldlinux.sys");
    EXPECT_EQ(adv,
              (std::map<int, std::string>{{BootOnceTag, "Vidorama"}, {MenuSaveTag, "Vidorama"}}));
}

TEST_F(BootLoaderInGuest, BootOnceSyslinuxOnABusyPartitionRunsNothing)
{
    ASSERT_TRUE(ScratchMounts::Mount(DosPartition, DosMount, "vfat"));
    const BusyDirectory busy(DosMount);
    ASSERT_TRUE(busy.IsBusy());
    const EventsSince events;
    std::ostringstream log;

    EXPECT_FALSE(BootLoader::BootOnceSyslinux(Disk, 1, SyslinuxDirectory, "VidoramaDos", log));
    EXPECT_TRUE(events.New().empty());
}

TEST_F(BootLoaderInGuest, BootOnceSyslinuxSetsOnlyTheNextBoot)
{
    std::ostringstream installLog;
    ASSERT_TRUE(InstallSyslinux(installLog));
    ASSERT_TRUE(ScratchMounts::Mount(DosPartition, DosMount, "vfat"));
    const EventsSince events;
    std::ostringstream log;

    ASSERT_TRUE(BootLoader::BootOnceSyslinux(Disk, 1, SyslinuxDirectory, "VidoramaDos", log))
        << log.str();
    EXPECT_EQ(events.New(),
              std::vector<std::string>{"syslinux --once=VidoramaDos -d /boot/syslinux /dev/vda1"});
    EXPECT_TRUE(MountsOf(DosPartition).empty());

    ASSERT_TRUE(ScratchMounts::Mount(DosPartition, DosMount, "vfat"));
    const std::map<int, std::string> adv =
        AuxiliaryData(std::string(DosMount) + SyslinuxDirectory + "/ldlinux.sys");
    // A fresh installation has no saved entry; only the next boot is set.
    EXPECT_EQ(adv, (std::map<int, std::string>{{BootOnceTag, "VidoramaDos"}}));
}

TEST_F(BootLoaderInGuest, FailingCommandOutputGoesToTheLog)
{
    // No third partition: syslinux fails and says why.
    const EventsSince events;
    std::ostringstream log;
    EXPECT_FALSE(BootLoader::BootOnceSyslinux(Disk, 3, SyslinuxDirectory, "Vidorama", log));
    EXPECT_EQ(events.New(),
              std::vector<std::string>{"syslinux --once=Vidorama -d /boot/syslinux /dev/vda3"});
    EXPECT_NE(log.str().find("/dev/vda3"), std::string::npos) << log.str();
}

// ---- extlinux on the Linux partition ---------------------------------------

TEST_F(BootLoaderInGuest, InstallExtlinuxOnTheExt4PartitionStaysMounted)
{
    const EventsSince events;
    std::ostringstream log;

    ASSERT_TRUE(BootLoader::InstallExtlinux(Disk, 2, LinuxMount, SyslinuxDirectory,
                                            ConfigFile().c_str(), ExtraFile().c_str(), log))
        << log.str();
    EXPECT_EQ(MountsOf(LinuxPartition), std::vector<std::string>{LinuxMount});
    EXPECT_NE(log.str().find("/mnt/SYS/boot/syslinux is device /dev/vda2"), std::string::npos)
        << log.str();
    ExpectInstalledFiles(LinuxMount);
    EXPECT_TRUE(events.New().empty());

    // Already mounted there: used as it is, not mounted a second time.
    std::ostringstream again;
    EXPECT_TRUE(BootLoader::InstallExtlinux(Disk, 2, LinuxMount, "/boot/extlinux",
                                            ConfigFile().c_str(), nullptr, again))
        << again.str();
    EXPECT_EQ(MountsOf(LinuxPartition), std::vector<std::string>{LinuxMount});
    EXPECT_TRUE(fs::is_regular_file("/mnt/SYS/boot/extlinux/ldlinux.sys"));
    EXPECT_TRUE(fs::is_regular_file("/mnt/SYS/boot/extlinux/vesamenu.c32"));
    EXPECT_FALSE(fs::exists("/mnt/SYS/boot/extlinux/splash.png"));
}
