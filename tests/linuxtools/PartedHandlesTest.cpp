// libparted stays quiet: no text on the terminal, no question, while the
// wizard owns the screen. libparted takes a regular file as a device, so this
// runs on the host on a small blank file (read only, nothing is written).
#include "PartedHandles.h"
#include "DiskDiagnostics.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>

using namespace Kel::ZarnLinuxTools;

namespace
{

class QuietParted : public testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/parted-quiet-XXXXXX";
        const int fd = mkstemp(pattern);
        ASSERT_NE(fd, -1);
        ASSERT_EQ(ftruncate(fd, 4 * 1024 * 1024), 0);
        close(fd);
        _image = pattern;
    }
    void TearDown() override { unlink(_image.c_str()); }
    std::string _image;
};

} // namespace

TEST_F(QuietParted, ABlankDiskIsProbedWithoutAWord)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    std::vector<Partition>* partitions = DiskDiagnostics::GetPartitions(_image.c_str());
    const bool msdos = DiskDiagnostics::HasMsdosPartitionTable(_image.c_str());
    const int primaries = DiskDiagnostics::GetNbPrimaryPartitions(_image.c_str());
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();

    ASSERT_NE(partitions, nullptr);
    EXPECT_TRUE(partitions->empty());
    delete partitions;
    EXPECT_FALSE(msdos);
    EXPECT_EQ(primaries, -1);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "");
    // The reason is kept for whoever wants to log it.
    EXPECT_NE(Parted::LastExceptionMessage().find("unrecognised disk label"), std::string::npos)
        << Parted::LastExceptionMessage();
}

TEST_F(QuietParted, AQuestionIsAnsweredWithoutAsking)
{
    Parted::InstallQuietExceptionHandler();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const PedExceptionOption question = ped_exception_throw(
        PED_EXCEPTION_ERROR, PED_EXCEPTION_IGNORE_CANCEL, "%s", "Ignore or cancel?");
    const PedExceptionOption notice =
        ped_exception_throw(PED_EXCEPTION_WARNING, PED_EXCEPTION_OK, "%s", "Just so you know");
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();

    // As libparted's own default: the one option when there is only one,
    // "unhandled" (the operation fails) when there is a choice.
    EXPECT_EQ(question, PED_EXCEPTION_UNHANDLED);
    EXPECT_EQ(notice, PED_EXCEPTION_OK);
    EXPECT_EQ(Parted::LastExceptionMessage(), "Just so you know");
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "");
}

TEST_F(QuietParted, AMissingDeviceGivesNoHandle)
{
    testing::internal::CaptureStderr();
    Parted::DevicePtr device = Parted::GetDevice("/nonexistent/disk");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(device);
    EXPECT_FALSE(Parted::GetDevice(nullptr));
}
