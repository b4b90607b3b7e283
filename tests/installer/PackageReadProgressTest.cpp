// How far an installer has read its package: the /proc texts parsed on their own, the
// figure from a /proc laid out in a scratch directory, and from the real one with a child
// process that holds the package open.
#include "PackageReadProgress.h"
#include "ScratchDirectory.h"
#include "TestArchive.h"

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace
{

using Kel::Vidorama::InstallerLib::PackageReadProgress;
using TestSupport::ScratchDirectory;
using TestSupport::WriteFile;

TEST(PackageReadProgress, ThePositionComesFromThePosLine)
{
    EXPECT_EQ(PackageReadProgress::FdinfoPosition("pos:\t4096\nflags:\t0100000\nmnt_id:\t29\n"),
              4096);
    EXPECT_EQ(PackageReadProgress::FdinfoPosition("pos:\t0\nflags:\t02\n"), 0);
    EXPECT_EQ(PackageReadProgress::FdinfoPosition("flags:\t0100000\npos: 123456789012\n"),
              123456789012);
    EXPECT_EQ(PackageReadProgress::FdinfoPosition("pos:\t77"), 77) << "no final line end";
}

TEST(PackageReadProgress, NoPositionIsMinusOne)
{
    EXPECT_EQ(PackageReadProgress::FdinfoPosition(""), -1);
    EXPECT_EQ(PackageReadProgress::FdinfoPosition("flags:\t0100000\nmnt_id:\t29\n"), -1);
    EXPECT_EQ(PackageReadProgress::FdinfoPosition("pos:\t\n"), -1);
    EXPECT_EQ(PackageReadProgress::FdinfoPosition("pos:\t-5\n"), -1);
    EXPECT_EQ(PackageReadProgress::FdinfoPosition("pos:\tabc\n"), -1);
    EXPECT_EQ(PackageReadProgress::FdinfoPosition("xpos:\t5\n"), -1);
    EXPECT_EQ(PackageReadProgress::FdinfoPosition("pos:\t99999999999999999999999\n"), -1)
        << "too large for 64 bits";
}

TEST(PackageReadProgress, TheParentFollowsTheNameInParentheses)
{
    EXPECT_EQ(PackageReadProgress::StatParent("1234 (sh) S 1 1234 1234 0 -1 4194560 0 0"), 1);
    EXPECT_EQ(PackageReadProgress::StatParent("77 (Install.sh) R 76 77 5 0"), 76);
    // A name may hold blanks and parentheses of its own.
    EXPECT_EQ(PackageReadProgress::StatParent("55 (a) S 9 (b) S 42 55 55 0"), 42);
    EXPECT_EQ(PackageReadProgress::StatParent("56 (two words) D 300 56"), 300);
    EXPECT_EQ(PackageReadProgress::StatParent("1 (init) S 0 1 1"), 0);
}

TEST(PackageReadProgress, AStatTextWithoutAParentIsMinusOne)
{
    EXPECT_EQ(PackageReadProgress::StatParent(""), -1);
    EXPECT_EQ(PackageReadProgress::StatParent("1234 sh S 1"), -1);
    EXPECT_EQ(PackageReadProgress::StatParent("1234 (sh) S"), -1);
    EXPECT_EQ(PackageReadProgress::StatParent("1234 (sh) S x"), -1);
}

TEST(PackageReadProgress, DescendantsAreEveryProcessBelowTheRoot)
{
    const std::vector<std::pair<pid_t, pid_t>> parents = {
        {1, 0}, {100, 1}, {200, 100}, {201, 100}, {300, 200}, {400, 300}, {500, 1}, {600, 500}};
    std::vector<pid_t> below = PackageReadProgress::Descendants(100, parents);
    std::sort(below.begin(), below.end());
    EXPECT_EQ(below, (std::vector<pid_t>{200, 201, 300, 400}));
    EXPECT_TRUE(PackageReadProgress::Descendants(400, parents).empty());
    EXPECT_TRUE(PackageReadProgress::Descendants(999, parents).empty());
}

TEST(PackageReadProgress, ALoopInTheParentsEnds)
{
    const std::vector<std::pair<pid_t, pid_t>> parents = {{10, 20}, {20, 10}, {30, 10}, {10, 10}};
    std::vector<pid_t> below = PackageReadProgress::Descendants(10, parents);
    std::sort(below.begin(), below.end());
    EXPECT_EQ(below, (std::vector<pid_t>{20, 30})) << "the root itself is never below itself";
}

TEST(PackageReadProgress, PercentIsWholeAndAtMostAHundred)
{
    EXPECT_EQ(PackageReadProgress::ToPercent(0, 1000), 0);
    EXPECT_EQ(PackageReadProgress::ToPercent(425, 1000), 42);
    EXPECT_EQ(PackageReadProgress::ToPercent(999, 1000), 99);
    EXPECT_EQ(PackageReadProgress::ToPercent(1000, 1000), 100);
    EXPECT_EQ(PackageReadProgress::ToPercent(5000, 1000), 100) << "read past a grown file";
    EXPECT_EQ(PackageReadProgress::ToPercent(3LL << 40, 4LL << 40), 75);
    EXPECT_EQ(PackageReadProgress::ToPercent(-1, 1000), -1);
    EXPECT_EQ(PackageReadProgress::ToPercent(10, 0), -1);
}

class FakeProc : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(scratch.path.empty());
        package = scratch.Join("Vidorama_12.05.01.3456.tar.gz");
        other = scratch.Join("other.bin");
        WriteFile(package, std::string(1000, 'p'));
        WriteFile(other, std::string(1000, 'o'));
        proc = scratch.Join("proc");
        // 100 the wizard, 200 its shell, 300 the installer script; 400 elsewhere.
        Process(100, "(InstallWizard) S 1 100");
        Process(200, "(sh) S 100 200");
        Process(300, "(Install.sh) S 200 300");
        Process(400, "(cat) S 1 400");
    }

    void Process(int id, const std::string& stat)
    {
        const std::string base = proc + "/" + std::to_string(id);
        std::filesystem::create_directories(base + "/fd");
        std::filesystem::create_directories(base + "/fdinfo");
        WriteFile(base + "/stat", std::to_string(id) + " " + stat + " 0 0\n");
    }

    void Open(int id, int fd, const std::string& file, long position)
    {
        const std::string base = proc + "/" + std::to_string(id);
        std::filesystem::create_symlink(file, base + "/fd/" + std::to_string(fd));
        WriteFile(base + "/fdinfo/" + std::to_string(fd),
                  "pos:\t" + std::to_string(position) + "\nflags:\t0100000\nmnt_id:\t21\n");
    }

    int Percent() const { return PackageReadProgress::Percent(100, package, proc); }

    ScratchDirectory scratch{"read-progress"};
    std::string package;
    std::string other;
    std::string proc;
};

TEST_F(FakeProc, TheInstallersPositionOnThePackageGivesTheFigure)
{
    Open(300, 0, "/dev/null", 0);
    Open(300, 3, package, 420);
    Open(300, 4, other, 990);
    EXPECT_EQ(Percent(), 42);
}

TEST_F(FakeProc, TheFurthestOfSeveralReadersCounts)
{
    Open(200, 5, package, 100);
    Open(300, 3, package, 630);
    EXPECT_EQ(Percent(), 63);
}

TEST_F(FakeProc, NoFigureWhenNoProcessBelowHasThePackageOpen)
{
    Open(300, 4, other, 500);
    EXPECT_EQ(Percent(), -1);
}

TEST_F(FakeProc, TheWizardItselfAndProcessesElsewhereDoNotCount)
{
    Open(100, 7, package, 900);
    Open(400, 3, package, 800);
    EXPECT_EQ(Percent(), -1);
}

TEST_F(FakeProc, NoFigureForAMissingPackageOrAnUnreadablePosition)
{
    Open(300, 3, package, 420);
    EXPECT_EQ(PackageReadProgress::Percent(100, scratch.Join("missing.tar.gz"), proc), -1);
    WriteFile(proc + "/300/fdinfo/3", "flags:\t0100000\n");
    EXPECT_EQ(Percent(), -1);
}

TEST_F(FakeProc, AnEmptyPackageGivesNoFigure)
{
    WriteFile(package, "");
    Open(300, 3, package, 0);
    EXPECT_EQ(Percent(), -1);
}

// A real child of this process holds the package open at a known position.
TEST(PackageReadProgressLive, TheFigureOfARunningChild)
{
    ScratchDirectory scratch("read-progress-live");
    ASSERT_FALSE(scratch.path.empty());
    const std::string package = scratch.Join("Vidorama_12.05.01.3456.tar.gz");
    const std::string ready = scratch.Join("ready");
    WriteFile(package, std::string(1000, 'p'));

    EXPECT_EQ(PackageReadProgress::Percent(::getpid(), package), -1) << "nobody reads it yet";

    // The shell reads 300 bytes through its descriptor 3, then a grandchild waits.
    const std::string script = "exec 3<\"$1\"; dd bs=100 count=3 <&3 >/dev/null 2>&1; "
                               ": >\"$2\"; sleep 60 <&3";
    std::vector<std::string> words = {"sh", "-c", script, "sh", package, ready};
    std::vector<char*> argv;
    for (std::string& word : words)
    {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    // A process group of its own, so that the shell and its "sleep" end together.
    posix_spawnattr_t attributes;
    ASSERT_EQ(::posix_spawnattr_init(&attributes), 0);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    ::posix_spawnattr_setpgroup(&attributes, 0);
    pid_t child = 0;
    const int spawned =
        ::posix_spawn(&child, "/bin/sh", nullptr, &attributes, argv.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    ASSERT_EQ(spawned, 0);
    struct Ender
    {
        pid_t group;
        ~Ender()
        {
            ::kill(-group, SIGTERM);
            int status = 0;
            ::waitpid(group, &status, 0);
        }
    } ender{child};
    for (int i = 0; i < 200 && !std::filesystem::exists(ready); ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    ASSERT_TRUE(std::filesystem::exists(ready));
    int figure = -1;
    // The shell may still be starting "sleep"; the figure is the same from either.
    for (int i = 0; i < 40 && figure != 30; ++i)
    {
        figure = PackageReadProgress::Percent(::getpid(), package);
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    EXPECT_EQ(figure, 30);
    EXPECT_EQ(PackageReadProgress::Percent(child, package), 30) << "the sleep below the shell";
}

} // namespace
