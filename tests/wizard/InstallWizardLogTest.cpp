#include "InstallWizard.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using Kel::Vidorama::InstallerWizard::InstallWizard;

namespace
{

// The log is a process-wide facility created by its first call, so each run is
// a child process of its own, as each start of the program is.
void RunInChild(const std::string& directory, void (*body)())
{
    const pid_t pid = fork();
    ASSERT_NE(pid, -1);
    if (pid == 0)
    {
        if (chdir(directory.c_str()) != 0)
            _exit(3);
        body();
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0);
}

std::vector<std::string> ReadLines(const std::string& path)
{
    std::ifstream in(path);
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

std::string ReadAll(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class InstallerLog : public testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/installer-log-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        _directory = pattern;
    }
    void TearDown() override
    {
        unlink((_directory + "/installer.log").c_str());
        rmdir(_directory.c_str());
    }
    std::string LogPath() const { return _directory + "/installer.log"; }
    std::string _directory;
};

const std::regex LinePattern(R"(^(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})\t\|\t(-?\d+)\t\|\t(.*)$)");

} // namespace

TEST_F(InstallerLog, TheFirstCallWritesTwoLines)
{
    RunInChild(_directory, [] { InstallWizard::log(3, "Installation failed!"); });
    const auto lines = ReadLines(LogPath());
    ASSERT_EQ(lines.size(), 2u);
    std::smatch match;
    ASSERT_TRUE(std::regex_match(lines[0], match, LinePattern)) << lines[0];
    EXPECT_EQ(match[2], "0");
    EXPECT_EQ(match[3], "Log created!");
    ASSERT_TRUE(std::regex_match(lines[1], match, LinePattern)) << lines[1];
    EXPECT_EQ(match[2], "3");
    EXPECT_EQ(match[3], "Installation failed!");
}

TEST_F(InstallerLog, ExactLineFormat)
{
    RunInChild(_directory,
               [] { InstallWizard::log(2, "Ms Dos not installed. No bootloader to backup."); });
    const std::string text = ReadAll(LogPath());
    // time, tab, bar, tab, level, tab, bar, tab, message, newline
    const std::regex whole(R"(^\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\t\|\t0\t\|\tLog created!\n)"
                           R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\t\|\t2\t\|\t)"
                           R"(Ms Dos not installed\. No bootloader to backup\.\n$)");
    EXPECT_TRUE(std::regex_match(text, whole)) << text;
}

TEST_F(InstallerLog, TheTimeIsLocalTime)
{
    const time_t before = time(nullptr);
    RunInChild(_directory, [] { InstallWizard::log(0, "now"); });
    const time_t after = time(nullptr);
    const auto lines = ReadLines(LogPath());
    ASSERT_FALSE(lines.empty());
    char low[100], high[100];
    strftime(low, sizeof(low), "%Y-%m-%d %H:%M:%S", localtime(&before));
    strftime(high, sizeof(high), "%Y-%m-%d %H:%M:%S", localtime(&after));
    const std::string stamp = lines.back().substr(0, 19);
    EXPECT_GE(stamp, std::string(low));
    EXPECT_LE(stamp, std::string(high));
}

TEST_F(InstallerLog, LevelsAreWrittenAsNumbers)
{
    RunInChild(_directory,
               []
               {
                   InstallWizard::log(1, "No version selected!");
                   InstallWizard::log(-1, "odd");
                   InstallWizard::log(42, "odder");
               });
    const auto lines = ReadLines(LogPath());
    ASSERT_EQ(lines.size(), 4u);
    std::smatch match;
    ASSERT_TRUE(std::regex_match(lines[1], match, LinePattern));
    EXPECT_EQ(match[2], "1");
    ASSERT_TRUE(std::regex_match(lines[2], match, LinePattern));
    EXPECT_EQ(match[2], "-1");
    ASSERT_TRUE(std::regex_match(lines[3], match, LinePattern));
    EXPECT_EQ(match[2], "42");
}

TEST_F(InstallerLog, ASecondRunStartsAFreshFile)
{
    RunInChild(_directory,
               []
               {
                   InstallWizard::log(0, "first run, line one");
                   InstallWizard::log(0, "first run, line two");
               });
    ASSERT_EQ(ReadLines(LogPath()).size(), 3u);
    RunInChild(_directory, [] { InstallWizard::log(0, "second run"); });
    const auto lines = ReadLines(LogPath());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find("Log created!"), std::string::npos);
    EXPECT_NE(lines[1].find("second run"), std::string::npos);
    EXPECT_EQ(ReadAll(LogPath()).find("first run"), std::string::npos);
}

TEST_F(InstallerLog, EmbeddedNewlinesAreWrittenAsTheyAre)
{
    RunInChild(_directory, [] { InstallWizard::log(3, "line one\nline two\n\tindented"); });
    const std::string text = ReadAll(LogPath());
    const std::string tail = "\t|\t3\t|\tline one\nline two\n\tindented\n";
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
}

TEST_F(InstallerLog, EachLineIsOnDiskBeforeTheCallReturns)
{
    const std::string path = LogPath();
    static std::string observed;
    static std::string logPath;
    logPath = path;
    RunInChild(_directory,
               []
               {
                   InstallWizard::log(0, "flushed");
                   // Read the file back from inside the same process, before it exits.
                   std::ifstream in(logPath);
                   std::stringstream text;
                   text << in.rdbuf();
                   if (text.str().find("flushed\n") == std::string::npos)
                       _exit(5);
                   // Die without running any destructor or flushing stdio buffers.
                   _exit(0);
               });
}

TEST_F(InstallerLog, AnUnwritableDirectoryLosesLinesSilently)
{
    ASSERT_EQ(chmod(_directory.c_str(), 0500), 0);
    RunInChild(_directory,
               []
               {
                   // As root the directory stays writable; make the file name a directory instead.
                   if (access(".", W_OK) == 0)
                       mkdir("installer.log", 0700);
                   InstallWizard::log(0, "lost");
                   InstallWizard::log(3, "lost too");
               });
    chmod(_directory.c_str(), 0700);
    struct stat info;
    if (stat(LogPath().c_str(), &info) == 0 && S_ISDIR(info.st_mode))
        rmdir(LogPath().c_str());
}
