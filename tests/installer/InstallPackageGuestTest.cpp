// The current Linux version read through the fixed mount point, inside the
// sandbox guest (where /mnt is the guest's own).
#include "InstallPackage.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <unistd.h>

using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::PackageVersion;

namespace
{

bool InSandbox()
{
    char cwd[64] = {};
    return getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work";
}

void Shell(const std::string& command)
{
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

class CurrentLinuxVersion : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(InSandbox()) << "runs only inside the sandbox guest";
        Shell("rm -rf /mnt/SYS && mkdir -p /mnt/SYS/Versions/a /mnt/SYS/Versions/b");
    }
    void TearDown() override { std::system("rm -rf /mnt/SYS"); }
};

} // namespace

TEST_F(CurrentLinuxVersion, NoCurrentLinkGivesAnEmptyRecord)
{
    EXPECT_TRUE(InstallPackage::GetCurrentLinuxVersion().IsEmpty());
}

TEST_F(CurrentLinuxVersion, JsonManifestOfTheLinkedDirectory)
{
    Shell("printf '{\"name\":\"Vidorama\",\"version\":\"12.05.01\",\"revision\":\"3456\"}' > "
          "/mnt/SYS/Versions/a/Version.json");
    Shell("printf 'Other\\n11.01.01.1\\n' > /mnt/SYS/Versions/a/Version.txt");
    Shell("printf 'Vidorama\\n13.00.00.9\\n' > /mnt/SYS/Versions/b/Version.txt");
    Shell("ln -sfn /mnt/SYS/Versions/a /mnt/SYS/Versions/current");
    const PackageVersion current = InstallPackage::GetCurrentLinuxVersion();
    EXPECT_STREQ(current.GetName(), "Vidorama");
    EXPECT_STREQ(current.GetVersion(), "12.05.01");
    EXPECT_STREQ(current.GetVersion(true), "12.05.01.3456");
    EXPECT_STREQ(current.GetPath(), "");
}

TEST_F(CurrentLinuxVersion, TextManifestWhenThereIsNoJson)
{
    Shell("printf 'Vidorama\\r\\n13.00.00.9\\r\\n' > /mnt/SYS/Versions/b/Version.txt");
    Shell("ln -sfn /mnt/SYS/Versions/b /mnt/SYS/Versions/current");
    const PackageVersion current = InstallPackage::GetCurrentLinuxVersion();
    EXPECT_STREQ(current.GetName(), "Vidorama");
    EXPECT_STREQ(current.GetVersion(true), "13.00.00.9");
}

TEST_F(CurrentLinuxVersion, NoManifestOrADanglingLinkGivesAnEmptyRecord)
{
    Shell("ln -sfn /mnt/SYS/Versions/a /mnt/SYS/Versions/current");
    EXPECT_TRUE(InstallPackage::GetCurrentLinuxVersion().IsEmpty());
    Shell("ln -sfn /mnt/SYS/Versions/gone /mnt/SYS/Versions/current");
    EXPECT_TRUE(InstallPackage::GetCurrentLinuxVersion().IsEmpty());
}
