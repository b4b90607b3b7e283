// Host tests of how partitions are named and which disks can be targets:
// the partition device name against libparted's own (on regular files named
// like the kernel's disks), a scan of the sources for any other place that
// glues a disk and a number together, the device kinds that are never a
// target, and the disks behind a mount point on prepared mountinfo files and
// sysfs trees. No root, no device.
#include "DiskDiagnostics.h"
#include "PartedHandles.h"

#include "ScratchDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace detail = Kel::ZarnLinuxTools::detail;
namespace Parted = Kel::ZarnLinuxTools::Parted;
using TestSupport::ScratchDirectory;

namespace
{

void WriteFile(const std::string& path, const std::string& text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// --- the partition device name ---------------------------------------------------

TEST(PartitionDeviceName, DisksEndingInALetterKeepDiskPathAndNumber)
{
    EXPECT_EQ(detail::PartitionDeviceName("/dev/sda", 1), "/dev/sda1");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/sdb", 2), "/dev/sdb2");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/vda", 1), "/dev/vda1");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/hda", 3), "/dev/hda3");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/sda", 12), "/dev/sda12");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/xvdaa", 4), "/dev/xvdaa4");
}

TEST(PartitionDeviceName, DisksEndingInADigitGetAP)
{
    EXPECT_EQ(detail::PartitionDeviceName("/dev/nvme0n1", 2), "/dev/nvme0n1p2");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/nvme1n12", 1), "/dev/nvme1n12p1");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/mmcblk0", 1), "/dev/mmcblk0p1");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/mmcblk1", 3), "/dev/mmcblk1p3");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/md1", 2), "/dev/md1p2");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/md127", 1), "/dev/md127p1");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/loop0", 1), "/dev/loop0p1");
}

TEST(PartitionDeviceName, ARaidArrayAndItsPartitionCannotBeConfused)
{
    // Without the separator /dev/md1 and 2 would be /dev/md12: another array.
    EXPECT_NE(detail::PartitionDeviceName("/dev/md1", 2), "/dev/md12");
    EXPECT_NE(detail::PartitionDeviceName("/dev/md1", 2),
              detail::PartitionDeviceName("/dev/md12", 0));
}

TEST(PartitionDeviceName, EdgeValuesStayPlainText)
{
    EXPECT_EQ(detail::PartitionDeviceName(nullptr, 1), "1");
    EXPECT_EQ(detail::PartitionDeviceName("", 1), "1");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/sda", -1), "/dev/sda-1");
}

// libparted names the partitions of a device the way the kernel does; a
// regular file stands for the disk, named like the kernel's.
TEST(PartitionDeviceName, AgreesWithLibparted)
{
    ScratchDirectory scratch("disk-naming");
    ASSERT_FALSE(scratch.path.empty());
    Parted::InstallQuietExceptionHandler();
    for (const std::string name :
         {"sda", "vdb", "hdc", "nvme0n1", "mmcblk0", "md1", "loop7", "xvdz"})
    {
        SCOPED_TRACE(name);
        const std::string path = scratch.Join(name);
        {
            std::ofstream image(path, std::ios::binary);
            image.seekp((8 << 20) - 1);
            image.put('\0');
        }
        Parted::DevicePtr device = Parted::GetDevice(path.c_str());
        ASSERT_TRUE(device);
        Parted::DiskPtr disk(ped_disk_new_fresh(device.get(), ped_disk_type_get("msdos")));
        ASSERT_TRUE(disk);
        PedSector start = 2048;
        for (int number = 1; number <= 3; ++number)
        {
            PedPartition* partition =
                ped_partition_new(disk.get(), PED_PARTITION_NORMAL, nullptr, start, start + 2047);
            ASSERT_NE(partition, nullptr);
            PedConstraint* exact = ped_device_get_constraint(device.get());
            ASSERT_NE(ped_disk_add_partition(disk.get(), partition, exact), 0);
            ped_constraint_destroy(exact);
            start += 4096;
            char* reference = ped_partition_get_path(partition);
            ASSERT_NE(reference, nullptr);
            EXPECT_EQ(detail::PartitionDeviceName(path.c_str(), partition->num), reference);
            free(reference);
        }
    }
}

// --- no other place builds a partition name ---------------------------------------

std::vector<std::filesystem::path> LibrarySources()
{
    std::vector<std::filesystem::path> sources;
    for (const char* directory : {"linuxtools", "installer", "wizard"})
        for (const auto& entry : std::filesystem::recursive_directory_iterator(
                 std::filesystem::path(WIZARD_SOURCE_DIR) / directory))
        {
            const auto extension = entry.path().extension();
            if (entry.is_regular_file() && (extension == ".cpp" || extension == ".h"))
                sources.push_back(entry.path());
        }
    return sources;
}

TEST(PartitionDeviceName, IsTheOnlyPlaceThatBuildsAPartitionName)
{
    // What gluing a disk and a partition number together looks like: a path
    // or device followed by a digit text or a number turned into text, or a
    // printf format of a text right before a number.
    const std::regex gluing(
        R"((path|device|disk|Device|Disk)\w*(\)|\.c_str\(\))?\s*\+\s*("[0-9]+"|std::to_string\s*\((number|partition|num|index)))"
        R"(|"%s%d"|"%sp%d"|"%s%i")");
    const std::regex definition(R"(^std::string PartitionDeviceName\()");
    std::vector<std::string> offenders;
    size_t scanned = 0;
    for (const auto& source : LibrarySources())
    {
        ++scanned;
        std::ifstream in(source);
        std::string line;
        int number = 0;
        bool inDefinition = false;
        while (std::getline(in, line))
        {
            ++number;
            if (std::regex_search(line, definition))
                inDefinition = true;
            else if (inDefinition && line == "}")
                inDefinition = false;
            if (!inDefinition && std::regex_search(line, gluing))
                offenders.push_back(source.string() + ":" + std::to_string(number) + ": " + line);
        }
    }
    EXPECT_GT(scanned, 50u) << "the sources were not found";
    std::string listed;
    for (const auto& offender : offenders)
        listed += offender + "\n";
    EXPECT_TRUE(offenders.empty()) << listed;
}

TEST(PartitionDeviceName, TheScanRecognisesTheGluingItLooksFor)
{
    // The scan's own pattern, tried on the forms it must catch.
    const std::regex gluing(
        R"((path|device|disk|Device|Disk)\w*(\)|\.c_str\(\))?\s*\+\s*("[0-9]+"|std::to_string\s*\((number|partition|num|index)))"
        R"(|"%s%d"|"%sp%d"|"%s%i")");
    for (const std::string line :
         {R"(const std::string partition = disk->path + "1";)",
          R"(std::string name = std::string(device) + std::to_string(number);)",
          R"(snprintf(buffer, size, "%s%d", device, number);)",
          R"(const auto name = devicePath + std::to_string(partition);)"})
        EXPECT_TRUE(std::regex_search(line, gluing)) << line;
    for (const std::string line :
         {R"(ZarnLinuxTools::detail::PartitionDeviceName(disk->path.c_str(), 1))",
          R"(const std::string commandLine = "/sbin/reboot -d " + std::to_string(delay);)"})
        EXPECT_FALSE(std::regex_search(line, gluing)) << line;
}

// --- devices that are never a target -----------------------------------------------

TEST(CanBeTarget, DisksOfEveryKindAreTargets)
{
    for (const std::string name : {"sda", "sdz", "sdaa", "vda", "hda", "xvda", "nvme0n1", "nvme1n2",
                                   "mmcblk0", "mmcblk1", "md0", "md127", "dm-0"})
        EXPECT_TRUE(detail::CanBeTarget(name)) << name;
}

TEST(CanBeTarget, MemoryLoopOpticalAndEmmcSpecialAreasAreNot)
{
    for (const std::string name :
         {"loop0", "loop12", "ram0", "ram15", "zram0", "sr0", "scd0", "fd0", "mmcblk0boot0",
          "mmcblk0boot1", "mmcblk0rpmb", "mmcblk2gp0", ""})
        EXPECT_FALSE(detail::CanBeTarget(name)) << name;
}

// --- the disks behind a mount point --------------------------------------------------

class HeldDisks : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(scratch.path.empty());
        sysfs = scratch.Join("sys");
        // sda with sda1, nvme0n1 with nvme0n1p1 and p2, md0 on sdb1 and sdc1,
        // mmcblk0 whole.
        Disk("devices/pci0000:00/ata1/block/sda", "8:0");
        Partition("devices/pci0000:00/ata1/block/sda", "sda1", "8:1");
        Disk("devices/pci0000:00/nvme/nvme0/block/nvme0n1", "259:0");
        Partition("devices/pci0000:00/nvme/nvme0/block/nvme0n1", "nvme0n1p1", "259:1");
        Partition("devices/pci0000:00/nvme/nvme0/block/nvme0n1", "nvme0n1p2", "259:2");
        Disk("devices/pci0000:00/ata2/block/sdb", "8:16");
        Partition("devices/pci0000:00/ata2/block/sdb", "sdb1", "8:17");
        Disk("devices/pci0000:00/ata3/block/sdc", "8:32");
        Partition("devices/pci0000:00/ata3/block/sdc", "sdc1", "8:33");
        Disk("devices/virtual/block/md0", "9:0");
        Slave("devices/virtual/block/md0", "devices/pci0000:00/ata2/block/sdb/sdb1");
        Slave("devices/virtual/block/md0", "devices/pci0000:00/ata3/block/sdc/sdc1");
        Disk("devices/pci0000:00/mmc/block/mmcblk0", "179:0");
    }

    void Disk(const std::string& node, const std::string& number)
    {
        std::filesystem::create_directories(sysfs + "/" + node);
        Link(number, node);
    }

    void Partition(const std::string& disk, const std::string& name, const std::string& number)
    {
        const std::string node = disk + "/" + name;
        WriteFile(sysfs + "/" + node + "/partition", "1\n");
        Link(number, node);
    }

    void Slave(const std::string& node, const std::string& slave)
    {
        const std::string directory = sysfs + "/" + node + "/slaves";
        std::filesystem::create_directories(directory);
        std::filesystem::create_directory_symlink(
            sysfs + "/" + slave,
            directory + "/" + std::filesystem::path(slave).filename().string());
    }

    void Link(const std::string& number, const std::string& node)
    {
        std::filesystem::create_directories(sysfs + "/dev/block");
        std::filesystem::create_directory_symlink("../../" + node, sysfs + "/dev/block/" + number);
    }

    std::string Mountinfo(const std::string& text)
    {
        const std::string path = scratch.Join("mountinfo");
        WriteFile(path, text);
        return path;
    }

    ScratchDirectory scratch{"held-disks"};
    std::string sysfs;
};

TEST_F(HeldDisks, MountedDevicesAreTakenFromTheWantedDirectoriesOnly)
{
    const std::string mountinfo =
        Mountinfo("21 1 0:20 / / rw,relatime - overlay overlay rw\n"
                  "30 21 8:1 / /mnt/USB rw,relatime - vfat /dev/sda1 rw\n"
                  "31 21 259:2 / /mnt/SYS rw - ext4 /dev/nvme0n1p2 rw\n"
                  "32 21 8:1 / /mnt/USB/again rw - vfat /dev/sda1 rw\n"
                  "33 21 179:0 / /mnt/with\\040space rw - vfat /dev/mmcblk0 rw\n"
                  "broken line\n");
    EXPECT_EQ(detail::MountedDevices(mountinfo.c_str(), {"/mnt/USB"}),
              std::vector<std::string>({"8:1"}));
    EXPECT_EQ(detail::MountedDevices(mountinfo.c_str(), {"/mnt/USB", "/"}),
              std::vector<std::string>({"0:20", "8:1"}));
    EXPECT_EQ(detail::MountedDevices(mountinfo.c_str(), {"/mnt/with space"}),
              std::vector<std::string>({"179:0"}));
    EXPECT_TRUE(detail::MountedDevices(mountinfo.c_str(), {"/mnt/USB/"}).empty());
    EXPECT_TRUE(detail::MountedDevices(scratch.Join("missing").c_str(), {"/"}).empty());
    EXPECT_TRUE(detail::MountedDevices(nullptr, {"/"}).empty());
}

TEST_F(HeldDisks, APartitionHoldsItsDisk)
{
    EXPECT_EQ(detail::DisksBehind(sysfs, {"8:1"}), std::set<std::string>({"sda"}));
    EXPECT_EQ(detail::DisksBehind(sysfs, {"259:2"}), std::set<std::string>({"nvme0n1"}));
}

TEST_F(HeldDisks, AWholeDiskHoldsItself)
{
    EXPECT_EQ(detail::DisksBehind(sysfs, {"179:0"}), std::set<std::string>({"mmcblk0"}));
    EXPECT_EQ(detail::DisksBehind(sysfs, {"8:0"}), std::set<std::string>({"sda"}));
}

TEST_F(HeldDisks, ARaidArrayHoldsItselfAndTheDisksUnderIt)
{
    EXPECT_EQ(detail::DisksBehind(sysfs, {"9:0"}), std::set<std::string>({"md0", "sdb", "sdc"}));
}

TEST_F(HeldDisks, NumbersWithoutABlockDeviceHoldNothing)
{
    // The root of an overlay or a network file system.
    EXPECT_TRUE(detail::DisksBehind(sysfs, {"0:20", "nonsense", ""}).empty());
    EXPECT_EQ(detail::DisksBehind(sysfs, {"0:20", "8:17"}), std::set<std::string>({"sdb"}));
}

TEST_F(HeldDisks, KernelNameFallsBackOnThePathsLastComponent)
{
    // Not a device node here: the name the path gives.
    EXPECT_EQ(detail::KernelName(sysfs, "/dev/no-such-disk0"), "no-such-disk0");
    EXPECT_EQ(detail::KernelName(sysfs, scratch.Join("mountinfo")), "mountinfo");
}

} // namespace
