// sandbox/guest itself: how it reports the end of a guest and that it leaves
// nothing behind.
#include "HostCommand.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using Sandbox::HostCommand;
using Sandbox::TempDir;

namespace
{

std::string Launcher()
{
#ifdef WIZARD_SANDBOX_INITRD
    // The build's own initramfs, when it has made one.
    struct stat info;
    if (stat(WIZARD_SANDBOX_INITRD, &info) == 0)
        setenv("WIZARD_SANDBOX_INITRD", WIZARD_SANDBOX_INITRD, 1);
#endif
    return std::string(WIZARD_SOURCE_DIR) + "/sandbox/guest";
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> Entries(const std::string& dir)
{
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str()))
    {
        while (dirent* entry = readdir(d))
        {
            const std::string name = entry->d_name;
            if (name != "." && name != "..")
                names.push_back(name);
        }
        closedir(d);
    }
    return names;
}

std::string LastLine(const std::string& text)
{
    std::string trimmed = text;
    while (!trimmed.empty() && trimmed.back() == '\n')
        trimmed.pop_back();
    const size_t start = trimmed.rfind('\n');
    return start == std::string::npos ? trimmed : trimmed.substr(start + 1);
}

bool Alive(int pid)
{
    return pid > 0 && kill(pid, 0) == 0;
}

} // namespace

TEST(Launcher, RunModeReportsTheExitStatusAndKeepsTheOutput)
{
    TempDir io("/tmp/sandbox-launcher-test-");
    std::string stderrText;
    const int rc = HostCommand::Run({Launcher(), "--io", io.Path(), "--output", "file", "run", "--",
                                     "sh", "-c", "echo out; echo err >&2; pwd; exit 3"},
                                    &stderrText);
    EXPECT_EQ(rc, 3) << stderrText;
    EXPECT_EQ(LastLine(stderrText), "exit 3");
    EXPECT_EQ(ReadFile(io.Path() + "/outcome"), "exit 3\n");
    EXPECT_EQ(ReadFile(io.Path() + "/out.log"), "out\nerr\n/io/work\n");
    EXPECT_EQ(ReadFile(io.Path() + "/status"), "3\n");
}

TEST(Launcher, TimeoutEndsTheGuest)
{
    TempDir io("/tmp/sandbox-launcher-test-");
    std::string stderrText;
    const auto start = std::chrono::steady_clock::now();
    const int rc = HostCommand::Run({Launcher(), "--io", io.Path(), "--output", "file", "--timeout",
                                     "3", "run", "--", "sleep", "600"},
                                    &stderrText);
    EXPECT_EQ(rc, 124) << stderrText;
    EXPECT_EQ(LastLine(stderrText), "timeout");
    EXPECT_EQ(ReadFile(io.Path() + "/outcome"), "timeout\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST(Launcher, KilledHalfWayLeavesNoQemuAndNoTemporaryDirectory)
{
    // The launcher makes its io directory under TMPDIR when it is given none.
    TempDir tmp("/tmp/sandbox-launcher-test-");
    const std::string launcher = Launcher();
    const std::string errors = tmp.Path() + ".stderr";

    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0)
    {
        setenv("TMPDIR", tmp.Path().c_str(), 1);
        const int null = open("/dev/null", O_RDWR);
        const int err = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(null, 0);
        dup2(null, 1);
        dup2(err, 2);
        execl(launcher.c_str(), launcher.c_str(), "agent", static_cast<char*>(nullptr));
        _exit(127);
    }

    // Wait until qemu runs and the guest's kernel has started talking.
    int qemuPid = 0;
    std::string io;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < deadline)
    {
        const auto entries = Entries(tmp.Path());
        if (!entries.empty())
        {
            io = tmp.Path() + "/" + entries.front();
            qemuPid = std::atoi(ReadFile(io + "/qemu.pid").c_str());
            if (qemuPid > 0 && !ReadFile(io + "/kernel.log").empty())
                break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ASSERT_GT(qemuPid, 0) << ReadFile(errors);
    ASSERT_TRUE(Alive(qemuPid));

    kill(pid, SIGTERM);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 128 + SIGTERM) << ReadFile(errors);

    EXPECT_FALSE(Alive(qemuPid)) << "qemu " << qemuPid << " is still running";
    if (Alive(qemuPid))
        kill(qemuPid, SIGKILL);
    EXPECT_TRUE(Entries(tmp.Path()).empty()) << io << " is left behind";
    unlink(errors.c_str());
}
