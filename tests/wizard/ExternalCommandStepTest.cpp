#include "ExternalCommandStep.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using Kel::Vidorama::InstallerWizard::ExternalCommandStep;

namespace
{

std::string ReadAll(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The log's message column, one entry a line.
std::string Messages(const std::string& log)
{
    std::istringstream in(log);
    std::string line, messages;
    while (std::getline(in, line))
    {
        const size_t second = line.find("\t|\t", line.find("\t|\t") + 3);
        messages += line.substr(line.find("\t|\t") + 3, second - line.find("\t|\t") - 3) + " " +
                    line.substr(second + 3) + "\n";
    }
    return messages;
}

class ExternalCommand : public testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/external-command-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        _root = pattern;
        ASSERT_EQ(mkdir((_root + "/program").c_str(), 0700), 0);
        ASSERT_EQ(mkdir((_root + "/tool").c_str(), 0700), 0);
    }
    void TearDown() override { std::system(("rm -rf " + _root).c_str()); }

    // Runs the step in a child process started in <root>/program (the log is
    // a process-wide facility created by its first line); returns the
    // directory the child ended in.
    std::string RunStep(const std::string& command, const std::string& directory)
    {
        const std::string after = _root + "/after.txt";
        const pid_t pid = fork();
        if (pid == 0)
        {
            if (chdir((_root + "/program").c_str()) != 0)
                _exit(3);
            ExternalCommandStep step("Tool", command.c_str(), directory.c_str(), true);
            if (!step.Run())
                _exit(4);
            char cwd[4096];
            std::ofstream(after) << (getcwd(cwd, sizeof(cwd)) ? cwd : "?");
            _exit(0);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        return ReadAll(after);
    }

    std::string _root;
};

} // namespace

TEST_F(ExternalCommand, RunsInTheWorkingDirectoryAndComesBack)
{
    const std::string ended = RunStep("pwd > ran-here.txt; exit 7", _root + "/tool");
    EXPECT_EQ(ReadAll(_root + "/tool/ran-here.txt"), _root + "/tool\n");
    EXPECT_EQ(ended, _root + "/program");
    // An empty line marks the start; a failing command is not noticed.
    EXPECT_EQ(Messages(ReadAll(_root + "/program/installer.log")), "0 Log created!\n0 \n");
}

TEST_F(ExternalCommand, AMissingWorkingDirectoryRunsTheCommandWhereTheProgramIs)
{
    const std::string missing = _root + "/no-such-directory";
    const std::string ended = RunStep("pwd > ran-here.txt", missing);
    EXPECT_EQ(ReadAll(_root + "/program/ran-here.txt"), _root + "/program\n");
    EXPECT_EQ(ended, _root + "/program");
    EXPECT_EQ(Messages(ReadAll(_root + "/program/installer.log")),
              "0 Log created!\n0 \n1 Error changing working directory to : " + missing + "\n");
}

TEST_F(ExternalCommand, CommandIsAFileOnlyForRegularFiles)
{
    const std::string file = _root + "/tool/run.sh";
    std::ofstream(file) << "#!/bin/sh\n";
    EXPECT_TRUE(ExternalCommandStep("t", file.c_str(), "/", false).CommandIsAFile());
    EXPECT_FALSE(ExternalCommandStep("t", (_root + "/tool").c_str(), "/", false).CommandIsAFile());
    EXPECT_FALSE(
        ExternalCommandStep("t", (_root + "/missing").c_str(), "/", false).CommandIsAFile());
    EXPECT_FALSE(ExternalCommandStep("t", "ls -l", "/", false).CommandIsAFile());
    EXPECT_TRUE(ExternalCommandStep("t", "x", "/", true).IsRunAsRoot());
}
