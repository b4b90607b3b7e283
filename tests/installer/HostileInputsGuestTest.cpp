// Broken packages, a key that goes away and a partition that fills up, for real inside the
// sandbox guest: a 64 MiB scratch disk (/dev/vda: partition 1 FAT16, partition 2 ext4 of
// about 47 MiB with a little over 2000 inodes) on the fixed mount points, a 32 MiB USB key
// (/dev/sda, FAT, no table) on
// "/mnt/USB" with the packages, the sample installer and the real tar, unzip and extlinux.
//
// Before the installation cases the sample Linux version is installed and current and the
// sample DOS version sits over a DOS system; every failed installation must leave both, the
// "current" link, the boot configuration and the other packages on the key as they were.
// The guest's BIOS is an RB417's, so that reading the identity runs the identity tool.
#include "Bios.h"
#include "DiskDiagnostics.h"
#include "EepromReader.h"
#include "InstallPackage.h"

#include "GuestShell.h"
#include "TestArchive.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace
{

using Kel::Vidorama::InstallerLib::Bios;
using Kel::Vidorama::InstallerLib::EepromInfo;
using Kel::Vidorama::InstallerLib::EepromReader;
using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::PackageVersion;
using Kel::ZarnLinuxTools::DiskDiagnostics;
using Sandbox::BlockDeviceBytes;
using Sandbox::InSandbox;
using Sandbox::ReadFile;
using Sandbox::Shell;
using Sandbox::ShellResult;
using Sandbox::WriteFile;
using TestSupport::NoiseBytes;
namespace fs = std::filesystem;

const char* const Disk = "/dev/vda";
const char* const Key = "/dev/sda";
const std::uint64_t DiskBytes = 64ull << 20;
const std::uint64_t KeyBytes = 32ull << 20;

const std::string Packages = "/mnt/USB/Packages";
const std::string SamplePackage = Packages + "/Vidorama_12.05.01.3456.tar.gz";
const std::string SampleDosPackage = Packages + "/120501.zip";
const std::string SysVersions = "/mnt/SYS/Versions";
const std::string DosVersions = "/mnt/DOS/Versions";
const std::string Build = "/var/tmp/hostile";
const std::string WorkInstaller = "/io/work/Install.sh";

const std::string FailureLines = "\nInstallation failed!\n"
                                 "Please reboot the server and retry installation of Vidorama\n"
                                 "Possible cause : USB key disconnected from the server.\n";

bool EndsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Overwrites count bytes from the middle of the file on.
bool Damage(const std::string& path, std::size_t count)
{
    std::string bytes = ReadFile(path);
    const std::size_t middle = bytes.size() / 2;
    for (std::size_t i = middle; i < middle + count && i < bytes.size(); ++i)
    {
        bytes[i] = static_cast<char>(bytes[i] ^ 0x5a);
    }
    return WriteFile(path, bytes);
}

// The project's sample installer with a shell fragment run just before it unpacks the
// payload from the package.
using Member = TestSupport::ArchiveMember;

// A gzip-compressed tar written straight from memory.
bool WriteLinuxPackage(const std::string& path, const std::vector<Member>& members)
{
    return TestSupport::WriteArchive(path, members, false);
}

std::string SampleInstaller(const std::string& beforeUnpacking = "")
{
    std::string script = ReadFile(std::string(WIZARD_SOURCE_DIR) + "/sample/packages/Install.sh");
    const std::string unpack = "tar -xzf \"$package\"";
    const std::size_t at = script.find(unpack);
    if (at == std::string::npos)
    {
        return "";
    }
    return script.insert(at, beforeUnpacking);
}

std::string Manifest(const std::string& version, const std::string& revision)
{
    return "{\"name\": \"Vidorama\", \"version\": \"" + version + "\", \"revision\": \"" +
           revision + "\"}\n";
}

// The installer first, then the manifest and the payload's other files.
std::vector<Member> LinuxMembers(const std::string& installer, const std::string& version,
                                 const std::string& revision, std::vector<Member> payload)
{
    std::vector<Member> members = {{"Install.sh", installer, 0755},
                                   {"payload/Version.json", Manifest(version, revision)}};
    members.insert(members.end(), payload.begin(), payload.end());
    return members;
}

std::uint64_t FreeInodes(const char* directory)
{
    struct statvfs info = {};
    return ::statvfs(directory, &info) == 0 ? info.f_favail : 0;
}

class HostileInstallation : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        // Never anywhere but in the guest, never on disks other than the scratch images.
        if (!InSandbox())
        {
            problem = "runs only inside the sandbox guest";
            return;
        }
        Shell("udevadm settle; for i in $(seq 100); do [ -b /dev/sda ] && break; sleep 0.1; done");
        if (BlockDeviceBytes(Disk) != DiskBytes || BlockDeviceBytes(Key) != KeyBytes)
        {
            problem = "the scratch disk and key are not the expected images";
            return;
        }
        const ShellResult layout =
            Shell(std::string("parted -s ") + Disk +
                  " mklabel msdos mkpart primary fat16 1MiB 17MiB mkpart primary ext4 17MiB 100%"
                  " && udevadm settle && for i in $(seq 50); do [ -b /dev/vda2 ] && break;"
                  " sleep 0.1; done && mkfs.fat -F 16 -n DOS /dev/vda1"
                  " && mkfs.ext4 -q -F -N 2048 -L LINUX /dev/vda2 && mkfs.fat -I -n USBKEY " +
                  Key + " && mount -t vfat " + Key + " /mnt/USB && mkdir -p " + Packages);
        if (layout.status != 0)
        {
            problem = "preparing the disk and the key failed:\n" + layout.output;
            return;
        }
        const ShellResult samples =
            Shell(std::string(WIZARD_SOURCE_DIR) + "/scripts/make-sample-packages.sh " + Packages +
                  " --linux 12.05.01.3456 --dos 120501");
        if (samples.status != 0)
        {
            problem = "building the sample packages failed:\n" + samples.output;
            return;
        }
        InstallPackage any(SamplePackage.c_str());
        if (!any.PrepareDestination(Disk))
        {
            problem = "the scratch disk cannot be mounted";
            return;
        }
        std::string why;
        if (!InstallTheInstalledSystem(why))
        {
            problem = why;
        }
    }

    void SetUp() override
    {
        ASSERT_EQ(problem, "");
        Shell("rm -f " + WorkInstaller + "; rm -rf " + Build + " && mkdir -p " + Build);
        InstallPackage any(SamplePackage.c_str());
        ASSERT_TRUE(any.PrepareDestination(Disk));
        // What earlier cases left beside the installed versions goes; the installed system
        // is installed again only when a case changed it.
        ASSERT_EQ(Shell("cd /mnt/SYS/Versions && for entry in * .[!.]*; do case $entry in "
                        "12.05.01.3456|boot|current|'.[!.]*') ;; *) chattr -R -i \"$entry\" "
                        "2>/dev/null; rm -rf \"$entry\" ;; esac; done; rm -f /mnt/SYS/hog && "
                        "cd /mnt/DOS/Versions && for entry in *; do [ \"$entry\" = 120501 ] || "
                        "rm -rf \"$entry\"; done")
                      .status,
                  0);
        if (Installed() != installed)
        {
            Observed("the installed system changed; installing it again");
            std::string why;
            ASSERT_TRUE(InstallTheInstalledSystem(why)) << why;
        }
        keyBefore = KeyContents();
    }

    // The sample Linux version installed and current, the sample DOS version over a DOS
    // system: the installed system the broken packages must leave alone.
    static bool InstallTheInstalledSystem(std::string& why)
    {
        if (Shell("chattr -R -i /mnt/SYS/Versions 2>/dev/null; rm -rf /mnt/SYS/Versions/* "
                  "/mnt/SYS/Versions/.[!.]* /mnt/SYS/hog /mnt/DOS/* && mkdir -p " +
                  DosVersions)
                .status != 0)
        {
            why = "cannot empty the partitions";
            return false;
        }
        std::ostringstream log;
        InstallPackage linuxSample(SamplePackage.c_str());
        if (linuxSample.Install(log) != InstallPackage::InstallationSucceeded)
        {
            why = "the sample Linux package does not install:\n" + log.str();
            return false;
        }
        for (const char* file : {"COMMAND.COM", "IO.SYS", "MSDOS.SYS"})
        {
            WriteFile(std::string("/mnt/DOS/") + file, "dos");
        }
        InstallPackage dosSample(SampleDosPackage.c_str());
        if (dosSample.Install(log) != InstallPackage::InstallationSucceeded)
        {
            why = "the sample DOS package does not install:\n" + log.str();
            return false;
        }
        installed = Installed();
        if (installed.find("current -> /mnt/SYS/Versions/12.05.01.3456") == std::string::npos)
        {
            why = "the sample version is not current:\n" + installed;
            return false;
        }
        return true;
    }

    // The installed versions, the "current" link, the boot configuration and the DOS start
    // files, down to the bytes.
    static std::string Installed()
    {
        return Shell("cd /mnt/SYS/Versions && echo \"current -> $(readlink current)\" && "
                     "cat boot/syslinux/syslinux.cfg && ls boot/syslinux && "
                     "find 12.05.01.3456 -exec ls -ld --time-style=+ {} + | "
                     "awk '{print $1, $5, $NF}' | sort && "
                     "find 12.05.01.3456 -type f -exec md5sum {} + | sort && cd /mnt/DOS && "
                     "find Versions/120501 -type f -exec md5sum {} + | sort && "
                     "md5sum preboot.bat cecfg.bat COMMAND.COM IO.SYS MSDOS.SYS")
            .output;
    }

    // Every package file on the key with its checksum.
    static std::string KeyContents() { return Shell("cd " + Packages + " && md5sum *").output; }

    // What a failed installation left beside the installed versions.
    static std::string Leftovers()
    {
        return Shell("ls -A /mnt/SYS/Versions /mnt/DOS/Versions").output;
    }

    void ExpectInstalledSystemUnchanged()
    {
        EXPECT_EQ(Installed(), installed);
        EXPECT_STREQ(InstallPackage::GetCurrentLinuxVersion().GetVersion(true), "12.05.01.3456");
        std::unique_ptr<std::vector<PackageVersion>> versions(
            InstallPackage::GetInstalledPackages());
        bool linuxKept = false;
        bool dosKept = false;
        for (const PackageVersion& version : *versions)
        {
            linuxKept = linuxKept || (!version.IsDos() && std::string(version.GetPath()) ==
                                                              SysVersions + "/12.05.01.3456");
            dosKept = dosKept || (version.IsDos() &&
                                  std::string(version.GetPath()) == DosVersions + "/120501");
        }
        EXPECT_TRUE(linuxKept);
        EXPECT_TRUE(dosKept);
    }

    // The other packages on the key are the ones that were there before.
    void ExpectKeyUnchangedBut(const std::string& package)
    {
        std::istringstream before(keyBefore);
        std::string line;
        std::string expected;
        while (std::getline(before, line))
        {
            if (!EndsWith(line, "  " + package))
            {
                expected += line + "\n";
            }
        }
        std::istringstream after(KeyContents());
        std::string actual;
        while (std::getline(after, line))
        {
            if (!EndsWith(line, "  " + package))
            {
                actual += line + "\n";
            }
        }
        EXPECT_EQ(actual, expected);
    }

    static void Observed(const std::string& text)
    {
        std::cout << "[ observed ] " << text << std::endl;
    }

    static std::string problem;
    // The installed system as the last installation left it.
    static std::string installed;
    std::string keyBefore;
};

std::string HostileInstallation::problem;
std::string HostileInstallation::installed;

// ---------------------------------------------------------------------------------------
// Packages cut short or damaged

TEST_F(HostileInstallation, ATruncatedLinuxPackageIsRefusedAndChangesNothing)
{
    const std::string name = "Vidorama_12.07.01.1.tar.gz";
    const std::string path = Packages + "/" + name;
    ASSERT_TRUE(
        WriteLinuxPackage(path, LinuxMembers(SampleInstaller(), "12.07.01", "1",
                                             {{"payload/media.bin", NoiseBytes(256 << 10, 1)}})));
    fs::resize_file(path, fs::file_size(path) / 2);
    const std::string cut = ReadFile(path);

    InstallPackage package(path.c_str());
    EXPECT_EQ(package.GetExtractedSize(), -1);
    bool damaged = false;
    EXPECT_EQ(package.GetExtractedSize64(&damaged), -1);
    EXPECT_TRUE(damaged);
    std::ostringstream log;
    // The package, not the disk, is said to be at fault.
    EXPECT_EQ(package.Install(Disk, log), InstallPackage::DamagedPackage);
    EXPECT_EQ(log.str(), "Package installation failed!\n"
                         "The package " +
                             name + " is damaged and cannot be installed\n");
    EXPECT_FALSE(fs::exists(WorkInstaller));
    EXPECT_FALSE(package.IsInstalled());
    ExpectInstalledSystemUnchanged();
    ExpectKeyUnchangedBut(name);
    EXPECT_EQ(ReadFile(path), cut) << "the package itself is left as it is";
    EXPECT_EQ(Leftovers(), "/mnt/DOS/Versions:\n120501\n\n/mnt/SYS/Versions:\n"
                           "12.05.01.3456\nboot\ncurrent\n");
}

TEST_F(HostileInstallation, ALinuxPackageWithADamagedPayloadIsRefusedAsDamagedAndChangesNothing)
{
    // The stream's checksum is checked to its end before anything is written: the damage
    // is found whatever the bytes decode to.
    const std::string name = "Vidorama_12.07.02.1.tar.gz";
    const std::string path = Packages + "/" + name;
    ASSERT_TRUE(
        WriteLinuxPackage(path, LinuxMembers(SampleInstaller(), "12.07.02", "1",
                                             {{"payload/media.bin", NoiseBytes(256 << 10, 2)}})));
    ASSERT_TRUE(Damage(path, 64));
    const std::string damagedBytes = ReadFile(path);

    InstallPackage package(path.c_str());
    EXPECT_EQ(package.GetExtractedSize(), -1);
    std::ostringstream log;
    EXPECT_EQ(package.Install(Disk, log), InstallPackage::DamagedPackage);
    EXPECT_EQ(log.str(), "Package installation failed!\n"
                         "The package " +
                             name + " is damaged and cannot be installed\n");
    EXPECT_FALSE(fs::exists(WorkInstaller));
    EXPECT_FALSE(package.IsInstalled());
    ExpectInstalledSystemUnchanged();
    ExpectKeyUnchangedBut(name);
    EXPECT_EQ(ReadFile(path), damagedBytes) << "the package itself is left as it is";
    EXPECT_EQ(Leftovers(), "/mnt/DOS/Versions:\n120501\n\n/mnt/SYS/Versions:\n"
                           "12.05.01.3456\nboot\ncurrent\n");
}

TEST_F(HostileInstallation, ADamagedPackageIsRefusedBeforeTheDiskIsEvenMounted)
{
    // Both partitions let go: the damaged package does not mount them again.
    const std::string name = "Vidorama_12.07.07.1.tar.gz";
    const std::string path = Packages + "/" + name;
    ASSERT_TRUE(
        WriteLinuxPackage(path, LinuxMembers(SampleInstaller(), "12.07.07", "1",
                                             {{"payload/media.bin", NoiseBytes(64 << 10, 7)}})));
    fs::resize_file(path, fs::file_size(path) - 100);
    ASSERT_EQ(Shell("umount /mnt/SYS && umount /mnt/DOS").status, 0);

    InstallPackage package(path.c_str());
    std::ostringstream log;
    EXPECT_EQ(package.Install(Disk, log), InstallPackage::DamagedPackage);
    EXPECT_EQ(log.str(), "Package installation failed!\n"
                         "The package " +
                             name + " is damaged and cannot be installed\n");
    EXPECT_EQ(Shell("grep -c -e ' /mnt/SYS ' -e ' /mnt/DOS ' /proc/mounts").output, "0\n");
    EXPECT_FALSE(fs::exists(WorkInstaller));
    InstallPackage any(SamplePackage.c_str());
    ASSERT_TRUE(any.PrepareDestination(Disk));
    ExpectInstalledSystemUnchanged();
    ExpectKeyUnchangedBut(name);
}

std::string DosImagePackage(const std::string& version)
{
    // A small DOS version: its image and a text file, zipped as vendors do.
    const std::string directory = Build + "/" + version;
    fs::create_directories(directory);
    WriteFile(directory + "/img.zip", NoiseBytes(256 << 10, 3));
    WriteFile(directory + "/README.TXT", "Vidorama " + version + "\r\n");
    const std::string package = Packages + "/" + version + ".zip";
    const ShellResult zip =
        Shell("cd " + Build + " && zip -q -X -r " + package + " " + version + "/");
    return zip.status == 0 ? package : "";
}

TEST_F(HostileInstallation, ATruncatedDosPackageFailsAndChangesNothing)
{
    const std::string path = DosImagePackage("120601");
    ASSERT_NE(path, "");
    fs::resize_file(path, fs::file_size(path) / 2);

    InstallPackage package(path.c_str());
    EXPECT_EQ(package.GetExtractedSize(), -1);
    std::ostringstream log;
    EXPECT_EQ(package.Install(Disk, log), InstallPackage::NotEnoughSpace);
    EXPECT_EQ(log.str(),
              "Package installation failed!\n"
              "Cannot determine available space for installation of Vidorama 14 or older\n");
    EXPECT_FALSE(fs::exists(DosVersions + "/120601"));
    ExpectInstalledSystemUnchanged();
    ExpectKeyUnchangedBut("120601.zip");
}

TEST_F(HostileInstallation, ADosPackageWithoutItsEndFailsInUnzipAndChangesNothing)
{
    // The entries are whole, the central directory at the end is not: the size is known,
    // unzip refuses the file.
    const std::string path = DosImagePackage("120602");
    ASSERT_NE(path, "");
    fs::resize_file(path, fs::file_size(path) - 20);

    InstallPackage package(path.c_str());
    const int size = package.GetExtractedSize();
    std::ostringstream log;
    const InstallPackage::InstallStatus status = package.Install(Disk, log);
    Observed("DOS package without its end: extracted size " + std::to_string(size) + ", status " +
             std::to_string(status) + ", left: " + Leftovers());
    if (size == -1)
    {
        EXPECT_EQ(status, InstallPackage::NotEnoughSpace);
    }
    else
    {
        EXPECT_EQ(status, InstallPackage::InstallationFailed);
        EXPECT_TRUE(EndsWith(log.str(), FailureLines)) << log.str();
    }
    EXPECT_FALSE(fs::exists(DosVersions + "/120602/img.zip"));
    ExpectInstalledSystemUnchanged();
    ExpectKeyUnchangedBut("120602.zip");
}

TEST_F(HostileInstallation, ADamagedDosPackageFailsInUnzipAndChangesNothingElse)
{
    // The sizes come from the entry headers, so the space check passes; unzip finds the bad
    // checksum after it has written the damaged image.
    const std::string path = DosImagePackage("120603");
    ASSERT_NE(path, "");
    ASSERT_TRUE(Damage(path, 64));

    InstallPackage package(path.c_str());
    EXPECT_GT(package.GetExtractedSize(), 512 << 10);
    std::ostringstream log;
    EXPECT_EQ(package.Install(Disk, log), InstallPackage::InstallationFailed);
    EXPECT_TRUE(EndsWith(log.str(), FailureLines)) << log.str();
    // "preboot.bat" still starts the installed version (checked with the rest below).
    Observed("damaged DOS package: left " + Leftovers());
    std::unique_ptr<std::vector<PackageVersion>> versions(InstallPackage::GetInstalledPackages());
    for (const PackageVersion& version : *versions)
    {
        Observed(std::string("listed after it: ") + (version.IsDos() ? "DOS " : "") +
                 version.GetVersion(true) + " at " + version.GetPath());
    }
    ExpectInstalledSystemUnchanged();
    ExpectKeyUnchangedBut("120603.zip");
}

// ---------------------------------------------------------------------------------------
// The key goes away while the installer runs

TEST_F(HostileInstallation, ThePackageFileDisappearingDuringInstallationFailsAndChangesNothing)
{
    // The installer is extracted and running when the package file goes.
    const std::string name = "Vidorama_12.07.03.1.tar.gz";
    const std::string path = Packages + "/" + name;
    ASSERT_TRUE(WriteLinuxPackage(
        path, LinuxMembers(SampleInstaller("rm -f \"$package\"\n"), "12.07.03", "1",
                           {{"payload/media.bin", NoiseBytes(256 << 10, 4)}})));

    InstallPackage package(path.c_str());
    std::ostringstream log;
    EXPECT_EQ(package.Install(Disk, log), InstallPackage::InstallationFailed);
    EXPECT_EQ(log.str(), "Installing Vidorama 12.07.03.1\n  from " + path + "\n" + FailureLines);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_FALSE(fs::exists(SysVersions + "/12.07.03.1"));
    EXPECT_TRUE(fs::is_directory(SysVersions + "/.installing-12.07.03.1"))
        << "the installer's own staging directory: " << Leftovers();
    EXPECT_FALSE(package.IsInstalled());
    ExpectInstalledSystemUnchanged();
    ExpectKeyUnchangedBut(name);
}

// ---------------------------------------------------------------------------------------
// The Linux partition fills up

TEST_F(HostileInstallation, APartitionWithoutRoomForThePackageIsRefusedBeforeAnythingIsWritten)
{
    InstallPackage package(SamplePackage.c_str());
    const int needed = package.GetExtractedSize();
    ASSERT_GT(needed, 4096);
    // A big file leaves half of what the package needs.
    const std::uint64_t free = DiskDiagnostics::GetMountedPartitionFreeSpace("/mnt/SYS");
    ASSERT_EQ(Shell("fallocate -l " + std::to_string(free - needed / 2) + " /mnt/SYS/hog").status,
              0);
    const std::uint64_t left = DiskDiagnostics::GetMountedPartitionFreeSpace("/mnt/SYS");
    ASSERT_LT(left, static_cast<std::uint64_t>(needed));
    const std::string versionsBefore = Leftovers();

    std::ostringstream log;
    EXPECT_EQ(package.Install(Disk, log), InstallPackage::NotEnoughSpace);
    EXPECT_EQ(log.str(), "Package installation failed!\n"
                         "Not enough space available space for installation of Vidorama\n"
                         "1 MB are missing.\n"
                         "Please delete unused version and relaunch the installation process\n");
    EXPECT_FALSE(fs::exists(WorkInstaller));
    EXPECT_EQ(Leftovers(), versionsBefore);
    fs::remove("/mnt/SYS/hog");
    ExpectInstalledSystemUnchanged();
    ExpectKeyUnchangedBut("");
}

TEST_F(HostileInstallation, ManySmallFilesFillThePartitionAfterTheSpaceCheckPassed)
{
    // One byte each counts one byte, but each takes an inode and a block: the check passes
    // and the partition fills up while the installer unpacks.
    const std::uint64_t inodes = FreeInodes("/mnt/SYS");
    ASSERT_GT(inodes, 500u);
    ASSERT_LT(inodes, 5000u);
    std::vector<Member> payload;
    for (std::uint64_t i = 0; i < inodes + 500; ++i)
    {
        payload.push_back({"payload/files/" + std::to_string(i), "x"});
    }
    const std::string name = "Vidorama_12.07.04.1.tar.gz";
    const std::string path = Packages + "/" + name;
    ASSERT_TRUE(WriteLinuxPackage(path, LinuxMembers(SampleInstaller(), "12.07.04", "1", payload)));

    InstallPackage package(path.c_str());
    std::ostringstream check;
    ASSERT_TRUE(package.CheckAvailableDiskSpace(check)) << check.str();
    Observed("many small files: " + std::to_string(payload.size()) + " files counted as " +
             std::to_string(package.GetExtractedSize()) + " bytes, " + std::to_string(inodes) +
             " inodes free");

    std::ostringstream log;
    EXPECT_EQ(package.Install(Disk, log), InstallPackage::InstallationFailed);
    EXPECT_TRUE(EndsWith(log.str(), FailureLines)) << log.str();
    EXPECT_FALSE(fs::exists(SysVersions + "/12.07.04.1"));
    Observed("many small files: free inodes after the failure " +
             std::to_string(FreeInodes("/mnt/SYS")) + ", left: " + Leftovers());
    ExpectInstalledSystemUnchanged();
    ExpectKeyUnchangedBut(name);
}

TEST_F(HostileInstallation, AHugeSparseFileIsCountedWholeByTheSpaceCheck)
{
    // A 4 GiB + 1 MiB entry: the 32-bit byte count wraps to 1 MiB, which fitted into the
    // partition; the space check counts in 64 bits and refuses it, with the true shortfall.
    const std::string name = "Vidorama_12.07.05.1.tar.gz";
    const std::string path = Packages + "/" + name;
    const std::string installer = SampleInstaller();
    ASSERT_TRUE(WriteFile(Build + "/Install.sh", installer));
    ASSERT_EQ(Shell("cd " + Build + " && chmod 755 Install.sh && mkdir -p payload && printf '" +
                    Manifest("12.07.05", "1") +
                    "' > payload/Version.json && truncate -s 4097M payload/huge.img && tar -S "
                    "-czf " +
                    path + " Install.sh payload && rm -f payload/huge.img")
                  .status,
              0);

    InstallPackage package(path.c_str());
    const int size = package.GetExtractedSize();
    EXPECT_GT(size, 1 << 20);
    EXPECT_LT(size, 2 << 20);
    bool damaged = true;
    const std::int64_t wholeSize = package.GetExtractedSize64(&damaged);
    EXPECT_FALSE(damaged);
    EXPECT_GT(wholeSize, 4097ll << 20);
    EXPECT_LT(wholeSize, 4098ll << 20);
    const std::uint64_t free = DiskDiagnostics::GetMountedPartitionFreeSpace("/mnt/SYS");
    const std::uint64_t missing =
        (static_cast<std::uint64_t>(wholeSize) - free + (1u << 20) - 1) >> 20;
    const std::string refused =
        "Package installation failed!\n"
        "Not enough space available space for installation of Vidorama\n" +
        std::to_string(missing) +
        " MB are missing.\n"
        "Please delete unused version and relaunch the installation process\n";
    std::ostringstream check;
    EXPECT_FALSE(package.CheckAvailableDiskSpace(check));
    EXPECT_EQ(check.str(), refused);

    std::ostringstream log;
    EXPECT_EQ(package.Install(Disk, log), InstallPackage::NotEnoughSpace);
    EXPECT_EQ(log.str(), refused);
    EXPECT_FALSE(fs::exists(WorkInstaller));
    ExpectInstalledSystemUnchanged();
    ExpectKeyUnchangedBut(name);
}

// Last: the key is gone for the rest of the guest's life.
TEST_F(HostileInstallation, TheKeyRemovedDuringInstallationFailsAndChangesNothing)
{
    // The installer is running when the key's device goes away, as when it is pulled out:
    // what was not read yet cannot be read any more.
    const std::string name = "Vidorama_12.07.06.1.tar.gz";
    const std::string path = Packages + "/" + name;
    ASSERT_TRUE(WriteLinuxPackage(
        path, LinuxMembers(SampleInstaller("sync; echo 3 > /proc/sys/vm/drop_caches; "
                                           "echo 1 > /sys/block/sda/device/delete\n"),
                           "12.07.06", "1", {{"payload/media.bin", NoiseBytes(256 << 10, 6)}})));

    InstallPackage package(path.c_str());
    std::ostringstream log;
    EXPECT_EQ(package.Install(Disk, log), InstallPackage::InstallationFailed);
    EXPECT_EQ(log.str(), "Installing Vidorama 12.07.06.1\n  from " + path + "\n" + FailureLines);
    EXPECT_FALSE(fs::exists("/sys/block/sda"));
    EXPECT_FALSE(fs::exists(SysVersions + "/12.07.06.1"));
    Observed("key removed: left " + Leftovers());
    ExpectInstalledSystemUnchanged();
    Shell("umount -l /mnt/USB");
}

// ---------------------------------------------------------------------------------------
// Identity tools that print nothing

class SilentIdentityTool : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(InSandbox()) << "runs only inside the sandbox guest";
        ASSERT_TRUE(Bios::IsRb417()) << "the guest is started with an RB417's BIOS";
        Shell("rm -f /io/events /io/work/runs");
        EepromReader::info = EepromInfo();
        EepromReader::eepromRead = false;
        EepromReader::kernelLoaded = false;
    }

    std::string Tool(int status)
    {
        const std::string path = "/io/work/EepromReader";
        WriteFile(path,
                  "#!/bin/sh\necho run >> /io/work/runs\nexit " + std::to_string(status) + "\n");
        ::chmod(path.c_str(), 0755);
        return path;
    }

    int Runs() const
    {
        int count = 0;
        for (char c : ReadFile("/io/work/runs"))
        {
            count += c == '\n';
        }
        return count;
    }
};

TEST_F(SilentIdentityTool, NothingPrintedAndSuccessGivesAnUnknownServerReadOnce)
{
    EepromReader reader("/lib/modules/test/extra/", "/u/", Tool(0).c_str());
    const EepromInfo& info = reader.Read();
    EXPECT_EQ(info.serialNumber, "");
    EXPECT_EQ(info.chassis, "");
    EXPECT_TRUE(info.IsVidorama14AndLessCompatible());
    EXPECT_TRUE(EepromReader::kernelLoaded);
    EXPECT_TRUE(EepromReader::eepromRead);
    reader.Read();
    EXPECT_EQ(Runs(), 1);
}

TEST_F(SilentIdentityTool, NothingPrintedAndFailureIsTriedAgainAtTheNextRead)
{
    EepromReader reader("/lib/modules/test/extra/", "/u/", Tool(1).c_str());
    const EepromInfo& info = reader.Read();
    EXPECT_EQ(info.serialNumber, "");
    EXPECT_EQ(info.chassis, "");
    EXPECT_FALSE(EepromReader::eepromRead);
    reader.Read();
    EXPECT_EQ(Runs(), 2);
    EXPECT_EQ(info.serialNumber, "");
    // The modules were loaded once: only the identity is read again.
    EXPECT_EQ(Shell("grep -c insmod /io/events").output, "2\n");
}

} // namespace
