// System tests of the disk tools and diagnostics on the disks of today's
// servers, inside the sandbox guest: an NVMe disk (/dev/nvme0n1, 64 MiB), an
// SD card (/dev/mmcblk0, 64 MiB) and a virtio disk (/dev/vda, 64 MiB) beside
// them. Each gets the appliance's table, partitions and file systems through
// the tools; every partition device they touch must exist and belong to the
// disk that was asked for.
#include "DiskDiagnostics.h"
#include "DiskTools.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <sys/mount.h>
#include <unistd.h>

using Kel::ZarnLinuxTools::Disk;
using Kel::ZarnLinuxTools::DiskDiagnostics;
using Kel::ZarnLinuxTools::DiskTools;
using Kel::ZarnLinuxTools::Partition;
namespace detail = Kel::ZarnLinuxTools::detail;

namespace
{

const char* const Nvme = "/dev/nvme0n1";
const char* const Sd = "/dev/mmcblk0";
const char* const Virtio = "/dev/vda";
const char* const MountPoint = "/mnt/diskkinds";

bool InSandbox()
{
    char cwd[64] = {};
    return getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work";
}

std::string Shell(const std::string& command)
{
    std::string output;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr)
        return output;
    std::array<char, 4096> buffer;
    size_t count = 0;
    while ((count = fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        output.append(buffer.data(), count);
    pclose(pipe);
    return output;
}

class DiskKinds : public testing::TestWithParam<const char*>
{
protected:
    void SetUp() override { ASSERT_TRUE(InSandbox()) << "runs only inside the sandbox guest"; }
    void TearDown() override { umount2(MountPoint, MNT_DETACH); }
};

TEST(DiskKindsList, NvmeAndSdDisksAreOfferedBesideTheVirtioDisk)
{
    ASSERT_TRUE(InSandbox()) << "runs only inside the sandbox guest";
    std::unique_ptr<std::vector<Disk>> disks(DiskDiagnostics::GetDisks());
    ASSERT_TRUE(disks);
    std::vector<std::string> paths;
    for (const Disk& disk : *disks)
        paths.push_back(disk.path);
    EXPECT_EQ(paths.size(), 3u) << testing::PrintToString(paths);
    for (const char* path : {Nvme, Sd, Virtio})
        EXPECT_NE(std::find(paths.begin(), paths.end(), path), paths.end()) << path;
    for (const Disk& disk : *disks)
    {
        SCOPED_TRACE(disk.path);
        EXPECT_EQ(disk.size, 64LL << 20);
        EXPECT_EQ(disk.sectorSize, 512);
        EXPECT_EQ(disk.udevProperties.at("DEVTYPE"), "disk");
    }
}

// The appliance's layout made by the tools, then looked at from outside.
TEST_P(DiskKinds, PartitionsAreMadeFormattedAndMountedUnderTheKernelsNames)
{
    const char* disk = GetParam();
    const std::string first = detail::PartitionDeviceName(disk, 1);
    const std::string second = detail::PartitionDeviceName(disk, 2);
    const std::string third = detail::PartitionDeviceName(disk, 3);

    // What the other disks hold now, to be found again at the end.
    std::string others;
    for (const char* other : {Nvme, Sd, Virtio})
        if (std::string(other) != disk)
            others += std::string(other) + " ";
    const std::string before = Shell("md5sum " + others);

    ASSERT_TRUE(DiskTools::CreateMsdosPartitionTable(disk));
    std::unique_ptr<Partition> fat(DiskTools::AppendPrimaryPartition(disk, "fat16", "40000s"));
    ASSERT_TRUE(fat);
    EXPECT_EQ(fat->number, 1);
    std::unique_ptr<Partition> linux(DiskTools::AppendPrimaryPartition(disk, "ext4", "40000s"));
    ASSERT_TRUE(linux);
    std::unique_ptr<Partition> swap(
        DiskTools::AppendPrimaryPartition(disk, "linux-swap(v1)", "200000s"));
    ASSERT_TRUE(swap);
    Shell("udevadm settle");

    // The nodes the kernel made are exactly the names the tools use.
    EXPECT_TRUE(DiskDiagnostics::IsBlockDevice(first.c_str())) << first;
    EXPECT_TRUE(DiskDiagnostics::IsBlockDevice(second.c_str())) << second;
    EXPECT_TRUE(DiskDiagnostics::IsBlockDevice(third.c_str())) << third;
    const std::string own =
        std::string("/sys/class/block/") + (disk + 5) + "/" + (first.c_str() + 5);
    EXPECT_EQ(Shell("test -d " + own + " && echo own"), "own\n") << own;

    ASSERT_TRUE(DiskTools::SetPartitionBootable(disk, 1, true));
    ASSERT_TRUE(DiskTools::FormatPartition(disk, 1, "fat16", "DOS"));
    ASSERT_TRUE(DiskTools::FormatPartition(disk, 2, "ext4", "LINUX"));
    ASSERT_TRUE(DiskTools::FormatPartition(disk, 3, "linux-swap", "SWAP"));
    EXPECT_EQ(Shell("blkid -o value -s LABEL " + first + " " + second + " " + third),
              "DOS\nLINUX\nSWAP\n");

    Shell(std::string("mkdir -p ") + MountPoint);
    ASSERT_TRUE(DiskTools::MountPartition(disk, 2, "ext4", MountPoint, false));
    EXPECT_TRUE(DiskDiagnostics::IsPartitionMounted(disk, 2));
    EXPECT_TRUE(DiskDiagnostics::IsDirectoryMountedOn(MountPoint, disk, 2));
    EXPECT_FALSE(DiskDiagnostics::IsDirectoryMountedOn(MountPoint, disk, 1));
    EXPECT_EQ(Shell(std::string("findmnt -n -o SOURCE ") + MountPoint), second + "\n");
    const Partition mounted = DiskDiagnostics::GetPartition(disk, 2);
    EXPECT_TRUE(mounted.mounted);
    EXPECT_EQ(mounted.fileSystem, "ext4");

    // Formatting a mounted partition unmounts it first, under its own name.
    ASSERT_TRUE(DiskTools::FormatPartition(disk, 2, "ext4", "LINUX"));
    EXPECT_FALSE(DiskDiagnostics::IsPartitionMounted(disk, 2));
    EXPECT_FALSE(DiskDiagnostics::IsDirectoryMounted(MountPoint));

    ASSERT_TRUE(DiskTools::MountPartition(disk, 1, "fat16", MountPoint, false));
    EXPECT_TRUE(DiskDiagnostics::IsPartitionMounted(disk, 1));
    ASSERT_TRUE(DiskTools::UmountPartition(disk, 1));
    EXPECT_FALSE(DiskDiagnostics::IsDirectoryMounted(MountPoint));

    std::unique_ptr<std::vector<Partition>> partitions(DiskDiagnostics::GetPartitions(disk));
    ASSERT_TRUE(partitions);
    ASSERT_EQ(partitions->size(), 3u);
    EXPECT_EQ((*partitions)[0].fileSystem, "fat16");
    EXPECT_TRUE((*partitions)[0].bootable);
    EXPECT_EQ((*partitions)[1].fileSystem, "ext4");
    EXPECT_EQ((*partitions)[2].fileSystem, "linux-swap(v1)");

    ASSERT_TRUE(DiskTools::DeletePrimaryPartition(disk, 3));
    Shell("udevadm settle");
    EXPECT_FALSE(DiskDiagnostics::IsBlockDevice(third.c_str())) << third;
    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(disk), 2);

    EXPECT_EQ(Shell("md5sum " + others), before) << "another disk was written";
    // No partition device of the digit-ending disks without the separator.
    EXPECT_EQ(Shell("ls /dev | grep -c -E '^(nvme0n1|mmcblk0)[0-9]+$'"), "0\n");
}

INSTANTIATE_TEST_SUITE_P(Disks, DiskKinds, testing::Values(Nvme, Sd, Virtio),
                         [](const testing::TestParamInfo<const char*>& info)
                         {
                             const std::string path = info.param;
                             return path == Nvme ? std::string("Nvme")
                                    : path == Sd ? std::string("Sd")
                                                 : std::string("Virtio");
                         });

} // namespace
