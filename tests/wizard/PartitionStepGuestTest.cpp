// Partition analysis and partition changes on real disks in the sandbox guest:
// /dev/vda is a sparse 16 GiB disk, /dev/vdb a 3 GiB one. Layouts are made with
// parted and the real mkfs tools; the step's own changes run the same tools
// through the disk tools, then syslinux and the boot record.
//
// The board identity is read once per process; here it is always a chassis on
// which the DOS side of older versions is kept ("QA3-4U").
#include "PartitionStep.h"

#include "DiskDiagnostics.h"
#include "EepromReader.h"
#include "GuestShell.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

using Kel::Vidorama::InstallerLib::EepromReader;
using Kel::Vidorama::InstallerWizard::PartitionStep;
using Kel::ZarnLinuxTools::Disk;
using Kel::ZarnLinuxTools::DiskDiagnostics;
using Kel::ZarnLinuxTools::Partition;
using Sandbox::BlockDeviceBytes;
using Sandbox::InSandbox;
using Sandbox::ReadFile;
using Sandbox::Shell;
using Sandbox::ShellResult;
using Sandbox::WriteFile;
namespace fs = std::filesystem;

const char* const LargeDisk = "/dev/vda";
const char* const SmallDisk = "/dev/vdb";
const std::uint64_t LargeBytes = 16ull << 30;
const std::uint64_t SmallBytes = 3ull << 30;
const char* const IdentityTool = "/var/tmp/identity";
const char* const DataDirectory = "/mnt/USB/data/";

std::shared_ptr<Disk> DiskRecord(const char* path)
{
    auto disk = std::make_shared<Disk>();
    disk->path = path;
    disk->sectorSize = 512;
    disk->sectorCount = static_cast<int64_t>(BlockDeviceBytes(path) / 512);
    disk->size = static_cast<int64_t>(BlockDeviceBytes(path));
    return disk;
}

// A new layout: parted's commands after "mklabel msdos" (none for a bare table),
// then the shell commands that format. An empty label wipes the table away.
ShellResult Layout(const char* disk, const std::string& partitions, const std::string& format)
{
    std::string command = std::string("umount /mnt/DOS /mnt/SYS 2>/dev/null; wipefs -q -a ") +
                          disk + "; dd if=/dev/zero of=" + disk +
                          " bs=1M count=2 conv=notrunc 2>/dev/null";
    if (partitions != "none")
    {
        command += std::string(" && parted -s ") + disk + " mklabel msdos " + partitions;
    }
    command += std::string(" && partprobe ") + disk + " ; udevadm settle; sleep 1";
    if (!format.empty())
    {
        command += " && " + format;
    }
    return Shell(command);
}

std::vector<std::string> LogLinesFrom(size_t start)
{
    std::vector<std::string> lines;
    std::istringstream log(ReadFile("/io/work/installer.log").substr(start));
    std::string line;
    while (std::getline(log, line))
    {
        // "date time \t|\t level \t|\t message": the level and the message.
        const size_t first = line.find("\t|\t");
        lines.push_back(first == std::string::npos ? line : line.substr(first + 3));
    }
    return lines;
}

// The first 512 bytes of a FAT boot sector in hexadecimal, but for byte 37: the
// kernel marks the file system there while it is mounted.
std::string SectorWithoutDirtyFlag(const std::string& file)
{
    return Shell("dd if=" + file + " bs=512 count=1 2>/dev/null | od -An -tx1 -N 37 && dd if=" +
                 file + " bs=512 count=1 2>/dev/null | od -An -tx1 -j 38")
        .output;
}

// The DOS partition where the tests look at it; syslinux leaves it unmounted.
int MountDos(const std::string& partition)
{
    return Shell("mountpoint -q /mnt/DOS || mount -t vfat " + partition + " /mnt/DOS").status;
}

size_t LogSize()
{
    return ReadFile("/io/work/installer.log").size();
}

class PartitionStepInGuest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        if (!InSandbox())
        {
            problem = "runs only inside the sandbox guest";
            return;
        }
        if (BlockDeviceBytes(LargeDisk) != LargeBytes || BlockDeviceBytes(SmallDisk) != SmallBytes)
        {
            problem = "the scratch disks are not the expected images";
            return;
        }
        const ShellResult directories =
            Shell(std::string("mkdir -p /mnt/DOS /mnt/SYS ") + DataDirectory);
        if (directories.status != 0)
        {
            problem = "setup failed:\n" + directories.output;
            return;
        }
        if (!WriteFile(
                IdentityTool,
                "#!/bin/sh\necho '{\"SerialNumber\": \"T-1\", \"Chassis\": \"QA3-4U\"}'\n") ||
            ::chmod(IdentityTool, 0755) != 0 ||
            !WriteFile(std::string(DataDirectory) + "bootLinux.config", "DEFAULT linux\n") ||
            !WriteFile(std::string(DataDirectory) + "bootDosLinux.config", "DEFAULT doslinux\n") ||
            !WriteFile(std::string(DataDirectory) + "KELVidorama.jpg", "JPEG"))
        {
            problem = "cannot write the identity tool and the boot files";
        }
    }

    void SetUp() override { ASSERT_EQ(problem, ""); }

    static std::string problem;
    EepromReader reader{"/nonexistent/drivers/", "/nonexistent/ucode", IdentityTool};
};

std::string PartitionStepInGuest::problem;

TEST_F(PartitionStepInGuest, ADiskWithoutTableGetsEverything)
{
    ASSERT_EQ(Layout(SmallDisk, "none", "").status, 0);
    PartitionStep step(reader);
    step.SetDisk(DiskRecord(SmallDisk));
    EXPECT_FALSE(step.AnalyzePartitions());
    EXPECT_TRUE(step.createPartitionTable);
    EXPECT_TRUE(step.createFatPartition);
    EXPECT_TRUE(step.setFatBootable);
    EXPECT_TRUE(step.createExt4Partition);
    EXPECT_TRUE(step.createSwapPartition);
    EXPECT_FALSE(step.deletePartition1 || step.deletePartition2 || step.deletePartition3 ||
                 step.deletePartition4);
    EXPECT_EQ(step.fatSectors, -1);
    EXPECT_FALSE(step.IsPartitionsReady());
}

TEST_F(PartitionStepInGuest, AnEmptyMsdosTableIsKept)
{
    ASSERT_EQ(Layout(SmallDisk, "", "").status, 0);
    PartitionStep step(reader);
    step.SetDisk(DiskRecord(SmallDisk));
    EXPECT_FALSE(step.AnalyzePartitions());
    EXPECT_FALSE(step.createPartitionTable);
    EXPECT_TRUE(step.createFatPartition && step.setFatBootable && step.createExt4Partition &&
                step.createSwapPartition);
    EXPECT_FALSE(step.deletePartition1 || step.deletePartition2 || step.deletePartition3 ||
                 step.deletePartition4);
}

TEST_F(PartitionStepInGuest, AGoodFatPartitionWithoutBootFlag)
{
    const ShellResult layout = Layout(SmallDisk, "mkpart primary fat16 1MiB 2001MiB",
                                      "mkfs.fat -F 16 -n DOS /dev/vdb1 >/dev/null");
    ASSERT_EQ(layout.status, 0) << layout.output;
    const Partition partition = DiskDiagnostics::GetPartition(SmallDisk, 1);
    ASSERT_EQ(partition.fileSystem, "fat16");
    ASSERT_FALSE(partition.bootable);

    PartitionStep step(reader);
    step.SetDisk(DiskRecord(SmallDisk));
    EXPECT_FALSE(step.AnalyzePartitions());
    EXPECT_FALSE(step.createPartitionTable || step.createFatPartition);
    EXPECT_TRUE(step.setFatBootable);
    EXPECT_TRUE(step.createExt4Partition);
    EXPECT_TRUE(step.createSwapPartition);
    EXPECT_FALSE(step.deletePartition1 || step.deletePartition2 || step.deletePartition3 ||
                 step.deletePartition4);
    EXPECT_EQ(step.fatSectors, partition.sectorCount);
    EXPECT_EQ(step.fatSectors, 2000 * 2048);
}

TEST_F(PartitionStepInGuest, Fat32PassesAndAnotherTypeCascades)
{
    ASSERT_EQ(Layout(SmallDisk,
                     "mkpart primary fat32 1MiB 1100MiB mkpart primary ext4 1100MiB 2200MiB",
                     "mkfs.fat -F 32 /dev/vdb1 >/dev/null && mkfs.ext4 -q -F /dev/vdb2")
                  .status,
              0);
    PartitionStep fat32(reader);
    fat32.SetDisk(DiskRecord(SmallDisk));
    EXPECT_FALSE(fat32.AnalyzePartitions());
    EXPECT_FALSE(fat32.createFatPartition);
    EXPECT_FALSE(fat32.createExt4Partition);
    EXPECT_TRUE(fat32.createSwapPartition);
    EXPECT_FALSE(fat32.deletePartition1 || fat32.deletePartition2);
    EXPECT_EQ(fat32.ext4Sectors, 1100 * 2048);

    ASSERT_EQ(
        Layout(
            SmallDisk,
            "mkpart primary ext4 1MiB 1100MiB mkpart primary ext4 1100MiB 2200MiB "
            "mkpart primary linux-swap 2200MiB 2600MiB",
            "mkfs.ext4 -q -F /dev/vdb1 && mkfs.ext4 -q -F /dev/vdb2 && mkswap /dev/vdb3 >/dev/null")
            .status,
        0);
    PartitionStep other(reader);
    other.SetDisk(DiskRecord(SmallDisk));
    EXPECT_FALSE(other.AnalyzePartitions());
    EXPECT_TRUE(other.deletePartition1 && other.deletePartition2 && other.deletePartition3);
    EXPECT_FALSE(other.deletePartition4);
    EXPECT_TRUE(other.createFatPartition && other.setFatBootable && other.createExt4Partition &&
                other.createSwapPartition);
    EXPECT_FALSE(other.createPartitionTable);
}

TEST_F(PartitionStepInGuest, ASwapPartitionOfExactly256MiBPasses)
{
    const ShellResult layout = Layout(
        SmallDisk,
        "mkpart primary fat16 1MiB 1026MiB set 1 boot on mkpart primary ext4 1026MiB 2051MiB "
        "mkpart primary linux-swap 2051MiB 2307MiB",
        "mkfs.fat -F 16 /dev/vdb1 >/dev/null && mkfs.ext4 -q -F /dev/vdb2 && mkswap /dev/vdb3 "
        ">/dev/null");
    ASSERT_EQ(layout.status, 0) << layout.output;
    ASSERT_EQ(DiskDiagnostics::GetPartition(SmallDisk, 3).size, 268435456);

    PartitionStep step(reader);
    step.SetDisk(DiskRecord(SmallDisk));
    EXPECT_TRUE(step.AnalyzePartitions());
    EXPECT_TRUE(step.IsPartitionsReady());
    EXPECT_FALSE(step.setFatBootable);
    EXPECT_EQ(step.swapSectors, 256 * 2048);
}

TEST_F(PartitionStepInGuest, ASixteenGigabyteBlankDiskIsLaidOutAndMadeBootable)
{
    ASSERT_EQ(Layout(LargeDisk, "none", "").status, 0);
    PartitionStep step(reader);
    step.SetDisk(DiskRecord(LargeDisk));
    ASSERT_FALSE(step.AnalyzePartitions());
    ASSERT_TRUE(step.ApplyPartitionsChanges()) << ReadFile("/io/work/installer.log");

    const int64_t length = static_cast<int64_t>(LargeBytes / 512);
    std::unique_ptr<std::vector<Partition>> partitions(DiskDiagnostics::GetPartitions(LargeDisk));
    ASSERT_EQ(partitions->size(), 3u);
    // The disk tools take a size's last sector as included: one sector more than asked.
    EXPECT_EQ((*partitions)[0].sectorCount, 4096512 + 1);
    EXPECT_EQ((*partitions)[0].fileSystem, "fat16");
    EXPECT_TRUE((*partitions)[0].bootable);
    EXPECT_EQ((*partitions)[1].sectorCount, (length + 3) / 2 + 1);
    EXPECT_EQ((*partitions)[1].fileSystem, "ext4");
    EXPECT_EQ((*partitions)[2].fileSystem, "linux-swap(v1)");
    EXPECT_EQ(Shell("blkid -o value -s LABEL /dev/vda1 /dev/vda2 /dev/vda3").output,
              "DOS\nLINUX\nSWAP\n");

    // syslinux on the DOS side with the Linux-only configuration, mbr.bin at the start.
    ASSERT_EQ(MountDos("/dev/vda1"), 0);
    EXPECT_EQ(ReadFile("/mnt/DOS/boot/syslinux/syslinux.cfg"), "DEFAULT linux\n");
    EXPECT_TRUE(fs::is_regular_file("/mnt/DOS/boot/syslinux/ldlinux.sys") ||
                fs::is_regular_file("/mnt/DOS/ldlinux.sys"));
    EXPECT_EQ(Shell("cmp -n 440 /dev/vda /usr/share/syslinux/mbr.bin").status, 0);
    EXPECT_FALSE(fs::exists("/mnt/DOS/boot/syslinux/msdosmbr.bin"))
        << "no DOS system, nothing to save";
}

TEST_F(PartitionStepInGuest, AFailedDeleteOfPartitionTwoCascades)
{
    ASSERT_EQ(Layout(SmallDisk, "mkpart primary fat16 1MiB 1100MiB",
                     "mkfs.fat -F 16 /dev/vdb1 >/dev/null")
                  .status,
              0);
    PartitionStep step(reader);
    step.SetDisk(DiskRecord(SmallDisk));
    step.AnalyzePartitions();
    // There is no partition 2 to delete.
    step.deletePartition2 = true;
    const size_t start = LogSize();
    EXPECT_FALSE(step.ApplyPartitionsChanges());
    const std::vector<std::string> lines = LogLinesFrom(start);
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "3\t|\tFail delete primary partition 2", "3\t|\tFail delete primary partition 3",
                  "3\t|\tFail delete primary partition 4", "3\t|\tFail set fat partition bootable",
                  "3\t|\tFail create Ext4 partition", "3\t|\tFail create Swap partition"}));
}

TEST_F(PartitionStepInGuest, AKeptDosPartitionIsCleanedAndItsBootSectorSavedOnce)
{
    ASSERT_EQ(
        Layout(
            SmallDisk,
            "mkpart primary fat16 1MiB 1100MiB set 1 boot on mkpart primary ext4 1100MiB 2200MiB",
            "mkfs.fat -F 16 /dev/vdb1 >/dev/null && mkfs.ext4 -q -F /dev/vdb2")
            .status,
        0);
    // A DOS installation with configuration lines.
    ASSERT_EQ(Shell("mount -t vfat /dev/vdb1 /mnt/DOS && mkdir -p /mnt/DOS/dorim/data/setup/sub && "
                    "touch /mnt/DOS/COMMAND.COM /mnt/DOS/IO.SYS /mnt/DOS/MSDOS.SYS "
                    "/mnt/DOS/dorim/data/setup/a.lin /mnt/DOS/dorim/data/setup/sub/b.lin && umount "
                    "/mnt/DOS")
                  .status,
              0);
    const std::string bootSector = SectorWithoutDirtyFlag("/dev/vdb1");

    PartitionStep step(reader);
    step.SetDisk(DiskRecord(SmallDisk));
    step.AnalyzePartitions();
    // The format as "Format and Install" widens it on this board.
    step.keepDosPartition = true;
    step.deletePartition2 = true;
    step.createExt4Partition = true;
    step.createSwapPartition = true;
    ASSERT_TRUE(step.ApplyPartitionsChanges()) << ReadFile("/io/work/installer.log");

    ASSERT_EQ(MountDos("/dev/vdb1"), 0);
    EXPECT_EQ(Shell("find /mnt/DOS/dorim/data/setup -type f").output, "");
    EXPECT_TRUE(fs::is_regular_file("/mnt/DOS/COMMAND.COM"));
    EXPECT_EQ(SectorWithoutDirtyFlag("/mnt/DOS/boot/syslinux/msdosmbr.bin"), bootSector);
    EXPECT_EQ(ReadFile("/mnt/DOS/boot/syslinux/syslinux.cfg"), "DEFAULT doslinux\n");

    // A second format keeps the first saved sector, not syslinux's.
    const std::string saved = ReadFile("/mnt/DOS/boot/syslinux/msdosmbr.bin");
    ASSERT_EQ(saved.size(), 512u);
    PartitionStep again(reader);
    again.SetDisk(DiskRecord(SmallDisk));
    again.AnalyzePartitions();
    again.keepDosPartition = true;
    again.deletePartition2 = true;
    again.deletePartition3 = true;
    again.createExt4Partition = true;
    again.createSwapPartition = true;
    ASSERT_TRUE(again.ApplyPartitionsChanges()) << ReadFile("/io/work/installer.log");
    ASSERT_EQ(MountDos("/dev/vdb1"), 0);
    EXPECT_EQ(ReadFile("/mnt/DOS/boot/syslinux/msdosmbr.bin"), saved);
    EXPECT_NE(SectorWithoutDirtyFlag("/dev/vdb1"), bootSector);
}

TEST_F(PartitionStepInGuest, AMissingBootConfigurationFailsBeforeSyslinux)
{
    ASSERT_EQ(Layout(SmallDisk, "mkpart primary fat16 1MiB 1100MiB set 1 boot on",
                     "mkfs.fat -F 16 /dev/vdb1 >/dev/null")
                  .status,
              0);
    ASSERT_EQ(Shell(std::string("mv ") + DataDirectory + "bootLinux.config /var/tmp/").status, 0);
    PartitionStep step(reader);
    step.SetDisk(DiskRecord(SmallDisk));
    step.AnalyzePartitions();
    const size_t start = LogSize();
    EXPECT_FALSE(step.ApplyPartitionsChanges());
    Shell(std::string("mv /var/tmp/bootLinux.config ") + DataDirectory);
    const std::vector<std::string> lines = LogLinesFrom(start);
    ASSERT_EQ(MountDos("/dev/vdb1"), 0);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "3\t|\tFail install bootloader, cannot find syslinux config");
    EXPECT_FALSE(fs::exists("/mnt/DOS/boot/syslinux/syslinux.cfg"));
    EXPECT_FALSE(fs::exists("/mnt/DOS/ldlinux.sys"));
    EXPECT_FALSE(fs::exists("/mnt/DOS/boot/syslinux/ldlinux.sys"));
}

} // namespace
