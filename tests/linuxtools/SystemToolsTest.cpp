#include "SystemTools.h"
#include "RootUserGuard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

using Kel::ZarnLinuxTools::AddTimseSpec;
using Kel::ZarnLinuxTools::RootUserGuard;
using Kel::ZarnLinuxTools::SubTimseSpec;
using Kel::ZarnLinuxTools::SystemTools;
namespace detail = Kel::ZarnLinuxTools::detail;

namespace
{

// A private scratch directory, removed with everything in it.
class TempDir
{
public:
    TempDir()
    {
        char pattern[] = "/tmp/SystemToolsTest.XXXXXX";
        const char* made = mkdtemp(pattern);
        if (made != nullptr)
        {
            path_ = made;
        }
    }
    ~TempDir()
    {
        if (!path_.empty())
        {
            std::error_code ignored;
            std::filesystem::remove_all(path_, ignored);
        }
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    bool Valid() const { return !path_.empty(); }
    std::string File(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string ReadWholeFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void WriteFile(const std::string& path, const std::string& content, mode_t mode = 0644)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    chmod(path.c_str(), mode);
}

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    std::string line;
    while (std::getline(stream, line))
    {
        lines.push_back(line);
    }
    return lines;
}

// Points descriptor 1 at a file while alive, so a started program's output
// lands there.
class StdoutToFile
{
public:
    explicit StdoutToFile(const std::string& path)
    {
        std::fflush(stdout);
        saved_ = dup(STDOUT_FILENO);
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd >= 0)
        {
            dup2(fd, STDOUT_FILENO);
            close(fd);
        }
    }
    ~StdoutToFile()
    {
        std::fflush(stdout);
        if (saved_ >= 0)
        {
            dup2(saved_, STDOUT_FILENO);
            close(saved_);
        }
    }
    StdoutToFile(const StdoutToFile&) = delete;
    StdoutToFile& operator=(const StdoutToFile&) = delete;

private:
    int saved_ = -1;
};

// Reaps a child; returns its raw wait status, or -1.
int Reap(int pid)
{
    int status = 0;
    pid_t done;
    do
    {
        done = waitpid(pid, &status, 0);
    } while (done == -1 && errno == EINTR);
    return done == pid ? status : -1;
}

void KillAndReap(int pid)
{
    kill(pid, SIGKILL);
    Reap(pid);
}

struct Finished
{
    int waitStatus = -1;
    std::string output;

    bool ExitedWith(int code) const
    {
        return waitStatus != -1 && WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == code;
    }
};

// Starts a command line in the background with its standard output in a file,
// waits for it, and returns the wait status and what it printed.
Finished RunInBackground(const TempDir& dir, const std::string& commandLine, bool asRoot = false)
{
    const std::string outputPath = dir.File("background.out");
    int pid;
    {
        StdoutToFile redirect(outputPath);
        pid = SystemTools::ExecuteBackgroundCommand(commandLine.c_str(), asRoot);
    }
    Finished finished;
    EXPECT_GT(pid, 0);
    if (pid > 0)
    {
        finished.waitStatus = Reap(pid);
    }
    finished.output = ReadWholeFile(outputPath);
    return finished;
}

// Runs body in a forked child, so that it may change user ids or limits
// without touching the test process. Returns the child's exit code, or -1.
int ExitCodeInChild(const std::function<int()>& body)
{
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t pid = fork();
    if (pid == 0)
    {
        _exit(body());
    }
    if (pid < 0)
    {
        return -1;
    }
    const int status = Reap(pid);
    return (status != -1 && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
}

struct UserIds
{
    uid_t real = 0;
    uid_t effective = 0;
    uid_t saved = 0;

    bool Is(uid_t r, uid_t e, uid_t s) const { return real == r && effective == e && saved == s; }
    bool operator==(const UserIds& other) const
    {
        return Is(other.real, other.effective, other.saved);
    }
};

UserIds CurrentIds()
{
    UserIds ids;
    getresuid(&ids.real, &ids.effective, &ids.saved);
    return ids;
}

constexpr uid_t User = 1000;
constexpr uid_t OtherUser = 2000;

// Leaves the process without root in any of its user ids, so that a switch to
// root is refused. True when it holds no root id afterwards.
bool DropAllRoot()
{
    const UserIds ids = CurrentIds();
    if (ids.real != 0 && ids.effective != 0 && ids.saved != 0)
    {
        return true;
    }
    return setresuid(User, User, User) == 0;
}

// True when the environment says this is a CI run ("CI=true", as CI services set it).
bool RunningOnCi()
{
    const char* ci = std::getenv("CI");
    return ci != nullptr && std::string(ci) == "true";
}

// The tests that switch user ids need root. Elsewhere they are skipped without it, but
// on CI they fail: a skip counts as a pass there, so they would stay green unrun.
#define REQUIRE_ROOT()                                                                             \
    do                                                                                             \
    {                                                                                              \
        if (geteuid() != 0)                                                                        \
        {                                                                                          \
            if (RunningOnCi())                                                                     \
            {                                                                                      \
                FAIL() << "needs root to switch user ids, and CI=true: run the tests as root";     \
            }                                                                                      \
            GTEST_SKIP() << "needs root to switch user ids";                                       \
        }                                                                                          \
    } while (0)

timespec Ts(time_t sec, long nsec)
{
    timespec t;
    t.tv_sec = sec;
    t.tv_nsec = nsec;
    return t;
}

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// ---------------------------------------------------------------- timespec

TEST(TimseSpecTest, AddWithoutCarry)
{
    const timespec sum = AddTimseSpec(Ts(1, 200), Ts(2, 300));
    EXPECT_EQ(sum.tv_sec, 3);
    EXPECT_EQ(sum.tv_nsec, 500);
}

TEST(TimseSpecTest, AddCarriesAtOneSecond)
{
    timespec sum = AddTimseSpec(Ts(1, 600000000), Ts(2, 400000000));
    EXPECT_EQ(sum.tv_sec, 4);
    EXPECT_EQ(sum.tv_nsec, 0);

    sum = AddTimseSpec(Ts(0, 999999999), Ts(0, 999999999));
    EXPECT_EQ(sum.tv_sec, 1);
    EXPECT_EQ(sum.tv_nsec, 999999998);

    sum = AddTimseSpec(Ts(5, 999999999), Ts(0, 0));
    EXPECT_EQ(sum.tv_sec, 5);
    EXPECT_EQ(sum.tv_nsec, 999999999);
}

TEST(TimseSpecTest, SubWithoutBorrow)
{
    timespec result = Ts(-7, -7);
    EXPECT_TRUE(SubTimseSpec(Ts(5, 800), Ts(2, 300), result));
    EXPECT_EQ(result.tv_sec, 3);
    EXPECT_EQ(result.tv_nsec, 500);
}

TEST(TimseSpecTest, SubBorrowsOneSecond)
{
    timespec result;
    EXPECT_TRUE(SubTimseSpec(Ts(5, 100), Ts(2, 200), result));
    EXPECT_EQ(result.tv_sec, 2);
    EXPECT_EQ(result.tv_nsec, 999999900);

    EXPECT_TRUE(SubTimseSpec(Ts(1, 0), Ts(0, 1), result));
    EXPECT_EQ(result.tv_sec, 0);
    EXPECT_EQ(result.tv_nsec, 999999999);
}

TEST(TimseSpecTest, SubOfEqualValuesIsZeroAndNotNegative)
{
    timespec result;
    EXPECT_TRUE(SubTimseSpec(Ts(4, 123), Ts(4, 123), result));
    EXPECT_EQ(result.tv_sec, 0);
    EXPECT_EQ(result.tv_nsec, 0);
}

TEST(TimseSpecTest, SubNegativeReturnsFalse)
{
    timespec result;
    EXPECT_FALSE(SubTimseSpec(Ts(2, 0), Ts(3, 0), result));
    EXPECT_EQ(result.tv_sec, -1);
    EXPECT_EQ(result.tv_nsec, 0);

    // Only a nanosecond short: the borrow makes the seconds negative.
    EXPECT_FALSE(SubTimseSpec(Ts(3, 0), Ts(3, 1), result));
    EXPECT_EQ(result.tv_sec, -1);
    EXPECT_EQ(result.tv_nsec, 999999999);
}

// ---------------------------------------------------------------- command line splitting

TEST(SplitCommandLineTest, NullAndEmptyGiveNoArguments)
{
    EXPECT_TRUE(detail::SplitCommandLine(nullptr).empty());
    EXPECT_TRUE(detail::SplitCommandLine("").empty());
}

TEST(SplitCommandLineTest, SplitsAtSingleBlanks)
{
    const std::vector<std::string> expected = {"/bin/echo", "a", "bc"};
    EXPECT_EQ(detail::SplitCommandLine("/bin/echo a bc"), expected);
    EXPECT_EQ(detail::SplitCommandLine("/bin/true"), std::vector<std::string>{"/bin/true"});
}

TEST(SplitCommandLineTest, TwoBlanksGiveAnEmptyArgument)
{
    const std::vector<std::string> expected = {"/bin/echo", "", "arg"};
    EXPECT_EQ(detail::SplitCommandLine("/bin/echo  arg"), expected);
}

TEST(SplitCommandLineTest, LeadingAndTrailingBlanksGiveEmptyArguments)
{
    const std::vector<std::string> leading = {"", "/bin/echo"};
    EXPECT_EQ(detail::SplitCommandLine(" /bin/echo"), leading);
    const std::vector<std::string> trailing = {"/bin/echo", "a", ""};
    EXPECT_EQ(detail::SplitCommandLine("/bin/echo a "), trailing);
    const std::vector<std::string> onlyBlank = {"", ""};
    EXPECT_EQ(detail::SplitCommandLine(" "), onlyBlank);
}

TEST(SplitCommandLineTest, QuotedBlanksStayInOneArgumentWithoutQuotes)
{
    const std::vector<std::string> expected = {"/bin/echo", "a b  c", "d"};
    EXPECT_EQ(detail::SplitCommandLine("/bin/echo \"a b  c\" d"), expected);
}

TEST(SplitCommandLineTest, QuotesInsideAWordAreDropped)
{
    const std::vector<std::string> expected = {"/bin/echo", "xy zw"};
    EXPECT_EQ(detail::SplitCommandLine("/bin/echo x\"y z\"w"), expected);
    const std::vector<std::string> emptyQuoted = {"/bin/echo", ""};
    EXPECT_EQ(detail::SplitCommandLine("/bin/echo \"\""), emptyQuoted);
}

TEST(SplitCommandLineTest, UnclosedQuoteRunsToTheEnd)
{
    const std::vector<std::string> expected = {"/bin/echo", "a b "};
    EXPECT_EQ(detail::SplitCommandLine("/bin/echo \"a b "), expected);
}

TEST(SplitCommandLineTest, OtherCharactersAreTakenLiterally)
{
    const std::vector<std::string> expected = {"/bin/sh", "-c", "echo\t'$HOME'|x"};
    EXPECT_EQ(detail::SplitCommandLine("/bin/sh -c echo\t'$HOME'|x"), expected);
}

// ---------------------------------------------------------------- ExecuteCommand

TEST(ExecuteCommandTest, CopiesOutputAndSucceeds)
{
    std::ostringstream out;
    EXPECT_TRUE(SystemTools::ExecuteCommand("echo hello; echo world", out));
    EXPECT_EQ(out.str(), "hello\nworld\n");
}

TEST(ExecuteCommandTest, NonZeroExitGivesFalse)
{
    std::ostringstream out;
    EXPECT_FALSE(SystemTools::ExecuteCommand("echo partial; exit 3", out));
    EXPECT_EQ(out.str(), "partial\n");

    std::ostringstream none;
    EXPECT_FALSE(SystemTools::ExecuteCommand("false", none));
    EXPECT_TRUE(none.str().empty());
}

TEST(ExecuteCommandTest, UnknownProgramGivesFalse)
{
    std::ostringstream out;
    EXPECT_FALSE(SystemTools::ExecuteCommand("no_such_program_for_system_tools 2>/dev/null", out));
}

TEST(ExecuteCommandTest, KilledBySignalGivesFalse)
{
    std::ostringstream out;
    EXPECT_FALSE(SystemTools::ExecuteCommand("kill -TERM $$", out));
}

TEST(ExecuteCommandTest, OnlyStandardOutputIsCapturedUnlessRedirected)
{
    std::ostringstream out;
    EXPECT_TRUE(SystemTools::ExecuteCommand("echo to-out; echo to-err 1>&2", out));
    EXPECT_EQ(out.str(), "to-out\n");

    std::ostringstream both;
    EXPECT_TRUE(SystemTools::ExecuteCommand("(echo to-err 1>&2) 2>&1", both));
    EXPECT_EQ(both.str(), "to-err\n");
}

TEST(ExecuteCommandTest, CopiesBinaryBytesOtherThanFF)
{
    std::ostringstream out;
    EXPECT_TRUE(SystemTools::ExecuteCommand("printf 'a\\000b\\376c\\001'", out));
    const std::string expected("a\0b\xFE"
                               "c\x01",
                               6);
    EXPECT_EQ(out.str(), expected);
}

TEST(ExecuteCommandTest, ByteFFEndsTheCopyButResultComesFromExitStatus)
{
    std::ostringstream out;
    EXPECT_TRUE(SystemTools::ExecuteCommand("printf 'ab\\377cd\\n'", out));
    EXPECT_EQ(out.str(), "ab");

    std::ostringstream failing;
    EXPECT_FALSE(SystemTools::ExecuteCommand("printf 'ab\\377cd'; exit 4", failing));
    EXPECT_EQ(failing.str(), "ab");

    std::ostringstream first;
    EXPECT_TRUE(SystemTools::ExecuteCommand("printf '\\377'", first));
    EXPECT_TRUE(first.str().empty());
}

TEST(ExecuteCommandTest, ByteFFWithMuchOutputBehindItBreaksThePipe)
{
    // Reading stops at the byte; the rest cannot be written any more once
    // the pipe is closed, and the shell reports that through its status.
    std::ostringstream out;
    EXPECT_FALSE(SystemTools::ExecuteCommand("printf 'x\\377'; yes | head -c 1000000", out));
    EXPECT_EQ(out.str(), "x");
}

TEST(ExecuteCommandTest, CopiesOutputLargerThanThePipe)
{
    std::ostringstream out;
    EXPECT_TRUE(SystemTools::ExecuteCommand("yes abcdefghi | head -n 20000", out));
    EXPECT_EQ(out.str().size(), 200000u);
    EXPECT_EQ(out.str().substr(0, 20), "abcdefghi\nabcdefghi\n");
}

TEST(ExecuteCommandTest, ShellFeaturesWork)
{
    std::ostringstream out;
    EXPECT_TRUE(
        SystemTools::ExecuteCommand("for i in 1 2 3; do printf \"$i\"; done | tr 1 x", out));
    EXPECT_EQ(out.str(), "x23");
}

TEST(ExecuteCommandTest, NullCommandGivesFalse)
{
    std::ostringstream out;
    EXPECT_FALSE(SystemTools::ExecuteCommand(nullptr, out));
}

TEST(ExecuteCommandTest, AsRootWhenAlreadyRootRunsAndKeepsIds)
{
    REQUIRE_ROOT();
    const UserIds before = CurrentIds();
    std::ostringstream out;
    EXPECT_TRUE(SystemTools::ExecuteCommand("id -u", out, true));
    EXPECT_EQ(out.str(), "0\n");
    const UserIds after = CurrentIds();
    EXPECT_EQ(after.real, before.real);
    EXPECT_EQ(after.effective, before.effective);
    // The saved id always ends up as the effective one.
    EXPECT_EQ(after.saved, before.effective);

    std::ostringstream failing;
    EXPECT_FALSE(SystemTools::ExecuteCommand("exit 1", failing, true));
    EXPECT_TRUE(CurrentIds().Is(before.real, before.effective, before.effective));
}

TEST(ExecuteCommandTest, AsRootSwitchesAndRestoresWithSavedIdReplaced)
{
    REQUIRE_ROOT();
    const int code = ExitCodeInChild(
        []
        {
            // Effective root already, but real and saved ids of other users:
            // the switch makes all three root, so the shell runs as root.
            if (setresuid(User, 0, OtherUser) != 0)
            {
                return 10;
            }
            std::ostringstream out;
            if (!SystemTools::ExecuteCommand("id -u; id -ru", out, true))
            {
                return 11;
            }
            if (out.str() != "0\n0\n")
            {
                return 12;
            }
            // Real and effective come back; the saved id is the old effective.
            if (!CurrentIds().Is(User, 0, 0))
            {
                return 13;
            }
            return 0;
        });
    EXPECT_EQ(code, 0);
}

TEST(ExecuteCommandTest, AsRootFromSavedRootDropsTheSavedIdAfterwards)
{
    REQUIRE_ROOT();
    const int code = ExitCodeInChild(
        []
        {
            if (setresuid(User, User, 0) != 0)
            {
                return 10;
            }
            // (The shell itself drops an effective id that differs from the
            // real one, so only the ids around the call are looked at.)
            std::ostringstream out;
            if (!SystemTools::ExecuteCommand("exit 0", out, true))
            {
                return 11;
            }
            if (!CurrentIds().Is(User, User, User))
            {
                return 12;
            }
            return 0;
        });
    EXPECT_EQ(code, 0);
}

TEST(ExecuteCommandTest, WithoutRootFlagRunsAsTheCurrentUser)
{
    REQUIRE_ROOT();
    const int code = ExitCodeInChild(
        []
        {
            if (setresuid(User, User, 0) != 0)
            {
                return 10;
            }
            std::ostringstream out;
            if (!SystemTools::ExecuteCommand("id -u", out))
            {
                return 11;
            }
            if (out.str() != std::to_string(User) + "\n")
            {
                return 12;
            }
            if (!CurrentIds().Is(User, User, 0))
            {
                return 13;
            }
            return 0;
        });
    EXPECT_EQ(code, 0);
}

TEST(ExecuteCommandTest, AsRootFailsAtOnceWhenTheSwitchIsRefused)
{
    TempDir dir;
    ASSERT_TRUE(dir.Valid());
    const std::string marker = dir.File("ran");
    chmod(dir.File("").c_str(), 0777);
    const int code = ExitCodeInChild(
        [&marker]
        {
            if (!DropAllRoot())
            {
                return 10;
            }
            const UserIds plain = CurrentIds();
            const std::string command = "touch " + marker;
            std::ostringstream out;
            if (SystemTools::ExecuteCommand(command.c_str(), out, true))
            {
                return 11;
            }
            if (access(marker.c_str(), F_OK) == 0)
            {
                return 12; // the command must not have run
            }
            if (!(CurrentIds() == plain))
            {
                return 13;
            }
            // Control: the same command runs without the flag.
            if (!SystemTools::ExecuteCommand(command.c_str(), out))
            {
                return 14;
            }
            return access(marker.c_str(), F_OK) == 0 ? 0 : 15;
        });
    EXPECT_EQ(code, 0);
}

TEST(ExecuteCommandTest, AsRootLeavesIdsSwitchedWhenThePipeCannotOpen)
{
    REQUIRE_ROOT();
    const int code = ExitCodeInChild(
        []
        {
            if (setresuid(User, User, 0) != 0)
            {
                return 10;
            }
            // No descriptor left for the pipe while the command is started;
            // the limit comes back right after (sanitizer checks need fds).
            std::ostringstream out;
            rlimit original;
            getrlimit(RLIMIT_NOFILE, &original);
            rlimit none = original;
            none.rlim_cur = 0;
            if (setrlimit(RLIMIT_NOFILE, &none) != 0)
            {
                return 11;
            }
            const bool ran = SystemTools::ExecuteCommand("true", out, true);
            setrlimit(RLIMIT_NOFILE, &original);
            if (ran)
            {
                return 12;
            }
            // Still switched: effective root, saved root.
            if (!CurrentIds().Is(User, 0, 0))
            {
                return 13;
            }
            return 0;
        });
    EXPECT_EQ(code, 0);
}

// ---------------------------------------------------------------- RootUserGuard

TEST(RootUserGuardTest, AlreadyRootStaysRoot)
{
    REQUIRE_ROOT();
    const UserIds before = CurrentIds();
    {
        RootUserGuard root;
        EXPECT_TRUE(root.Succeeded());
        EXPECT_EQ(geteuid(), 0u);
    }
    EXPECT_TRUE(CurrentIds().Is(before.real, before.effective, before.effective));
}

TEST(RootUserGuardTest, RestoresRealAndEffectiveAndReplacesSaved)
{
    REQUIRE_ROOT();
    const int code = ExitCodeInChild(
        []
        {
            if (setresuid(User, User, 0) != 0)
            {
                return 10;
            }
            {
                RootUserGuard root;
                if (!root.Succeeded())
                {
                    return 11;
                }
                // An unprivileged setuid(0) only changes the effective id.
                if (!CurrentIds().Is(User, 0, 0))
                {
                    return 12;
                }
            }
            return CurrentIds().Is(User, User, User) ? 0 : 13;
        });
    EXPECT_EQ(code, 0);
}

TEST(RootUserGuardTest, SavedIdBecomesTheOldEffectiveId)
{
    REQUIRE_ROOT();
    const int code = ExitCodeInChild(
        []
        {
            if (setresuid(User, 0, OtherUser) != 0)
            {
                return 10;
            }
            {
                RootUserGuard root;
                if (!root.Succeeded())
                {
                    return 11;
                }
                // A privileged setuid(0) sets all three.
                if (!CurrentIds().Is(0, 0, 0))
                {
                    return 12;
                }
            }
            return CurrentIds().Is(User, 0, 0) ? 0 : 13;
        });
    EXPECT_EQ(code, 0);
}

TEST(RootUserGuardTest, DismissKeepsTheSwitch)
{
    REQUIRE_ROOT();
    const int code = ExitCodeInChild(
        []
        {
            if (setresuid(User, User, 0) != 0)
            {
                return 10;
            }
            {
                RootUserGuard root;
                if (!root.Succeeded())
                {
                    return 11;
                }
                root.Dismiss();
            }
            return CurrentIds().Is(User, 0, 0) ? 0 : 12;
        });
    EXPECT_EQ(code, 0);
}

TEST(RootUserGuardTest, RefusedSwitchReportsFailureAndChangesNothing)
{
    const int code = ExitCodeInChild(
        []
        {
            if (!DropAllRoot())
            {
                return 10;
            }
            const UserIds plain = CurrentIds();
            {
                RootUserGuard root;
                if (root.Succeeded())
                {
                    return 11;
                }
                if (!(CurrentIds() == plain))
                {
                    return 12;
                }
            }
            return CurrentIds() == plain ? 0 : 13;
        });
    EXPECT_EQ(code, 0);
}

// ---------------------------------------------------------------- ExecuteBackgroundCommand

class BackgroundCommandTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir_.Valid());
        // Prints $0 and then every argument on a line of its own.
        script_ = dir_.File("args.sh");
        WriteFile(script_,
                  "#!/bin/sh\n"
                  "printf '<%s>\\n' \"$0\"\n"
                  "for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done\n",
                  0755);
    }

    TempDir dir_;
    std::string script_;
};

TEST_F(BackgroundCommandTest, StartsProgramWithItsArguments)
{
    const Finished done = RunInBackground(dir_, script_ + " one two");
    EXPECT_TRUE(done.ExitedWith(0));
    EXPECT_EQ(done.output, "<" + script_ + ">\n[one]\n[two]\n");
}

TEST_F(BackgroundCommandTest, TwoBlanksPassAnEmptyArgument)
{
    const Finished done = RunInBackground(dir_, script_ + "  hello");
    EXPECT_TRUE(done.ExitedWith(0));
    EXPECT_EQ(done.output, "<" + script_ + ">\n[]\n[hello]\n");
}

TEST_F(BackgroundCommandTest, QuotedPartIsOneArgumentWithoutQuotes)
{
    const Finished done = RunInBackground(dir_, script_ + " \"a b  c\" d x\"y z\"w");
    EXPECT_TRUE(done.ExitedWith(0));
    EXPECT_EQ(done.output, "<" + script_ + ">\n[a b  c]\n[d]\n[xy zw]\n");
}

TEST_F(BackgroundCommandTest, TrailingBlankPassesAnEmptyArgument)
{
    const Finished done = RunInBackground(dir_, script_ + " a ");
    EXPECT_TRUE(done.ExitedWith(0));
    EXPECT_EQ(done.output, "<" + script_ + ">\n[a]\n[]\n");
}

TEST_F(BackgroundCommandTest, EnvironmentIsEmpty)
{
    setenv("SYSTEM_TOOLS_TEST_MARKER", "visible", 1);
    ASSERT_NE(std::getenv("PATH"), nullptr);
    const Finished done = RunInBackground(dir_, "/usr/bin/env");
    unsetenv("SYSTEM_TOOLS_TEST_MARKER");
    EXPECT_TRUE(done.ExitedWith(0));
    EXPECT_EQ(done.output, "");
}

TEST_F(BackgroundCommandTest, ProgramWithoutFullPathNeverStarts)
{
    ASSERT_NE(std::getenv("PATH"), nullptr);
    const Finished done = RunInBackground(dir_, "echo should-not-appear");
    EXPECT_TRUE(done.ExitedWith(1));
    EXPECT_EQ(done.output, "");

    const Finished missing = RunInBackground(dir_, "/no/such/program");
    EXPECT_TRUE(missing.ExitedWith(1));
}

TEST_F(BackgroundCommandTest, EmptyCommandLineStartsNothing)
{
    const Finished empty = RunInBackground(dir_, "");
    EXPECT_TRUE(empty.ExitedWith(1));

    const int pid = SystemTools::ExecuteBackgroundCommand(nullptr);
    ASSERT_GT(pid, 0);
    const int status = Reap(pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
}

TEST_F(BackgroundCommandTest, ProgramExitCodeIsPassedOn)
{
    const Finished done = RunInBackground(dir_, "/bin/sh -c \"exit 42\"");
    EXPECT_TRUE(done.ExitedWith(42));
}

TEST_F(BackgroundCommandTest, OnlyStandardDescriptorsAreInherited)
{
    // A descriptor without close-on-exec, far from the low numbers that ls
    // itself will use.
    const std::string heldPath = dir_.File("held");
    WriteFile(heldPath, "x");
    const int opened = open(heldPath.c_str(), O_RDONLY);
    ASSERT_GE(opened, 0);
    const int held = dup2(opened, 100);
    close(opened);
    ASSERT_EQ(held, 100);
    ASSERT_EQ(fcntl(held, F_GETFD) & FD_CLOEXEC, 0);

    const Finished done = RunInBackground(dir_, "/bin/ls /proc/self/fd");
    close(held);

    EXPECT_TRUE(done.ExitedWith(0));
    const std::vector<std::string> fds = Lines(done.output);
    EXPECT_FALSE(fds.empty());
    for (const std::string& fd : fds)
    {
        // 0, 1 and 2 from us; 3 is the directory ls reads.
        EXPECT_LT(std::atoi(fd.c_str()), 4) << "descriptor " << fd << " leaked into the child";
    }
    EXPECT_NE(std::find(fds.begin(), fds.end(), "1"), fds.end());
    EXPECT_EQ(std::find(fds.begin(), fds.end(), "100"), fds.end());
}

TEST_F(BackgroundCommandTest, LeavesSigchldBlocked)
{
    const Finished done = RunInBackground(dir_, "/bin/true");
    EXPECT_TRUE(done.ExitedWith(0));
    sigset_t mask;
    sigemptyset(&mask);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &mask), 0);
    EXPECT_EQ(sigismember(&mask, SIGCHLD), 1);
}

TEST_F(BackgroundCommandTest, AsRootWhenAlreadyRoot)
{
    REQUIRE_ROOT();
    const UserIds before = CurrentIds();
    const Finished done = RunInBackground(dir_, "/usr/bin/id -u", true);
    EXPECT_TRUE(done.ExitedWith(0));
    EXPECT_EQ(done.output, "0\n");
    // Only the child switched.
    EXPECT_TRUE(CurrentIds().Is(before.real, before.effective, before.saved));
}

TEST_F(BackgroundCommandTest, AsRootSwitchesOnlyTheChild)
{
    REQUIRE_ROOT();
    const std::string asRootPath = dir_.File("as-root.out");
    const std::string asUserPath = dir_.File("as-user.out");
    const int code = ExitCodeInChild(
        [&asRootPath, &asUserPath]
        {
            // Opened while still root; this child's own output is not needed.
            const int asRootOut = open(asRootPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            const int asUserOut = open(asUserPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (asRootOut < 0 || asUserOut < 0)
            {
                return 9;
            }
            if (setresuid(User, User, 0) != 0)
            {
                return 10;
            }
            std::fflush(stdout);
            dup2(asRootOut, STDOUT_FILENO);
            int pid = SystemTools::ExecuteBackgroundCommand("/usr/bin/id -u", true);
            int status = Reap(pid);
            if (pid <= 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
            {
                return 11;
            }
            dup2(asUserOut, STDOUT_FILENO);
            pid = SystemTools::ExecuteBackgroundCommand("/usr/bin/id -u");
            status = Reap(pid);
            if (pid <= 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
            {
                return 12;
            }
            return CurrentIds().Is(User, User, 0) ? 0 : 13;
        });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(ReadWholeFile(asRootPath), "0\n");
    EXPECT_EQ(ReadWholeFile(asUserPath), std::to_string(User) + "\n");
}

TEST_F(BackgroundCommandTest, RefusedRootSwitchEndsTheChildWithOne)
{
    const int code = ExitCodeInChild(
        []
        {
            if (!DropAllRoot())
            {
                return 10;
            }
            const UserIds plain = CurrentIds();
            int pid = SystemTools::ExecuteBackgroundCommand("/bin/true", true);
            int status = Reap(pid);
            if (pid <= 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 1)
            {
                return 11;
            }
            pid = SystemTools::ExecuteBackgroundCommand("/bin/true");
            status = Reap(pid);
            if (pid <= 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
            {
                return 12;
            }
            return CurrentIds() == plain ? 0 : 13;
        });
    EXPECT_EQ(code, 0);
}

// ---------------------------------------------------------------- WaitEndBackgroundCommand

TEST(WaitEndBackgroundCommandTest, NonPositivePidsGiveFalse)
{
    unsigned long status = 12345;
    EXPECT_FALSE(SystemTools::WaitEndBackgroundCommand(0, status));
    EXPECT_FALSE(SystemTools::WaitEndBackgroundCommand(-1, status));
    EXPECT_FALSE(SystemTools::WaitEndBackgroundCommand(0, 100, status));
    EXPECT_FALSE(SystemTools::WaitEndBackgroundCommand(-1, 100, status));
    EXPECT_EQ(status, 12345u);
}

TEST(WaitEndBackgroundCommandTest, NotOurChildGivesFalse)
{
    unsigned long status = 0;
    EXPECT_FALSE(SystemTools::WaitEndBackgroundCommand(1, status));
    EXPECT_FALSE(SystemTools::WaitEndBackgroundCommand(1, 100, status));
}

TEST(WaitEndBackgroundCommandTest, UntimedWaitReportsExitCodeAndLeavesChildWaitable)
{
    const int pid = SystemTools::ExecuteBackgroundCommand("/bin/sh -c \"exit 7\"");
    ASSERT_GT(pid, 0);
    unsigned long status = 0;
    EXPECT_TRUE(SystemTools::WaitEndBackgroundCommand(pid, status));
    EXPECT_EQ(status, 7u);

    // Not reaped: a second wait still sees it, and so does waitpid.
    unsigned long again = 0;
    EXPECT_TRUE(SystemTools::WaitEndBackgroundCommand(pid, again));
    EXPECT_EQ(again, 7u);
    const int waitStatus = Reap(pid);
    ASSERT_NE(waitStatus, -1);
    EXPECT_TRUE(WIFEXITED(waitStatus));
    EXPECT_EQ(WEXITSTATUS(waitStatus), 7);

    // Reaped now: nothing left to wait for.
    EXPECT_FALSE(SystemTools::WaitEndBackgroundCommand(pid, again));
}

TEST(WaitEndBackgroundCommandTest, UntimedWaitBlocksUntilTheEnd)
{
    const auto start = std::chrono::steady_clock::now();
    const int pid = SystemTools::ExecuteBackgroundCommand("/bin/sleep 0.3");
    ASSERT_GT(pid, 0);
    unsigned long status = 99;
    EXPECT_TRUE(SystemTools::WaitEndBackgroundCommand(pid, status));
    EXPECT_EQ(status, 0u);
    EXPECT_GE(SecondsSince(start), 0.25);
    Reap(pid);
}

TEST(WaitEndBackgroundCommandTest, UntimedWaitReportsTheKillingSignal)
{
    const int pid = SystemTools::ExecuteBackgroundCommand("/bin/sleep 30");
    ASSERT_GT(pid, 0);
    kill(pid, SIGTERM);
    unsigned long status = 0;
    EXPECT_TRUE(SystemTools::WaitEndBackgroundCommand(pid, status));
    EXPECT_EQ(status, static_cast<unsigned long>(SIGTERM));
    const int waitStatus = Reap(pid);
    EXPECT_TRUE(WIFSIGNALED(waitStatus));
}

TEST(WaitEndBackgroundCommandTest, UntimedWaitReportsAStop)
{
    const int pid = SystemTools::ExecuteBackgroundCommand("/bin/sleep 30");
    ASSERT_GT(pid, 0);
    kill(pid, SIGSTOP);
    unsigned long status = 0;
    EXPECT_TRUE(SystemTools::WaitEndBackgroundCommand(pid, status));
    EXPECT_EQ(status, static_cast<unsigned long>(SIGSTOP));
    KillAndReap(pid);
}

TEST(WaitEndBackgroundCommandTest, ZeroTimeoutWhileRunningGivesFalse)
{
    const int pid = SystemTools::ExecuteBackgroundCommand("/bin/sleep 5");
    ASSERT_GT(pid, 0);
    unsigned long status = 12345;
    EXPECT_FALSE(SystemTools::WaitEndBackgroundCommand(pid, 0, status));
    EXPECT_EQ(status, 12345u);
    KillAndReap(pid);
}

TEST(WaitEndBackgroundCommandTest, ZeroTimeoutIgnoresAPendingSignalOfAnotherChild)
{
    // The other child's SIGCHLD stays pending (blocked) until the wait takes it.
    const int other = SystemTools::ExecuteBackgroundCommand("/bin/true");
    ASSERT_GT(other, 0);
    unsigned long status = 0;
    ASSERT_TRUE(SystemTools::WaitEndBackgroundCommand(other, status));

    const int pid = SystemTools::ExecuteBackgroundCommand("/bin/sleep 5");
    ASSERT_GT(pid, 0);
    EXPECT_FALSE(SystemTools::WaitEndBackgroundCommand(pid, 0, status));
    KillAndReap(pid);
    Reap(other);
}

TEST(WaitEndBackgroundCommandTest, TimedWaitForAnEndedChildReturnsItsStatus)
{
    const int pid = SystemTools::ExecuteBackgroundCommand("/bin/sh -c \"exit 5\"");
    ASSERT_GT(pid, 0);
    unsigned long status = 0;
    // Make sure it has ended before the timed wait looks.
    ASSERT_TRUE(SystemTools::WaitEndBackgroundCommand(pid, status));

    status = 0;
    EXPECT_TRUE(SystemTools::WaitEndBackgroundCommand(pid, 0, status));
    EXPECT_EQ(status, 5u);
    status = 0;
    EXPECT_TRUE(SystemTools::WaitEndBackgroundCommand(pid, 1000, status));
    EXPECT_EQ(status, 5u);

    const int waitStatus = Reap(pid);
    EXPECT_TRUE(WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == 5);
}

TEST(WaitEndBackgroundCommandTest, TimedWaitReturnsWhenTheChildEnds)
{
    const auto start = std::chrono::steady_clock::now();
    const int pid = SystemTools::ExecuteBackgroundCommand("/bin/sh -c \"/bin/sleep 0.3; exit 3\"");
    ASSERT_GT(pid, 0);
    unsigned long status = 0;
    EXPECT_TRUE(SystemTools::WaitEndBackgroundCommand(pid, 10000, status));
    EXPECT_EQ(status, 3u);
    const double elapsed = SecondsSince(start);
    EXPECT_GE(elapsed, 0.25);
    EXPECT_LT(elapsed, 5.0);

    // Still waitable after the timed wait.
    const int waitStatus = Reap(pid);
    EXPECT_TRUE(WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == 3);
}

TEST(WaitEndBackgroundCommandTest, TimedWaitGivesUpWhileTheChildRuns)
{
    const int pid = SystemTools::ExecuteBackgroundCommand("/bin/sleep 10");
    ASSERT_GT(pid, 0);
    const auto start = std::chrono::steady_clock::now();
    unsigned long status = 12345;
    EXPECT_FALSE(SystemTools::WaitEndBackgroundCommand(pid, 300, status));
    const double elapsed = SecondsSince(start);
    EXPECT_GE(elapsed, 0.2);
    EXPECT_LT(elapsed, 5.0);
    EXPECT_EQ(status, 12345u);
    KillAndReap(pid);
}

TEST(WaitEndBackgroundCommandTest, TimedWaitReportsTheKillingSignal)
{
    const int pid = SystemTools::ExecuteBackgroundCommand("/bin/sleep 30");
    ASSERT_GT(pid, 0);
    kill(pid, SIGKILL);
    unsigned long status = 0;
    EXPECT_TRUE(SystemTools::WaitEndBackgroundCommand(pid, 5000, status));
    EXPECT_EQ(status, static_cast<unsigned long>(SIGKILL));
    Reap(pid);
}

// ---------------------------------------------------------------- kernel queries

TEST(ReadFirstLineTest, ReplacesWithTheFirstLine)
{
    TempDir dir;
    ASSERT_TRUE(dir.Valid());
    const std::string path = dir.File("cmdline");
    WriteFile(path, "BOOT_IMAGE=/vmlinuz root=/dev/sda2 quiet\nsecond line\n");
    std::string keep = "previous";
    EXPECT_TRUE(detail::ReadFirstLine(path.c_str(), keep));
    EXPECT_EQ(keep, "BOOT_IMAGE=/vmlinuz root=/dev/sda2 quiet");
}

TEST(ReadFirstLineTest, LineWithoutNewlineAndEmptyFile)
{
    TempDir dir;
    ASSERT_TRUE(dir.Valid());
    const std::string path = dir.File("cmdline");
    WriteFile(path, "no newline");
    std::string keep = "previous";
    EXPECT_TRUE(detail::ReadFirstLine(path.c_str(), keep));
    EXPECT_EQ(keep, "no newline");

    WriteFile(path, "");
    EXPECT_TRUE(detail::ReadFirstLine(path.c_str(), keep));
    EXPECT_EQ(keep, "");
}

TEST(ReadFirstLineTest, MissingFileKeepsThePreviousText)
{
    TempDir dir;
    ASSERT_TRUE(dir.Valid());
    const std::string missing = dir.File("missing");
    std::string keep = "previous";
    EXPECT_FALSE(detail::ReadFirstLine(missing.c_str(), keep));
    EXPECT_EQ(keep, "previous");

    std::string empty;
    EXPECT_FALSE(detail::ReadFirstLine(missing.c_str(), empty));
    EXPECT_EQ(empty, "");

    EXPECT_FALSE(detail::ReadFirstLine(nullptr, keep));
    EXPECT_EQ(keep, "previous");
}

TEST(GetKernelCommandLineTest, ReturnsTheFirstLineOfProcCmdline)
{
    std::string expected;
    {
        std::ifstream file("/proc/cmdline");
        ASSERT_TRUE(file.is_open());
        std::getline(file, expected);
    }
    const char* first = SystemTools::GetKernelCommandLine();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(std::string(first), expected);
    EXPECT_EQ(std::string(SystemTools::GetKernelCommandLine()), expected);
}

TEST(GetRamTotalSizeTest, IsPositiveAndInKernelUnits)
{
    const long total = SystemTools::GetRamTotalSize();
    EXPECT_GT(total, 0);
    struct sysinfo info;
    ASSERT_EQ(sysinfo(&info), 0);
    EXPECT_EQ(total, static_cast<long>(info.totalram));
}

TEST(GetProcessListTest, AppendsAndFindsThisProgram)
{
    char self[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", self, sizeof(self) - 1), 0);
    const std::string selfPath(self);
    const std::string selfName = selfPath.substr(selfPath.rfind('/') + 1);

    std::vector<std::string> processes = {"already-there"};
    const int count = SystemTools::GetProcessList(processes);
    EXPECT_EQ(count, static_cast<int>(processes.size()));
    EXPECT_GT(count, 1);
    EXPECT_EQ(processes.front(), "already-there");
    EXPECT_NE(std::find(processes.begin(), processes.end(), selfName), processes.end());
    for (std::size_t i = 1; i < processes.size(); ++i)
    {
        EXPECT_EQ(processes[i].find('/'), std::string::npos) << processes[i];
        EXPECT_FALSE(processes[i].empty());
    }

    // A second call appends again.
    const int again = SystemTools::GetProcessList(processes);
    EXPECT_GT(again, count);
    EXPECT_EQ(again, static_cast<int>(processes.size()));
}

} // namespace
