// System tests of the disk tools inside the sandbox guest, on the scratch disk
// /dev/vda that the test run attaches (a fresh sparse image of 128 MiB): real
// libparted, mkfs tools and mounts. The whole test process runs in a mount
// namespace of its own, where the shell (/bin/sh, i.e. dash) is replaced by a
// wrapper that records every command text it is given.
#include "DiskTools.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <mntent.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using Kel::ZarnLinuxTools::DiskTools;
using Kel::ZarnLinuxTools::Partition;
namespace fs = std::filesystem;

namespace
{

constexpr const char* Disk = "/dev/vda";
constexpr long long DiskSectors = 128LL * 1024 * 1024 / 512;
constexpr const char* MountA = "/mnt/disktools-a";
constexpr const char* MountB = "/mnt/disktools-b";

// The shell stand-in and what it records.
constexpr const char* ShellLog = "/tmp/disktools-shell.log";
constexpr const char* RealShellCopy = "/tmp/disktools-dash";
constexpr const char* ShellWrapper = "/tmp/disktools-sh-wrapper";

bool InSandbox()
{
    char cwd[64] = {};
    return getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work";
}

struct PipeCloser
{
    void operator()(FILE* pipe) const { pclose(pipe); }
};

// Runs a helper command in the guest; output and status.
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

std::string Trimmed(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    return text;
}

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::string part;
    std::istringstream in(text);
    while (std::getline(in, part, separator))
        parts.push_back(part);
    return parts;
}

long long DeviceSectors()
{
    return std::atoll(ReadFile("/sys/block/vda/size").c_str());
}

// The table as parted reads it, independently of the code under test.
struct PartedEntry
{
    long long start = -1;
    long long end = -1;
    long long sectors = -1;
    std::string fileSystem;
    std::string flags;
};

struct PartedTable
{
    std::string label;
    std::map<int, PartedEntry> partitions;
};

long long Sectors(const std::string& text)
{
    return std::atoll(text.c_str()); // "123s"
}

PartedTable ReadTable()
{
    PartedTable table;
    const ShellResult result = Shell(std::string("parted -m -s ") + Disk + " unit s print");
    for (const std::string& line : Split(result.output, '\n'))
    {
        std::string entry = line;
        if (!entry.empty() && entry.back() == ';')
            entry.pop_back();
        const std::vector<std::string> fields = Split(entry, ':');
        if (fields.size() >= 6 && fields[0] == Disk)
            table.label = fields[5];
        else if (fields.size() >= 5 && !fields[0].empty() &&
                 fields[0].find_first_not_of("0123456789") == std::string::npos)
        {
            PartedEntry partition;
            partition.start = Sectors(fields[1]);
            partition.end = Sectors(fields[2]);
            partition.sectors = Sectors(fields[3]);
            partition.fileSystem = fields[4];
            partition.flags = fields.size() >= 7 ? fields[6] : "";
            table.partitions[std::stoi(fields[0])] = partition;
        }
    }
    return table;
}

std::string MasterBootRecord()
{
    std::ifstream in(Disk, std::ios::binary);
    std::string sector(512, '\0');
    in.read(&sector[0], 512);
    return in.gcount() == 512 ? sector : std::string();
}

// The system id byte of a primary partition's slot in the MBR.
int SystemId(int number)
{
    const std::string mbr = MasterBootRecord();
    if (mbr.size() != 512)
        return -1;
    return static_cast<unsigned char>(mbr[446 + 16 * (number - 1) + 4]);
}

struct MountEntry
{
    std::string source;
    std::string directory;
    std::string type;
    std::set<std::string> options;
};

std::vector<MountEntry> Mounts()
{
    std::vector<MountEntry> mounts;
    FILE* file = setmntent("/proc/self/mounts", "r");
    if (file == nullptr)
        return mounts;
    while (const mntent* entry = getmntent(file))
    {
        MountEntry mount{entry->mnt_fsname, entry->mnt_dir, entry->mnt_type, {}};
        for (const std::string& option : Split(entry->mnt_opts, ','))
            mount.options.insert(option);
        mounts.push_back(mount);
    }
    endmntent(file);
    return mounts;
}

std::vector<MountEntry> MountsOn(const std::string& directory)
{
    std::vector<MountEntry> found;
    for (const MountEntry& mount : Mounts())
    {
        if (mount.directory == directory)
            found.push_back(mount);
    }
    return found;
}

bool IsBlockDevice(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode);
}

std::string Blkid(const std::string& device, const std::string& tag)
{
    return Trimmed(Shell("blkid -p -o value -s " + tag + " " + device).output);
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

// Once per process: a mount namespace of our own, and in it a shell that
// writes the text after -c to ShellLog before running it with the real dash.
::testing::AssertionResult IsolateAndWrapShell()
{
    static bool done = false;
    if (done)
        return ::testing::AssertionSuccess();

    if (unshare(CLONE_NEWNS) != 0)
        return ::testing::AssertionFailure() << "unshare: " << std::strerror(errno);
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return ::testing::AssertionFailure() << "make / private: " << std::strerror(errno);

    const std::string realShell = fs::canonical("/bin/sh").string();
    if (fs::path(realShell).filename() != "dash")
        return ::testing::AssertionFailure() << "/bin/sh is " << realShell << ", not dash";
    std::error_code error;
    fs::copy_file(realShell, RealShellCopy, fs::copy_options::overwrite_existing, error);
    if (error)
        return ::testing::AssertionFailure() << "copy dash: " << error.message();
    {
        std::ofstream wrapper(ShellWrapper, std::ios::trunc);
        wrapper << "#!/bin/bash\n"
                << "printf '%s\\n' \"$2\" >>" << ShellLog << "\n"
                << "exec " << RealShellCopy << " \"$@\"\n";
    }
    if (chmod(ShellWrapper, 0755) != 0)
        return ::testing::AssertionFailure() << "chmod wrapper: " << std::strerror(errno);
    if (mount(ShellWrapper, realShell.c_str(), nullptr, MS_BIND, nullptr) != 0)
        return ::testing::AssertionFailure() << "bind wrapper: " << std::strerror(errno);

    done = true;
    return ::testing::AssertionSuccess();
}

void ClearShellLog()
{
    std::ofstream(ShellLog, std::ios::trunc).close();
}

std::string ShellLogText()
{
    return ReadFile(ShellLog);
}

class DiskToolsInGuest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(InSandbox()) << "runs only inside the sandbox guest";
        ASSERT_EQ(DeviceSectors(), DiskSectors) << Disk << " is not the scratch disk";
        ASSERT_TRUE(IsolateAndWrapShell());
        fs::create_directories(MountA);
        fs::create_directories(MountB);

        // A blank disk with a fresh, empty msdos table known to the kernel.
        ASSERT_EQ(Shell(std::string("dd if=/dev/zero of=") + Disk +
                        " bs=1M count=1 conv=fsync status=none")
                      .status,
                  0);
        ASSERT_TRUE(DiskTools::CreateMsdosPartitionTable(Disk));
        // udev may still be probing the old partitions for a moment.
        const ShellResult reread =
            Shell(std::string("udevadm settle; for try in 1 2 3 4 5; do blockdev --rereadpt ") +
                  Disk + " && exit 0; sleep 1; udevadm settle; done; exit 1");
        ASSERT_EQ(reread.status, 0) << reread.output;
        Shell("udevadm settle");
    }

    void TearDown() override
    {
        if (InSandbox())
            UnmountScratchDisk();
    }

    static std::unique_ptr<Partition> Append(const char* type, const char* size)
    {
        return std::unique_ptr<Partition>(DiskTools::AppendPrimaryPartition(Disk, type, size));
    }

    // A new partition with no trace of an earlier file system at its start.
    static std::unique_ptr<Partition> AppendBlank(const char* type, const char* size)
    {
        std::unique_ptr<Partition> partition = Append(type, size);
        if (partition)
            Shell(std::string("dd if=/dev/zero of=") + Disk + std::to_string(partition->number) +
                  " bs=1M count=1 conv=fsync status=none");
        return partition;
    }

    static std::string Device(int number) { return Disk + std::to_string(number); }
};

// ---- msdos table -----------------------------------------------------------

TEST_F(DiskToolsInGuest, CreateMsdosPartitionTableOnABlankDisk)
{
    ASSERT_EQ(
        Shell(std::string("dd if=/dev/zero of=") + Disk + " bs=1M count=1 conv=fsync status=none")
            .status,
        0);
    EXPECT_NE(ReadTable().label, "msdos");

    EXPECT_TRUE(DiskTools::CreateMsdosPartitionTable(Disk));
    const PartedTable table = ReadTable();
    EXPECT_EQ(table.label, "msdos");
    EXPECT_TRUE(table.partitions.empty());
}

TEST_F(DiskToolsInGuest, CreateMsdosPartitionTableReplacesATableWithPartitions)
{
    ASSERT_TRUE(Append("ext4", "20480"));
    ASSERT_TRUE(Append("ext4", "20480"));
    ASSERT_EQ(ReadTable().partitions.size(), 2u);

    EXPECT_TRUE(DiskTools::CreateMsdosPartitionTable(Disk));
    const PartedTable table = ReadTable();
    EXPECT_EQ(table.label, "msdos");
    EXPECT_TRUE(table.partitions.empty());
}

TEST_F(DiskToolsInGuest, CreateMsdosPartitionTableOnAMissingDeviceFails)
{
    EXPECT_FALSE(DiskTools::CreateMsdosPartitionTable("/dev/disktools-missing"));
}

// ---- appending primary partitions ------------------------------------------

TEST_F(DiskToolsInGuest, FirstPartitionStartsAtSector63AndHoldsOneSectorMore)
{
    const std::unique_ptr<Partition> partition = Append("ext4", "20480");
    ASSERT_TRUE(partition);
    EXPECT_EQ(partition->number, 1);
    EXPECT_EQ(partition->start, 63);
    EXPECT_EQ(partition->end, 63 + 20480);
    EXPECT_EQ(partition->sectorCount, 20481);
    EXPECT_EQ(partition->size, 20481LL * 512);
    EXPECT_FALSE(partition->mounted);

    const PartedTable table = ReadTable();
    ASSERT_EQ(table.partitions.size(), 1u);
    EXPECT_EQ(table.partitions.at(1).start, 63);
    EXPECT_EQ(table.partitions.at(1).end, 63 + 20480);
    EXPECT_EQ(table.partitions.at(1).sectors, 20481);
    // The two seconds after the commit leave time for the device node.
    EXPECT_TRUE(IsBlockDevice(Device(1)));
}

TEST_F(DiskToolsInGuest, NextPartitionStartsRightBehindTheLastOne)
{
    const std::unique_ptr<Partition> first = Append("ext4", "20480");
    ASSERT_TRUE(first);
    const std::unique_ptr<Partition> second = Append("ext4", "10240");
    ASSERT_TRUE(second);
    EXPECT_EQ(second->number, 2);
    EXPECT_EQ(second->start, first->end + 1);
    EXPECT_EQ(second->end, first->end + 1 + 10240);
    EXPECT_EQ(second->sectorCount, 10241);

    const PartedTable table = ReadTable();
    ASSERT_EQ(table.partitions.size(), 2u);
    EXPECT_EQ(table.partitions.at(2).start, 63 + 20480 + 1);
    EXPECT_EQ(table.partitions.at(2).end, 63 + 20480 + 1 + 10240);
    EXPECT_TRUE(IsBlockDevice(Device(2)));
}

TEST_F(DiskToolsInGuest, SizeWithAUnitSuffix)
{
    const std::unique_ptr<Partition> partition = Append("ext4", "1MiB");
    ASSERT_TRUE(partition);
    EXPECT_EQ(partition->start, 63);
    EXPECT_EQ(partition->end, 63 + 2048);
}

TEST_F(DiskToolsInGuest, SizeLargerThanTheDiskEndsOnTheLastSector)
{
    const std::unique_ptr<Partition> first = Append("ext4", "20480");
    ASSERT_TRUE(first);
    const std::unique_ptr<Partition> rest = Append("ext4", "999999999");
    ASSERT_TRUE(rest);
    EXPECT_EQ(rest->start, first->end + 1);
    EXPECT_EQ(rest->end, DiskSectors - 1);
    EXPECT_EQ(ReadTable().partitions.at(2).end, DiskSectors - 1);
}

TEST_F(DiskToolsInGuest, SizeEndingExactlyOnTheDeviceLengthIsClipped)
{
    const std::string size = std::to_string(DiskSectors - 63);
    const std::unique_ptr<Partition> whole = Append("ext4", size.c_str());
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->end, DiskSectors - 1);
}

TEST_F(DiskToolsInGuest, FifthPrimaryPartitionFailsAndWritesNothing)
{
    for (int i = 0; i < 4; ++i)
        ASSERT_TRUE(Append("ext4", "2048")) << "partition " << i + 1;
    const std::string before = MasterBootRecord();
    ASSERT_EQ(before.size(), 512u);

    EXPECT_FALSE(Append("ext4", "2048"));
    EXPECT_EQ(MasterBootRecord(), before);
    EXPECT_EQ(ReadTable().partitions.size(), 4u);
}

TEST_F(DiskToolsInGuest, UnknownFileSystemTypeFails)
{
    EXPECT_FALSE(Append("nosuchfs", "2048"));
    EXPECT_FALSE(Append("fat32x", "2048"));
    EXPECT_TRUE(ReadTable().partitions.empty());
}

TEST_F(DiskToolsInGuest, UnparsableSizeFails)
{
    EXPECT_FALSE(Append("ext4", "lots"));
    EXPECT_TRUE(ReadTable().partitions.empty());
}

TEST_F(DiskToolsInGuest, MissingDeviceGivesNull)
{
    EXPECT_FALSE(DiskTools::AppendPrimaryPartition("/dev/disktools-missing", "ext4", "2048"));
}

TEST_F(DiskToolsInGuest, TheCallersThreeTypesSetTheSystemIds)
{
    ASSERT_TRUE(Append("fat16", "20480"));
    ASSERT_TRUE(Append("ext4", "20480"));
    ASSERT_TRUE(Append("linux-swap(v1)", "8192"));
    const int fat = SystemId(1);
    EXPECT_TRUE(fat == 0x06 || fat == 0x0e) << "fat16 id " << fat;
    EXPECT_EQ(SystemId(2), 0x83);
    EXPECT_EQ(SystemId(3), 0x82);
    EXPECT_EQ(ReadTable().partitions.size(), 3u);
}

// ---- boot flag ---------------------------------------------------------------

TEST_F(DiskToolsInGuest, SetPartitionBootableRefusesWhatIsAlreadySet)
{
    ASSERT_TRUE(Append("fat16", "20480"));
    ASSERT_TRUE(Append("ext4", "20480"));

    EXPECT_TRUE(DiskTools::SetPartitionBootable(Disk, 1, true));
    EXPECT_NE(ReadTable().partitions.at(1).flags.find("boot"), std::string::npos);
    const std::string withFlag = MasterBootRecord();

    EXPECT_FALSE(DiskTools::SetPartitionBootable(Disk, 1, true));
    EXPECT_EQ(MasterBootRecord(), withFlag);

    EXPECT_TRUE(DiskTools::SetPartitionBootable(Disk, 1, false));
    EXPECT_EQ(ReadTable().partitions.at(1).flags.find("boot"), std::string::npos);

    EXPECT_FALSE(DiskTools::SetPartitionBootable(Disk, 1, false));
    EXPECT_FALSE(DiskTools::SetPartitionBootable(Disk, 2, false));
}

TEST_F(DiskToolsInGuest, SetPartitionBootableOfAMissingPartitionFails)
{
    ASSERT_TRUE(Append("fat16", "20480"));
    EXPECT_FALSE(DiskTools::SetPartitionBootable(Disk, 3, true));
    EXPECT_FALSE(DiskTools::SetPartitionBootable("/dev/disktools-missing", 1, true));
}

// ---- deleting ------------------------------------------------------------------

TEST_F(DiskToolsInGuest, DeletePrimaryPartitionUnmountsItFirst)
{
    ASSERT_TRUE(AppendBlank("fat16", "20480"));
    ASSERT_TRUE(AppendBlank("ext4", "20480"));
    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 2, "ext4", "LINUX"));
    ASSERT_TRUE(DiskTools::MountPartition(Disk, 2, "ext4", MountA, false));
    ASSERT_EQ(MountsOn(MountA).size(), 1u);

    EXPECT_TRUE(DiskTools::DeletePrimaryPartition(Disk, 2));
    EXPECT_TRUE(MountsOn(MountA).empty());
    const PartedTable table = ReadTable();
    EXPECT_EQ(table.partitions.size(), 1u);
    EXPECT_EQ(table.partitions.count(2), 0u);
    EXPECT_FALSE(IsBlockDevice(Device(2)));
}

TEST_F(DiskToolsInGuest, DeleteOfAMissingPartitionFails)
{
    ASSERT_TRUE(Append("ext4", "20480"));
    EXPECT_FALSE(DiskTools::DeletePrimaryPartition(Disk, 2));
    EXPECT_EQ(ReadTable().partitions.size(), 1u);
}

// ---- formatting ------------------------------------------------------------------

TEST_F(DiskToolsInGuest, FormatFat16RunsExactlyItsCommand)
{
    ASSERT_TRUE(AppendBlank("fat16", "40960"));
    ClearShellLog();
    EXPECT_TRUE(DiskTools::FormatPartition(Disk, 1, "fat16", "DOS"));
    EXPECT_EQ(ShellLogText(), "mkfs.fat -F 16 -n DOS /dev/vda1 2>&1\n");
    EXPECT_EQ(Blkid(Device(1), "TYPE"), "vfat");
    EXPECT_EQ(Blkid(Device(1), "LABEL"), "DOS");
    EXPECT_EQ(Blkid(Device(1), "VERSION"), "FAT16");
}

TEST_F(DiskToolsInGuest, FormatExt4RunsExactlyItsCommandWithout64bit)
{
    ASSERT_TRUE(AppendBlank("fat16", "8192"));
    ASSERT_TRUE(AppendBlank("ext4", "40960"));
    ClearShellLog();
    EXPECT_TRUE(DiskTools::FormatPartition(Disk, 2, "ext4", "LINUX"));
    EXPECT_EQ(ShellLogText(), "mkfs.ext4 -L LINUX -O ^64bit /dev/vda2 2>&1\n");
    EXPECT_EQ(Blkid(Device(2), "TYPE"), "ext4");
    EXPECT_EQ(Blkid(Device(2), "LABEL"), "LINUX");

    const ShellResult features =
        Shell("dumpe2fs -h " + Device(2) + " 2>/dev/null | grep -i '^Filesystem features:'");
    ASSERT_EQ(features.status, 0) << features.output;
    EXPECT_NE(features.output.find("extent"), std::string::npos) << features.output;
    EXPECT_EQ(features.output.find("64bit"), std::string::npos) << features.output;
}

TEST_F(DiskToolsInGuest, FormatSwapRunsExactlyItsCommand)
{
    ASSERT_TRUE(AppendBlank("fat16", "8192"));
    ASSERT_TRUE(AppendBlank("ext4", "8192"));
    ASSERT_TRUE(AppendBlank("linux-swap(v1)", "8192"));
    ClearShellLog();
    EXPECT_TRUE(DiskTools::FormatPartition(Disk, 3, "linux-swap", "SWAP"));
    EXPECT_EQ(ShellLogText(), "mkswap -L SWAP /dev/vda3 2>&1\n");
    EXPECT_EQ(Blkid(Device(3), "TYPE"), "swap");
    EXPECT_EQ(Blkid(Device(3), "LABEL"), "SWAP");
}

TEST_F(DiskToolsInGuest, FormatReportsTheCommandsFailure)
{
    ClearShellLog();
    // No partition 1 on the fresh table: mkfs.fat runs and fails.
    EXPECT_FALSE(DiskTools::FormatPartition(Disk, 1, "fat16", "DOS"));
    EXPECT_EQ(ShellLogText(), "mkfs.fat -F 16 -n DOS /dev/vda1 2>&1\n");
}

TEST_F(DiskToolsInGuest, Fat32IsNotFormattedButMountsAsVfat)
{
    ASSERT_TRUE(AppendBlank("fat16", "40960"));
    ClearShellLog();
    EXPECT_FALSE(DiskTools::FormatPartition(Disk, 1, "fat32", "DOS"));
    EXPECT_EQ(ShellLogText(), "") << "nothing may run for fat32";
    EXPECT_EQ(Blkid(Device(1), "TYPE"), "");

    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 1, "fat16", "DOS"));
    EXPECT_TRUE(DiskTools::MountPartition(Disk, 1, "fat32", MountA, false));
    const std::vector<MountEntry> mounts = MountsOn(MountA);
    ASSERT_EQ(mounts.size(), 1u);
    EXPECT_EQ(mounts[0].source, Device(1));
    EXPECT_EQ(mounts[0].type, "vfat");
}

TEST_F(DiskToolsInGuest, FormatUnmountsThePartitionFirst)
{
    ASSERT_TRUE(AppendBlank("fat16", "40960"));
    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 1, "fat16", "DOS"));
    ASSERT_TRUE(DiskTools::MountPartition(Disk, 1, "fat16", MountA, false));
    ASSERT_TRUE(DiskTools::MountPartition(Disk, 1, "fat16", MountB, false));

    EXPECT_TRUE(DiskTools::FormatPartition(Disk, 1, "fat16", "NEWDOS"));
    EXPECT_TRUE(MountsOn(MountA).empty());
    EXPECT_TRUE(MountsOn(MountB).empty());
    EXPECT_EQ(Blkid(Device(1), "LABEL"), "NEWDOS");
}

// ---- mounting ------------------------------------------------------------------

TEST_F(DiskToolsInGuest, MountPartitionFat16AsVfatNotSynchronous)
{
    ASSERT_TRUE(AppendBlank("fat16", "40960"));
    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 1, "fat16", "DOS"));
    EXPECT_TRUE(DiskTools::MountPartition(Disk, 1, "fat16", MountA, false));
    const std::vector<MountEntry> mounts = MountsOn(MountA);
    ASSERT_EQ(mounts.size(), 1u);
    EXPECT_EQ(mounts[0].type, "vfat");
    EXPECT_EQ(mounts[0].options.count("sync"), 0u);
}

TEST_F(DiskToolsInGuest, MountPartitionSynchronous)
{
    ASSERT_TRUE(AppendBlank("fat16", "8192"));
    ASSERT_TRUE(AppendBlank("ext4", "40960"));
    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 2, "ext4", "LINUX"));
    EXPECT_TRUE(DiskTools::MountPartition(Disk, 2, "ext4", MountA, true));
    const std::vector<MountEntry> mounts = MountsOn(MountA);
    ASSERT_EQ(mounts.size(), 1u);
    EXPECT_EQ(mounts[0].source, Device(2));
    EXPECT_EQ(mounts[0].type, "ext4");
    EXPECT_EQ(mounts[0].options.count("sync"), 1u);
}

TEST_F(DiskToolsInGuest, MountPartitionFailures)
{
    ASSERT_TRUE(AppendBlank("fat16", "40960"));
    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 1, "fat16", "DOS"));
    // The directory is not created for the caller.
    EXPECT_FALSE(DiskTools::MountPartition(Disk, 1, "fat16", "/mnt/disktools-missing", false));
    EXPECT_FALSE(fs::exists("/mnt/disktools-missing"));
    EXPECT_FALSE(DiskTools::MountPartition(Disk, 1, "ext4", MountA, false));
    EXPECT_FALSE(DiskTools::MountPartition(Disk, 2, "fat16", MountA, false));
    EXPECT_TRUE(MountsOn(MountA).empty());
}

// ---- unmounting ----------------------------------------------------------------

TEST_F(DiskToolsInGuest, UmountPartitionMountedTwiceUnmountsBoth)
{
    ASSERT_TRUE(AppendBlank("fat16", "40960"));
    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 1, "fat16", "DOS"));
    ASSERT_TRUE(DiskTools::MountPartition(Disk, 1, "fat16", MountA, false));
    ASSERT_TRUE(DiskTools::MountPartition(Disk, 1, "fat16", MountB, false));
    ASSERT_EQ(MountsOn(MountA).size(), 1u);
    ASSERT_EQ(MountsOn(MountB).size(), 1u);

    EXPECT_TRUE(DiskTools::UmountPartition(Disk, 1));
    EXPECT_TRUE(MountsOn(MountA).empty());
    EXPECT_TRUE(MountsOn(MountB).empty());
}

TEST_F(DiskToolsInGuest, UmountPartitionNotMountedIsSuccess)
{
    ASSERT_TRUE(AppendBlank("fat16", "40960"));
    EXPECT_TRUE(DiskTools::UmountPartition(Disk, 1));
    EXPECT_TRUE(DiskTools::UmountPartition(Disk, 4));
}

TEST_F(DiskToolsInGuest, UmountPartitionLeavesOtherPartitionsMounted)
{
    ASSERT_TRUE(AppendBlank("fat16", "20480"));
    ASSERT_TRUE(AppendBlank("fat16", "20480"));
    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 1, "fat16", "ONE"));
    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 2, "fat16", "TWO"));
    ASSERT_TRUE(DiskTools::MountPartition(Disk, 1, "fat16", MountA, false));
    ASSERT_TRUE(DiskTools::MountPartition(Disk, 2, "fat16", MountB, false));

    EXPECT_TRUE(DiskTools::UmountPartition(Disk, 2));
    EXPECT_EQ(MountsOn(MountA).size(), 1u);
    EXPECT_TRUE(MountsOn(MountB).empty());
}

TEST_F(DiskToolsInGuest, UmountDirectory)
{
    ASSERT_TRUE(AppendBlank("fat16", "40960"));
    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 1, "fat16", "DOS"));
    ASSERT_TRUE(DiskTools::MountPartition(Disk, 1, "fat16", MountA, false));

    // The directory is compared as written: with a trailing slash it is not
    // the mounted one, so there is nothing to do.
    EXPECT_TRUE(DiskTools::UmountDirectory((std::string(MountA) + "/").c_str()));
    EXPECT_EQ(MountsOn(MountA).size(), 1u);

    EXPECT_TRUE(DiskTools::UmountDirectory(MountA));
    EXPECT_TRUE(MountsOn(MountA).empty());
    EXPECT_TRUE(DiskTools::UmountDirectory(MountA));
}

// ---- files on a mounted partition ------------------------------------------------

TEST_F(DiskToolsInGuest, FilesOnAMountedFatPartition)
{
    ASSERT_TRUE(AppendBlank("fat16", "40960"));
    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 1, "fat16", "DOS"));
    ASSERT_TRUE(DiskTools::MountPartition(Disk, 1, "fat16", MountA, true));

    const std::string root = MountA;
    EXPECT_TRUE(DiskTools::CreateDirectories((root + "/Versions/12.05/boot").c_str()));
    {
        std::ofstream file(root + "/Versions/12.05/boot/keep.txt");
        file << "keep";
    }
    {
        std::ofstream file(root + "/Versions/12.05/drop.bin");
        file << "drop";
    }
    EXPECT_TRUE(DiskTools::CopyFile((root + "/Versions/12.05/boot/keep.txt").c_str(),
                                    (root + "/copy.txt").c_str()));
    EXPECT_EQ(ReadFile(root + "/copy.txt"), "keep");

    EXPECT_TRUE(DiskTools::DeleteAllFiles((root + "/Versions").c_str(), ".*\\.bin", true));
    EXPECT_TRUE(fs::exists(root + "/Versions/12.05/boot/keep.txt"));
    EXPECT_FALSE(fs::exists(root + "/Versions/12.05/drop.bin"));

    EXPECT_TRUE(DiskTools::DeleteAllFiles(MountA, true));
    EXPECT_TRUE(fs::is_empty(root));
}

// A copy onto a full FAT partition stops short: the good file stays as it
// was, and no temporary file is left to fill the partition.
TEST_F(DiskToolsInGuest, AShortCopyOnAFullFatPartitionKeepsTheGoodFile)
{
    ASSERT_TRUE(AppendBlank("fat16", "40960"));
    ASSERT_TRUE(DiskTools::FormatPartition(Disk, 1, "fat16", "DOS"));
    ASSERT_TRUE(DiskTools::MountPartition(Disk, 1, "fat16", MountA, false));

    const std::string root = MountA;
    const std::string good = "DEFAULT VidoramaLinux\nLABEL VidoramaLinux\n";
    ASSERT_TRUE(DiskTools::CreateDirectories((root + "/boot/syslinux").c_str()));
    const std::string config = root + "/boot/syslinux/syslinux.cfg";
    {
        std::ofstream file(config, std::ios::binary);
        file << good;
    }
    // All the room taken but 256 KiB; the new configuration is 1 MiB.
    const ShellResult fill =
        Shell("dd if=/dev/zero of=" + root + "/room bs=64k count=4 status=none && " +
              "dd if=/dev/zero of=" + root + "/filler bs=64k status=none 2>/dev/null; " + "rm " +
              root + "/room && sync");
    ASSERT_EQ(Shell("test -s " + root + "/filler").status, 0) << fill.output;
    const std::string freeBefore =
        Trimmed(Shell("df -k --output=avail " + root + " | tail -n 1").output);
    ASSERT_LT(std::atoll(freeBefore.c_str()), 1024) << freeBefore;
    ASSERT_GT(std::atoll(freeBefore.c_str()), 0) << freeBefore;
    const std::string source = "/tmp/disktools-new-syslinux.cfg";
    {
        std::ofstream file(source, std::ios::binary);
        file << std::string(1024 * 1024, '#');
    }

    EXPECT_FALSE(DiskTools::CopyFile(source.c_str(), config.c_str()));
    EXPECT_EQ(ReadFile(config), good);
    EXPECT_EQ(Trimmed(Shell("ls -a " + root + "/boot/syslinux").output), ".\n..\nsyslinux.cfg");
    EXPECT_EQ(Trimmed(Shell("df -k --output=avail " + root + " | tail -n 1").output), freeBefore);

    // With the room back the same copy goes through.
    ASSERT_EQ(Shell("rm " + root + "/filler").status, 0);
    EXPECT_TRUE(DiskTools::CopyFile(source.c_str(), config.c_str()));
    EXPECT_EQ(ReadFile(config), std::string(1024 * 1024, '#'));
    EXPECT_EQ(Trimmed(Shell("ls -a " + root + "/boot/syslinux").output), ".\n..\nsyslinux.cfg");
    std::remove(source.c_str());
}

} // namespace
