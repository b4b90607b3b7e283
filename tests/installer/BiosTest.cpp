// The board from the BIOS vendor text, on prepared vendor files (host).
#include "Bios.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
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
