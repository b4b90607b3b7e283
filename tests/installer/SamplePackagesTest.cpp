// The sample packages of the demo and the tests: built the same byte for byte on
// every run, and read by the package code as a real package is.
#include "InstallPackage.h"

#include "GuestShell.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include <unistd.h>

namespace
{

using Kel::Vidorama::InstallerLib::InstallPackage;
using Sandbox::ReadFile;
using Sandbox::Shell;
using Sandbox::ShellResult;
namespace fs = std::filesystem;

const std::string Builder = std::string(WIZARD_SOURCE_DIR) + "/scripts/make-sample-packages.sh";

// Changes the working directory for one test and back.
class WorkingDirectory
{
public:
    explicit WorkingDirectory(const std::string& path) : previous(fs::current_path())
    {
        fs::current_path(path);
    }
    ~WorkingDirectory()
    {
        std::error_code ignored;
        fs::current_path(previous, ignored);
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    fs::path previous;
};

class SamplePackages : public testing::Test
{
protected:
    void SetUp() override
    {
        const ShellResult build = Shell(Builder + " " + dir.Path() + "/out");
        ASSERT_EQ(build.status, 0) << build.output;
        EXPECT_EQ(build.output, dir.Path() + "/out/Vidorama_12.05.01.3456.tar.gz\n" + dir.Path() +
                                    "/out/120501.zip\n");
    }

    Sandbox::TempDir dir{"/tmp/SamplePackagesTest-"};
};

} // namespace

TEST_F(SamplePackages, TheSameBytesOnEveryRun)
{
    // Another umask and another clock must not matter.
    const ShellResult again =
        Shell("umask 077 && TZ=Asia/Tokyo " + Builder + " " + dir.Path() +
              "/again >/dev/null && cmp " + dir.Path() + "/out/Vidorama_12.05.01.3456.tar.gz " +
              dir.Path() + "/again/Vidorama_12.05.01.3456.tar.gz && cmp " + dir.Path() +
              "/out/120501.zip " + dir.Path() + "/again/120501.zip");
    EXPECT_EQ(again.status, 0) << again.output;
}

TEST_F(SamplePackages, TheLinuxPackageIsIdentifiedMeasuredAndCarriesItsInstallerLast)
{
    InstallPackage package((dir.Path() + "/out/Vidorama_12.05.01.3456.tar.gz").c_str());
    ASSERT_TRUE(package.IsValid());
    EXPECT_STREQ(package.GetVersion().GetName(), "Vidorama");
    EXPECT_STREQ(package.GetVersion().GetVersion(true), "12.05.01.3456");
    EXPECT_GT(package.GetExtractedSize(), 65536);

    InstallPackage manifest(package);
    manifest.ExtractInfosFromManifest();
    EXPECT_STREQ(manifest.GetVersion().GetName(), "Vidorama");
    EXPECT_STREQ(manifest.GetVersion().GetVersion(true), "12.05.01.3456");

    const ShellResult list = Shell("tar -tzf " + dir.Path() + "/out/Vidorama_12.05.01.3456.tar.gz");
    ASSERT_EQ(list.status, 0);
    EXPECT_EQ(list.output.substr(list.output.size() - 11), "Install.sh\n");
    for (const char* entry :
         {"payload/Version.json\n", "payload/boot/syslinux/syslinux.cfg\n",
          "payload/etc/network/interfaces\n", "payload/etc/hostname\n", "payload/etc/hosts\n",
          "payload/etc/resolv.conf\n", "payload/etc/init.d/S38UpdateNetworkSettings.sh\n"})
    {
        EXPECT_NE(list.output.find(entry), std::string::npos) << entry;
    }

    fs::create_directories(dir.Path() + "/cwd");
    WorkingDirectory cwd(dir.Path() + "/cwd");
    ASSERT_TRUE(package.ExtractFileFomTar("Install.sh"));
    EXPECT_EQ(ReadFile("Install.sh"),
              ReadFile(std::string(WIZARD_SOURCE_DIR) + "/sample/packages/Install.sh"));
    EXPECT_EQ(::access("Install.sh", X_OK), 0);
}

TEST_F(SamplePackages, TheDosPackageHoldsItsImageInItsVersionDirectory)
{
    InstallPackage package((dir.Path() + "/out/120501.zip").c_str());
    ASSERT_TRUE(package.IsValid());
    EXPECT_TRUE(package.GetVersion().IsDos());
    EXPECT_STREQ(package.GetVersion().GetVersion(true), "12.05.01");

    const ShellResult list = Shell("unzip -Z1 " + dir.Path() + "/out/120501.zip");
    ASSERT_EQ(list.status, 0);
    EXPECT_EQ(list.output, "120501/\n120501/img.zip\n");
    const ShellResult size =
        Shell("unzip -Zl " + dir.Path() + "/out/120501.zip 120501/img.zip | awk '{print $4}'");
    EXPECT_EQ(package.GetExtractedSize(), 2 * std::stoi(size.output));
}

TEST_F(SamplePackages, OtherVersionsAndNames)
{
    const ShellResult build =
        Shell(Builder + " " + dir.Path() +
              "/more --linux 12.06.02.3501 --dos 130101 --name Other --linux 11.01.01.7");
    ASSERT_EQ(build.status, 0) << build.output;
    for (const char* file :
         {"Vidorama_12.06.02.3501.tar.gz", "Other_11.01.01.7.tar.gz", "130101.zip"})
    {
        EXPECT_TRUE(fs::is_regular_file(dir.Path() + "/more/" + file)) << file;
    }
    EXPECT_NE(Shell(Builder + " " + dir.Path() + "/bad --linux 12.5.1").status, 0);
    EXPECT_NE(Shell(Builder + " " + dir.Path() + "/bad --dos 1205").status, 0);
}
