#include "SelectDiskStep.h"

#include <gtest/gtest.h>

using namespace Kel::Vidorama::InstallerWizard;

TEST(SelectDisk, SmallestDiskIsTwoThousandThreeHundredFourMebibytes)
{
    EXPECT_TRUE(SelectDiskStep::IsLargeEnough(2415919104LL));
    EXPECT_FALSE(SelectDiskStep::IsLargeEnough(2415919103LL));
    EXPECT_TRUE(SelectDiskStep::IsLargeEnough(2304LL * 1024 * 1024));
}

TEST(SelectDisk, UnknownSizeFails)
{
    EXPECT_FALSE(SelectDiskStep::IsLargeEnough(-1));
    EXPECT_FALSE(SelectDiskStep::IsLargeEnough(0));
}
