// CMOS copies through /dev/nvram inside the sandbox guest, where it is the
// kernel's own nvram driver in front of the CMOS that qemu emulates (loaded
// at start with the test's image of "the board's CMOS"), and the BIOS vendor
// is qemu's. See tests/support/Cmos.h for what the driver does to the
// checksum bytes.
#include "Bios.h"
#include "Cmos.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

using Kel::Vidorama::InstallerLib::Bios;
using Sandbox::CmosImage;
using Sandbox::CmosSize;

namespace
{

const char* const Device = "/dev/nvram";

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

bool Exists(const char* path)
{
    struct stat status;
    return lstat(path, &status) == 0;
}

// The driver unloaded for the scope: no /dev/nvram, as on a board whose
// kernel lacks it. Loaded again at the end, whatever happened.
class WithoutDriver
{
public:
    WithoutDriver() : _unloaded(std::system("rmmod nvram") == 0) {}
    ~WithoutDriver() { std::system("modprobe nvram && udevadm settle"); }
    WithoutDriver(const WithoutDriver&) = delete;
    WithoutDriver& operator=(const WithoutDriver&) = delete;
    bool Unloaded() const { return _unloaded && !Exists(Device); }

private:
    bool _unloaded;
};

// A WriteCmos that does not come back within a minute ends the test program
// (SIGALRM): a hang shows as a failure, not as the guest's time-out.
bool WriteCmosOrDie(const std::string& path)
{
    alarm(60);
    const bool written = Bios::WriteCmos(path.c_str());
    alarm(0);
    return written;
}

class Cmos : public testing::Test
{
protected:
    void SetUp() override
    {
        char cwd[64] = {};
        ASSERT_TRUE(getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work")
            << "runs only inside the sandbox guest";
        struct stat status;
        ASSERT_EQ(stat(Device, &status), 0);
        ASSERT_TRUE(S_ISCHR(status.st_mode)) << "the real driver's device";
        _original = ReadAll(Device);
        ASSERT_EQ(_original.size(), CmosSize);
    }
    std::string _original;
};

const std::string Image = CmosImage("settings of the test\xff\x01\x7f", 0x33);

} // namespace

TEST_F(Cmos, Rb417ReadsAndWritesCmos)
{
    ASSERT_TRUE(Bios::IsRb417()) << ReadAll(Bios::biosVendorPath);
    EXPECT_FALSE(Bios::IsK9Q());

    EXPECT_TRUE(Bios::ReadCmos("/io/work/saved.bios"));
    EXPECT_EQ(ReadAll("/io/work/saved.bios"), _original);

    // Exactly the image: its checksum is right, so the driver's keeps it.
    Write("/io/work/rb417s.bios", Image);
    EXPECT_TRUE(WriteCmosOrDie("/io/work/rb417s.bios"));
    EXPECT_EQ(ReadAll(Device), Image);

    // Back as it was.
    EXPECT_TRUE(WriteCmosOrDie("/io/work/saved.bios"));
    EXPECT_EQ(ReadAll(Device), _original);

    // A missing image fails and leaves CMOS alone.
    EXPECT_FALSE(WriteCmosOrDie("/io/work/missing.bios"));
    EXPECT_EQ(ReadAll(Device), _original);
}

TEST_F(Cmos, Rb417TheSampleSettingsLoadExactly)
{
    for (const char* name : {"rb417s.bios", "rb417e.bios"})
    {
        const std::string path = std::string(WIZARD_SOURCE_DIR) + "/sample/usbkey/data/" + name;
        EXPECT_TRUE(WriteCmosOrDie(path)) << name;
        EXPECT_EQ(ReadAll(Device), ReadAll(path)) << name;
    }
    Write("/io/work/saved.bios", _original);
    EXPECT_TRUE(WriteCmosOrDie("/io/work/saved.bios"));
    EXPECT_EQ(ReadAll(Device), _original);
}

TEST_F(Cmos, Rb417TheDriverSetsTheChecksumOfWhatItWrote)
{
    // The same image with its checksum bytes cleared: loaded all the same,
    // and the driver puts the right checksum back.
    std::string wrongSum = Image;
    wrongSum[32] = wrongSum[33] = '\0';
    Write("/io/work/wrong-sum.bios", wrongSum);
    EXPECT_TRUE(WriteCmosOrDie("/io/work/wrong-sum.bios"));
    EXPECT_EQ(ReadAll(Device), Image);

    // A shorter image writes its own bytes only (these two are outside the
    // checksum's range).
    Write("/io/work/saved.bios", _original);
    EXPECT_TRUE(WriteCmosOrDie("/io/work/saved.bios"));
    Write("/io/work/short.bios", "\x01\x02");
    EXPECT_TRUE(WriteCmosOrDie("/io/work/short.bios"));
    EXPECT_EQ(ReadAll(Device), "\x01\x02" + _original.substr(2));
    EXPECT_TRUE(WriteCmosOrDie("/io/work/saved.bios"));
    EXPECT_EQ(ReadAll(Device), _original);
}

TEST_F(Cmos, Rb417AnImageLargerThanTheDeviceIsRefusedWithoutHanging)
{
    for (size_t size : {CmosSize + 1, size_t(4096)})
    {
        Write("/io/work/large.bios", Image + std::string(size - CmosSize, 'x'));
        EXPECT_FALSE(WriteCmosOrDie("/io/work/large.bios")) << size;
        EXPECT_EQ(ReadAll(Device), _original) << size;
    }
    // Nor is an empty image "loaded".
    Write("/io/work/empty.bios", "");
    EXPECT_FALSE(WriteCmosOrDie("/io/work/empty.bios"));
    EXPECT_EQ(ReadAll(Device), _original);
}

TEST_F(Cmos, Rb417WithoutTheDriverNothingIsCreated)
{
    Write("/io/work/rb417s.bios", Image);
    {
        const WithoutDriver gone;
        ASSERT_TRUE(gone.Unloaded());
        EXPECT_FALSE(WriteCmosOrDie("/io/work/rb417s.bios"));
        EXPECT_FALSE(Exists(Device)) << "a plain file was made in the device's place";
        EXPECT_FALSE(Bios::ReadCmos("/io/work/read.bios"));
        EXPECT_FALSE(Exists("/io/work/read.bios"));
    }
    ASSERT_TRUE(Exists(Device));
    EXPECT_EQ(ReadAll(Device), _original);
}

TEST_F(Cmos, Rb417APlainFileInPlaceOfTheDeviceIsNotWritten)
{
    Write("/io/work/rb417s.bios", Image);
    // Bound over the device (as this sandbox once did)...
    Write("/io/work/stand-in", "not CMOS");
    ASSERT_EQ(std::system("mount --bind /io/work/stand-in /dev/nvram"), 0);
    EXPECT_FALSE(WriteCmosOrDie("/io/work/rb417s.bios"));
    std::system("umount /dev/nvram");
    EXPECT_EQ(ReadAll("/io/work/stand-in"), "not CMOS");
    EXPECT_EQ(ReadAll(Device), _original);

    // ...or left where the driver's device is missing.
    {
        const WithoutDriver gone;
        ASSERT_TRUE(gone.Unloaded());
        Write(Device, "not CMOS");
        EXPECT_FALSE(WriteCmosOrDie("/io/work/rb417s.bios"));
        EXPECT_EQ(ReadAll(Device), "not CMOS");
        unlink(Device);
    }
    EXPECT_EQ(ReadAll(Device), _original);
}

TEST_F(Cmos, K9QNeverWritesCmos)
{
    ASSERT_FALSE(Bios::IsRb417()) << ReadAll(Bios::biosVendorPath);
    EXPECT_TRUE(Bios::IsK9Q());

    EXPECT_TRUE(Bios::ReadCmos("/io/work/saved.bios"));
    EXPECT_EQ(ReadAll("/io/work/saved.bios"), _original);

    Write("/io/work/rb417e.bios", Image);
    EXPECT_FALSE(WriteCmosOrDie("/io/work/rb417e.bios"));
    EXPECT_EQ(ReadAll(Device), _original);
}
