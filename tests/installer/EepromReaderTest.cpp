// The identity record, the insmod command texts and the identity tool's
// output, with fake tools in a temporary directory (host). Loading modules is
// exercised in the sandbox guest only.
#include "EepromReader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

using Kel::Vidorama::InstallerLib::EepromInfo;
using Kel::Vidorama::InstallerLib::EepromReader;

TEST(EepromInfo, TheNineChassisTextsAreCompatibleExactly)
{
    for (const char* chassis :
         {"PB-4U ", "PB-5U ", "QAmini", "QA3-4U", "QA3-6U", "PB-6U ", "PBmini", "PB3-6U", "PB3-4U"})
    {
        EepromInfo info;
        info.chassis = chassis;
        EXPECT_TRUE(info.IsVidorama14AndLessCompatible()) << "'" << chassis << "'";
    }
    for (const char* chassis : {"PB-4U", "PB-5U", "PB-6U", "QA3-4U ", "qamini", "PB3-6U\n", "X"})
    {
        EepromInfo info;
        info.chassis = chassis;
        EXPECT_FALSE(info.IsVidorama14AndLessCompatible()) << "'" << chassis << "'";
    }
}

TEST(EepromInfo, AnUnknownChassisPutsNoRestriction)
{
    EepromInfo info;
    EXPECT_TRUE(info.IsVidorama14AndLessCompatible());
    info.serialNumber = "SN1";
    EXPECT_TRUE(info.IsVidorama14AndLessCompatible());
}

TEST(EepromReader, InsmodCommandsAsWritten)
{
    EepromReader reader("/lib/modules/6.1.0/extra/", "/mnt/USB/data/zarn/",
                        "/mnt/USB/EepromReader");
    EXPECT_EQ(reader.Rb417TimeCodeCommand(), "insmod /lib/modules/6.1.0/extra/drv_tcreader.ko "
                                             "ucodeZarnPath=\"/mnt/USB/data/zarn/\"  2>&1");
    EXPECT_EQ(reader.Rb417ExchangeCommand(), "insmod /lib/modules/6.1.0/extra/drv_xchgmem.ko 2>&1");
    EXPECT_EQ(reader.K9QCommand(), "insmod /lib/modules/6.1.0/extra/k9qpciedrv.ko 2>&1");
}

namespace
{

class IdentityTool : public testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/identity-tool-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        _dir = pattern;
        EepromReader::info = EepromInfo();
        EepromReader::eepromRead = false;
        EepromReader::kernelLoaded = false;
    }
    void TearDown() override { std::system(("rm -rf " + _dir).c_str()); }

    // A tool that prints `output`, counts its runs and exits with `status`.
    std::string Tool(const std::string& output, int status)
    {
        const std::string path = _dir + "/EepromReader";
        std::ofstream(path) << "#!/bin/sh\n"
                            << "[ \"$1\" = --json ] || exit 9\n"
                            << "echo run >> " << _dir << "/runs\n"
                            << "cat <<'JSON'\n"
                            << output << "\nJSON\n"
                            << "exit " << status << "\n";
        chmod(path.c_str(), 0755);
        return path;
    }
    int Runs() const
    {
        std::ifstream in(_dir + "/runs");
        int count = 0;
        std::string line;
        while (std::getline(in, line))
            ++count;
        return count;
    }
    std::string _dir;
};

} // namespace

TEST_F(IdentityTool, SerialNumberAndChassis)
{
    EepromReader reader(
        "/d/", "/u/",
        Tool(R"({"SerialNumber": "VS-0042", "Chassis": "PB-4U ", "Other": 1})", 0).c_str());
    EXPECT_TRUE(reader.ReadInfos());
    EXPECT_EQ(EepromReader::info.serialNumber, "VS-0042");
    EXPECT_EQ(EepromReader::info.chassis, "PB-4U ");
    EXPECT_TRUE(EepromReader::info.IsVidorama14AndLessCompatible());
    EXPECT_EQ(Runs(), 1);
}

TEST_F(IdentityTool, ANumberAsSerialIsIgnored)
{
    EepromReader reader("/d/", "/u/",
                        Tool(R"({"SerialNumber": 1234, "Chassis": "QA3-4U"})", 0).c_str());
    EXPECT_TRUE(reader.ReadInfos());
    EXPECT_EQ(EepromReader::info.serialNumber, "");
    EXPECT_EQ(EepromReader::info.chassis, "QA3-4U");
    EXPECT_TRUE(EepromReader::info.IsVidorama14AndLessCompatible());
}

TEST_F(IdentityTool, TextThatIsNotJsonStillCountsAsARun)
{
    EepromReader reader("/d/", "/u/", Tool("EEPROM checksum error", 0).c_str());
    EXPECT_TRUE(reader.ReadInfos());
    EXPECT_EQ(EepromReader::info.serialNumber, "");
    EXPECT_EQ(EepromReader::info.chassis, "");
}

TEST_F(IdentityTool, AJsonArrayLeavesTheRecordAlone)
{
    EepromReader::info.chassis = "kept";
    EepromReader reader("/d/", "/u/", Tool(R"(["SerialNumber", "Chassis"])", 0).c_str());
    EXPECT_TRUE(reader.ReadInfos());
    EXPECT_EQ(EepromReader::info.chassis, "kept");
}

TEST_F(IdentityTool, AFailingToolLeavesTheRecordAndFails)
{
    EepromReader::info.serialNumber = "before";
    EepromReader reader("/d/", "/u/", Tool(R"({"SerialNumber": "after"})", 3).c_str());
    EXPECT_FALSE(reader.ReadInfos());
    EXPECT_EQ(EepromReader::info.serialNumber, "before");
    EXPECT_FALSE(EepromReader("/d/", "/u/", (_dir + "/missing-tool").c_str()).ReadInfos());
}
