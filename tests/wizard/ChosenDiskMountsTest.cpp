// Which devices are a disk's own partitions, and the refusal's text: no
// terminal, no device.
#include "ChosenDiskMounts.h"

#include <gtest/gtest.h>

using namespace Kel::Vidorama::InstallerWizard;

TEST(ChosenDiskMounts, APartitionBelongsToItsDiskOnly)
{
    EXPECT_TRUE(IsPartitionOf("/dev/vda2", "/dev/vda"));
    EXPECT_TRUE(IsPartitionOf("/dev/vda1", "/dev/vda"));
    EXPECT_TRUE(IsPartitionOf("/dev/nvme0n1p2", "/dev/nvme0n1"));
    EXPECT_TRUE(IsPartitionOf("/dev/mmcblk0p1", "/dev/mmcblk0"));
    EXPECT_TRUE(IsPartitionOf("/dev/md1p2", "/dev/md1"));
    EXPECT_FALSE(IsPartitionOf("/dev/vdb2", "/dev/vda"));
    EXPECT_FALSE(IsPartitionOf("/dev/vda", "/dev/vda"));
    EXPECT_FALSE(IsPartitionOf("/dev/nvme0n12", "/dev/nvme0n1"));
    EXPECT_FALSE(IsPartitionOf("/dev/md12", "/dev/md1"));
    EXPECT_FALSE(IsPartitionOf("/dev/nvme1n1p2", "/dev/nvme0n1"));
    EXPECT_FALSE(IsPartitionOf("tmpfs", "/dev/vda"));
    EXPECT_FALSE(IsPartitionOf("", "/dev/vda"));
}

TEST(ChosenDiskMounts, TheRefusalNamesTheMountPointAndBothDevices)
{
    EXPECT_EQ(HeldMessage("/mnt/SYS", "/dev/vdb2", "/dev/vda"),
              "/mnt/SYS is held by /dev/vdb2, not by /dev/vda: it cannot be released.");
}

TEST(ChosenDiskMounts, NothingIsMountedOnADirectoryThatDoesNotExist)
{
    EXPECT_EQ(DeviceMountedOn("/no/such/directory"), "");
    EXPECT_EQ(DeviceMountedOn(nullptr), "");
}
