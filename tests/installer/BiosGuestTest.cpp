// CMOS copies through /dev/nvram inside the sandbox guest, where a file of the
// test's own is bound over /dev/nvram and the BIOS vendor is qemu's.
#include "Bios.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <unistd.h>

using Kel::Vidorama::InstallerLib::Bios;

namespace
{

std::string ReadAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void Write(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

class Cmos : public testing::Test
{
protected:
    void SetUp() override
    {
        char cwd[64] = {};
        ASSERT_TRUE(getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work")
            << "runs only inside the sandbox guest";
        _original = ReadAll("/dev/nvram");
        ASSERT_FALSE(_original.empty());
    }
    std::string _original;
};

const std::string Image("\x01\x02settings of the test\xff\x00\x7f", 25);

} // namespace

TEST_F(Cmos, Rb417ReadsAndWritesCmos)
{
    ASSERT_TRUE(Bios::IsRb417()) << ReadAll(Bios::biosVendorPath);
    EXPECT_FALSE(Bios::IsK9Q());

    EXPECT_TRUE(Bios::ReadCmos("/io/work/saved.bios"));
    EXPECT_EQ(ReadAll("/io/work/saved.bios"), _original);

    Write("/io/work/rb417s.bios", Image);
    EXPECT_TRUE(Bios::WriteCmos("/io/work/rb417s.bios"));
    EXPECT_EQ(ReadAll("/dev/nvram"), Image);

    // Back as it was.
    EXPECT_TRUE(Bios::WriteCmos("/io/work/saved.bios"));
    EXPECT_EQ(ReadAll("/dev/nvram"), _original);

    // A missing image fails. (The copy opens the destination before it looks
    // at the source: the real /dev/nvram ignores the truncation, the file bound
    // over it here does not, so its content is not checked after this.)
    EXPECT_FALSE(Bios::WriteCmos("/io/work/missing.bios"));
}

TEST_F(Cmos, K9QNeverWritesCmos)
{
    ASSERT_FALSE(Bios::IsRb417()) << ReadAll(Bios::biosVendorPath);
    EXPECT_TRUE(Bios::IsK9Q());

    EXPECT_TRUE(Bios::ReadCmos("/io/work/saved.bios"));
    EXPECT_EQ(ReadAll("/io/work/saved.bios"), _original);

    Write("/io/work/rb417e.bios", Image);
    EXPECT_FALSE(Bios::WriteCmos("/io/work/rb417e.bios"));
    EXPECT_EQ(ReadAll("/dev/nvram"), _original);
}
