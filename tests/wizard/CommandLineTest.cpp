#include "CommandLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Kel::Vidorama::InstallerWizard::CommandLineOptions;

namespace
{

CommandLineOptions Parse(std::vector<std::string> args, CommandLineOptions options = {})
{
    args.insert(args.begin(), "InstallWizard");
    std::vector<char*> argv;
    for (auto& arg : args)
        argv.push_back(&arg[0]);
    argv.push_back(nullptr);
    options.Parse(static_cast<int>(args.size()), argv.data());
    return options;
}

} // namespace

TEST(CommandLine, NoOptionsKeepsTheDefaults)
{
    CommandLineOptions start;
    start.runningFromUsbKey = true;
    const auto options = Parse({}, start);
    EXPECT_TRUE(options.runningFromUsbKey);
    EXPECT_FALSE(options.runningFromDisk);
    EXPECT_FALSE(options.timer);
    EXPECT_FALSE(options.showRevisions);
    EXPECT_EQ(options.message, "");
}

TEST(CommandLine, MaintenanceForcesDiskMode)
{
    CommandLineOptions start;
    start.runningFromUsbKey = true;
    auto options = Parse({"-m"}, start);
    EXPECT_TRUE(options.runningFromDisk);
    EXPECT_FALSE(options.runningFromUsbKey);
    options = Parse({"--maintenance"}, start);
    EXPECT_TRUE(options.runningFromDisk);
    EXPECT_FALSE(options.runningFromUsbKey);
}

TEST(CommandLine, InstallForcesUsbKeyMode)
{
    CommandLineOptions start;
    start.runningFromDisk = true;
    auto options = Parse({"-i"}, start);
    EXPECT_TRUE(options.runningFromUsbKey);
    EXPECT_FALSE(options.runningFromDisk);
    options = Parse({"--install"}, start);
    EXPECT_TRUE(options.runningFromUsbKey);
    EXPECT_FALSE(options.runningFromDisk);
}

TEST(CommandLine, TheLastOfMaintenanceAndInstallWins)
{
    auto options = Parse({"-m", "-i"});
    EXPECT_TRUE(options.runningFromUsbKey);
    EXPECT_FALSE(options.runningFromDisk);
    options = Parse({"-i", "-m"});
    EXPECT_TRUE(options.runningFromDisk);
    EXPECT_FALSE(options.runningFromUsbKey);
    options = Parse({"-mi"});
    EXPECT_TRUE(options.runningFromUsbKey);
    options = Parse({"--install", "--maintenance"});
    EXPECT_TRUE(options.runningFromDisk);
}

TEST(CommandLine, TimerAndRevisions)
{
    auto options = Parse({"-t", "-r"});
    EXPECT_TRUE(options.timer);
    EXPECT_TRUE(options.showRevisions);
    options = Parse({"--timer", "--show-revisions"});
    EXPECT_TRUE(options.timer);
    EXPECT_TRUE(options.showRevisions);
    options = Parse({"-tr"});
    EXPECT_TRUE(options.timer);
    EXPECT_TRUE(options.showRevisions);
}

TEST(CommandLine, MessageTakesItsArgumentAndTheLastWins)
{
    EXPECT_EQ(Parse({"-e", "Hello operator"}).message, "Hello operator");
    EXPECT_EQ(Parse({"-eGlued"}).message, "Glued");
    EXPECT_EQ(Parse({"--message", "Long form"}).message, "Long form");
    EXPECT_EQ(Parse({"--message=Equals"}).message, "Equals");
    EXPECT_EQ(Parse({"-e", "first", "-e", "second"}).message, "second");
}

TEST(CommandLine, AnEmptyMessageIsStoredEmpty)
{
    CommandLineOptions start;
    start.message = "previous";
    EXPECT_EQ(Parse({"-e", ""}, start).message, "");
}

TEST(CommandLine, UnknownOptionsAreIgnoredAndParsingGoesOn)
{
    testing::internal::CaptureStderr();
    const auto options = Parse({"-x", "--bogus", "-t", "-q", "-r"});
    const std::string diagnostics = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(options.timer);
    EXPECT_TRUE(options.showRevisions);
    EXPECT_FALSE(options.runningFromDisk);
    EXPECT_FALSE(options.runningFromUsbKey);
    // Nothing may be printed over the curses screen.
    EXPECT_EQ(diagnostics, "");
}

TEST(CommandLine, AMissingMessageArgumentIsIgnored)
{
    testing::internal::CaptureStderr();
    const auto options = Parse({"-t", "-e"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(options.timer);
    EXPECT_EQ(options.message, "");
}

TEST(CommandLine, ParsingTwiceInOneProcessStartsAfresh)
{
    EXPECT_TRUE(Parse({"-m"}).runningFromDisk);
    EXPECT_TRUE(Parse({"-i"}).runningFromUsbKey);
    EXPECT_TRUE(Parse({"-t"}).timer);
}

TEST(CommandLine, AutoStartsTheAnswerFileAtOnce)
{
    EXPECT_FALSE(Parse({}).autoNow);
    EXPECT_FALSE(Parse({}).noAuto);
    EXPECT_TRUE(Parse({"-a"}).autoNow);
    const auto options = Parse({"--auto"});
    EXPECT_TRUE(options.autoNow);
    EXPECT_FALSE(options.noAuto);
}

TEST(CommandLine, NoAutoIgnoresTheAnswerFileAndTheLastOfTheTwoWins)
{
    auto options = Parse({"--no-auto"});
    EXPECT_TRUE(options.noAuto);
    EXPECT_FALSE(options.autoNow);
    options = Parse({"-a", "--no-auto"});
    EXPECT_TRUE(options.noAuto);
    EXPECT_FALSE(options.autoNow);
    options = Parse({"--no-auto", "-ti", "-a"});
    EXPECT_TRUE(options.autoNow);
    EXPECT_FALSE(options.noAuto);
    EXPECT_TRUE(options.timer);
    EXPECT_TRUE(options.runningFromUsbKey);
}
