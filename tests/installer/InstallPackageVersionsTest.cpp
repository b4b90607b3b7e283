// Installation, switching and removal: the command texts, the shell quoting of names
// that come from disks and keys, the space messages, and the listing of installed
// versions on directories of the host (nothing here mounts or runs as another user).
#include "InstallPackage.h"
#include "ShellArgument.h"

#include "TempDir.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

using Kel::Vidorama::InstallerLib::DoubleQuotedArgument;
using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::PackageVersion;
using Kel::Vidorama::InstallerLib::ShellArgument;
namespace detail = Kel::Vidorama::InstallerLib::detail;
namespace fs = std::filesystem;

const char* const HostileName = "x$(touch pwned)y_12.05.01.1.tar.gz";

void WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// Runs a command text through the shell, as the installer does, in directory.
int RunIn(const std::string& directory, const std::string& command)
{
    return std::system(("cd " + directory + " && " + command).c_str());
}

} // namespace

TEST(ShellArgument, OrdinaryNamesStayAsTheyAre)
{
    EXPECT_EQ(ShellArgument("/mnt/SYS/Versions/12.05.01.3456"), "/mnt/SYS/Versions/12.05.01.3456");
    EXPECT_EQ(ShellArgument("/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz"),
              "/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz");
    EXPECT_EQ(ShellArgument("a-b+c,d:e=f@g%h"), "a-b+c,d:e=f@g%h");
}

TEST(ShellArgument, OtherNamesAreQuoted)
{
    EXPECT_EQ(ShellArgument("12.05.01 3456"), "\"12.05.01 3456\"");
    EXPECT_EQ(ShellArgument(""), "\"\"");
    EXPECT_EQ(ShellArgument("a;b"), "\"a;b\"");
    EXPECT_EQ(ShellArgument("x$(touch pwned)y"), "\"x\\$(touch pwned)y\"");
}

TEST(ShellArgument, DoubleQuotedEscapesWhatTheShellStillReads)
{
    EXPECT_EQ(DoubleQuotedArgument("Vidorama"), "\"Vidorama\"");
    EXPECT_EQ(DoubleQuotedArgument("a$b`c\"d\\e"), "\"a\\$b\\`c\\\"d\\\\e\"");
    EXPECT_EQ(DoubleQuotedArgument("it's"), "\"it's\"");
}

TEST(ShellArgument, EveryArgumentArrivesUnchangedThroughTheShell)
{
    Sandbox::TempDir dir("/tmp/ShellArgumentTest-");
    const std::string texts[] = {"x$(touch pwned)y",
                                 "a b",
                                 "`touch pwned`",
                                 "q\"uote",
                                 "back\\slash",
                                 "it's",
                                 "$HOME",
                                 "new\nline",
                                 "*",
                                 "-n"};
    for (const std::string& text : texts)
    {
        const std::string printed = dir.Path() + "/printed";
        ASSERT_EQ(RunIn(dir.Path(), "printf '%s' " + DoubleQuotedArgument(text) + " > printed"), 0);
        EXPECT_EQ(ReadFile(printed), text);
        ASSERT_EQ(RunIn(dir.Path(), "printf '%s|' " + ShellArgument(text) + " > printed"), 0);
        EXPECT_EQ(ReadFile(printed), text + "|") << "one argument, unchanged";
    }
    EXPECT_FALSE(fs::exists(dir.Path() + "/pwned"));
}

TEST(InstallPackageCommands, InstallerCommandQuotesPathNameAndVersion)
{
    EXPECT_EQ(detail::InstallerCommand("/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz",
                                       "Vidorama", "12.05.01.3456", "/mnt/SYS/Versions"),
              "./Install.sh \"/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz\" \"Vidorama\" "
              "\"12.05.01.3456\" /mnt/SYS/Versions\n");
}

TEST(InstallPackageCommands, AHostilePackageNameRunsNothing)
{
    Sandbox::TempDir dir("/tmp/InstallerCommandTest-");
    // A stand-in installer that records the arguments it receives, one per line.
    WriteFile(dir.Path() + "/Install.sh",
              "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done > args\n");
    ASSERT_EQ(::chmod((dir.Path() + "/Install.sh").c_str(), 0755), 0);

    const std::string package = std::string("/mnt/USB/Packages/") + HostileName;
    const std::string command =
        detail::InstallerCommand(package, "x$(touch pwned)y", "12.05.01.1", "/mnt/SYS/Versions");
    ASSERT_EQ(RunIn(dir.Path(), command), 0);
    EXPECT_EQ(ReadFile(dir.Path() + "/args"),
              package + "\nx$(touch pwned)y\n12.05.01.1\n/mnt/SYS/Versions\n");
    EXPECT_FALSE(fs::exists(dir.Path() + "/pwned"));
}

TEST(InstallPackageCommands, FixedTexts)
{
    EXPECT_EQ(detail::UnzipCommand("/mnt/USB/Packages/120501.zip", "/mnt/DOS/Versions"),
              "unzip -o /mnt/USB/Packages/120501.zip -d /mnt/DOS/Versions\n");
    EXPECT_EQ(detail::ExtlinuxCommand("/mnt/SYS/Versions/boot/syslinux"),
              "extlinux -i /mnt/SYS/Versions/boot/syslinux 2>&1");
    EXPECT_EQ(detail::LinkCommand("/mnt/SYS/Versions/12.05.01.3456", "/mnt/SYS/Versions/current"),
              "ln -sfnT /mnt/SYS/Versions/12.05.01.3456 /mnt/SYS/Versions/current");
    EXPECT_EQ(detail::RemoveCommand("/mnt/SYS/Versions/12.05.01.3456"),
              "rm -R /mnt/SYS/Versions/12.05.01.3456");
    EXPECT_EQ(detail::ChattrCommand("/mnt/SYS/Versions/12.05.01.3456/boot/syslinux/ldlinux.sys"),
              "chattr -i /mnt/SYS/Versions/12.05.01.3456/boot/syslinux/ldlinux.sys");
}

TEST(InstallPackageCommands, ADirectoryWithABlankIsRemovedWhole)
{
    Sandbox::TempDir dir("/tmp/RemoveCommandTest-");
    ASSERT_EQ(::mkdir((dir.Path() + "/12.05.01").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir((dir.Path() + "/3456").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir((dir.Path() + "/12.05.01 3456").c_str(), 0755), 0);
    WriteFile(dir.Path() + "/12.05.01 3456/Version.txt", "Vidorama\n12.05.01.3456\n");

    EXPECT_EQ(RunIn(dir.Path(), detail::RemoveCommand(dir.Path() + "/12.05.01 3456")), 0);
    EXPECT_FALSE(fs::exists(dir.Path() + "/12.05.01 3456"));
    EXPECT_TRUE(fs::is_directory(dir.Path() + "/12.05.01"));
    EXPECT_TRUE(fs::is_directory(dir.Path() + "/3456"));
}

TEST(InstallPackageCommands, TopLevelSyslinuxConfiguration)
{
    EXPECT_EQ(detail::TopLevelSyslinuxConfiguration("12.05.01.3456"),
              "DEFAULT Vidorama\n"
              "LABEL Vidorama\n"
              "  CONFIG /Versions/12.05.01.3456/boot/syslinux/syslinux.cfg\n");
}

TEST(InstallPackageSpace, LinuxTextWithTheDoubledWord)
{
    std::ostringstream log;
    detail::WriteNotEnoughSpace(log, false, 3 * 1024 * 1024 + 1, 1024 * 1024);
    EXPECT_EQ(log.str(), "Package installation failed!\n"
                         "Not enough space available space for installation of Vidorama\n"
                         "3 MB are missing.\n"
                         "Please delete unused version and relaunch the installation process\n");
}

TEST(InstallPackageSpace, DosTextWithTheBreakBeforeProcess)
{
    std::ostringstream log;
    detail::WriteNotEnoughSpace(log, true, 2 * 1024 * 1024, 1024 * 1024);
    EXPECT_EQ(log.str(), "Package installation failed!\n"
                         "Not enough space available for installation of Vidorama 14 or older\n"
                         "1 MB are missing.\n"
                         "Please delete unused version 14 or older and relaunch the installation \n"
                         " process\n");
}

TEST(InstallPackageSpace, ExactlyAsLargeAsTheFreeSpaceIsZeroMissing)
{
    std::ostringstream log;
    detail::WriteNotEnoughSpace(log, false, 5000, 5000);
    EXPECT_NE(log.str().find("\n0 MB are missing.\n"), std::string::npos) << log.str();
}

TEST(InstallPackageSpace, MissingFiguresAreRoundedUpAndShownAsFloatingPoint)
{
    std::ostringstream log;
    detail::WriteNotEnoughSpace(log, false, 1, 0);
    EXPECT_NE(log.str().find("\n1 MB are missing.\n"), std::string::npos) << log.str();
    std::ostringstream large;
    detail::WriteNotEnoughSpace(large, false, 3000000ull * 1024 * 1024, 0);
    EXPECT_NE(large.str().find("\n3e+06 MB are missing.\n"), std::string::npos) << large.str();
}

// The space check on its numbers: sizes of several gigabytes are counted as they are.
const std::int64_t GiB = 1024ll * 1024 * 1024;
const std::uint64_t UnknownFree = ~std::uint64_t(0);

std::string LinuxNotEnough(const std::string& missing)
{
    return "Package installation failed!\n"
           "Not enough space available space for installation of Vidorama\n" +
           missing +
           " MB are missing.\n"
           "Please delete unused version and relaunch the installation process\n";
}

TEST(InstallPackageSpace, APackageOfTwoAndAHalfGigabytesIsShortByItsTrueDifference)
{
    // A 32-bit count made this a negative number, shown as "1.75922e+13 MB are missing.".
    std::ostringstream log;
    EXPECT_FALSE(detail::CheckSpace(log, false, 5 * GiB / 2, 1 * GiB));
    EXPECT_EQ(log.str(), LinuxNotEnough("1536"));
}

TEST(InstallPackageSpace, APackageOfFiveGigabytesDoesNotFitIntoFour)
{
    // A 32-bit count saw 1 GiB here and let the package through.
    std::ostringstream log;
    EXPECT_FALSE(detail::CheckSpace(log, false, 5 * GiB, 4 * GiB));
    EXPECT_EQ(log.str(), LinuxNotEnough("1024"));

    std::ostringstream dos;
    EXPECT_FALSE(detail::CheckSpace(dos, true, 5 * GiB, 4 * GiB + 1));
    EXPECT_EQ(dos.str(), "Package installation failed!\n"
                         "Not enough space available for installation of Vidorama 14 or older\n"
                         "1024 MB are missing.\n"
                         "Please delete unused version 14 or older and relaunch the installation \n"
                         " process\n");
}

TEST(InstallPackageSpace, LargePackagesFitWhereThereIsRoomForThem)
{
    std::ostringstream log;
    EXPECT_TRUE(detail::CheckSpace(log, false, 5 * GiB, 5 * GiB + 1));
    EXPECT_TRUE(detail::CheckSpace(log, false, 5 * GiB / 2, 3 * GiB));
    EXPECT_TRUE(detail::CheckSpace(log, true, 5 * GiB, 6 * GiB));
    EXPECT_TRUE(detail::CheckSpace(log, false, 0, 1));
    EXPECT_EQ(log.str(), "");
}

TEST(InstallPackageSpace, ExactlyTheFreeSpaceIsRefusedAtAnySize)
{
    std::ostringstream log;
    EXPECT_FALSE(detail::CheckSpace(log, false, 5 * GiB, 5 * GiB));
    EXPECT_EQ(log.str(), LinuxNotEnough("0"));
}

TEST(InstallPackageSpace, AnUnknownSizeOrFreeSpaceCannotBeDetermined)
{
    for (const auto& [needed, free] : std::vector<std::pair<std::int64_t, std::uint64_t>>{
             {-1, 4 * GiB}, {5 * GiB, UnknownFree}, {-1, UnknownFree}})
    {
        std::ostringstream linuxLog;
        EXPECT_FALSE(detail::CheckSpace(linuxLog, false, needed, free));
        EXPECT_EQ(linuxLog.str(),
                  "Package installation failed!\n"
                  "Cannot determine available space for installation of Vidorama\n");
        std::ostringstream dosLog;
        EXPECT_FALSE(detail::CheckSpace(dosLog, true, needed, free));
        EXPECT_EQ(dosLog.str(),
                  "Package installation failed!\n"
                  "Cannot determine available space for installation of Vidorama 14 or older\n");
    }
}

TEST(InstallPackageSpace, TheDamagedPackageLineNamesTheFile)
{
    EXPECT_EQ(detail::DamagedPackageLine("/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz"),
              "The package Vidorama_12.05.01.3456.tar.gz is damaged and cannot be installed");
    EXPECT_EQ(detail::DamagedPackageLine("Vidorama_12.05.01.3456.tar.gz"),
              "The package Vidorama_12.05.01.3456.tar.gz is damaged and cannot be installed");
}

TEST(RunningVersion, TheDirectoryOfTheBootImage)
{
    EXPECT_EQ(detail::RunningVersionDirectory(
                  "BOOT_IMAGE=/Versions/12.05.01.3456/boot/vmlinuz root=/dev/sda2 quiet"),
              "12.05.01.3456");
    EXPECT_EQ(detail::RunningVersionDirectory("BOOT_IMAGE=/Versions/second/vmlinuz"), "second");
    // Wherever it stands among the words; the first one counts.
    EXPECT_EQ(detail::RunningVersionDirectory("quiet  BOOT_IMAGE=/Versions/a/vmlinuz "
                                              "BOOT_IMAGE=/Versions/b/vmlinuz"),
              "a");
    EXPECT_EQ(detail::RunningVersionDirectory("BOOT_IMAGE=/Versions/current/boot/vmlinuz\n"),
              "current");
}

TEST(RunningVersion, NoneWhenNotStartedFromAnInstalledVersion)
{
    for (const char* line :
         {"", "BOOT_IMAGE=/boot/vmlinuz initrd=/boot/initrd.img quiet", "root=/dev/sda2 quiet",
          "BOOT_IMAGE=/Versions/vmlinuz", "BOOT_IMAGE=/Versions//vmlinuz",
          "BOOT_IMAGE=/Versions/../boot/vmlinuz", "BOOT_IMAGE=/Versions/./vmlinuz",
          "BOOT_IMAGE=Versions/12.05.01.3456/vmlinuz", "XBOOT_IMAGE=/Versions/a/vmlinuz",
          "BOOT_IMAGE=/boot/vmlinuz BOOT_IMAGE=/Versions/a/vmlinuz"})
    {
        EXPECT_EQ(detail::RunningVersionDirectory(line), "") << line;
    }
}

TEST(InstallPackageStatus, Values)
{
    EXPECT_EQ(InstallPackage::InvalidPackage, 1);
    EXPECT_EQ(InstallPackage::DestinationNotReady, 2);
    EXPECT_EQ(InstallPackage::NotEnoughSpace, 3);
    EXPECT_EQ(InstallPackage::NoPreviousDosInstallation, 4);
    EXPECT_EQ(InstallPackage::InstallationFailed, 5);
    EXPECT_EQ(InstallPackage::InstallationSucceeded, 6);
    // Added after the others, which keep their numbers.
    EXPECT_EQ(InstallPackage::DamagedPackage, 7);
}

TEST(InstallPackageStatus, InvalidPackagesAreRefusedBeforeAnythingElse)
{
    InstallPackage notes("/mnt/USB/Packages/notes.tar.gz");
    ASSERT_FALSE(notes.IsValid());
    std::ostringstream log;
    EXPECT_EQ(notes.Install(log), InstallPackage::InvalidPackage);
    EXPECT_EQ(notes.InstallLinuxPackage(log), InstallPackage::InvalidPackage);
    EXPECT_EQ(notes.InstallDosPackage(log), InstallPackage::InvalidPackage);
    EXPECT_EQ(log.str(), "");

    InstallPackage linuxPackage("/nowhere/Vidorama_12.05.01.3456.tar.gz");
    EXPECT_EQ(linuxPackage.InstallDosPackage(log), InstallPackage::InvalidPackage);
    InstallPackage dosPackage("/nowhere/120501.zip");
    EXPECT_EQ(dosPackage.InstallLinuxPackage(log), InstallPackage::InvalidPackage);
    EXPECT_EQ(log.str(), "");
}

TEST(InstalledPackages, LinkManifestAndDosDirectoriesHighestFirst)
{
    Sandbox::TempDir dir("/tmp/InstalledPackagesTest-");
    const std::string& base = dir.Path();
    ASSERT_EQ(::mkdir((base + "/12.05.01.3456").c_str(), 0755), 0);
    WriteFile(base + "/12.05.01.3456/Version.json",
              "{\"name\": \"Vidorama\", \"version\": \"12.05.01\", \"revision\": \"3456\"}\n");
    ASSERT_EQ(::mkdir((base + "/130101").c_str(), 0755), 0);
    WriteFile(base + "/130101/img.zip", "zip");
    ASSERT_EQ(::symlink((base + "/12.05.01.3456").c_str(), (base + "/current").c_str()), 0);
    // Neither a version nor counted: a plain file and a directory without any marker.
    WriteFile(base + "/notes.txt", "x");
    ASSERT_EQ(::mkdir((base + "/boot").c_str(), 0755), 0);

    std::unique_ptr<std::vector<PackageVersion>> versions(
        InstallPackage::GetInstalledPackages(base.c_str()));
    ASSERT_EQ(versions->size(), 2u);
    EXPECT_TRUE((*versions)[0].IsDos());
    EXPECT_STREQ((*versions)[0].GetVersion(true), "13.01.01");
    EXPECT_STREQ((*versions)[0].GetName(), "Vidorama");
    EXPECT_EQ(std::string((*versions)[0].GetPath()), base + "/130101");
    EXPECT_FALSE((*versions)[1].IsDos());
    EXPECT_STREQ((*versions)[1].GetVersion(true), "12.05.01.3456");
    EXPECT_EQ(std::string((*versions)[1].GetPath()), base + "/12.05.01.3456");
}

TEST(InstalledPackages, JsonBeforeTextAndTextAlone)
{
    Sandbox::TempDir dir("/tmp/InstalledPackagesTest-");
    const std::string& base = dir.Path();
    ASSERT_EQ(::mkdir((base + "/a").c_str(), 0755), 0);
    WriteFile(base + "/a/Version.json",
              "{\"name\": \"Vidorama\", \"version\": \"12.06.02\", \"revision\": \"3501\"}\n");
    WriteFile(base + "/a/Version.txt", "Vidorama\n11.01.01.1\n");
    ASSERT_EQ(::mkdir((base + "/b").c_str(), 0755), 0);
    WriteFile(base + "/b/Version.txt", "Vidorama\r\n12.05.01.3456\r\n");

    std::unique_ptr<std::vector<PackageVersion>> versions(
        InstallPackage::GetInstalledPackages(base.c_str()));
    ASSERT_EQ(versions->size(), 2u);
    EXPECT_STREQ((*versions)[0].GetVersion(true), "12.06.02.3501");
    EXPECT_STREQ((*versions)[1].GetVersion(true), "12.05.01.3456");
    EXPECT_EQ(std::string((*versions)[1].GetPath()), base + "/b");
}

TEST(InstalledPackages, MissingDirectoryGivesAnEmptyList)
{
    std::unique_ptr<std::vector<PackageVersion>> versions(
        InstallPackage::GetInstalledPackages("/nonexistent/Versions"));
    ASSERT_NE(versions, nullptr);
    EXPECT_TRUE(versions->empty());
}
