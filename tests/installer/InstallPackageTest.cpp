#include "InstallPackage.h"
#include "ScratchDirectory.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

namespace
{

using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::IsInstallerFile;
using Kel::Vidorama::InstallerLib::IsManifestJsFile;
using Kel::Vidorama::InstallerLib::IsManifestTextFile;
using Kel::Vidorama::InstallerLib::IsPackageDosFile;
using Kel::Vidorama::InstallerLib::IsPackageLinuxFile;
using Kel::Vidorama::InstallerLib::PackageVersion;
using TemporaryDirectory = TestSupport::ScratchDirectory;

void WriteFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

class ReadVersionManifestTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(directory.path.empty()) << "cannot create a temporary directory";
    }

    TemporaryDirectory directory;
};

// --- constants ---

TEST(InstallPackageTest, DirectoryLayoutConstants)
{
    EXPECT_STREQ("/mnt/USB", InstallPackage::UsbMountPoint);
    EXPECT_STREQ("/mnt/SYS", InstallPackage::SystemMountPoint);
    EXPECT_STREQ("/mnt/DOS", InstallPackage::DosMountPoint);
    EXPECT_STREQ("/Packages", InstallPackage::PackagesPath);
    EXPECT_STREQ("/Versions", InstallPackage::VersionsPath);
    EXPECT_EQ("/mnt/SYS/Versions",
              std::string(InstallPackage::SystemMountPoint) + InstallPackage::VersionsPath);
}

TEST(InstallPackageTest, FileNameConstants)
{
    EXPECT_EQ("tar.gz", InstallPackage::LinuxExtension);
    EXPECT_EQ("zip", InstallPackage::DosExtension);
    EXPECT_EQ("Version.txt", InstallPackage::ManifestFilenameTxt);
    EXPECT_EQ("Version.json", InstallPackage::ManifestFilenameJs);
    EXPECT_EQ("Install.sh", InstallPackage::InstallerFilename);
}

// --- suffix predicates ---

TEST(InstallPackageTest, ManifestTextPredicate)
{
    EXPECT_TRUE(IsManifestTextFile("Version.txt"));
    EXPECT_TRUE(IsManifestTextFile("./Version.txt"));
    EXPECT_TRUE(IsManifestTextFile("/mnt/SYS/Versions/12.05.01.3456/Version.txt"));
    EXPECT_TRUE(IsManifestTextFile("OldVersion.txt"));
    EXPECT_FALSE(IsManifestTextFile("version.txt"));
    EXPECT_FALSE(IsManifestTextFile("Version.txt.bak"));
    EXPECT_FALSE(IsManifestTextFile("Version.json"));
    EXPECT_FALSE(IsManifestTextFile("ersion.txt"));
    EXPECT_FALSE(IsManifestTextFile(""));
}

TEST(InstallPackageTest, ManifestJsPredicate)
{
    EXPECT_TRUE(IsManifestJsFile("Version.json"));
    EXPECT_TRUE(IsManifestJsFile("payload/Version.json"));
    EXPECT_FALSE(IsManifestJsFile("Version.JSON"));
    EXPECT_FALSE(IsManifestJsFile("Version.txt"));
    EXPECT_FALSE(IsManifestJsFile("json"));
    EXPECT_FALSE(IsManifestJsFile(""));
}

TEST(InstallPackageTest, InstallerPredicate)
{
    EXPECT_TRUE(IsInstallerFile("Install.sh"));
    EXPECT_TRUE(IsInstallerFile("./Install.sh"));
    EXPECT_TRUE(IsInstallerFile("ReInstall.sh"));
    EXPECT_FALSE(IsInstallerFile("install.sh"));
    EXPECT_FALSE(IsInstallerFile("Install.sh~"));
    EXPECT_FALSE(IsInstallerFile("sh"));
    EXPECT_FALSE(IsInstallerFile(""));
}

TEST(InstallPackageTest, LinuxPackagePredicate)
{
    EXPECT_TRUE(IsPackageLinuxFile("Vidorama_12.05.01.3456.tar.gz"));
    EXPECT_TRUE(IsPackageLinuxFile("/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz"));
    EXPECT_TRUE(IsPackageLinuxFile("tar.gz"));
    EXPECT_TRUE(IsPackageLinuxFile("footar.gz"));
    EXPECT_FALSE(IsPackageLinuxFile("Vidorama.TAR.GZ"));
    EXPECT_FALSE(IsPackageLinuxFile("Vidorama.tgz"));
    EXPECT_FALSE(IsPackageLinuxFile("Vidorama.tar"));
    EXPECT_FALSE(IsPackageLinuxFile("ar.gz"));
    EXPECT_FALSE(IsPackageLinuxFile(""));
}

TEST(InstallPackageTest, DosPackagePredicate)
{
    EXPECT_TRUE(IsPackageDosFile("120501.zip"));
    EXPECT_TRUE(IsPackageDosFile("/mnt/USB/Packages/120501.zip"));
    EXPECT_TRUE(IsPackageDosFile("img.zip"));
    EXPECT_TRUE(IsPackageDosFile("zip"));
    EXPECT_TRUE(IsPackageDosFile("gzip"));
    EXPECT_FALSE(IsPackageDosFile("120501.ZIP"));
    EXPECT_FALSE(IsPackageDosFile("120501.zip.part"));
    EXPECT_FALSE(IsPackageDosFile("ip"));
    EXPECT_FALSE(IsPackageDosFile(""));
}

TEST(InstallPackageTest, PredicatesAcceptCStrings)
{
    const char* name = "Vidorama_12.05.01.3456.tar.gz";
    EXPECT_TRUE(IsPackageLinuxFile(name));
    EXPECT_FALSE(IsPackageDosFile(name));
}

// --- manifest of an installed version ---

TEST_F(ReadVersionManifestTest, JsonManifest)
{
    WriteFile(directory.path + "/Version.json",
              R"({ "name": "Vidorama", "version": "12.05.01", "revision": "3456" })");
    PackageVersion record = InstallPackage::ReadVersionManifest(directory.Slashed());
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("3456", record.GetRevision());
    EXPECT_STREQ("12.05.01.3456", record.GetVersion(true));
    EXPECT_STREQ("", record.GetPath());
    EXPECT_FALSE(record.IsDos());
}

TEST_F(ReadVersionManifestTest, JsonPreferredOverText)
{
    WriteFile(directory.path + "/Version.json",
              R"({ "name": "FromJson", "version": "13.00.00", "revision": "1" })");
    WriteFile(directory.path + "/Version.txt", "FromText\n12.05.01.3456\n");
    PackageVersion record = InstallPackage::ReadVersionManifest(directory.Slashed());
    EXPECT_STREQ("FromJson", record.GetName());
    EXPECT_STREQ("13.00.00.1", record.GetVersion(true));
}

// The text manifest is only a fallback for a JSON manifest that cannot be opened, not for
// one that cannot be parsed.
TEST_F(ReadVersionManifestTest, UnparsableJsonDoesNotFallBackToText)
{
    WriteFile(directory.path + "/Version.json", "{ broken");
    WriteFile(directory.path + "/Version.txt", "FromText\n12.05.01.3456\n");
    PackageVersion record = InstallPackage::ReadVersionManifest(directory.Slashed());
    EXPECT_TRUE(record.IsEmpty());
}

TEST_F(ReadVersionManifestTest, TextFallback)
{
    WriteFile(directory.path + "/Version.txt", "Vidorama\n12.05.01.3456\n");
    PackageVersion record = InstallPackage::ReadVersionManifest(directory.Slashed());
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("3456", record.GetRevision());
    EXPECT_STREQ("", record.GetPath());
}

TEST_F(ReadVersionManifestTest, TextManifestWithCrLf)
{
    WriteFile(directory.path + "/Version.txt", "Vidorama\r\n12.05.01.3456\r\n");
    PackageVersion record = InstallPackage::ReadVersionManifest(directory.Slashed());
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("3456", record.GetRevision());
    EXPECT_STREQ("12.05.01.3456", record.GetVersion(true));

    PackageVersion expected;
    expected.SetName("Vidorama");
    expected.SetVersion("12.05.01");
    expected.SetRevision("3456");
    EXPECT_EQ(expected, record);
}

TEST_F(ReadVersionManifestTest, NeitherManifestGivesEmptyRecord)
{
    WriteFile(directory.path + "/img.zip", "not a manifest");
    WriteFile(directory.path + "/version.json", "{}");
    PackageVersion record = InstallPackage::ReadVersionManifest(directory.Slashed());
    EXPECT_TRUE(record.IsEmpty());
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_STREQ("", record.GetPath());
}

TEST_F(ReadVersionManifestTest, MissingDirectoryGivesEmptyRecord)
{
    PackageVersion record =
        InstallPackage::ReadVersionManifest(directory.path + "/does-not-exist/");
    EXPECT_TRUE(record.IsEmpty());
}

TEST_F(ReadVersionManifestTest, RegularFileIsNotADirectory)
{
    // "file/" + "Version.txt" could never open anyway; the directory test must refuse first.
    const std::string file = directory.path + "/plain";
    WriteFile(file, "Vidorama\n12.05.01.3456\n");
    EXPECT_TRUE(InstallPackage::ReadVersionManifest(file + "/").IsEmpty());
}

TEST_F(ReadVersionManifestTest, FollowsALinkToTheVersionDirectory)
{
    const std::string target = directory.path + "/12.05.01.3456";
    ASSERT_TRUE(std::filesystem::create_directory(target));
    WriteFile(target + "/Version.txt", "Vidorama\n12.05.01.3456\n");
    std::filesystem::create_directory_symlink(target, directory.path + "/current");

    PackageVersion record = InstallPackage::ReadVersionManifest(directory.path + "/current/");
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01.3456", record.GetVersion(true));
    EXPECT_STREQ("", record.GetPath());
}

TEST_F(ReadVersionManifestTest, DanglingLinkGivesEmptyRecord)
{
    std::filesystem::create_directory_symlink(directory.path + "/gone",
                                              directory.path + "/current");
    EXPECT_TRUE(InstallPackage::ReadVersionManifest(directory.path + "/current/").IsEmpty());
}

TEST_F(ReadVersionManifestTest, EmptyTextManifestGivesEmptyRecord)
{
    WriteFile(directory.path + "/Version.txt", "");
    EXPECT_TRUE(InstallPackage::ReadVersionManifest(directory.Slashed()).IsEmpty());
}

} // namespace
