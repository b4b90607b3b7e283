// The DOS checks and batch files on the host, in temporary directories only.
#include "MsDos.h"
#include "AtomicFile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using Kel::Vidorama::InstallerLib::AtomicFile;
using Kel::Vidorama::InstallerLib::MsDos;
using Kel::Vidorama::InstallerLib::PackageVersion;
using Kel::ZarnLinuxTools::NetworkInterface;
namespace detail = Kel::Vidorama::InstallerLib::detail;
namespace fs = std::filesystem;

namespace
{

class DosDirectory : public testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/msdos-test-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        root = pattern;
    }
    void TearDown() override
    {
        ::chmod(root.c_str(), 0700);
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }

    std::string PathOf(const std::string& name) const { return root + "/" + name; }

    void Touch(const std::string& name, const std::string& contents = "x") const
    {
        std::ofstream(PathOf(name), std::ios::binary) << contents;
    }

    std::string Read(const std::string& name) const
    {
        std::ifstream input(PathOf(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(input), {});
    }

    std::set<std::string> Entries() const
    {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(root))
        {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    static NetworkInterface StaticSettings()
    {
        NetworkInterface settings;
        settings.name = "pc_lan_1";
        settings.address = "10.1.2.3";
        settings.netmask = "255.255.0.0";
        settings.gateway = "10.1.0.254";
        settings.method = "static";
        settings.family = "inet";
        return settings;
    }

    std::string root;
};

// Runs the call with the rights of an ordinary user, whom a 0555 directory
// keeps out (root would write there anyway). Returns the call's result, or -1
// when the child could not report one.
template <typename Call> int AsOrdinaryUser(Call call)
{
    const pid_t child = ::fork();
    if (child == 0)
    {
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0))
        {
            ::_exit(3);
        }
        ::_exit(call() ? 1 : 0);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status))
    {
        return -1;
    }
    const int code = WEXITSTATUS(status);
    return code <= 1 ? code : -1;
}

} // namespace

using IsInstalled = DosDirectory;

TEST_F(IsInstalled, AllThreeSystemFiles)
{
    Touch("COMMAND.COM");
    Touch("IO.SYS");
    Touch("MSDOS.SYS");
    EXPECT_TRUE(MsDos::IsInstalled(root.c_str()));
}

TEST_F(IsInstalled, WithoutMsdosSysIsNoDosInstallation)
{
    Touch("COMMAND.COM");
    Touch("IO.SYS");
    EXPECT_FALSE(MsDos::IsInstalled(root.c_str()));
}

TEST_F(IsInstalled, NamesMustHaveTheExactCase)
{
    Touch("COMMAND.COM");
    Touch("io.sys");
    Touch("MSDOS.SYS");
    EXPECT_FALSE(MsDos::IsInstalled(root.c_str()));
}

TEST_F(IsInstalled, ADirectoryIsNotASystemFile)
{
    Touch("COMMAND.COM");
    fs::create_directory(PathOf("IO.SYS"));
    Touch("MSDOS.SYS");
    EXPECT_FALSE(MsDos::IsInstalled(root.c_str()));
}

TEST_F(IsInstalled, MissingOrNullDirectory)
{
    EXPECT_FALSE(MsDos::IsInstalled(PathOf("absent").c_str()));
    EXPECT_FALSE(MsDos::IsInstalled(nullptr));
}

using SaveNetworkDosConfiguration = DosDirectory;

TEST_F(SaveNetworkDosConfiguration, ThreeDosLinesReplacingTheOldFile)
{
    Touch("cecfg.bat", "an older and much longer network file\r\nwith two lines\r\n");
    EXPECT_TRUE(MsDos::SaveNetworkDosConfiguration(StaticSettings(), PathOf("cecfg.bat").c_str()));
    EXPECT_EQ(Read("cecfg.bat"), "set NET_IP=10.1.2.3\r\n"
                                 "set NET_MASK=255.255.0.0\r\n"
                                 "set NET_GATEWAY=10.1.0.254\r\n");
    EXPECT_EQ(Entries(), std::set<std::string>{"cecfg.bat"});
}

TEST_F(SaveNetworkDosConfiguration, EmptyGatewayStillGivesTheThirdLine)
{
    NetworkInterface settings = StaticSettings();
    settings.gateway.clear();
    EXPECT_TRUE(MsDos::SaveNetworkDosConfiguration(settings, PathOf("cecfg.bat").c_str()));
    EXPECT_EQ(Read("cecfg.bat"), "set NET_IP=10.1.2.3\r\n"
                                 "set NET_MASK=255.255.0.0\r\n"
                                 "set NET_GATEWAY=\r\n");
    EXPECT_EQ(Entries(), std::set<std::string>{"cecfg.bat"});
}

TEST_F(SaveNetworkDosConfiguration, DhcpGivesFalseAndAnEmptyFile)
{
    NetworkInterface settings = StaticSettings();
    settings.method = "dhcp";
    EXPECT_FALSE(MsDos::SaveNetworkDosConfiguration(settings, PathOf("new.bat").c_str()));
    Touch("cecfg.bat", "set NET_IP=1.1.1.1\r\n");
    EXPECT_FALSE(MsDos::SaveNetworkDosConfiguration(settings, PathOf("cecfg.bat").c_str()));
    ASSERT_TRUE(fs::is_regular_file(PathOf("new.bat")));
    ASSERT_TRUE(fs::is_regular_file(PathOf("cecfg.bat")));
    EXPECT_EQ(fs::file_size(PathOf("new.bat")), 0u);
    EXPECT_EQ(fs::file_size(PathOf("cecfg.bat")), 0u);
    EXPECT_EQ(Entries(), (std::set<std::string>{"cecfg.bat", "new.bat"}));
}

TEST_F(SaveNetworkDosConfiguration, UnwritableDirectoryKeepsTheOldFile)
{
    const std::string old = "set NET_IP=1.1.1.1\r\nset NET_MASK=255.0.0.0\r\nset NET_GATEWAY=\r\n";
    Touch("cecfg.bat", old);
    ASSERT_EQ(::chmod(PathOf("cecfg.bat").c_str(), 0666), 0);
    ASSERT_EQ(::chmod(root.c_str(), 0555), 0);
    const std::string file = PathOf("cecfg.bat");
    EXPECT_EQ(AsOrdinaryUser(
                  [&]
                  { return MsDos::SaveNetworkDosConfiguration(StaticSettings(), file.c_str()); }),
              0);
    NetworkInterface dhcp = StaticSettings();
    dhcp.method = "dhcp";
    EXPECT_EQ(
        AsOrdinaryUser([&] { return MsDos::SaveNetworkDosConfiguration(dhcp, file.c_str()); }), 0);
    EXPECT_EQ(Read("cecfg.bat"), old);
    EXPECT_EQ(Entries(), std::set<std::string>{"cecfg.bat"});
}

TEST_F(SaveNetworkDosConfiguration, MissingDirectoryOrNullPath)
{
    EXPECT_FALSE(
        MsDos::SaveNetworkDosConfiguration(StaticSettings(), PathOf("absent/cecfg.bat").c_str()));
    EXPECT_FALSE(MsDos::SaveNetworkDosConfiguration(StaticSettings(), nullptr));
    EXPECT_TRUE(Entries().empty());
}

using DosPreboot = DosDirectory;

TEST_F(DosPreboot, FourteenDosLinesForTheRawDosVersion)
{
    Touch("preboot.bat", std::string(4096, 'z'));
    PackageVersion version;
    version.ParseDosVersion("120501");
    EXPECT_TRUE(detail::WriteDosPreboot(version, PathOf("preboot.bat").c_str()));
    EXPECT_EQ(Read("preboot.bat"), "path=C:\\;C:\\DOS;C:\\UTILS\r\n"
                                   "\r\n"
                                   "cls\r\n"
                                   "\r\n"
                                   "set SOURCE_DRIVE=c:\\versions\\120501\r\n"
                                   "set DESTINATION_DRIVE=c:\r\n"
                                   "set CURRENT_OS_TYPE=WCE\r\n"
                                   "set INSTALL_ADDONS=YES\r\n"
                                   "\r\n"
                                   "call %SOURCE_DRIVE%\\SCRIPTS\\REINSTAL.BAT\r\n"
                                   "echo.\r\n"
                                   "echo System updated.\r\n"
                                   "seconds 1\r\n"
                                   "reset\r\n");
    EXPECT_EQ(Entries(), std::set<std::string>{"preboot.bat"});
}

TEST_F(DosPreboot, MissingDirectoryGivesFalse)
{
    PackageVersion version;
    version.ParseDosVersion("120501");
    EXPECT_FALSE(detail::WriteDosPreboot(version, PathOf("absent/preboot.bat").c_str()));
}

using AtomicReplacement = DosDirectory;

TEST_F(AtomicReplacement, UncommittedWritesLeaveTheTargetAndNoTemporaryFile)
{
    Touch("target", "old");
    {
        AtomicFile file(PathOf("target"));
        ASSERT_TRUE(file.IsOpen());
        EXPECT_TRUE(file.Write("new"));
        EXPECT_EQ(Entries().size(), 2u);
    }
    EXPECT_EQ(Read("target"), "old");
    EXPECT_EQ(Entries(), std::set<std::string>{"target"});
}

TEST_F(AtomicReplacement, PermissionsFollowTheCreationMask)
{
    const mode_t previous = ::umask(022);
    {
        AtomicFile file(PathOf("target"));
        EXPECT_TRUE(file.Write("new") && file.Commit());
    }
    ::umask(previous);
    struct stat status;
    ASSERT_EQ(::stat(PathOf("target").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644u);
    EXPECT_EQ(Read("target"), "new");
}
