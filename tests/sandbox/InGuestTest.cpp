// Runs inside the sandbox guest (add_guest_test): what a plain test program
// finds there.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool Exists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

} // namespace

TEST(InGuest, RunsAsRootInTheWorkDirectory)
{
    EXPECT_EQ(getuid(), 0u);
    char cwd[256] = {};
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    EXPECT_STREQ(cwd, "/io/work");
}

TEST(InGuest, SeesTheConfiguredKernelCommandLine)
{
    EXPECT_EQ(ReadFile("/proc/cmdline"), "BOOT_IMAGE=/boot/vmlinuz quiet\n");
}

TEST(InGuest, ScratchDiskIsTheFirstVirtioDisk)
{
    // 32 MiB in 512-byte sectors.
    EXPECT_EQ(ReadFile("/sys/block/vda/size"), "65536\n");
    EXPECT_FALSE(Exists("/sys/block/vdb"));
    EXPECT_FALSE(Exists("/sys/block/sda"));
}

TEST(InGuest, SyslinuxFilesAreWhereTheApplianceKeepsThem)
{
    EXPECT_TRUE(Exists("/usr/share/syslinux/mbr.bin"));
    EXPECT_TRUE(Exists("/usr/share/syslinux/ldlinux.c32"));
    EXPECT_TRUE(Exists("/usr/share/syslinux/menu.c32"));
}

TEST(InGuest, MountPointsAreGuestOnly)
{
    for (const char* dir : {"/mnt/USB", "/mnt/SYS", "/mnt/DOS", "/mnt/APPS"})
        EXPECT_TRUE(Exists(dir)) << dir;
    std::ofstream("/mnt/SYS/probe") << "x";
    EXPECT_EQ(ReadFile("/mnt/SYS/probe"), "x");
}
