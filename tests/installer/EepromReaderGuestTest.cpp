// Module loading and the once-per-process reading of the identity, inside the
// sandbox guest: insmod there only records its arguments in /io/events, and
// the BIOS vendor is qemu's (RB417 or K9Q by the test's configuration).
#include "Bios.h"
#include "EepromReader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

using Kel::Vidorama::InstallerLib::Bios;
using Kel::Vidorama::InstallerLib::EepromInfo;
using Kel::Vidorama::InstallerLib::EepromReader;

namespace
{

std::string ReadAll(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class Identity : public testing::Test
{
protected:
    void SetUp() override
    {
        char cwd[64] = {};
        ASSERT_TRUE(getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work")
            << "runs only inside the sandbox guest";
        std::system("rm -f /io/events /io/work/runs");
        EepromReader::info = EepromInfo();
        EepromReader::eepromRead = false;
        EepromReader::kernelLoaded = false;
    }

    std::string Tool(const std::string& output, int status)
    {
        const std::string path = "/io/work/EepromReader";
        std::ofstream(path) << "#!/bin/sh\necho run >> /io/work/runs\ncat <<'JSON'\n"
                            << output << "\nJSON\nexit " << status << "\n";
        chmod(path.c_str(), 0755);
        return path;
    }
    int Runs() const
    {
        const std::string runs = ReadAll("/io/work/runs");
        int count = 0;
        for (char c : runs)
            count += c == '\n';
        return count;
    }
};

} // namespace

TEST_F(Identity, Rb417LoadsTheTwoModulesThenReadsTheIdentityOnce)
{
    ASSERT_TRUE(Bios::IsRb417());
    EepromReader reader("/lib/modules/test/extra/", "/mnt/USB/data/zarn/",
                        Tool(R"({"SerialNumber": "VS-0042", "Chassis": "QAmini"})", 0).c_str());
    EepromInfo& info = reader.Read();
    EXPECT_EQ(&info, &EepromReader::info);
    EXPECT_EQ(info.serialNumber, "VS-0042");
    EXPECT_EQ(info.chassis, "QAmini");
    // The quotes are the shell's; the doubled blank before the redirection
    // leaves no trace in the arguments.
    const std::string loaded =
        "insmod /lib/modules/test/extra/drv_tcreader.ko ucodeZarnPath=/mnt/USB/data/zarn/\n"
        "insmod /lib/modules/test/extra/drv_xchgmem.ko\n";
    EXPECT_EQ(ReadAll("/io/events"), loaded);
    reader.Read();
    EXPECT_EQ(Runs(), 1);
    EXPECT_EQ(ReadAll("/io/events"), loaded) << "modules are loaded once";
}

TEST_F(Identity, K9QLoadsItsModule)
{
    ASSERT_TRUE(Bios::IsK9Q());
    EepromReader reader("/lib/modules/test/extra/", "/u/",
                        Tool(R"({"Chassis": "PB-4U"})", 0).c_str());
    const EepromInfo& info = reader.Read();
    EXPECT_EQ(ReadAll("/io/events"), "insmod /lib/modules/test/extra/k9qpciedrv.ko\n");
    EXPECT_EQ(info.chassis, "PB-4U");
    EXPECT_FALSE(info.IsVidorama14AndLessCompatible());
}

TEST_F(Identity, AFailingToolIsRunAgainAtTheNextRead)
{
    EepromReader reader("/d/", "/u/", Tool(R"({"SerialNumber": "X"})", 1).c_str());
    reader.Read();
    EXPECT_FALSE(EepromReader::eepromRead);
    EXPECT_EQ(EepromReader::info.serialNumber, "");
    reader.Read();
    EXPECT_EQ(Runs(), 2);
}

TEST_F(Identity, TextThatIsNotJsonIsReadOnce)
{
    EepromReader reader("/d/", "/u/", Tool("no EEPROM on this board", 0).c_str());
    reader.Read();
    EXPECT_TRUE(EepromReader::eepromRead);
    reader.Read();
    EXPECT_EQ(Runs(), 1);
    EXPECT_EQ(EepromReader::info.serialNumber, "");
    EXPECT_EQ(EepromReader::info.chassis, "");
}

TEST_F(Identity, NeitherBoardLoadsNothingAndNeverRunsTheTool)
{
    const std::string saved = Bios::biosVendorPath;
    Bios::biosVendorPath = "/io/work/no-dmi-here";
    EepromReader reader("/d/", "/u/", Tool(R"({"SerialNumber": "X"})", 0).c_str());
    reader.Read();
    reader.Read();
    Bios::biosVendorPath = saved;
    EXPECT_FALSE(EepromReader::kernelLoaded);
    EXPECT_EQ(Runs(), 0);
    EXPECT_EQ(ReadAll("/io/events"), "");
}
