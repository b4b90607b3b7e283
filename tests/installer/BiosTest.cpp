// The board from the BIOS vendor text, on prepared vendor files, and the CMOS
// load refused wherever no CMOS driver's device stands (host). The device
// itself is written in the sandbox guest (BiosGuestTest).
#include "Bios.h"
#include "Cmos.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

using Kel::Vidorama::InstallerLib::Bios;

namespace
{

class BiosVendor : public testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/bios-vendor-XXXXXX";
        const int fd = mkstemp(pattern);
        ASSERT_NE(fd, -1);
        close(fd);
        _file = pattern;
        _saved = Bios::biosVendorPath;
        Bios::biosVendorPath = _file;
    }
    void TearDown() override
    {
        Bios::biosVendorPath = _saved;
        unlink(_file.c_str());
    }
    void Vendor(const std::string& text) { std::ofstream(_file, std::ios::trunc) << text; }

    std::string _file;
    std::string _saved;
};

} // namespace

TEST_F(BiosVendor, TheRealPathIsTheKernelsDmiVendor)
{
    EXPECT_EQ(_saved, "/sys/class/dmi/id/bios_vendor");
}

TEST_F(BiosVendor, PhoenixAtTheVeryStartIsAnRb417)
{
    Vendor("Phoenix Technologies LTD\n");
    EXPECT_TRUE(Bios::IsRb417());
    EXPECT_FALSE(Bios::IsK9Q());
    Vendor("Phoenix Technologies");
    EXPECT_TRUE(Bios::IsRb417());
}

TEST_F(BiosVendor, AnyOtherMakerIsAK9Q)
{
    for (const char* text : {"American Megatrends Inc.\n", "SeaBIOS\n", "",
                             "phoenix technologies\n", "Award Software, Phoenix Technologies\n"})
    {
        Vendor(text);
        EXPECT_FALSE(Bios::IsRb417()) << text;
        EXPECT_TRUE(Bios::IsK9Q()) << text;
    }
}

TEST_F(BiosVendor, ALeadingBlankIsNotAnRb417)
{
    Vendor(" Phoenix Technologies LTD\n");
    EXPECT_FALSE(Bios::IsRb417());
    EXPECT_TRUE(Bios::IsK9Q());
}

TEST_F(BiosVendor, WithoutDmiItIsNeither)
{
    Bios::biosVendorPath = _file + ".missing";
    EXPECT_FALSE(Bios::IsRb417());
    EXPECT_FALSE(Bios::IsK9Q());
}

namespace
{

std::string ReadAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// An RB417 by its vendor text, and /dev/nvram moved into a scratch directory.
class CmosWithoutDevice : public BiosVendor
{
protected:
    void SetUp() override
    {
        BiosVendor::SetUp();
        Vendor("Phoenix Technologies LTD\n");
        char pattern[] = "/tmp/bios-cmos-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        _directory = pattern;
        _savedNvram = Bios::nvramPath;
        Bios::nvramPath = _directory + "/nvram";
        std::ofstream(_directory + "/rb417s.bios", std::ios::binary)
            << Sandbox::CmosImage("standard settings");
    }
    void TearDown() override
    {
        Bios::nvramPath = _savedNvram;
        std::error_code ignored;
        std::filesystem::remove_all(_directory, ignored);
        BiosVendor::TearDown();
    }
    std::string Settings() const { return _directory + "/rb417s.bios"; }

    std::string _directory;
    std::string _savedNvram;
};

} // namespace

TEST_F(CmosWithoutDevice, TheRealDeviceIsTheKernelsNvram)
{
    EXPECT_EQ(_savedNvram, "/dev/nvram");
}

TEST_F(CmosWithoutDevice, AMissingDeviceFailsAndNothingIsCreated)
{
    EXPECT_FALSE(Bios::WriteCmos(Settings().c_str()));
    struct stat status;
    EXPECT_NE(lstat(Bios::nvramPath.c_str(), &status), 0);
    // Reading fails as well and leaves no file behind.
    EXPECT_FALSE(Bios::ReadCmos((_directory + "/saved.bios").c_str()));
    EXPECT_NE(lstat((_directory + "/saved.bios").c_str(), &status), 0);
}

TEST_F(CmosWithoutDevice, APlainFileInPlaceOfTheDeviceIsNotWritten)
{
    std::ofstream(Bios::nvramPath, std::ios::binary) << "not CMOS";
    EXPECT_FALSE(Bios::WriteCmos(Settings().c_str()));
    EXPECT_EQ(ReadAll(Bios::nvramPath), "not CMOS");
}

TEST_F(CmosWithoutDevice, APipeInPlaceOfTheDeviceIsRefusedWithoutWaiting)
{
    // Nobody reads the pipe: opening it for writing would wait for ever.
    ASSERT_EQ(mkfifo(Bios::nvramPath.c_str(), 0600), 0);
    EXPECT_FALSE(Bios::WriteCmos(Settings().c_str()));
}

TEST_F(CmosWithoutDevice, ADirectoryInPlaceOfTheDeviceIsRefused)
{
    ASSERT_EQ(mkdir(Bios::nvramPath.c_str(), 0700), 0);
    EXPECT_FALSE(Bios::WriteCmos(Settings().c_str()));
    EXPECT_TRUE(std::filesystem::is_empty(Bios::nvramPath));
}

// The settings sets of the sample key load into a PC's CMOS as they are: 114
// bytes, a right checksum (which the kernel's driver checks and sets anew)
// and the century where the CMOS clock keeps it.
TEST(SampleSettings, AreWholeCmosImagesWithTheirChecksum)
{
    for (const char* name : {"rb417s.bios", "rb417e.bios"})
    {
        const std::string image =
            ReadAll(std::string(WIZARD_SOURCE_DIR) + "/sample/usbkey/data/" + name);
        ASSERT_EQ(image.size(), Sandbox::CmosSize) << name;
        EXPECT_EQ(Sandbox::WithCmosChecksum(image), image) << name;
        EXPECT_EQ(static_cast<unsigned char>(image[36]), Sandbox::CmosCentury) << name;
        EXPECT_EQ(static_cast<unsigned char>(image[41]), Sandbox::CmosCentury) << name;
    }
    EXPECT_NE(ReadAll(std::string(WIZARD_SOURCE_DIR) + "/sample/usbkey/data/rb417s.bios"),
              ReadAll(std::string(WIZARD_SOURCE_DIR) + "/sample/usbkey/data/rb417e.bios"));
}
