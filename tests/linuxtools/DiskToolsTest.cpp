// Host tests of the disk tools that need neither root nor a device: the mkfs
// command texts, directories, file copies and the unmount paths that find
// nothing to do.
#include "DiskTools.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

using Kel::ZarnLinuxTools::DiskTools;
namespace detail = Kel::ZarnLinuxTools::detail;
namespace fs = std::filesystem;

namespace
{

// A private scratch directory, removed with everything in it.
class ScratchDir
{
public:
    ScratchDir()
    {
        char pattern[] = "/tmp/disktools-test-XXXXXX";
        if (mkdtemp(pattern) != nullptr)
            path_ = pattern;
    }
    ~ScratchDir()
    {
        std::error_code error;
        if (!path_.empty())
            fs::remove_all(path_, error);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::string& Path() const { return path_; }
    std::string operator/(const std::string& relative) const { return path_ + "/" + relative; }

private:
    std::string path_;
};

// Sets the process's file-creation mask and puts the old one back.
class UmaskScope
{
public:
    explicit UmaskScope(mode_t mask) : old_(umask(mask)) {}
    ~UmaskScope() { umask(old_); }
    UmaskScope(const UmaskScope&) = delete;
    UmaskScope& operator=(const UmaskScope&) = delete;

private:
    mode_t old_;
};

void WriteFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

mode_t ModeOf(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return 0;
    return status.st_mode & 07777;
}

// Every path below root, relative to it.
std::set<std::string> TreeOf(const std::string& root)
{
    std::set<std::string> entries;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        entries.insert(fs::relative(entry.path(), root).string());
    return entries;
}

// a.txt, b.log, sub/c.txt, sub/d.log, sub/deeper/e.log, only/f.log, empty/
void MakeTree(const std::string& root)
{
    fs::create_directories(root + "/sub/deeper");
    fs::create_directories(root + "/only");
    fs::create_directories(root + "/empty");
    WriteFile(root + "/a.txt", "a");
    WriteFile(root + "/b.log", "b");
    WriteFile(root + "/sub/c.txt", "c");
    WriteFile(root + "/sub/d.log", "d");
    WriteFile(root + "/sub/deeper/e.log", "e");
    WriteFile(root + "/only/f.log", "f");
}

// The directories the tools create: hexadecimal 0x777 less the umask. The
// kernel keeps the set-group-id bit of a new directory only when its parent
// has it, so a plain parent gives the mode without it.
constexpr mode_t TestUmask = 3;
constexpr mode_t ModeInSetGidParent = 0x777 & ~TestUmask;
constexpr mode_t ModeInPlainParent = ModeInSetGidParent & ~S_ISGID;

} // namespace

TEST(FormatCommand, Fat16)
{
    EXPECT_EQ(detail::FormatCommand("fat16", "DOS"), "mkfs.fat -F 16 -n DOS");
}

TEST(FormatCommand, Ext4WithoutSixtyFourBitBlockNumbers)
{
    EXPECT_EQ(detail::FormatCommand("ext4", "LINUX"), "mkfs.ext4 -L LINUX -O ^64bit");
}

TEST(FormatCommand, Swap)
{
    EXPECT_EQ(detail::FormatCommand("linux-swap", "SWAP"), "mkswap -L SWAP");
}

TEST(FormatCommand, OtherTypesGiveNoCommand)
{
    EXPECT_EQ(detail::FormatCommand("fat32", "DOS"), "");
    EXPECT_EQ(detail::FormatCommand("vfat", "DOS"), "");
    EXPECT_EQ(detail::FormatCommand("linux-swap(v1)", "SWAP"), "");
    EXPECT_EQ(detail::FormatCommand("EXT4", "LINUX"), "");
    EXPECT_EQ(detail::FormatCommand("", "LINUX"), "");
    EXPECT_EQ(detail::FormatCommand(nullptr, "LINUX"), "");
}

TEST(FormatPartition, Fat32FailsWithoutAnyDevice)
{
    // Nothing of this name is mounted, so nothing is unmounted, and the type
    // stops the call before a command is built.
    EXPECT_FALSE(DiskTools::FormatPartition("/nonexistent/disktools-disk", 1, "fat32", "DOS"));
}

TEST(CreateDirectory, UsesHexadecimalModeUnderTheUmask)
{
    ScratchDir dir;
    ASSERT_FALSE(dir.Path().empty());
    UmaskScope mask(TestUmask);

    ASSERT_TRUE(DiskTools::CreateDirectory((dir / "plain").c_str()));
    EXPECT_EQ(ModeOf(dir / "plain"), ModeInPlainParent);

    ASSERT_EQ(chmod((dir / "plain").c_str(), 02755), 0);
    ASSERT_TRUE(DiskTools::CreateDirectory((dir / "plain/inherits").c_str()));
    EXPECT_EQ(ModeOf(dir / "plain/inherits"), ModeInSetGidParent);
    EXPECT_EQ(ModeOf(dir / "plain/inherits") & 01000, 01000u) << "sticky bit";
}

TEST(CreateDirectory, FailsWhenItExistsOrItsParentIsMissing)
{
    ScratchDir dir;
    ASSERT_TRUE(DiskTools::CreateDirectory((dir / "once").c_str()));
    EXPECT_FALSE(DiskTools::CreateDirectory((dir / "once").c_str()));
    EXPECT_FALSE(DiskTools::CreateDirectory((dir / "missing/child").c_str()));
}

TEST(CreateDirectories, CreatesEveryLevelWithTheSameMode)
{
    ScratchDir dir;
    UmaskScope mask(TestUmask);
    ASSERT_TRUE(DiskTools::CreateDirectories((dir / "a/b/c").c_str()));
    EXPECT_TRUE(fs::is_directory(dir / "a/b/c"));
    EXPECT_EQ(ModeOf(dir / "a"), ModeInPlainParent);
    EXPECT_EQ(ModeOf(dir / "a/b"), ModeInPlainParent);
    EXPECT_EQ(ModeOf(dir / "a/b/c"), ModeInPlainParent);
}

TEST(CreateDirectories, ExistingTreeIsSuccess)
{
    ScratchDir dir;
    fs::create_directories(dir / "x/y/z");
    EXPECT_TRUE(DiskTools::CreateDirectories((dir / "x/y/z").c_str()));
    EXPECT_TRUE(DiskTools::CreateDirectories((dir / "x/y").c_str()));
    EXPECT_TRUE(DiskTools::CreateDirectories((dir / "x/y/z/").c_str()));
    EXPECT_TRUE(DiskTools::CreateDirectories((dir / "x//y/new").c_str()));
    EXPECT_TRUE(fs::is_directory(dir / "x/y/new"));
}

TEST(CreateDirectories, FileInTheWayStopsWithEnotdir)
{
    ScratchDir dir;
    fs::create_directories(dir / "x");
    WriteFile(dir / "x/file", "in the way");

    errno = 0;
    EXPECT_FALSE(DiskTools::CreateDirectories((dir / "x/file/below").c_str()));
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_FALSE(fs::exists(dir / "x/file/below"));

    errno = 0;
    EXPECT_FALSE(DiskTools::CreateDirectories((dir / "x/file").c_str()));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(CreateDirectories, RelativePath)
{
    ScratchDir dir;
    const fs::path before = fs::current_path();
    fs::current_path(dir.Path());
    const bool created = DiskTools::CreateDirectories("rel/ative");
    fs::current_path(before);
    EXPECT_TRUE(created);
    EXPECT_TRUE(fs::is_directory(dir / "rel/ative"));
}

TEST(DeleteAllFiles, PatternKeepsOtherFilesAndTheirDirectories)
{
    ScratchDir dir;
    MakeTree(dir / "t");
    EXPECT_TRUE(DiskTools::DeleteAllFiles((dir / "t").c_str(), ".*\\.log", true));
    EXPECT_EQ(TreeOf(dir / "t"), (std::set<std::string>{"a.txt", "sub", "sub/c.txt"}));
}

TEST(DeleteAllFiles, PatternMustMatchTheWholeName)
{
    ScratchDir dir;
    MakeTree(dir / "t");
    // "log" alone is part of "b.log" but not the whole name; only the empty
    // directory goes.
    EXPECT_TRUE(DiskTools::DeleteAllFiles((dir / "t").c_str(), "log", true));
    EXPECT_EQ(TreeOf(dir / "t").size(), 9u);
    EXPECT_FALSE(fs::exists(dir / "t/empty"));
    EXPECT_TRUE(DiskTools::DeleteAllFiles((dir / "t").c_str(), "a\\.txt", false));
    EXPECT_FALSE(fs::exists(dir / "t/a.txt"));
    EXPECT_TRUE(fs::exists(dir / "t/b.log"));
}

TEST(DeleteAllFiles, PatternWithoutRecursionSkipsNonMatchingDirectories)
{
    ScratchDir dir;
    MakeTree(dir / "t");
    EXPECT_TRUE(DiskTools::DeleteAllFiles((dir / "t").c_str(), ".*\\.txt", false));
    EXPECT_EQ(TreeOf(dir / "t").size(), 9u);
    EXPECT_FALSE(fs::exists(dir / "t/a.txt"));
    EXPECT_TRUE(fs::exists(dir / "t/sub/c.txt"));
}

TEST(DeleteAllFiles, WithoutPatternOrRecursionASubdirectoryFails)
{
    ScratchDir dir;
    MakeTree(dir / "t");
    EXPECT_FALSE(DiskTools::DeleteAllFiles((dir / "t").c_str(), false));
    EXPECT_TRUE(fs::is_directory(dir / "t/sub"));
}

TEST(DeleteAllFiles, WithoutPatternOrRecursionFilesGo)
{
    ScratchDir dir;
    fs::create_directories(dir / "flat");
    WriteFile(dir / "flat/one", "1");
    WriteFile(dir / "flat/two", "2");
    EXPECT_TRUE(DiskTools::DeleteAllFiles((dir / "flat").c_str(), false));
    EXPECT_TRUE(fs::is_directory(dir / "flat"));
    EXPECT_TRUE(fs::is_empty(dir / "flat"));
}

TEST(DeleteAllFiles, RecursiveWithoutPatternEmptiesButKeepsTheDirectory)
{
    ScratchDir dir;
    MakeTree(dir / "t");
    ASSERT_EQ(symlink("sub", (dir / "t/link").c_str()), 0);
    EXPECT_TRUE(DiskTools::DeleteAllFiles((dir / "t").c_str(), true));
    EXPECT_TRUE(fs::is_directory(dir / "t"));
    EXPECT_TRUE(fs::is_empty(dir / "t"));
}

TEST(DeleteAllFiles, NullPatternIsNoPattern)
{
    ScratchDir dir;
    MakeTree(dir / "t");
    EXPECT_TRUE(DiskTools::DeleteAllFiles((dir / "t").c_str(), nullptr, true));
    EXPECT_TRUE(fs::is_empty(dir / "t"));
}

TEST(DeleteAllFiles, MissingDirectoryFails)
{
    ScratchDir dir;
    EXPECT_FALSE(DiskTools::DeleteAllFiles((dir / "missing").c_str(), true));
    EXPECT_FALSE(DiskTools::DeleteAllFiles((dir / "missing").c_str(), ".*", false));
}

TEST(DeleteAllFiles, EmptyDirectoryIsSuccess)
{
    ScratchDir dir;
    EXPECT_TRUE(DiskTools::DeleteAllFiles(dir.Path().c_str(), false));
    EXPECT_TRUE(fs::is_directory(dir.Path()));
}

TEST(CopyFile, CopiesTheWholeContent)
{
    ScratchDir dir;
    std::string content;
    for (int i = 0; i < 100000; ++i)
        content += static_cast<char>(i * 7);
    WriteFile(dir / "source", content);
    WriteFile(dir / "destination", std::string(300000, 'x'));

    EXPECT_TRUE(DiskTools::CopyFile((dir / "source").c_str(), (dir / "destination").c_str()));
    EXPECT_EQ(ReadFile(dir / "destination"), content);
}

TEST(CopyFile, EmptySourceIsSuccess)
{
    ScratchDir dir;
    WriteFile(dir / "source", "");
    WriteFile(dir / "destination", "old");
    EXPECT_TRUE(DiskTools::CopyFile((dir / "source").c_str(), (dir / "destination").c_str()));
    EXPECT_EQ(ReadFile(dir / "destination"), "");
}

TEST(CopyFile, MissingSourceFails)
{
    ScratchDir dir;
    EXPECT_FALSE(DiskTools::CopyFile((dir / "missing").c_str(), (dir / "destination").c_str()));
    // Nothing is created for want of a source.
    EXPECT_EQ(TreeOf(dir.Path()), std::set<std::string>());
}

TEST(CopyFile, MissingSourceKeepsAGoodDestination)
{
    ScratchDir dir;
    WriteFile(dir / "syslinux.cfg", "DEFAULT VidoramaLinux\n");
    EXPECT_FALSE(DiskTools::CopyFile((dir / "missing").c_str(), (dir / "syslinux.cfg").c_str()));
    EXPECT_EQ(ReadFile(dir / "syslinux.cfg"), "DEFAULT VidoramaLinux\n");
    EXPECT_EQ(TreeOf(dir.Path()), std::set<std::string>({"syslinux.cfg"}));
}

TEST(CopyFile, UnreadableSourceKeepsAGoodDestination)
{
    ScratchDir dir;
    // A directory opens for reading but gives no data (EISDIR), whoever runs
    // the test: the copy fails once its temporary file exists.
    fs::create_directories(dir / "source");
    WriteFile(dir / "syslinux.cfg", "DEFAULT VidoramaLinux\n");
    EXPECT_FALSE(DiskTools::CopyFile((dir / "source").c_str(), (dir / "syslinux.cfg").c_str()));
    EXPECT_EQ(ReadFile(dir / "syslinux.cfg"), "DEFAULT VidoramaLinux\n");
    EXPECT_EQ(TreeOf(dir.Path()), std::set<std::string>({"source", "syslinux.cfg"}));
}

TEST(CopyFile, AShortWriteKeepsAGoodDestination)
{
    ScratchDir dir;
    WriteFile(dir / "source", std::string(200000, 's'));
    WriteFile(dir / "syslinux.cfg", "DEFAULT VidoramaLinux\n");

    // A file-size limit cuts the copy short as a full partition would: the
    // write past it fails (EFBIG) instead of raising SIGXFSZ.
    struct rlimit saved = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    struct sigaction ignore = {}, previous = {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGXFSZ, &ignore, &previous), 0);
    struct rlimit limited = saved;
    limited.rlim_cur = 70000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    const bool copied =
        DiskTools::CopyFile((dir / "source").c_str(), (dir / "syslinux.cfg").c_str());
    setrlimit(RLIMIT_FSIZE, &saved);
    sigaction(SIGXFSZ, &previous, nullptr);

    EXPECT_FALSE(copied);
    EXPECT_EQ(ReadFile(dir / "syslinux.cfg"), "DEFAULT VidoramaLinux\n");
    EXPECT_EQ(TreeOf(dir.Path()), std::set<std::string>({"source", "syslinux.cfg"}));
}

TEST(CopyFile, ASuccessReplacesTheDestinationAndKeepsItsMode)
{
    ScratchDir dir;
    WriteFile(dir / "source", "new settings\n");
    WriteFile(dir / "syslinux.cfg", "old settings, longer than the new ones\n");
    ASSERT_EQ(chmod((dir / "source").c_str(), 0644), 0);
    ASSERT_EQ(chmod((dir / "syslinux.cfg").c_str(), 0600), 0);
    struct stat before = {};
    ASSERT_EQ(stat((dir / "syslinux.cfg").c_str(), &before), 0);

    EXPECT_TRUE(DiskTools::CopyFile((dir / "source").c_str(), (dir / "syslinux.cfg").c_str()));
    EXPECT_EQ(ReadFile(dir / "syslinux.cfg"), "new settings\n");
    EXPECT_EQ(ModeOf(dir / "syslinux.cfg"), 0600u);
    // A new file in place of the old one, not the old one rewritten.
    struct stat after = {};
    ASSERT_EQ(stat((dir / "syslinux.cfg").c_str(), &after), 0);
    EXPECT_NE(after.st_ino, before.st_ino);
    EXPECT_EQ(ReadFile(dir / "source"), "new settings\n");
    EXPECT_EQ(TreeOf(dir.Path()), std::set<std::string>({"source", "syslinux.cfg"}));
}

TEST(CopyFile, ANewDestinationGetsTheModeOfTheFileCreationMask)
{
    ScratchDir dir;
    WriteFile(dir / "source", "data");
    ASSERT_EQ(chmod((dir / "source").c_str(), 0600), 0);
    {
        UmaskScope mask(027);
        EXPECT_TRUE(DiskTools::CopyFile((dir / "source").c_str(), (dir / "copy").c_str()));
    }
    EXPECT_EQ(ReadFile(dir / "copy"), "data");
    EXPECT_EQ(ModeOf(dir / "copy"), 0640u);
}

TEST(CopyFile, ALinkKeepsPointingAtTheReplacedFile)
{
    ScratchDir dir;
    WriteFile(dir / "source", "new");
    WriteFile(dir / "real.cfg", "old");
    fs::create_symlink("real.cfg", dir / "link.cfg");
    EXPECT_TRUE(DiskTools::CopyFile((dir / "source").c_str(), (dir / "link.cfg").c_str()));
    EXPECT_TRUE(fs::is_symlink(dir / "link.cfg"));
    EXPECT_EQ(ReadFile(dir / "real.cfg"), "new");
    // By name: TreeOf would follow the link.
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir.Path()))
        names.insert(entry.path().filename().string());
    EXPECT_EQ(names, std::set<std::string>({"link.cfg", "real.cfg", "source"}));
}

TEST(CopyFile, ADeviceOrPipeDestinationIsRefused)
{
    ScratchDir dir;
    WriteFile(dir / "source", "data");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    // Refused before anything opens the pipe: no hang for want of a reader.
    EXPECT_FALSE(DiskTools::CopyFile((dir / "source").c_str(), (dir / "pipe").c_str()));
    EXPECT_TRUE(fs::is_fifo(dir / "pipe"));
    EXPECT_EQ(TreeOf(dir.Path()), std::set<std::string>({"pipe", "source"}));
}

TEST(CopyFile, TheSourceItselfAsDestinationKeepsItsContent)
{
    ScratchDir dir;
    WriteFile(dir / "file", "content");
    EXPECT_TRUE(DiskTools::CopyFile((dir / "file").c_str(), (dir / "file").c_str()));
    EXPECT_EQ(ReadFile(dir / "file"), "content");
    EXPECT_EQ(TreeOf(dir.Path()), std::set<std::string>({"file"}));
}

TEST(CopyFile, UnwritableDestinationFails)
{
    ScratchDir dir;
    WriteFile(dir / "source", "data");
    fs::create_directories(dir / "adir");
    // Neither a directory nor a path below a missing one can take the copy,
    // whoever runs the test.
    EXPECT_FALSE(DiskTools::CopyFile((dir / "source").c_str(), (dir / "adir").c_str()));
    EXPECT_FALSE(DiskTools::CopyFile((dir / "source").c_str(), (dir / "missing/file").c_str()));
    EXPECT_EQ(TreeOf(dir.Path()), std::set<std::string>({"adir", "source"}));
}

TEST(UmountDirectory, NotMountedIsSuccess)
{
    ScratchDir dir;
    EXPECT_TRUE(DiskTools::UmountDirectory(dir.Path().c_str()));
    EXPECT_TRUE(fs::is_directory(dir.Path()));
}

TEST(UmountPartition, NotMountedIsSuccess)
{
    EXPECT_TRUE(DiskTools::UmountPartition("/nonexistent/disktools-disk", 3));
}
