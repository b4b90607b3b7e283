// Host tests of the disk diagnostics that need no device and no root: the
// printed device kinds, the udev output parsing, the mount queries on
// prepared mtab-like files, the records' defaults and the file kind tests.
#include "DiskDiagnostics.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>
#include <string>

#include <sys/statvfs.h>
#include <unistd.h>

using Kel::ZarnLinuxTools::Disk;
using Kel::ZarnLinuxTools::DiskDiagnostics;
using Kel::ZarnLinuxTools::DiskType;
using Kel::ZarnLinuxTools::Partition;
namespace detail = Kel::ZarnLinuxTools::detail;

namespace
{

// A private scratch directory, removed with everything in it.
class ScratchDir
{
public:
    ScratchDir()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "dd-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) != nullptr)
            path_ = pattern;
    }
    ~ScratchDir()
    {
        if (!path_.empty())
        {
            std::error_code ignored;
            std::filesystem::remove_all(path_, ignored);
        }
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    bool Ok() const { return !path_.empty(); }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

void WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

std::string Printed(DiskType type)
{
    std::ostringstream out;
    out << type;
    return out.str();
}

} // namespace

// --- DiskType --------------------------------------------------------------

TEST(DiskTypePrinting, EveryKnownValueHasItsName)
{
    const std::map<int, std::string> names = {
        {0, "unknown"}, {1, "scsi"}, {2, "ide"}, {3, "dac960"}, {4, "cpqarray"}, {5, "file"},
        {6, "ataraid"}, {7, "i2O"},  {8, "ubd"}, {9, "dasd"},   {10, "viodasd"}, {11, "sx8"},
    };
    for (const auto& [value, name] : names)
    {
        std::ostringstream out;
        out << static_cast<DiskType>(value);
        EXPECT_EQ(out.str(), name) << "value " << value;
        EXPECT_TRUE(out.good()) << "value " << value;
    }
}

TEST(DiskTypePrinting, SevenIsI2OWithACapitalO)
{
    EXPECT_EQ(Printed(Kel::ZarnLinuxTools::DiskTypeI2O), "i2O");
    EXPECT_EQ(Printed(static_cast<DiskType>(7)), "i2O");
}

TEST(DiskTypePrinting, EnumeratorsMatchLibpartedDeviceTypes)
{
    EXPECT_EQ(static_cast<int>(Kel::ZarnLinuxTools::DiskTypeUnknown), PED_DEVICE_UNKNOWN);
    EXPECT_EQ(static_cast<int>(Kel::ZarnLinuxTools::DiskTypeScsi), PED_DEVICE_SCSI);
    EXPECT_EQ(static_cast<int>(Kel::ZarnLinuxTools::DiskTypeFile), PED_DEVICE_FILE);
    EXPECT_EQ(static_cast<int>(Kel::ZarnLinuxTools::DiskTypeI2O), PED_DEVICE_I2O);
    EXPECT_EQ(static_cast<int>(Kel::ZarnLinuxTools::DiskTypeSx8), PED_DEVICE_SX8);
}

TEST(DiskTypePrinting, OutOfRangeValueWritesNothingAndSetsFailbit)
{
    for (int value : {12, 15, -1, 1000})
    {
        std::ostringstream out;
        out << static_cast<DiskType>(value);
        EXPECT_EQ(out.str(), "") << "value " << value;
        EXPECT_TRUE(out.fail()) << "value " << value;
        EXPECT_FALSE(out.bad()) << "value " << value;
    }
}

TEST(DiskTypePrinting, ChainsLikeAnyOtherInserter)
{
    std::ostringstream out;
    out << Kel::ZarnLinuxTools::DiskTypeScsi << "/" << Kel::ZarnLinuxTools::DiskTypeIde;
    EXPECT_EQ(out.str(), "scsi/ide");
}

// --- udev output parsing -----------------------------------------------------

TEST(UdevParsing, KeyIsTheTextUpToTheFirstEquals)
{
    std::map<std::string, std::string> properties;
    detail::ParseUdevProperties("DEVNAME=/dev/vda\nID_BUS=usb\nDEVTYPE=disk\n", properties);
    const std::map<std::string, std::string> expected = {
        {"DEVNAME", "/dev/vda"}, {"ID_BUS", "usb"}, {"DEVTYPE", "disk"}};
    EXPECT_EQ(properties, expected);
}

TEST(UdevParsing, LineWithoutEqualsIsSkipped)
{
    std::map<std::string, std::string> properties;
    detail::ParseUdevProperties("no equals here\nA=1\n\nplain\nB=2\n", properties);
    const std::map<std::string, std::string> expected = {{"A", "1"}, {"B", "2"}};
    EXPECT_EQ(properties, expected);
}

TEST(UdevParsing, RepeatedKeyKeepsTheLastValue)
{
    std::map<std::string, std::string> properties;
    detail::ParseUdevProperties("ID_BUS=usb\nOTHER=x\nID_BUS=ata\n", properties);
    EXPECT_EQ(properties.size(), 2u);
    EXPECT_EQ(properties["ID_BUS"], "ata");
}

TEST(UdevParsing, ValueKeepsFurtherEqualsSigns)
{
    std::map<std::string, std::string> properties;
    detail::ParseUdevProperties("ID_FS_LABEL_ENC=a=b=c\nEMPTY=\n==x\n", properties);
    EXPECT_EQ(properties["ID_FS_LABEL_ENC"], "a=b=c");
    ASSERT_EQ(properties.count("EMPTY"), 1u);
    EXPECT_EQ(properties["EMPTY"], "");
    // An empty key is still a key.
    ASSERT_EQ(properties.count(""), 1u);
    EXPECT_EQ(properties[""], "=x");
    EXPECT_EQ(properties.size(), 3u);
}

TEST(UdevParsing, LastLineWithoutNewlineCountsAndBlanksAreKept)
{
    std::map<std::string, std::string> properties;
    detail::ParseUdevProperties("A=1\nB= two words ", properties);
    EXPECT_EQ(properties["A"], "1");
    EXPECT_EQ(properties["B"], " two words ");
}

TEST(UdevParsing, EmptyOutputLeavesTheMapAsItWasAndNewKeysOverwrite)
{
    std::map<std::string, std::string> properties = {{"KEEP", "k"}, {"ID_BUS", "usb"}};
    detail::ParseUdevProperties("", properties);
    EXPECT_EQ(properties.size(), 2u);
    detail::ParseUdevProperties("ID_BUS=ata\n", properties);
    EXPECT_EQ(properties["KEEP"], "k");
    EXPECT_EQ(properties["ID_BUS"], "ata");
}

// --- mount queries on prepared files ------------------------------------------

class MtabQueries : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir_.Ok());
        mtab_ = dir_ / "mtab";
        WriteFile(mtab_, "sysfs /sys sysfs rw,nosuid 0 0\n"
                         "/dev/sda1 /mnt/DOS vfat rw,relatime 0 0\n"
                         "/dev/sda2 /mnt/SYS ext4 rw,relatime 0 0\n"
                         "/dev/mmcblk0p1 /mnt/APPS vfat rw 0 0\n"
                         "tmpfs /tmp tmpfs rw 0 0\n"
                         "/dev/sdb1 /mnt/with\\040space ext4 rw 0 0\n");
    }

    ScratchDir dir_;
    std::string mtab_;
};

TEST_F(MtabQueries, PartitionDeviceNameFollowsTheKernelsNaming)
{
    EXPECT_EQ(detail::PartitionDeviceName("/dev/sda", 1), "/dev/sda1");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/sda", 12), "/dev/sda12");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/mmcblk0", 1), "/dev/mmcblk0p1");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/nvme0n1", 2), "/dev/nvme0n1p2");
    EXPECT_EQ(detail::PartitionDeviceName("/dev/sda", -1), "/dev/sda-1");
}

TEST_F(MtabQueries, DeviceIsFoundByExactName)
{
    EXPECT_TRUE(detail::IsDeviceInMtab(mtab_.c_str(), "/dev/sda1"));
    EXPECT_TRUE(detail::IsDeviceInMtab(mtab_.c_str(), "/dev/sda2"));
    EXPECT_TRUE(detail::IsDeviceInMtab(mtab_.c_str(), "tmpfs"));
    EXPECT_FALSE(detail::IsDeviceInMtab(mtab_.c_str(), "/dev/sda"));
    EXPECT_FALSE(detail::IsDeviceInMtab(mtab_.c_str(), "/dev/sda12"));
    EXPECT_FALSE(detail::IsDeviceInMtab(mtab_.c_str(), "/dev/sda3"));
    EXPECT_FALSE(detail::IsDeviceInMtab(mtab_.c_str(), "/dev//sda1"));
    EXPECT_FALSE(detail::IsDeviceInMtab(mtab_.c_str(), "/mnt/DOS"));
}

TEST_F(MtabQueries, MmcblkZeroNumberOneIsLookedUpAsMmcblk0p1)
{
    EXPECT_TRUE(
        detail::IsDeviceInMtab(mtab_.c_str(), detail::PartitionDeviceName("/dev/mmcblk0", 1)));
    EXPECT_FALSE(detail::IsDeviceInMtab(mtab_.c_str(), "/dev/mmcblk01"));
    EXPECT_TRUE(detail::IsDirectoryOnDeviceInMtab(mtab_.c_str(), "/mnt/APPS",
                                                  detail::PartitionDeviceName("/dev/mmcblk0", 1)));
}

TEST_F(MtabQueries, DirectoryMatchIsExact)
{
    EXPECT_TRUE(detail::IsDirectoryInMtab(mtab_.c_str(), "/mnt/SYS"));
    EXPECT_TRUE(detail::IsDirectoryInMtab(mtab_.c_str(), "/tmp"));
    EXPECT_FALSE(detail::IsDirectoryInMtab(mtab_.c_str(), "/mnt/SYS/"));
    EXPECT_FALSE(detail::IsDirectoryInMtab(mtab_.c_str(), "/mnt/sys"));
    EXPECT_FALSE(detail::IsDirectoryInMtab(mtab_.c_str(), "/mnt"));
    EXPECT_FALSE(detail::IsDirectoryInMtab(mtab_.c_str(), "/mnt/SYS/sub"));
    EXPECT_FALSE(detail::IsDirectoryInMtab(mtab_.c_str(), "/mnt//SYS"));
    EXPECT_FALSE(detail::IsDirectoryInMtab(mtab_.c_str(), ""));
}

TEST_F(MtabQueries, EscapedBlankInDirectoryIsDecoded)
{
    EXPECT_TRUE(detail::IsDirectoryInMtab(mtab_.c_str(), "/mnt/with space"));
    EXPECT_FALSE(detail::IsDirectoryInMtab(mtab_.c_str(), "/mnt/with\\040space"));
}

TEST_F(MtabQueries, DirectoryOnDeviceNeedsBothInTheSameEntry)
{
    EXPECT_TRUE(detail::IsDirectoryOnDeviceInMtab(mtab_.c_str(), "/mnt/SYS", "/dev/sda2"));
    EXPECT_TRUE(detail::IsDirectoryOnDeviceInMtab(mtab_.c_str(), "/mnt/DOS", "/dev/sda1"));
    // Each half matches some entry, but not the same one.
    EXPECT_FALSE(detail::IsDirectoryOnDeviceInMtab(mtab_.c_str(), "/mnt/SYS", "/dev/sda1"));
    EXPECT_FALSE(detail::IsDirectoryOnDeviceInMtab(mtab_.c_str(), "/mnt/SYS/", "/dev/sda2"));
    EXPECT_FALSE(detail::IsDirectoryOnDeviceInMtab(mtab_.c_str(), "/mnt/SYS", "/dev/sda"));
}

TEST_F(MtabQueries, MissingFileAnswersFalse)
{
    const std::string missing = dir_ / "no-such-mtab";
    EXPECT_FALSE(detail::IsDeviceInMtab(missing.c_str(), "/dev/sda1"));
    EXPECT_FALSE(detail::IsDirectoryInMtab(missing.c_str(), "/mnt/SYS"));
    EXPECT_FALSE(detail::IsDirectoryOnDeviceInMtab(missing.c_str(), "/mnt/SYS", "/dev/sda2"));
}

TEST_F(MtabQueries, EmptyFileAnswersFalse)
{
    const std::string empty = dir_ / "empty";
    WriteFile(empty, "");
    EXPECT_FALSE(detail::IsDeviceInMtab(empty.c_str(), "/dev/sda1"));
    EXPECT_FALSE(detail::IsDirectoryInMtab(empty.c_str(), "/mnt/SYS"));
    EXPECT_FALSE(detail::IsDirectoryOnDeviceInMtab(empty.c_str(), "/mnt/SYS", "/dev/sda2"));
}

TEST(MountQueries, RealMtabHasTheRootDirectory)
{
    // Only reads the host's mount table; the mounted cases run in the guest.
    EXPECT_TRUE(DiskDiagnostics::IsDirectoryMounted("/"));
    EXPECT_FALSE(DiskDiagnostics::IsDirectoryMounted("/no/such/mount/point"));
    EXPECT_FALSE(DiskDiagnostics::IsPartitionMounted("/dev/no-such-disk", 1));
    EXPECT_FALSE(DiskDiagnostics::IsDirectoryMountedOn("/", "/dev/no-such-disk", 1));
}

// --- records -------------------------------------------------------------------

TEST(Records, DiskDefaults)
{
    const Disk disk;
    EXPECT_EQ(disk.path, "");
    EXPECT_EQ(disk.tableType, "");
    EXPECT_EQ(disk.model, "");
    EXPECT_FALSE(disk.dirty);
    EXPECT_EQ(disk.size, -1);
    EXPECT_EQ(disk.sectorSize, -1);
    EXPECT_EQ(disk.sectorCount, -1);
    EXPECT_EQ(disk.physicalSectorSize, -1);
    EXPECT_EQ(disk.type, Kel::ZarnLinuxTools::DiskTypeUnknown);
    EXPECT_TRUE(disk.udevProperties.empty());
}

TEST(Records, PartitionDefaults)
{
    const Partition partition;
    EXPECT_EQ(partition.number, -1);
    EXPECT_EQ(partition.start, -1);
    EXPECT_EQ(partition.end, -1);
    EXPECT_EQ(partition.size, -1);
    EXPECT_EQ(partition.sectorCount, -1);
    EXPECT_EQ(partition.fileSystem, "");
    EXPECT_FALSE(partition.bootable);
    EXPECT_FALSE(partition.mounted);
    EXPECT_FALSE(partition.reserved);
}

TEST(Records, DiskIsCopiedByValue)
{
    Disk disk;
    disk.path = "/dev/vda";
    disk.udevProperties["ID_BUS"] = "ata";
    Disk copy = disk;
    disk.udevProperties["ID_BUS"] = "usb";
    EXPECT_EQ(copy.path, "/dev/vda");
    EXPECT_EQ(copy.udevProperties["ID_BUS"], "ata");
}

// --- file kinds ------------------------------------------------------------------

class FileKinds : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir_.Ok());
        file_ = dir_ / "file";
        directory_ = dir_ / "directory";
        fileLink_ = dir_ / "file-link";
        directoryLink_ = dir_ / "directory-link";
        danglingLink_ = dir_ / "dangling-link";
        WriteFile(file_, "x");
        ASSERT_TRUE(std::filesystem::create_directory(directory_));
        ASSERT_EQ(symlink(file_.c_str(), fileLink_.c_str()), 0);
        ASSERT_EQ(symlink(directory_.c_str(), directoryLink_.c_str()), 0);
        ASSERT_EQ(symlink((dir_ / "nothing").c_str(), danglingLink_.c_str()), 0);
    }

    ScratchDir dir_;
    std::string file_, directory_, fileLink_, directoryLink_, danglingLink_;
};

TEST_F(FileKinds, RegularFile)
{
    EXPECT_TRUE(DiskDiagnostics::IsFile(file_.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsDirectory(file_.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsBlockDevice(file_.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsLink(file_.c_str()));
}

TEST_F(FileKinds, Directory)
{
    EXPECT_TRUE(DiskDiagnostics::IsDirectory(directory_.c_str()));
    EXPECT_TRUE(DiskDiagnostics::IsDirectory((directory_ + "/").c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsFile(directory_.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsBlockDevice(directory_.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsLink(directory_.c_str()));
}

TEST_F(FileKinds, LinksAreFollowedExceptByIsLink)
{
    EXPECT_TRUE(DiskDiagnostics::IsLink(fileLink_.c_str()));
    EXPECT_TRUE(DiskDiagnostics::IsFile(fileLink_.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsDirectory(fileLink_.c_str()));

    EXPECT_TRUE(DiskDiagnostics::IsLink(directoryLink_.c_str()));
    EXPECT_TRUE(DiskDiagnostics::IsDirectory(directoryLink_.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsFile(directoryLink_.c_str()));
}

TEST_F(FileKinds, DanglingLinkIsOnlyALink)
{
    EXPECT_TRUE(DiskDiagnostics::IsLink(danglingLink_.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsFile(danglingLink_.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsDirectory(danglingLink_.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsBlockDevice(danglingLink_.c_str()));
}

TEST_F(FileKinds, MissingPathIsNothing)
{
    const std::string missing = dir_ / "missing";
    EXPECT_FALSE(DiskDiagnostics::IsFile(missing.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsDirectory(missing.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsBlockDevice(missing.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsLink(missing.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsFile(""));
}

TEST_F(FileKinds, CharacterDeviceIsNotABlockDevice)
{
    EXPECT_FALSE(DiskDiagnostics::IsBlockDevice("/dev/null"));
    EXPECT_FALSE(DiskDiagnostics::IsFile("/dev/null"));
    EXPECT_FALSE(DiskDiagnostics::IsDirectory("/dev/null"));
    EXPECT_FALSE(DiskDiagnostics::IsLink("/dev/null"));
}

// --- free space of a mounted directory --------------------------------------------

TEST_F(FileKinds, MountedPartitionFreeSpaceIsBlockSizeTimesAvailableBlocks)
{
    // Other programs may write to the same file system meanwhile: take the
    // answer that is bracketed by two equal statvfs readings.
    bool compared = false;
    for (int attempt = 0; attempt < 20 && !compared; ++attempt)
    {
        struct statvfs before, after;
        ASSERT_EQ(statvfs(directory_.c_str(), &before), 0);
        const uint64_t result = DiskDiagnostics::GetMountedPartitionFreeSpace(directory_.c_str());
        ASSERT_EQ(statvfs(directory_.c_str(), &after), 0);
        if (before.f_bavail != after.f_bavail || before.f_bsize != after.f_bsize)
            continue;
        EXPECT_EQ(result, static_cast<uint64_t>(before.f_bsize) * before.f_bavail);
        compared = true;
    }
    EXPECT_TRUE(compared) << "free space never held still";
}

TEST_F(FileKinds, MountedPartitionFreeSpaceOfMissingDirectoryIsAllOnes)
{
    const std::string missing = dir_ / "missing";
    EXPECT_EQ(DiskDiagnostics::GetMountedPartitionFreeSpace(missing.c_str()),
              std::numeric_limits<uint64_t>::max());
}
