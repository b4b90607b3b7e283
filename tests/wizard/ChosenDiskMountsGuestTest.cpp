// The fixed mount points on two real disks in the sandbox guest: /dev/vda
// (the chosen one) and /dev/vdb (another), each with a FAT16 partition 1, an
// EXT4 partition 2 and an empty partition 3. Whatever another disk holds on
// the mount point is released, or the workflow is told who holds it; the
// other disk's files are never touched.
#include "ChosenDiskMounts.h"

#include "GuestShell.h"

#include <gtest/gtest.h>

#include <string>

#include <sys/mount.h>

namespace
{

using namespace Kel::Vidorama::InstallerWizard;
using Sandbox::InSandbox;
using Sandbox::Shell;

const char* const Directory = "/mnt/chosen-sys";

class TakeMountPointInGuest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(InSandbox()) << "runs only inside the sandbox guest";
        static bool laidOut = false;
        if (!laidOut)
        {
            laidOut = true;
            for (const std::string disk : {"/dev/vda", "/dev/vdb"})
            {
                const auto made =
                    Shell("parted -s " + disk +
                          " mklabel msdos mkpart primary fat16 2048s 67583s mkpart primary ext4 "
                          "67584s 133119s mkpart primary 133120s 141311s && udevadm settle && "
                          "mkfs.fat -F 16 " +
                          disk + "1 >/dev/null && mkfs.ext4 -q -F " + disk +
                          "2 && mkdir -p /tmp/fill && mount " + disk + "2 /tmp/fill && echo " +
                          disk + " > /tmp/fill/owner && umount /tmp/fill");
                ASSERT_EQ(made.status, 0) << made.output;
            }
        }
        Shell(std::string("mkdir -p ") + Directory);
    }

    void TearDown() override
    {
        for (int i = 0; i < 8 && umount2(Directory, 0) == 0; ++i)
        {
        }
    }

    static std::string Owner() { return Shell(std::string("cat ") + Directory + "/owner").output; }
};

TEST_F(TakeMountPointInGuest, AnEmptyMountPointGetsTheChosenPartition)
{
    const auto state = TakeMountPoint("/dev/vda", 2, "ext4", Directory);
    EXPECT_TRUE(state.mounted);
    EXPECT_FALSE(state.held);
    EXPECT_EQ(DeviceMountedOn(Directory), "/dev/vda2");
    EXPECT_EQ(Owner(), "/dev/vda\n");
}

TEST_F(TakeMountPointInGuest, TheChosenPartitionInPlaceStays)
{
    ASSERT_EQ(Shell(std::string("mount /dev/vda2 ") + Directory).status, 0);
    const auto state = TakeMountPoint("/dev/vda", 2, "ext4", Directory);
    EXPECT_TRUE(state.mounted);
    EXPECT_EQ(Shell(std::string("grep -c ' ") + Directory + " ' /proc/mounts").output, "1\n");
}

TEST_F(TakeMountPointInGuest, AnotherDisksPartitionsAreReleasedEvenStacked)
{
    ASSERT_EQ(
        Shell(std::string("mount /dev/vdb2 ") + Directory + " && mount /dev/vdb1 " + Directory)
            .status,
        0);
    const auto state = TakeMountPoint("/dev/vda", 2, "ext4", Directory);
    EXPECT_TRUE(state.mounted);
    EXPECT_FALSE(state.held);
    EXPECT_EQ(Shell(std::string("grep ' ") + Directory + " ' /proc/mounts | cut -d' ' -f1").output,
              "/dev/vda2\n");
    EXPECT_EQ(Owner(), "/dev/vda\n");
}

TEST_F(TakeMountPointInGuest, ABusyMountOfAnotherDiskIsNamedAndKept)
{
    // A process working inside the other disk's file system keeps it busy.
    ASSERT_EQ(Shell(std::string("mount /dev/vdb2 ") + Directory).status, 0);
    ASSERT_EQ(Shell(std::string("cd ") + Directory +
                    " && (sleep 60 </dev/null >/dev/null 2>&1 &) && sleep 0.5")
                  .status,
              0);
    const auto state = TakeMountPoint("/dev/vda", 2, "ext4", Directory);
    Shell("pkill -x sleep; sleep 0.5");
    EXPECT_FALSE(state.mounted);
    EXPECT_TRUE(state.held);
    EXPECT_EQ(state.holder, "/dev/vdb2");
    // The other disk is still there, as it was.
    EXPECT_EQ(Owner(), "/dev/vdb\n");
    EXPECT_EQ(HeldMessage(Directory, state.holder, "/dev/vda"),
              std::string(Directory) +
                  " is held by /dev/vdb2, not by /dev/vda: it cannot be released.");
}

TEST_F(TakeMountPointInGuest, APartitionThatCannotBeMountedLeavesTheMountPointEmpty)
{
    // Partition 3 has no file system: the other disk is released all the
    // same, and nothing stands on the mount point afterwards.
    ASSERT_EQ(Shell(std::string("mount /dev/vdb2 ") + Directory).status, 0);
    const auto state = TakeMountPoint("/dev/vda", 3, "ext4", Directory);
    EXPECT_FALSE(state.mounted);
    EXPECT_FALSE(state.held);
    EXPECT_EQ(DeviceMountedOn(Directory), "");
    EXPECT_EQ(Shell("mount /dev/vdb2 /tmp/fill && cat /tmp/fill/owner; umount /tmp/fill").output,
              "/dev/vdb\n");
}

} // namespace
