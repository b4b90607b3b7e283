// How destructive questions name the disk, and what the format confirmation
// says the plan destroys: pure text, no terminal.
#include "DiskDescription.h"
#include "EepromReader.h"
#include "PartitionStep.h"

#include <gtest/gtest.h>

using namespace Kel::Vidorama::InstallerWizard;
using Kel::ZarnLinuxTools::Disk;

namespace
{

Disk MakeDisk(const std::string& path, const std::string& model, long long size)
{
    Disk disk;
    disk.path = path;
    disk.model = model;
    disk.size = size;
    return disk;
}

TEST(DescribeDisk, PathModelAndSize)
{
    EXPECT_EQ(DescribeDisk(MakeDisk("/dev/vda", "Virtio Block Device", 4LL << 30)),
              "/dev/vda Virtio Block Device, 4.0 GiB");
    EXPECT_EQ(DescribeDisk(MakeDisk("/dev/nvme0n1", "QEMU NVMe Ctrl", 3LL << 30)),
              "/dev/nvme0n1 QEMU NVMe Ctrl, 3.0 GiB");
    EXPECT_EQ(DescribeDisk(MakeDisk("/dev/sda", "ATA Samsung SSD 870", 500107862016LL)),
              "/dev/sda ATA Samsung SSD 870, 465.8 GiB");
}

TEST(DescribeDisk, UnknownModelOrSizeIsLeftOut)
{
    EXPECT_EQ(DescribeDisk(MakeDisk("/dev/mmcblk0", "", 4LL << 30)), "/dev/mmcblk0, 4.0 GiB");
    EXPECT_EQ(DescribeDisk(MakeDisk("/dev/vda", "Virtio Block Device", -1)),
              "/dev/vda Virtio Block Device");
    EXPECT_EQ(DescribeDisk(MakeDisk("/dev/vda", "", -1)), "/dev/vda");
}

TEST(DescribeSize, BinaryUnitsWithOneDecimal)
{
    EXPECT_EQ(DescribeSize(0), "0 MiB");
    EXPECT_EQ(DescribeSize(512LL << 20), "512 MiB");
    EXPECT_EQ(DescribeSize(1LL << 30), "1.0 GiB");
    EXPECT_EQ(DescribeSize(2304LL << 20), "2.2 GiB");
    EXPECT_EQ(DescribeSize(2LL << 40), "2.0 TiB");
    EXPECT_EQ(DescribeSize(-1), "");
}

class FormatPlan : public testing::Test
{
protected:
    Kel::Vidorama::InstallerLib::EepromReader reader{"/nonexistent/", "/nonexistent/",
                                                     "/bin/false"};
    PartitionStep step{reader};
};

TEST_F(FormatPlan, ABlankDiskGetsATableAndEveryPartition)
{
    step.createPartitionTable = true;
    step.createFatPartition = true;
    step.setFatBootable = true;
    step.createExt4Partition = true;
    step.createSwapPartition = true;
    EXPECT_EQ(step.DescribePlan(),
              std::vector<std::string>(
                  {"- A new partition table: everything on the disk is lost.",
                   "- Partition 1 is made anew: FAT16 \"DOS\", bootable.",
                   "- Partitions 2 (EXT4 \"LINUX\") and 3 (swap \"SWAP\") are made anew.",
                   "- The disk's boot code is replaced by syslinux's."}));
}

TEST_F(FormatPlan, ARecreatedDosPartitionSaysDosIsLost)
{
    step.deletePartition1 = true;
    step.createFatPartition = true;
    step.setFatBootable = true;
    step.deletePartition2 = true;
    step.deletePartition3 = true;
    step.deletePartition4 = true;
    step.createExt4Partition = true;
    step.createSwapPartition = true;
    EXPECT_EQ(step.DescribePlan(),
              std::vector<std::string>(
                  {"- Partition 1 (DOS) is deleted: DOS and all its files are lost.",
                   "- Partition 1 is made anew: FAT16 \"DOS\", bootable.",
                   "- Partition 2 (Linux) is deleted: every version on it is lost.",
                   "- Partition 3 (swap) is deleted.",
                   "- Partition 4 is deleted: everything on it is lost.",
                   "- Partitions 2 (EXT4 \"LINUX\") and 3 (swap \"SWAP\") are made anew.",
                   "- The disk's boot code is replaced by syslinux's."}));
}

TEST_F(FormatPlan, AKeptDosPartitionSaysItsSetupDirectoryIsEmptied)
{
    step.keepDosPartition = true;
    step.setFatBootable = true;
    step.deletePartition2 = true;
    step.deletePartition3 = true;
    step.createExt4Partition = true;
    step.createSwapPartition = true;
    EXPECT_EQ(step.DescribePlan(),
              std::vector<std::string>(
                  {"- Partition 1 (DOS) is kept; its configuration lines are deleted.",
                   "- Partition 1 is made bootable.",
                   "- Partition 2 (Linux) is deleted: every version on it is lost.",
                   "- Partition 3 (swap) is deleted.",
                   "- Partitions 2 (EXT4 \"LINUX\") and 3 (swap \"SWAP\") are made anew.",
                   "- The disk's boot code is replaced by syslinux's."}));
}

TEST_F(FormatPlan, NothingToDoSaysNothing)
{
    EXPECT_TRUE(step.DescribePlan().empty());
}

TEST_F(FormatPlan, EveryLineFitsTheNarrowestConsole)
{
    step.createPartitionTable = step.createFatPartition = step.setFatBootable = true;
    step.deletePartition1 = step.deletePartition2 = step.deletePartition3 = true;
    step.deletePartition4 = step.createExt4Partition = step.createSwapPartition = true;
    for (const auto& line : step.DescribePlan())
        EXPECT_LE(line.size(), 66u) << line;
    step.createFatPartition = false;
    step.keepDosPartition = true;
    for (const auto& line : step.DescribePlan())
        EXPECT_LE(line.size(), 66u) << line;
}

} // namespace
