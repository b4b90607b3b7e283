#include "HardwareCheckStep.h"

#include <gtest/gtest.h>

using namespace Kel::Vidorama::InstallerWizard;

TEST(HardwareCheck, MemoryLimitIsFiveHundredTwelveMillion)
{
    EXPECT_TRUE(detail::IsMemoryEnough(512000000));
    EXPECT_FALSE(detail::IsMemoryEnough(511999999));
    EXPECT_TRUE(detail::IsMemoryEnough(2147483647));
}

TEST(HardwareCheck, NoMemoryReadingCountsAsTooLittle)
{
    EXPECT_FALSE(detail::IsMemoryEnough(-1));
    EXPECT_FALSE(detail::IsMemoryEnough(0));
}

TEST(HardwareCheck, MemoryFigureIsReadAsThirtyTwoBits)
{
    // 4 GiB + 600,000,000 wraps to 600,000,000; 2 GiB wraps to a negative count.
    EXPECT_TRUE(detail::IsMemoryEnough(4294967296L + 600000000L));
    EXPECT_FALSE(detail::IsMemoryEnough(2147483648L));
    EXPECT_FALSE(detail::IsMemoryEnough(4294967296L));
}

TEST(HardwareCheck, FirstModelAnsweringYesIsNeverFollowedByTheSecond)
{
    int rb417Asked = 0, k9qAsked = 0;
    const bool incompatible = detail::IsIncompatibleBoard(
        [&]
        {
            ++rb417Asked;
            return true;
        },
        [&]
        {
            ++k9qAsked;
            return false;
        });
    EXPECT_FALSE(incompatible);
    EXPECT_EQ(rb417Asked, 1);
    EXPECT_EQ(k9qAsked, 0);
}

TEST(HardwareCheck, SecondModelIsAskedWhenTheFirstSaysNo)
{
    int k9qAsked = 0;
    EXPECT_FALSE(detail::IsIncompatibleBoard([] { return false; },
                                             [&]
                                             {
                                                 ++k9qAsked;
                                                 return true;
                                             }));
    EXPECT_EQ(k9qAsked, 1);
    EXPECT_TRUE(detail::IsIncompatibleBoard([] { return false; }, [] { return false; }));
}
