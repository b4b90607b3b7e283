#include "RunContext.h"
#include "InstallWizard.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sys/utsname.h>

using Kel::Vidorama::InstallerWizard::InstallWizard;
using Kel::Vidorama::InstallerWizard::RunContext;

TEST(RunContext, BootImageBelowVersionsIsTheDisk)
{
    const std::string line = "BOOT_IMAGE=/Versions/12.05.01.3456/boot/vmlinuz root=/dev/sda2 quiet";
    EXPECT_TRUE(RunContext::BootsFromDisk(line));
    EXPECT_FALSE(RunContext::BootsFromUsbKey(line));
}

TEST(RunContext, VersionsIsComparedOverItsOwnLengthOnly)
{
    EXPECT_TRUE(RunContext::BootsFromDisk("BOOT_IMAGE=/Versions"));
    EXPECT_TRUE(RunContext::BootsFromDisk("BOOT_IMAGE=/VersionsOld/vmlinuz"));
    EXPECT_FALSE(RunContext::BootsFromDisk("BOOT_IMAGE=/versions/vmlinuz"));
    EXPECT_TRUE(RunContext::BootsFromUsbKey("BOOT_IMAGE=/versions/vmlinuz"));
    EXPECT_FALSE(RunContext::BootsFromDisk("BOOT_IMAGE=/Version"));
    EXPECT_TRUE(RunContext::BootsFromUsbKey("BOOT_IMAGE=/Version"));
}

TEST(RunContext, AnyOtherBootImageIsTheUsbKey)
{
    const std::string line = "BOOT_IMAGE=/boot/vmlinuz initrd=/boot/initrd.img";
    EXPECT_TRUE(RunContext::BootsFromUsbKey(line));
    EXPECT_FALSE(RunContext::BootsFromDisk(line));
    EXPECT_TRUE(RunContext::BootsFromUsbKey("BOOT_IMAGE="));
    EXPECT_FALSE(RunContext::BootsFromDisk("BOOT_IMAGE="));
}

TEST(RunContext, WithoutBootImageAtTheVeryStartItIsNeither)
{
    for (const char* line : {"", "root=/dev/sda2 BOOT_IMAGE=/Versions/x", " BOOT_IMAGE=/Versions/x",
                             "boot_image=/Versions/x", "BOOT_IMAGE", "BOOT_IMAGE /Versions"})
    {
        EXPECT_FALSE(RunContext::BootsFromDisk(line)) << line;
        EXPECT_FALSE(RunContext::BootsFromUsbKey(line)) << line;
    }
}

TEST(RunContext, PathsFromDisk)
{
    EXPECT_STREQ(RunContext::DataPath(true), "/mnt/APPS/const/maintenance/");
    EXPECT_STREQ(RunContext::ExePath(true), "/mnt/SYS/Versions/current/apps/code/");
    EXPECT_STREQ(RunContext::UcodeZarnPath(true), "/mnt/APPS/const/zarn/");
}

TEST(RunContext, PathsFromUsbKey)
{
    EXPECT_STREQ(RunContext::DataPath(false), "/mnt/USB/data/");
    EXPECT_STREQ(RunContext::ExePath(false), "/mnt/USB/");
    EXPECT_STREQ(RunContext::UcodeZarnPath(false), "/mnt/USB/data/zarn/");
}

TEST(RunContext, TheHostHasNoApplianceCommandLineSoPathsTakeTheUsbColumn)
{
    // This machine's own kernel command line does not begin with "BOOT_IMAGE=".
    ASSERT_FALSE(InstallWizard::IsRunningFromDisk());
    EXPECT_STREQ(InstallWizard::GetDataPath(), "/mnt/USB/data/");
    EXPECT_STREQ(InstallWizard::GetExePath(), "/mnt/USB/");
    EXPECT_STREQ(InstallWizard::GetUcodeZarnPath(), "/mnt/USB/data/zarn/");
}

TEST(RunContext, DriversPathNamesTheRunningKernelAndIsKept)
{
    utsname names;
    ASSERT_EQ(uname(&names), 0);
    const std::string expected = std::string("/lib/modules/") + names.release + "/extra/";
    const char* first = InstallWizard::GetDriversPath();
    EXPECT_EQ(std::string(first), expected);
    EXPECT_EQ(InstallWizard::GetDriversPath(), first);
    EXPECT_EQ(first[std::strlen(first) - 1], '/');
}
