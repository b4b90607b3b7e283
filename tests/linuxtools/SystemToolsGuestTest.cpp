// System tests of the system tools inside the sandbox guest, where the kernel
// command line is the appliance's and mounts may be changed freely.
#include "SystemTools.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sstream>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

using Kel::ZarnLinuxTools::SystemTools;

namespace
{

bool InSandbox()
{
    char cwd[64] = {};
    return getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work";
}

class SystemToolsInGuest : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(InSandbox()) << "runs only inside the sandbox guest"; }
};

} // namespace

TEST_F(SystemToolsInGuest, KernelCommandLineIsTheFirstLineOfProcCmdline)
{
    EXPECT_STREQ(SystemTools::GetKernelCommandLine(),
                 "BOOT_IMAGE=/Versions/12.05.01.3456/vmlinuz quiet");
}

TEST_F(SystemToolsInGuest, KernelCommandLineKeepsItsValueWhenProcCmdlineCannotBeOpened)
{
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0)
    {
        const std::string before = SystemTools::GetKernelCommandLine();
        // A private mount namespace: an empty /proc for this child only.
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            _exit(10);
        if (mount("none", "/proc", "tmpfs", 0, "") != 0)
            _exit(11);
        if (access("/proc/cmdline", F_OK) == 0)
            _exit(12);
        const std::string after = SystemTools::GetKernelCommandLine();
        _exit(after == before && !after.empty() ? 0 : 13);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(SystemToolsInGuest, ExecuteCommandAsRootRunsAsRoot)
{
    std::ostringstream out;
    EXPECT_TRUE(SystemTools::ExecuteCommand("id -u", out, true));
    EXPECT_EQ(out.str(), "0\n");
}
