// Installation, switching and removal of versions for real, inside the sandbox guest:
// a 32 MiB scratch disk (/dev/vda: partition 1 FAT16, partition 2 ext4) mounted on the
// fixed mount points, an 8 MiB disk without a table (/dev/vdb), sample packages built
// by the project's own builder, and the real tar, unzip, extlinux, chattr, ln and rm.
//
// The network settings of the installed system are read once per process, so the DOS
// installation over a DHCP system runs in a second process (the "Dhcp" tests).
#include "DiskDiagnostics.h"
#include "InstallPackage.h"

#include "GuestShell.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::PackageVersion;
using Kel::ZarnLinuxTools::DiskDiagnostics;
using Sandbox::BlockDeviceBytes;
using Sandbox::InSandbox;
using Sandbox::ReadFile;
using Sandbox::Shell;
using Sandbox::ShellResult;
using Sandbox::WriteFile;
namespace fs = std::filesystem;

const char* const Disk = "/dev/vda";
const char* const TablelessDisk = "/dev/vdb";
const std::uint64_t DiskBytes = 32ull << 20;
const std::uint64_t TablelessDiskBytes = 8ull << 20;

const std::string Packages = "/var/tmp/packages";
const std::string SamplePackage = Packages + "/Vidorama_12.05.01.3456.tar.gz";
const std::string SecondPackage = Packages + "/Vidorama_12.06.02.3501.tar.gz";
const std::string HostilePackage = Packages + "/x$(touch pwned)y_12.05.01.1.tar.gz";
const std::string DosPackage = Packages + "/120501.zip";

const std::string SysVersions = "/mnt/SYS/Versions";
const std::string DosVersions = "/mnt/DOS/Versions";
const std::string Current = SysVersions + "/current";
const std::string TopConfiguration = SysVersions + "/boot/syslinux/syslinux.cfg";

const char* const JsonManifest =
    "{\"name\": \"Vidorama\", \"version\": \"%s\", \"revision\": \"%s\"}";

bool IsMountedOn(const std::string& device, const std::string& directory)
{
    std::istringstream mounts(ReadFile("/proc/mounts"));
    std::string source;
    std::string target;
    std::string rest;
    while (mounts >> source >> target && std::getline(mounts, rest))
    {
        if (source == device && target == directory)
        {
            return true;
        }
    }
    return false;
}

// An installed Linux version made by hand: its directory and manifest.
std::string MakeLinuxVersion(const std::string& directory, const std::string& version,
                             const std::string& revision)
{
    const std::string path = SysVersions + "/" + directory;
    fs::create_directories(path + "/boot/syslinux");
    char manifest[256];
    std::snprintf(manifest, sizeof(manifest), JsonManifest, version.c_str(), revision.c_str());
    WriteFile(path + "/Version.json", manifest);
    return path;
}

PackageVersion Parsed(const std::string& fullVersion)
{
    PackageVersion version;
    version.SetName("Vidorama");
    version.ParseFullVersion(fullVersion.c_str());
    return version;
}

PackageVersion WithPath(PackageVersion version, const std::string& path)
{
    version.SetPath(path.c_str());
    return version;
}

PackageVersion DosVersion(const std::string& name, const std::string& path)
{
    PackageVersion version;
    version.SetDos(true);
    version.SetName("Vidorama");
    version.ParseDosVersion(name.c_str());
    version.SetPath(path.c_str());
    return version;
}

std::vector<std::string> Names(const std::vector<PackageVersion>& versions)
{
    std::vector<std::string> names;
    for (const PackageVersion& version : versions)
    {
        names.push_back(std::string(version.IsDos() ? "DOS " : "") + version.GetVersion(true));
    }
    return names;
}

class InstallPackageInGuest : public testing::Test
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
        if (BlockDeviceBytes(Disk) != DiskBytes ||
            BlockDeviceBytes(TablelessDisk) != TablelessDiskBytes)
        {
            problem = "the scratch disks are not the expected images";
            return;
        }
        // Both runs of the program share the disk; the second one finds it prepared.
        if (!DiskDiagnostics::IsBlockDevice("/dev/vda2"))
        {
            const ShellResult layout = Shell(
                std::string("parted -s ") + Disk +
                " mklabel msdos mkpart primary fat16 1MiB 17MiB mkpart primary ext4 17MiB 100%"
                " && udevadm settle && for i in $(seq 50); do [ -b /dev/vda2 ] && break;"
                " sleep 0.1; done && mkfs.fat -F 16 -n DOS /dev/vda1"
                " && mkfs.ext4 -q -F -L LINUX /dev/vda2");
            if (layout.status != 0)
            {
                problem = "preparing the disk failed:\n" + layout.output;
                return;
            }
        }
        if (!fs::exists(SamplePackage))
        {
            const ShellResult build = Shell(
                std::string(WIZARD_SOURCE_DIR) + "/scripts/make-sample-packages.sh " + Packages +
                " --linux 12.05.01.3456 --linux 12.06.02.3501 --dos 120501"
                " --name 'x$(touch pwned)y' --linux 12.05.01.1");
            if (build.status != 0)
            {
                problem = "building the sample packages failed:\n" + build.output;
            }
        }
    }

    void SetUp() override
    {
        ASSERT_EQ(problem, "");
        Shell("umount /mnt/SYS; umount /mnt/DOS; rm -f /io/work/Install.sh");
        InstallPackage any(SamplePackage.c_str());
        ASSERT_TRUE(any.PrepareDestination(Disk));
    }

    // Both partitions mounted and emptied of versions, links and DOS files.
    void EmptyDestination()
    {
        ASSERT_EQ(Shell("chattr -R -i /mnt/SYS/Versions 2>/dev/null; rm -rf /mnt/SYS/Versions/* "
                        "/mnt/DOS/* && mkdir -p /mnt/DOS/Versions")
                      .status,
                  0);
    }

    // The sample package installed and current, as after a first installation.
    void InstallSample()
    {
        EmptyDestination();
        InstallPackage package(SamplePackage.c_str());
        std::ostringstream log;
        ASSERT_EQ(package.Install(log), InstallPackage::InstallationSucceeded) << log.str();
    }

    void MakeDosSystem()
    {
        for (const char* file : {"COMMAND.COM", "IO.SYS", "MSDOS.SYS"})
        {
            ASSERT_TRUE(WriteFile(std::string("/mnt/DOS/") + file, "dos"));
        }
    }

    static std::string problem;
};

std::string InstallPackageInGuest::problem;

TEST_F(InstallPackageInGuest, PrepareDestinationCreatesTheMountPointsAndMountsBothPartitions)
{
    Shell("umount /mnt/SYS; umount /mnt/DOS; rmdir /mnt/SYS /mnt/DOS");
    ASSERT_FALSE(fs::exists("/mnt/SYS"));
    InstallPackage package(SamplePackage.c_str());
    ASSERT_TRUE(package.PrepareDestination(Disk));
    EXPECT_TRUE(IsMountedOn("/dev/vda2", "/mnt/SYS"));
    EXPECT_TRUE(IsMountedOn("/dev/vda1", "/mnt/DOS"));
    EXPECT_TRUE(fs::is_directory(SysVersions));
    // Already in place: nothing changes.
    EXPECT_TRUE(package.PrepareDestination(Disk));
    EXPECT_EQ(Shell("grep -c ' /mnt/SYS ' /proc/mounts").output, "1\n");
}

TEST_F(InstallPackageInGuest, PrepareDestinationReplacesAnotherMount)
{
    Shell("umount /mnt/SYS");
    ASSERT_EQ(Shell("mount -t tmpfs elsewhere /mnt/SYS").status, 0);
    InstallPackage package(SamplePackage.c_str());
    ASSERT_TRUE(package.PrepareDestination(Disk));
    EXPECT_TRUE(IsMountedOn("/dev/vda2", "/mnt/SYS"));
    EXPECT_FALSE(IsMountedOn("elsewhere", "/mnt/SYS"));
}

TEST_F(InstallPackageInGuest, ADiskWithoutPartitionTwoIsNotReady)
{
    InstallPackage package(SamplePackage.c_str());
    std::ostringstream log;
    EXPECT_EQ(package.Install(TablelessDisk, log), InstallPackage::DestinationNotReady);
    EXPECT_EQ(log.str(), "Package installation failed!\n"
                         "Disk /dev/vdb not accessible for installation!\n");
}

TEST_F(InstallPackageInGuest, TheSamplePackageInstallsAndBecomesCurrent)
{
    EmptyDestination();
    Shell("umount /mnt/SYS; umount /mnt/DOS");
    InstallPackage package(SamplePackage.c_str());
    ASSERT_TRUE(package.IsValid());
    EXPECT_FALSE(package.IsInstalled(Disk));

    std::ostringstream log;
    ASSERT_EQ(package.Install(Disk, log), InstallPackage::InstallationSucceeded) << log.str();
    EXPECT_NE(log.str().find("Installing Vidorama 12.05.01.3456\n"), std::string::npos)
        << log.str();
    EXPECT_NE(log.str().find("Vidorama 12.05.01.3456 installed\n"), std::string::npos) << log.str();

    const std::string version = SysVersions + "/12.05.01.3456";
    EXPECT_TRUE(fs::is_regular_file(version + "/Version.json"));
    EXPECT_TRUE(fs::is_regular_file(version + "/boot/syslinux/syslinux.cfg"));
    EXPECT_EQ(fs::read_symlink(Current), version);
    EXPECT_EQ(ReadFile(TopConfiguration), "DEFAULT Vidorama\nLABEL Vidorama\n  CONFIG "
                                          "/Versions/12.05.01.3456/boot/syslinux/syslinux.cfg\n");
    EXPECT_TRUE(fs::is_regular_file(SysVersions + "/boot/syslinux/ldlinux.sys"));
    EXPECT_FALSE(fs::exists("/io/work/Install.sh")) << "the installer is removed after success";

    EXPECT_STREQ(InstallPackage::GetCurrentLinuxVersion().GetVersion(true), "12.05.01.3456");
    EXPECT_TRUE(package.IsInstalled());
    EXPECT_TRUE(package.IsInstalled(Disk));
    InstallPackage other(SecondPackage.c_str());
    EXPECT_FALSE(other.IsInstalled());
}

TEST_F(InstallPackageInGuest, APackageExactlyAsLargeAsTheFreeSpaceIsRefused)
{
    EmptyDestination();
    const std::uint64_t free = DiskDiagnostics::GetMountedPartitionFreeSpace("/mnt/SYS");
    ASSERT_GT(free, 1u << 20);
    ASSERT_LT(free, 64u << 20);
    // The payload's one file is exactly the free space; a second package one byte less.
    const std::string exact = "/var/tmp/exact/Vidorama_12.09.09.1.tar.gz";
    const std::string under = "/var/tmp/under/Vidorama_12.09.09.2.tar.gz";
    ASSERT_EQ(Shell("rm -rf /var/tmp/exact /var/tmp/under /var/tmp/fill && mkdir -p /var/tmp/exact "
                    "/var/tmp/under /var/tmp/fill/payload && cd /var/tmp/fill && truncate -s " +
                    std::to_string(free) + " payload/fill.bin && tar -czf " + exact +
                    " payload && truncate -s " + std::to_string(free - 1) +
                    " payload/fill.bin && tar -czf " + under + " payload && rm -rf /var/tmp/fill")
                  .status,
              0);

    InstallPackage package(exact.c_str());
    ASSERT_EQ(package.GetExtractedSize(), static_cast<int>(free));
    std::ostringstream log;
    EXPECT_EQ(package.Install(log), InstallPackage::NotEnoughSpace);
    EXPECT_EQ(log.str(), "Package installation failed!\n"
                         "Not enough space available space for installation of Vidorama\n"
                         "0 MB are missing.\n"
                         "Please delete unused version and relaunch the installation process\n");

    InstallPackage smaller(under.c_str());
    std::ostringstream quiet;
    EXPECT_TRUE(smaller.CheckAvailableDiskSpace(quiet));
    EXPECT_EQ(quiet.str(), "");
    Shell("rm -rf /var/tmp/exact /var/tmp/under");
}

TEST_F(InstallPackageInGuest, AnUnreadablePackageHasNoKnownSize)
{
    ASSERT_EQ(Shell("mkdir -p /var/tmp/broken && head -c 4096 /dev/urandom > "
                    "/var/tmp/broken/Vidorama_12.07.01.1.tar.gz && head -c 4096 /dev/urandom > "
                    "/var/tmp/broken/120701.zip")
                  .status,
              0);
    // Random bytes are no gzip stream: the Linux package is damaged. The DOS one's size is
    // not known.
    InstallPackage linuxPackage("/var/tmp/broken/Vidorama_12.07.01.1.tar.gz");
    std::ostringstream log;
    EXPECT_EQ(linuxPackage.Install(log), InstallPackage::DamagedPackage);
    EXPECT_EQ(log.str(), "Package installation failed!\n"
                         "The package Vidorama_12.07.01.1.tar.gz is damaged and cannot be "
                         "installed\n");
    // A Linux package that cannot be read at all: its size cannot be determined.
    ASSERT_EQ(Shell("mkdir -p /var/tmp/broken/Vidorama_12.07.02.1.tar.gz").status, 0);
    InstallPackage unreadable("/var/tmp/broken/Vidorama_12.07.02.1.tar.gz");
    std::ostringstream unreadableLog;
    EXPECT_EQ(unreadable.Install(unreadableLog), InstallPackage::NotEnoughSpace);
    EXPECT_EQ(unreadableLog.str(),
              "Package installation failed!\n"
              "Cannot determine available space for installation of Vidorama\n");

    InstallPackage dosPackage("/var/tmp/broken/120701.zip");
    std::ostringstream dosLog;
    EXPECT_EQ(dosPackage.Install(dosLog), InstallPackage::NotEnoughSpace);
    EXPECT_EQ(dosLog.str(),
              "Package installation failed!\n"
              "Cannot determine available space for installation of Vidorama 14 or older\n");
    Shell("rm -rf /var/tmp/broken");
}

TEST_F(InstallPackageInGuest, ALinuxPackageWithoutInstallerIsInvalid)
{
    EmptyDestination();
    ASSERT_EQ(
        Shell("rm -rf /var/tmp/noinst && mkdir -p /var/tmp/noinst/payload && cd /var/tmp/noinst && "
              "echo data > payload/data.txt && tar -czf Vidorama_12.08.01.1.tar.gz payload")
            .status,
        0);
    InstallPackage package("/var/tmp/noinst/Vidorama_12.08.01.1.tar.gz");
    std::ostringstream log;
    EXPECT_EQ(package.Install(log), InstallPackage::InvalidPackage);
    EXPECT_EQ(log.str(), "");
    // A stale installer of an earlier run in the working directory changes nothing.
    ASSERT_TRUE(WriteFile("/io/work/Install.sh", "#!/bin/sh\nexit 0\n"));
    ::chmod("/io/work/Install.sh", 0755);
    EXPECT_EQ(package.Install(log), InstallPackage::InvalidPackage);
    Shell("rm -rf /var/tmp/noinst");
}

TEST_F(InstallPackageInGuest, AFailingInstallerGivesFiveAndStaysForInspection)
{
    EmptyDestination();
    ASSERT_EQ(
        Shell("rm -rf /var/tmp/failing && mkdir -p /var/tmp/failing && cd /var/tmp/failing && "
              "printf '#!/bin/sh\\necho \"copying $3\"\\nexit 3\\n' > Install.sh && chmod 755 "
              "Install.sh && "
              "tar -czf Vidorama_12.08.02.1.tar.gz Install.sh")
            .status,
        0);
    InstallPackage package("/var/tmp/failing/Vidorama_12.08.02.1.tar.gz");
    std::ostringstream log;
    EXPECT_EQ(package.Install(log), InstallPackage::InstallationFailed);
    EXPECT_EQ(log.str(), "copying 12.08.02.1\n"
                         "\n"
                         "Installation failed!\n"
                         "Please reboot the server and retry installation of Vidorama\n"
                         "Possible cause : USB key disconnected from the server.\n");
    EXPECT_TRUE(fs::is_regular_file("/io/work/Install.sh"));
    Shell("rm -rf /var/tmp/failing /io/work/Install.sh");
}

TEST_F(InstallPackageInGuest, AHostilePackageNameRunsNothing)
{
    EmptyDestination();
    InstallPackage package(HostilePackage.c_str());
    ASSERT_TRUE(package.IsValid());
    std::ostringstream log;
    ASSERT_EQ(package.Install(log), InstallPackage::InstallationSucceeded) << log.str();
    // The installer received the file's own name: it found and unpacked it.
    EXPECT_NE(log.str().find("  from " + HostilePackage + "\n"), std::string::npos) << log.str();
    EXPECT_TRUE(fs::is_regular_file(SysVersions + "/12.05.01.1/Version.json"));
    for (const char* place :
         {"/io/work/pwned", "/pwned", "/var/tmp/packages/pwned", "/mnt/SYS/Versions/pwned"})
    {
        EXPECT_FALSE(fs::exists(place)) << place;
    }
}

TEST_F(InstallPackageInGuest, DosPackageWithoutDosSystemIsRefused)
{
    EmptyDestination();
    InstallPackage package(DosPackage.c_str());
    ASSERT_TRUE(package.IsValid());
    std::ostringstream log;
    EXPECT_EQ(package.Install(log), InstallPackage::NoPreviousDosInstallation);
    EXPECT_EQ(log.str(),
              "Package installation failed!\n"
              "No previous installation of Vidorama 14 or older found! Please first install a "
              "Vidorama 14 or older with the appropriate USB key\n");
    EXPECT_FALSE(fs::exists(DosVersions + "/120501"));
}

TEST_F(InstallPackageInGuest, DosPackageLargerThanTheDosPartitionIsRefused)
{
    EmptyDestination();
    const std::uint64_t free = DiskDiagnostics::GetMountedPartitionFreeSpace("/mnt/DOS");
    // "img.zip" counts twice: it is unpacked in turn.
    const std::uint64_t image = free / 2 + (3u << 19);
    ASSERT_EQ(
        Shell("rm -rf /var/tmp/bigdos && mkdir -p /var/tmp/bigdos/120601 && cd /var/tmp/bigdos && "
              "truncate -s " +
              std::to_string(image) + " 120601/img.zip && zip -q -r 120601.zip 120601")
            .status,
        0);
    InstallPackage package("/var/tmp/bigdos/120601.zip");
    ASSERT_EQ(package.GetExtractedSize(), static_cast<int>(2 * image));
    std::ostringstream log;
    EXPECT_EQ(package.Install(log), InstallPackage::NotEnoughSpace);
    const std::uint64_t missing = (2 * image - free + (1u << 20) - 1) >> 20;
    EXPECT_EQ(log.str(),
              "Package installation failed!\n"
              "Not enough space available for installation of Vidorama 14 or older\n" +
                  std::to_string(missing) +
                  " MB are missing.\n"
                  "Please delete unused version 14 or older and relaunch the installation \n"
                  " process\n");
    Shell("rm -rf /var/tmp/bigdos");
}

TEST_F(InstallPackageInGuest, DosPackageInstallsOverADosSystemWithStaticNetwork)
{
    InstallSample();
    MakeDosSystem();
    InstallPackage package(DosPackage.c_str());
    std::ostringstream log;
    ASSERT_EQ(package.Install(log), InstallPackage::InstallationSucceeded) << log.str();
    EXPECT_TRUE(fs::is_regular_file(DosVersions + "/120501/img.zip"));
    EXPECT_NE(ReadFile("/mnt/DOS/preboot.bat").find("set SOURCE_DRIVE=c:\\versions\\120501\r\n"),
              std::string::npos);
    EXPECT_EQ(ReadFile("/mnt/DOS/cecfg.bat"), "set NET_IP=192.168.1.1\r\n"
                                              "set NET_MASK=255.255.255.0\r\n"
                                              "set NET_GATEWAY=192.168.1.254\r\n");
    // Installed DOS versions are looked up by their dotted version text.
    EXPECT_FALSE(package.IsInstalled());
    fs::create_directories(DosVersions + "/12.05.01");
    EXPECT_TRUE(package.IsInstalled());
}

TEST_F(InstallPackageInGuest, DhcpSystemGetsNoDosNetworkFile)
{
    InstallSample();
    MakeDosSystem();
    ASSERT_TRUE(
        WriteFile(Current + "/etc/network/interfaces",
                  "auto lo\niface lo inet loopback\n\nauto pc_lan_1\niface pc_lan_1 inet dhcp\n"));
    InstallPackage package(DosPackage.c_str());
    std::ostringstream log;
    ASSERT_EQ(package.Install(log), InstallPackage::InstallationSucceeded) << log.str();
    EXPECT_TRUE(fs::is_regular_file("/mnt/DOS/preboot.bat"));
    EXPECT_FALSE(fs::exists("/mnt/DOS/cecfg.bat"));
}

TEST_F(InstallPackageInGuest, ChangingToTheCurrentVersionChangesNothing)
{
    InstallSample();
    struct stat before = {};
    ASSERT_EQ(::stat(TopConfiguration.c_str(), &before), 0);
    const std::string configuration = ReadFile(TopConfiguration);
    std::ostringstream log;
    EXPECT_FALSE(InstallPackage::ChangeCurrentVersion(
        WithPath(Parsed("12.05.01.3456"), SysVersions + "/12.05.01.3456"), log));
    struct stat after = {};
    ASSERT_EQ(::stat(TopConfiguration.c_str(), &after), 0);
    EXPECT_EQ(before.st_mtim.tv_sec, after.st_mtim.tv_sec);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(ReadFile(TopConfiguration), configuration);
    EXPECT_EQ(fs::read_symlink(Current), SysVersions + "/12.05.01.3456");
    EXPECT_EQ(log.str(), "");
}

TEST_F(InstallPackageInGuest, ChangingToAnotherVersionSwitchesConfigurationLoaderAndLink)
{
    InstallSample();
    const std::string other = MakeLinuxVersion("second", "12.06.02", "3501");
    std::ostringstream log;
    ASSERT_TRUE(InstallPackage::ChangeCurrentVersion(WithPath(Parsed("12.06.02.3501"), other), log))
        << log.str();
    EXPECT_EQ(ReadFile(TopConfiguration), "DEFAULT Vidorama\nLABEL Vidorama\n  CONFIG "
                                          "/Versions/12.06.02.3501/boot/syslinux/syslinux.cfg\n");
    EXPECT_EQ(fs::read_symlink(Current), other);
    EXPECT_TRUE(fs::is_regular_file(SysVersions + "/boot/syslinux/ldlinux.sys"));
    EXPECT_STREQ(InstallPackage::GetCurrentLinuxVersion().GetVersion(true), "12.06.02.3501");
    // Nothing but the new file is left beside the configuration.
    EXPECT_EQ(
        Shell("ls /mnt/SYS/Versions/boot/syslinux | grep -v -e '^ldlinux' -e '^syslinux.cfg$'")
            .output,
        "");
}

TEST_F(InstallPackageInGuest, ChangingToADosVersionWritesOnlyPreboot)
{
    InstallSample();
    const std::string configuration = ReadFile(TopConfiguration);
    std::ostringstream log;
    ASSERT_TRUE(
        InstallPackage::ChangeCurrentVersion(DosVersion("120501", DosVersions + "/120501"), log));
    EXPECT_NE(ReadFile("/mnt/DOS/preboot.bat").find("set SOURCE_DRIVE=c:\\versions\\120501\r\n"),
              std::string::npos);
    EXPECT_EQ(ReadFile(TopConfiguration), configuration);
    EXPECT_EQ(fs::read_symlink(Current), SysVersions + "/12.05.01.3456");
}

TEST_F(InstallPackageInGuest, WithoutBootDirectoryTheSwitchFails)
{
    EmptyDestination();
    const std::string other = MakeLinuxVersion("12.06.02.3501", "12.06.02", "3501");
    std::ostringstream log;
    EXPECT_FALSE(
        InstallPackage::ChangeCurrentVersion(WithPath(Parsed("12.06.02.3501"), other), log));
    EXPECT_FALSE(fs::exists(Current));
}

// Programs put in front of the real ones on the search path until the end of the test.
class StandIns
{
public:
    StandIns() : previous(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "")
    {
        fs::remove_all(Directory);
        fs::create_directories(Directory);
        ::setenv("PATH", (Directory + ":" + previous).c_str(), 1);
    }
    ~StandIns()
    {
        ::setenv("PATH", previous.c_str(), 1);
        fs::remove_all(Directory);
    }
    StandIns(const StandIns&) = delete;
    StandIns& operator=(const StandIns&) = delete;

    void Add(const std::string& name, const std::string& script)
    {
        const std::string path = Directory + "/" + name;
        WriteFile(path, "#!/bin/sh\n" + script);
        ::chmod(path.c_str(), 0755);
    }

private:
    const std::string Directory = "/run/standins";
    std::string previous;
};

// A kernel command line bound over /proc/cmdline until the end of the test.
class KernelCommandLine
{
public:
    explicit KernelCommandLine(const std::string& text)
    {
        WriteFile("/run/cmdline.test", text + "\n");
        bound = Shell("mount --bind /run/cmdline.test /proc/cmdline").status == 0;
    }
    ~KernelCommandLine()
    {
        if (bound)
        {
            Shell("umount /proc/cmdline");
        }
        Shell("rm -f /run/cmdline.test");
    }
    KernelCommandLine(const KernelCommandLine&) = delete;
    KernelCommandLine& operator=(const KernelCommandLine&) = delete;

    bool bound = false;
};

// What the boot loader and "current" name, and what else lies beside the configuration;
// with the loader's own bytes where extlinux must not have run.
std::string BootState(bool loader = false)
{
    return Shell("cd /mnt/SYS/Versions && echo \"current -> $(readlink current)\" && cat "
                 "boot/syslinux/syslinux.cfg && ls -A boot/syslinux" +
                 std::string(loader ? " && md5sum boot/syslinux/ldlinux.sys" : ""))
        .output;
}

TEST_F(InstallPackageInGuest, AFailingExtlinuxPutsThePreviousConfigurationBack)
{
    InstallSample();
    const std::string other = MakeLinuxVersion("12.06.02.3501", "12.06.02", "3501");
    const std::string before = BootState(true);
    ASSERT_NE(before.find("current -> " + SysVersions + "/12.05.01.3456"), std::string::npos)
        << before;
    StandIns standIns;
    standIns.Add("extlinux", "echo \"extlinux: $*: Input/output error\" >&2\nexit 1\n");
    std::ostringstream log;
    EXPECT_FALSE(
        InstallPackage::ChangeCurrentVersion(WithPath(Parsed("12.06.02.3501"), other), log));
    EXPECT_EQ(log.str(), "extlinux: -i /mnt/SYS/Versions/boot/syslinux: Input/output error\n"
                         "The previous boot configuration was put back.\n");
    EXPECT_EQ(BootState(true), before);
    EXPECT_STREQ(InstallPackage::GetCurrentLinuxVersion().GetVersion(true), "12.05.01.3456");
}

TEST_F(InstallPackageInGuest, ARealExtlinuxFailureLeavesTheBootStateAsItWas)
{
    // No loader installed yet, and a directory where extlinux writes it: extlinux fails
    // before it changes anything.
    EmptyDestination();
    const std::string first = MakeLinuxVersion("12.05.01.3456", "12.05.01", "3456");
    const std::string other = MakeLinuxVersion("12.06.02.3501", "12.06.02", "3501");
    fs::create_directories(SysVersions + "/boot/syslinux/ldlinux.sys");
    ASSERT_TRUE(WriteFile(TopConfiguration,
                          "DEFAULT Vidorama\nLABEL Vidorama\n  CONFIG "
                          "/Versions/12.05.01.3456/boot/syslinux/syslinux.cfg\n"));
    fs::create_symlink(first, Current);
    const std::string before = Shell("ls -A " + SysVersions + "/boot/syslinux").output;
    std::ostringstream log;
    EXPECT_FALSE(
        InstallPackage::ChangeCurrentVersion(WithPath(Parsed("12.06.02.3501"), other), log));
    // extlinux's last words lack their line end; the message has a line of its own.
    EXPECT_NE(log.str().find("\nThe previous boot configuration was put back.\n"),
              std::string::npos)
        << log.str();
    EXPECT_EQ(ReadFile(TopConfiguration), "DEFAULT Vidorama\nLABEL Vidorama\n  CONFIG "
                                          "/Versions/12.05.01.3456/boot/syslinux/syslinux.cfg\n");
    EXPECT_EQ(fs::read_symlink(Current), first);
    EXPECT_EQ(Shell("ls -A " + SysVersions + "/boot/syslinux").output, before);
    fs::remove(SysVersions + "/boot/syslinux/ldlinux.sys");
}

TEST_F(InstallPackageInGuest, AFailingLinkPutsThePreviousConfigurationBack)
{
    // The versions directory cannot take a new entry: ln fails, after extlinux ran.
    InstallSample();
    const std::string other = MakeLinuxVersion("12.06.02.3501", "12.06.02", "3501");
    const std::string before = BootState();
    ASSERT_EQ(Shell("chattr +i " + SysVersions).status, 0);
    std::ostringstream log;
    const bool changed =
        InstallPackage::ChangeCurrentVersion(WithPath(Parsed("12.06.02.3501"), other), log);
    Shell("chattr -i " + SysVersions);
    EXPECT_FALSE(changed);
    EXPECT_NE(log.str().find("The previous boot configuration was put back.\n"), std::string::npos)
        << log.str();
    EXPECT_EQ(BootState(), before);
    EXPECT_STREQ(InstallPackage::GetCurrentLinuxVersion().GetVersion(true), "12.05.01.3456");
}

TEST_F(InstallPackageInGuest, ALinkRemovedByAFailedLnIsPutBack)
{
    // An ln that takes the old link away and then fails to make the new one.
    InstallSample();
    const std::string other = MakeLinuxVersion("12.06.02.3501", "12.06.02", "3501");
    const std::string before = BootState();
    StandIns standIns;
    standIns.Add("ln", "rm -f \"$3\"\necho \"ln: failed to create symbolic link '$3'\" >&2\n"
                       "exit 1\n");
    std::ostringstream log;
    EXPECT_FALSE(
        InstallPackage::ChangeCurrentVersion(WithPath(Parsed("12.06.02.3501"), other), log));
    EXPECT_NE(log.str().find("The previous boot configuration was put back.\n"), std::string::npos)
        << log.str();
    EXPECT_EQ(BootState(), before);
    EXPECT_EQ(fs::read_symlink(Current), SysVersions + "/12.05.01.3456");
    // Nothing of the failed switch is left beside the link.
    EXPECT_EQ(Shell("ls -A " + SysVersions).output,
              "12.05.01.3456\n12.06.02.3501\nboot\ncurrent\n");
}

TEST_F(InstallPackageInGuest, TheRunningVersionIsKeptThroughEveryRemoval)
{
    // A switch to 12.05.01 without the restart: 12.06.02 still runs.
    InstallSample();
    const std::string running = MakeLinuxVersion("second", "12.06.02", "3501");
    const std::string old = MakeLinuxVersion("old", "11.01.01", "1");
    KernelCommandLine commandLine("BOOT_IMAGE=/Versions/second/boot/vmlinuz root=/dev/sda2 quiet");
    ASSERT_TRUE(commandLine.bound);
    EXPECT_STREQ(InstallPackage::GetRunningLinuxVersion().GetVersion(true), "12.06.02.3501");
    EXPECT_STREQ(InstallPackage::GetCurrentLinuxVersion().GetVersion(true), "12.05.01.3456");

    std::ostringstream log;
    EXPECT_FALSE(
        InstallPackage::UninstallPackageVersion(WithPath(Parsed("12.06.02.3501"), running), log));
    EXPECT_EQ(log.str(), "The running version cannot be removed!\n");
    EXPECT_TRUE(fs::is_regular_file(running + "/Version.json"));

    std::ostringstream all;
    EXPECT_TRUE(InstallPackage::UninstallAllPackageVersions(all)) << all.str();
    EXPECT_FALSE(fs::exists(old));
    EXPECT_EQ(Shell("ls -A " + SysVersions).output, "12.05.01.3456\nboot\ncurrent\nsecond\n");
    EXPECT_EQ(fs::read_symlink(Current), SysVersions + "/12.05.01.3456");
}

TEST_F(InstallPackageInGuest, StartedFromTheKeyNoVersionRuns)
{
    InstallSample();
    const std::string second = MakeLinuxVersion("second", "12.06.02", "3501");
    KernelCommandLine commandLine("BOOT_IMAGE=/boot/vmlinuz initrd=/boot/initrd.img quiet");
    ASSERT_TRUE(commandLine.bound);
    EXPECT_TRUE(InstallPackage::GetRunningLinuxVersion().IsEmpty());
    std::ostringstream log;
    EXPECT_TRUE(
        InstallPackage::UninstallPackageVersion(WithPath(Parsed("12.06.02.3501"), second), log))
        << log.str();
    EXPECT_FALSE(fs::exists(second));
}

TEST_F(InstallPackageInGuest, TheCurrentVersionIsNeverRemoved)
{
    InstallSample();
    std::ostringstream log;
    EXPECT_TRUE(InstallPackage::UninstallPackageVersion(
        WithPath(Parsed("12.05.01.3456"), SysVersions + "/12.05.01.3456"), log));
    EXPECT_TRUE(fs::is_directory(SysVersions + "/12.05.01.3456"));
}

TEST_F(InstallPackageInGuest, AVersionWithAnImmutableLoaderIsRemoved)
{
    InstallSample();
    const std::string other = MakeLinuxVersion("12.06.02.3501", "12.06.02", "3501");
    ASSERT_EQ(Shell("extlinux -i " + other + "/boot/syslinux").status, 0);
    ASSERT_NE(Shell("lsattr " + other + "/boot/syslinux/ldlinux.sys").output.find('i'),
              std::string::npos);
    std::ostringstream log;
    EXPECT_TRUE(
        InstallPackage::UninstallPackageVersion(WithPath(Parsed("12.06.02.3501"), other), log))
        << log.str();
    EXPECT_FALSE(fs::exists(other));
}

TEST_F(InstallPackageInGuest, AVersionDirectoryWithABlankIsRemovedWhole)
{
    InstallSample();
    const std::string blank = MakeLinuxVersion("12.06.02 3501", "12.06.02", "3501");
    const std::string first = MakeLinuxVersion("12.06.02", "12.06.02", "1");
    fs::create_directories(SysVersions + "/3501");
    std::ostringstream log;
    EXPECT_TRUE(
        InstallPackage::UninstallPackageVersion(WithPath(Parsed("12.06.02.3501"), blank), log))
        << log.str();
    EXPECT_FALSE(fs::exists(blank));
    EXPECT_TRUE(fs::is_regular_file(first + "/Version.json"));
    EXPECT_TRUE(fs::is_directory(SysVersions + "/3501"));
}

TEST_F(InstallPackageInGuest, RemovingADosVersion)
{
    EmptyDestination();
    fs::create_directories(DosVersions + "/120501");
    WriteFile(DosVersions + "/120501/img.zip", "zip");
    std::ostringstream log;
    EXPECT_TRUE(InstallPackage::UninstallPackageVersion(
        DosVersion("120501", DosVersions + "/120501"), log));
    EXPECT_FALSE(fs::exists(DosVersions + "/120501"));
    EXPECT_FALSE(InstallPackage::UninstallPackageVersion(
        DosVersion("120501", DosVersions + "/120501"), log));
}

TEST_F(InstallPackageInGuest, InstalledVersionsOfBothPartitionsHighestFirst)
{
    InstallSample();
    MakeLinuxVersion("second", "12.06.02", "3501");
    fs::create_directories(SysVersions + "/text");
    WriteFile(SysVersions + "/text/Version.txt", "Vidorama\n11.02.03.7\n");
    fs::create_directories(DosVersions + "/120501");
    WriteFile(DosVersions + "/120501/img.zip", "zip");
    fs::create_directories(DosVersions + "/EMPTY");

    std::unique_ptr<std::vector<PackageVersion>> versions(InstallPackage::GetInstalledPackages());
    EXPECT_EQ(Names(*versions), (std::vector<std::string>{"12.06.02.3501", "12.05.01.3456",
                                                          "DOS 12.05.01", "11.02.03.7"}));

    EXPECT_TRUE(InstallPackage::IsPackageInstalled(Parsed("11.02.03.7")));
    EXPECT_TRUE(InstallPackage::IsPackageInstalled(Parsed("12.06.02.3501")));
    EXPECT_FALSE(InstallPackage::IsPackageInstalled(Parsed("12.06.02.3502")));
}

TEST_F(InstallPackageInGuest, RemovingAllKeepsOnlyTheCurrentVersion)
{
    InstallSample();
    const std::string second = MakeLinuxVersion("12.06.02.3501", "12.06.02", "3501");
    ASSERT_EQ(Shell("extlinux -i " + second + "/boot/syslinux").status, 0);
    MakeLinuxVersion("old", "11.01.01", "1");
    fs::create_directories(DosVersions + "/120501");
    WriteFile(DosVersions + "/120501/img.zip", "zip");

    std::ostringstream log;
    EXPECT_TRUE(InstallPackage::UninstallAllPackageVersions(log)) << log.str();
    EXPECT_EQ(Shell("ls -A /mnt/SYS/Versions").output, "12.05.01.3456\nboot\ncurrent\n");
    EXPECT_EQ(Shell("ls -A /mnt/DOS/Versions").output, "");
    // Nothing left to remove is a success as well.
    EXPECT_TRUE(InstallPackage::UninstallAllPackageVersions(log));
    EmptyDestination();
    EXPECT_TRUE(InstallPackage::UninstallAllPackageVersions(log));
}

TEST_F(InstallPackageInGuest, CurrentVersionFromTextManifestOrNone)
{
    EmptyDestination();
    EXPECT_TRUE(InstallPackage::GetCurrentLinuxVersion().IsEmpty());
    fs::create_directories(SysVersions + "/t");
    WriteFile(SysVersions + "/t/Version.txt", "Vidorama\n12.05.01.77\n");
    fs::create_symlink(SysVersions + "/t", Current);
    const PackageVersion current = InstallPackage::GetCurrentLinuxVersion();
    EXPECT_STREQ(current.GetVersion(true), "12.05.01.77");
    EXPECT_STREQ(current.GetName(), "Vidorama");
}

TEST_F(InstallPackageInGuest, IsInstalledOnADiskMountsItsPartition)
{
    InstallSample();
    Shell("umount /mnt/SYS");
    InstallPackage package(SamplePackage.c_str());
    EXPECT_TRUE(package.IsInstalled(Disk));
    EXPECT_TRUE(IsMountedOn("/dev/vda2", "/mnt/SYS"));
    EXPECT_FALSE(package.IsInstalled(TablelessDisk));
}

} // namespace
