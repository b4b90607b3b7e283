// Where the format confirmation puts the hardware warnings: under the plan,
// never over another text and never outside the content window.
#include "PartitionStep.h"

#include "EepromReader.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using Kel::Vidorama::InstallerWizard::PartitionStep;

namespace
{

using Rows = std::vector<std::pair<int, std::string>>;

const std::string Board = "Incompatible Zarn board to install Vidorama";
const std::string Memory = "Not enough memory to install or start Vidorama";

TEST(FormatConfirmation, WarningsFollowThePlanAfterAFreeRow)
{
    // A blank disk: the plan's four lines on rows 6 to 9.
    EXPECT_EQ(PartitionStep::ConfirmationWarningRows(10, 20, {Board, Memory}),
              (Rows{{11, Board}, {12, Memory}}));
    EXPECT_EQ(PartitionStep::ConfirmationWarningRows(10, 20, {Memory}), (Rows{{11, Memory}}));
    EXPECT_TRUE(PartitionStep::ConfirmationWarningRows(10, 20, {}).empty());
}

TEST(FormatConfirmation, TheLongestPlanLeavesRoomOnTwentyFourLines)
{
    // Eight plan lines from row 6: the first free row is 14; 24 lines give
    // a content window of 19 rows, 25 lines one of 20.
    EXPECT_EQ(PartitionStep::ConfirmationWarningRows(14, 19, {Board, Memory}),
              (Rows{{15, Board}, {16, Memory}}));
    EXPECT_EQ(PartitionStep::ConfirmationWarningRows(14, 20, {Board, Memory}),
              (Rows{{15, Board}, {16, Memory}}));
}

TEST(FormatConfirmation, WithoutRoomTheFreeRowGoesThenWhatWouldFallOutside)
{
    EXPECT_EQ(PartitionStep::ConfirmationWarningRows(17, 19, {Board, Memory}),
              (Rows{{17, Board}, {18, Memory}}));
    EXPECT_EQ(PartitionStep::ConfirmationWarningRows(18, 19, {Board, Memory}), (Rows{{18, Board}}));
    EXPECT_TRUE(PartitionStep::ConfirmationWarningRows(19, 19, {Board, Memory}).empty());
}

TEST(FormatConfirmation, TheLongestPlanHasEightLines)
{
    // Every flag that a format can set at once: a disk whose four partitions
    // all go, with a new table and a new DOS partition.
    Kel::Vidorama::InstallerLib::EepromReader reader("/nonexistent/", "/nonexistent/",
                                                     "/nonexistent/EepromReader");
    PartitionStep step(reader);
    step.createPartitionTable = true;
    step.deletePartition1 = true;
    step.deletePartition2 = true;
    step.deletePartition3 = true;
    step.deletePartition4 = true;
    step.createFatPartition = true;
    step.setFatBootable = true;
    step.createExt4Partition = true;
    step.createSwapPartition = true;
    EXPECT_EQ(step.DescribePlan().size(), 8u);

    // A kept DOS partition made bootable: its partition 1 was sound, so it
    // is neither deleted nor under a new table.
    PartitionStep kept(reader);
    kept.keepDosPartition = true;
    kept.setFatBootable = true;
    kept.deletePartition2 = true;
    kept.deletePartition3 = true;
    kept.deletePartition4 = true;
    kept.createExt4Partition = true;
    kept.createSwapPartition = true;
    EXPECT_EQ(kept.DescribePlan().size(), 7u);
}

} // namespace
