// "preboot.bat" on the DOS partition's fixed mount point, inside the sandbox
// guest (where /mnt is the guest's own).
#include "MsDos.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

using Kel::Vidorama::InstallerLib::GenerateDosPreboot;
using Kel::Vidorama::InstallerLib::PackageVersion;

namespace
{

bool InSandbox()
{
    char cwd[64] = {};
    return getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work";
}

void Shell(const std::string& command)
{
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

std::string ReadPreboot()
{
    std::ifstream input("/mnt/DOS/preboot.bat", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(input), {});
}

PackageVersion DosVersion120501()
{
    PackageVersion version;
    version.ParseDosVersion("120501");
    return version;
}

const char* const Expected = "path=C:\\;C:\\DOS;C:\\UTILS\r\n"
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
                             "reset\r\n";

class DosPreboot : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(InSandbox()) << "runs only inside the sandbox guest";
        Shell("rm -rf /mnt/DOS && mkdir -p /mnt/DOS");
    }
    void TearDown() override
    {
        if (InSandbox())
        {
            std::system("rm -rf /mnt/DOS");
        }
    }
};

} // namespace

TEST_F(DosPreboot, FourteenLinesEndedByCarriageReturnAndLineFeed)
{
    ASSERT_TRUE(GenerateDosPreboot(DosVersion120501()));
    const std::string text = ReadPreboot();
    EXPECT_EQ(text, Expected);
    std::string::size_type lines = 0;
    for (std::string::size_type at = text.find("\r\n"); at != std::string::npos;
         at = text.find("\r\n", at + 2))
    {
        ++lines;
    }
    EXPECT_EQ(lines, 14u);
    // Nothing but the batch file is left in the partition's root.
    Shell("test \"$(ls -A /mnt/DOS)\" = preboot.bat");
}

TEST_F(DosPreboot, ALongerOldFileIsReplacedWhole)
{
    Shell("head -c 8192 /dev/zero | tr '\\0' 'x' > /mnt/DOS/preboot.bat");
    ASSERT_TRUE(GenerateDosPreboot(DosVersion120501()));
    EXPECT_EQ(ReadPreboot(), Expected);
    Shell("test \"$(ls -A /mnt/DOS)\" = preboot.bat");
}

TEST_F(DosPreboot, NoDosMountPointGivesFalse)
{
    Shell("rm -rf /mnt/DOS");
    EXPECT_FALSE(GenerateDosPreboot(DosVersion120501()));
    Shell("test ! -e /mnt/DOS");
}
