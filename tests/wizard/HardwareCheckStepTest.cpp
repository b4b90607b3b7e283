#include "HardwareCheckStep.h"

#include "FileScreen.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

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

TEST(HardwareCheck, WarningTextsComeBoardFirstOneALine)
{
    const std::string board = "Incompatible Zarn board to install Vidorama";
    const std::string memory = "Not enough memory to install or start Vidorama";
    EXPECT_EQ(detail::WarningTexts(true, false), std::vector<std::string>({board, memory}));
    EXPECT_EQ(detail::WarningTexts(true, true), std::vector<std::string>({board}));
    EXPECT_EQ(detail::WarningTexts(false, false), std::vector<std::string>({memory}));
    EXPECT_TRUE(detail::WarningTexts(false, true).empty());
}

namespace
{

// The warnings as the step draws them, on a screen of 80x25 on a file, in a
// child process of its own: the log is created by its first line in the
// working directory, as at each start of the program.
class DrawnCheck : public HardwareCheckStep
{
public:
    void Show(bool incompatibleBoard, bool memoryEnough)
    {
        CreateWindow();
        ShowWarnings(detail::WarningTexts(incompatibleBoard, memoryEnough));
    }
    std::string Row(int row) const { return Sandbox::FileScreen::Row(_contentWindow, row); }
    ~DrawnCheck() override { DestroyWindow(); }
};

struct Drawn
{
    std::vector<std::string> rows; // content rows 0 to 9
    std::string sent;              // what reached the terminal
    std::vector<std::string> log;  // the log's messages, with their levels
};

Drawn DrawInChild(bool incompatibleBoard, bool memoryEnough)
{
    Sandbox::TempDir dir("/tmp/HardwareCheckStepTest-");
    const pid_t pid = fork();
    if (pid == 0)
    {
        if (chdir(dir.Path().c_str()) != 0)
            _exit(3);
        int status = 4;
        {
            Sandbox::FileScreen screen(dir.Path());
            if (screen.IsOpen())
            {
                DrawnCheck check;
                check.Show(incompatibleBoard, memoryEnough);
                std::ofstream rows(dir.Path() + "/rows.txt");
                for (int row = 0; row < 10; ++row)
                    rows << check.Row(row) << '\n';
                // Taken before the frame is removed.
                std::ofstream sent(dir.Path() + "/sent.txt", std::ios::binary);
                sent << screen.Sent();
                status = 0;
            }
        }
        _exit(status);
    }
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

    Drawn drawn;
    std::ifstream rows(dir.Path() + "/rows.txt");
    for (std::string line; std::getline(rows, line);)
        drawn.rows.push_back(line);
    std::ifstream sent(dir.Path() + "/sent.txt", std::ios::binary);
    drawn.sent.assign(std::istreambuf_iterator<char>(sent), {});
    std::ifstream log(dir.Path() + "/installer.log");
    for (std::string line; std::getline(log, line);)
    {
        // time, tab, bar, tab, level, tab, bar, tab, message
        const size_t bar = line.find("\t|\t");
        const size_t second = line.find("\t|\t", bar + 3);
        if (bar != std::string::npos && second != std::string::npos)
            drawn.log.push_back(line.substr(bar + 3, second - bar - 3) + " " +
                                line.substr(second + 3));
    }
    return drawn;
}

const std::string BoardWarning = "Incompatible Zarn board to install Vidorama";
const std::string MemoryWarning = "Not enough memory to install or start Vidorama";

// Centred over the 76 columns of the content window.
std::string Centered(const std::string& text)
{
    return std::string((76 - text.size()) / 2, ' ') + text;
}

} // namespace

TEST(HardwareCheckDrawing, TheBoardWarningIsShownOnRowFiveAndLogged)
{
    const Drawn drawn = DrawInChild(true, true);
    ASSERT_EQ(drawn.rows.size(), 10u);
    EXPECT_EQ(drawn.rows[5], Centered(BoardWarning));
    for (int row : {0, 1, 2, 3, 4, 6, 7, 8, 9})
        EXPECT_EQ(drawn.rows[static_cast<size_t>(row)], "") << row;
    EXPECT_NE(drawn.sent.find(BoardWarning), std::string::npos);
    EXPECT_EQ(drawn.log, std::vector<std::string>({"0 Log created!", "2 " + BoardWarning}));
}

TEST(HardwareCheckDrawing, TheMemoryWarningAloneIsShownOnRowFiveAndLogged)
{
    const Drawn drawn = DrawInChild(false, false);
    ASSERT_EQ(drawn.rows.size(), 10u);
    EXPECT_EQ(drawn.rows[5], Centered(MemoryWarning));
    EXPECT_EQ(drawn.rows[6], "");
    EXPECT_NE(drawn.sent.find(MemoryWarning), std::string::npos);
    EXPECT_EQ(drawn.sent.find(BoardWarning), std::string::npos);
    EXPECT_EQ(drawn.log, std::vector<std::string>({"0 Log created!", "2 " + MemoryWarning}));
}

TEST(HardwareCheckDrawing, BothWarningsAreShownOneUnderTheOther)
{
    const Drawn drawn = DrawInChild(true, false);
    ASSERT_EQ(drawn.rows.size(), 10u);
    EXPECT_EQ(drawn.rows[5], Centered(BoardWarning));
    EXPECT_EQ(drawn.rows[6], Centered(MemoryWarning));
    EXPECT_EQ(drawn.rows[7], "");
    EXPECT_NE(drawn.sent.find(BoardWarning), std::string::npos);
    EXPECT_NE(drawn.sent.find(MemoryWarning), std::string::npos);
    EXPECT_EQ(drawn.log, std::vector<std::string>(
                             {"0 Log created!", "2 " + BoardWarning, "2 " + MemoryWarning}));
}

TEST(HardwareCheckDrawing, NothingIsShownNorLoggedOnAGoodMachine)
{
    const Drawn drawn = DrawInChild(false, true);
    ASSERT_EQ(drawn.rows.size(), 10u);
    for (const auto& row : drawn.rows)
        EXPECT_EQ(row, "");
    EXPECT_EQ(drawn.sent.find("Vidorama"), std::string::npos);
    EXPECT_TRUE(drawn.log.empty());
}
