#include "AutoInstallTargets.h"

#include <gtest/gtest.h>

using Kel::Vidorama::InstallerLib::PackageVersion;
using Kel::Vidorama::InstallerWizard::AutoInstallAnswers;
using Kel::Vidorama::InstallerWizard::AutoInstallProblem;
using Kel::Vidorama::InstallerWizard::AutoInstallTargets;
using Kel::ZarnLinuxTools::Disk;
using Kel::ZarnLinuxTools::Partition;

namespace
{

const long long GiB = 1LL << 30;
const long long MiB = 1LL << 20;

Disk MakeDisk(const std::string& path, const std::string& model, long long size,
              const std::string& bus = "")
{
    Disk disk;
    disk.path = path;
    disk.model = model;
    disk.size = size;
    if (!bus.empty())
        disk.udevProperties["ID_BUS"] = bus;
    return disk;
}

const std::vector<Disk> Disks = {
    MakeDisk("/dev/sda", "USB Key", 8 * GiB, "usb"),
    MakeDisk("/dev/vda", "Virtio Block Device", 4 * GiB),
    MakeDisk("/dev/vdb", "Virtio Block Device", 16 * GiB),
    MakeDisk("/dev/nvme0n1", "QEMU NVMe Ctrl", 2304 * MiB - 1),
};

AutoInstallTargets::Package MakePackage(const std::string& path, const std::string& full)
{
    PackageVersion version;
    version.SetName("Vidorama");
    version.ParseFullVersion(full.c_str());
    return {path, version};
}

const std::vector<AutoInstallTargets::Package> Packages = {
    MakePackage("/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz", "12.05.01.3456"),
    MakePackage("/mnt/USB/Packages/Vidorama_12.06.02.3501.tar.gz", "12.06.02.3501"),
    MakePackage("/mnt/USB/Packages/Vidorama_12.04.00.3000.tar.gz", "12.04.00.3000"),
};

Partition MakePartition(int number, const std::string& fileSystem)
{
    Partition partition;
    partition.number = number;
    partition.fileSystem = fileSystem;
    return partition;
}

} // namespace

TEST(AutoInstallTargets, APathSinglesOutItsDisk)
{
    AutoInstallAnswers::DiskFilter filter;
    filter.path = "/dev/vdb";
    size_t index = 99;
    AutoInstallProblem problem;
    ASSERT_TRUE(AutoInstallTargets::ChooseDisk(filter, Disks, index, problem)) << problem.Text();
    EXPECT_EQ(index, 2u);
    EXPECT_TRUE(problem.key.empty());
}

TEST(AutoInstallTargets, SizesNarrowTheModel)
{
    AutoInstallAnswers::DiskFilter filter;
    filter.model = "Virtio Block Device";
    filter.minSizeGiB = 3;
    filter.maxSizeGiB = 8;
    size_t index = 99;
    AutoInstallProblem problem;
    ASSERT_TRUE(AutoInstallTargets::ChooseDisk(filter, Disks, index, problem)) << problem.Text();
    EXPECT_EQ(index, 1u);
}

TEST(AutoInstallTargets, TwoMatchingDisksAreRefusedAndNamed)
{
    AutoInstallAnswers::DiskFilter filter;
    filter.model = "Virtio Block Device";
    size_t index = 99;
    AutoInstallProblem problem;
    EXPECT_FALSE(AutoInstallTargets::ChooseDisk(filter, Disks, index, problem));
    EXPECT_EQ(index, 99u);
    EXPECT_EQ(problem.Text(),
              "\"disk\": {\"model\": \"Virtio Block Device\"}: matches 2 disks: /dev/vda /dev/vdb");
}

TEST(AutoInstallTargets, NoFilterOnSeveralDisksIsRefused)
{
    size_t index = 99;
    AutoInstallProblem problem;
    EXPECT_FALSE(AutoInstallTargets::ChooseDisk({}, Disks, index, problem));
    EXPECT_EQ(problem.Text(), "\"disk\": {}: matches 3 disks: /dev/nvme0n1 /dev/vda /dev/vdb");
}

TEST(AutoInstallTargets, AUsbDiskIsNeverATarget)
{
    AutoInstallAnswers::DiskFilter filter;
    filter.path = "/dev/sda";
    size_t index = 99;
    AutoInstallProblem problem;
    EXPECT_FALSE(AutoInstallTargets::ChooseDisk(filter, Disks, index, problem));
    EXPECT_EQ(problem.Text(), "\"disk\": {\"path\": \"/dev/sda\"}: matches no disk");
}

TEST(AutoInstallTargets, NoMatchingDisk)
{
    AutoInstallAnswers::DiskFilter filter;
    filter.minSizeGiB = 64;
    size_t index = 99;
    AutoInstallProblem problem;
    EXPECT_FALSE(AutoInstallTargets::ChooseDisk(filter, Disks, index, problem));
    EXPECT_EQ(problem.Text(), "\"disk\": {\"minSizeGiB\": 64}: matches no disk");
    EXPECT_FALSE(AutoInstallTargets::ChooseDisk({}, {}, index, problem));
    EXPECT_EQ(problem.reason, "matches no disk");
}

TEST(AutoInstallTargets, ADiskUnder2304MiBIsRefused)
{
    AutoInstallAnswers::DiskFilter filter;
    filter.path = "/dev/nvme0n1";
    size_t index = 99;
    AutoInstallProblem problem;
    EXPECT_FALSE(AutoInstallTargets::ChooseDisk(filter, Disks, index, problem));
    EXPECT_EQ(problem.Text(), "\"disk\": {\"path\": \"/dev/nvme0n1\"}: matches /dev/nvme0n1, too "
                              "small for Vidorama installation");

    // Exactly 2,304 MiB is enough.
    std::vector<Disk> disks = {MakeDisk("/dev/vdc", "Virtio Block Device", 2304 * MiB)};
    EXPECT_TRUE(AutoInstallTargets::ChooseDisk({}, disks, index, problem)) << problem.Text();
    EXPECT_EQ(index, 0u);
}

TEST(AutoInstallTargets, NewestIsTheHighestVersion)
{
    size_t index = 99;
    AutoInstallProblem problem;
    ASSERT_TRUE(AutoInstallTargets::ChoosePackage("newest", Packages, index, problem));
    EXPECT_EQ(index, 1u);
}

TEST(AutoInstallTargets, AFullVersionOrAFileNameNamesOnePackage)
{
    size_t index = 99;
    AutoInstallProblem problem;
    ASSERT_TRUE(AutoInstallTargets::ChoosePackage("12.05.01.3456", Packages, index, problem));
    EXPECT_EQ(index, 0u);
    ASSERT_TRUE(AutoInstallTargets::ChoosePackage("Vidorama_12.04.00.3000.tar.gz", Packages, index,
                                                  problem));
    EXPECT_EQ(index, 2u);
}

TEST(AutoInstallTargets, NoMatchingPackage)
{
    size_t index = 99;
    AutoInstallProblem problem;
    EXPECT_FALSE(AutoInstallTargets::ChoosePackage("12.05.01", Packages, index, problem));
    EXPECT_EQ(problem.Text(), "\"package\": \"12.05.01\": matches no package on the key");
    EXPECT_FALSE(AutoInstallTargets::ChoosePackage("newest", {}, index, problem));
    EXPECT_EQ(problem.Text(), "\"package\": \"newest\": no package on the key");
    EXPECT_EQ(index, 99u);
}

TEST(AutoInstallTargets, AVersionOnTwoPackagesIsRefused)
{
    auto packages = Packages;
    packages.push_back(MakePackage("/mnt/USB/Packages/Copy_12.05.01.3456.tar.gz", "12.05.01.3456"));
    size_t index = 99;
    AutoInstallProblem problem;
    EXPECT_FALSE(AutoInstallTargets::ChoosePackage("12.05.01.3456", packages, index, problem));
    EXPECT_EQ(problem.Text(), "\"package\": \"12.05.01.3456\": matches 2 packages: "
                              "Vidorama_12.05.01.3456.tar.gz Copy_12.05.01.3456.tar.gz");
}

TEST(AutoInstallTargets, AnInstallationIsADosOrALinuxPartition)
{
    EXPECT_FALSE(AutoInstallTargets::HoldsInstallation({}));
    EXPECT_FALSE(AutoInstallTargets::HoldsInstallation({MakePartition(1, "ext4")}));
    EXPECT_TRUE(AutoInstallTargets::HoldsInstallation({MakePartition(1, "fat16")}));
    EXPECT_TRUE(AutoInstallTargets::HoldsInstallation(
        {MakePartition(1, "fat16"), MakePartition(2, "ext4"), MakePartition(3, "linux-swap(v1)")}));
    EXPECT_TRUE(AutoInstallTargets::HoldsInstallation({MakePartition(2, "ext4")}));
    EXPECT_FALSE(AutoInstallTargets::HoldsInstallation({MakePartition(2, "ntfs")}));
}

TEST(AutoInstallTargets, AnInstallationIsFormattedOnlyWhenReplacingIsAllowed)
{
    AutoInstallAnswers answers;
    AutoInstallProblem problem;
    answers.format = true;
    answers.replaceExisting = false;
    EXPECT_FALSE(AutoInstallTargets::MayFormat(answers, "/dev/vda", true, problem));
    EXPECT_EQ(problem.Text(), "\"replaceExisting\": false: /dev/vda already holds an installation");
    EXPECT_TRUE(AutoInstallTargets::MayFormat(answers, "/dev/vda", false, problem));
    answers.replaceExisting = true;
    EXPECT_TRUE(AutoInstallTargets::MayFormat(answers, "/dev/vda", true, problem));
    // Without a format nothing is replaced.
    answers.format = false;
    answers.replaceExisting = false;
    EXPECT_TRUE(AutoInstallTargets::MayFormat(answers, "/dev/vda", true, problem));
}
