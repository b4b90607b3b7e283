// The main menu's -e message on file-backed curses screens of the console's
// sizes: at its place when it fits, whole on as many rows as it needs when
// not, and never over the menu.
#include "StartStep.h"
#include "WrapText.h"

#include "FileScreen.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{

using Kel::Vidorama::InstallerWizard::StartStep;
using Kel::Vidorama::InstallerWizard::WrapText;

using Lines = std::vector<std::string>;

TEST(WrapText, AShortTextIsOneLine)
{
    EXPECT_EQ(WrapText("Maintenance window until 18:00", 76),
              Lines({"Maintenance window until 18:00"}));
    EXPECT_EQ(WrapText("", 76), Lines());
    EXPECT_EQ(WrapText(std::string(76, 'x'), 76), Lines({std::string(76, 'x')}));
}

TEST(WrapText, LinesBreakAtBlanksAndKeepEveryWord)
{
    EXPECT_EQ(WrapText("one two three four", 9), Lines({"one two", "three", "four"}));
    EXPECT_EQ(WrapText("one two three", 7), Lines({"one two", "three"}));
    // Blanks inside a line stay; those at a break go.
    EXPECT_EQ(WrapText("a  b    c", 4), Lines({"a  b", "c"}));
}

TEST(WrapText, AWordLongerThanALineIsSplit)
{
    EXPECT_EQ(WrapText("ab abcdefghij c", 4), Lines({"ab", "abcd", "efgh", "ij c"}));
}

// The step's content window, read back after the frame is drawn.
class ShownStartStep : public StartStep
{
public:
    explicit ShownStartStep(const std::string& message)
    {
        SetRunningFromDisk(false);
        SetRunningFromUsbKey(true);
        SetMessage(message.c_str());
        CreateWindow();
    }
    ~ShownStartStep() override { DestroyWindow(); }
    Lines Rows() const
    {
        Lines rows;
        for (int row = 0; row < getmaxy(_contentWindow); ++row)
            rows.push_back(Sandbox::FileScreen::Row(_contentWindow, row));
        return rows;
    }
    int Width() const { return _width; }
};

struct Size
{
    int lines;
    int columns;
};

class StartStepMessage : public testing::TestWithParam<Size>
{
protected:
    void SetUp() override { ASSERT_TRUE(screen.IsOpen()); }

    // The rows of the menu as drawn without any message.
    Lines MenuAlone()
    {
        ShownStartStep step("");
        return step.Rows();
    }

    Sandbox::TempDir dir{"/tmp/StartStepTest-"};
    Sandbox::FileScreen screen{dir.Path(), GetParam().lines, GetParam().columns};
};

std::string Spaces(int count)
{
    return std::string(static_cast<size_t>(count), ' ');
}

// The message's row: 15, or the first row below the menu's window where that
// window reaches row 15 (the menu starts at (height - 16) / 2).
int MessageRow(const Size& size)
{
    return std::max(15, (size.lines - 2 - 16) / 2 + 11);
}

TEST_P(StartStepMessage, AShortMessageKeepsItsPlace)
{
    const Lines menu = MenuAlone();
    const std::string message = "Maintenance window until 18:00";
    ShownStartStep step(message);
    const Lines rows = step.Rows();
    // Centred over the terminal's columns minus 8.
    const int column = (GetParam().columns - 8 - static_cast<int>(message.size())) / 2;
    const size_t messageRow = static_cast<size_t>(MessageRow(GetParam()));
    for (size_t row = 0; row < rows.size(); ++row)
        EXPECT_EQ(rows[row], row == messageRow ? Spaces(column) + message : menu[row]) << row;
}

TEST_P(StartStepMessage, TheMessageIsOnRowFifteenAt80Columns)
{
    if (GetParam().columns == 80)
        EXPECT_EQ(MessageRow(GetParam()), 15);
    else
        EXPECT_EQ(MessageRow(GetParam()), 26); // below the menu's rows 15 to 25
}

TEST_P(StartStepMessage, TheLongestMessageThatFitsAtItsPlaceStaysThere)
{
    const int length = GetParam().columns - 7;
    const std::string message(static_cast<size_t>(length), 'm');
    ShownStartStep step(message);
    const size_t messageRow = static_cast<size_t>(MessageRow(GetParam()));
    EXPECT_EQ(step.Rows()[messageRow], message);
    EXPECT_EQ(step.Rows()[messageRow + 1], "");
}

// Every line of the wrapped message from `first` on, centred in the content
// window; every other row as the menu alone has it.
void ExpectWrapped(const Lines& rows, const Lines& menu, const Lines& lines, int width,
                   size_t first)
{
    ASSERT_LE(first + lines.size(), rows.size());
    for (size_t i = 0; i < lines.size(); ++i)
    {
        const int column = (width - static_cast<int>(lines[i].size())) / 2;
        EXPECT_EQ(rows[first + i], Spaces(column) + lines[i]) << i;
    }
    for (size_t row = 0; row < rows.size(); ++row)
    {
        if (row < first || row >= first + lines.size())
        {
            EXPECT_EQ(rows[row], menu[row]) << row;
        }
    }
}

TEST_P(StartStepMessage, ALongMessageIsShownWholeUnderTheMenu)
{
    const Lines menu = MenuAlone();
    std::string message;
    while (message.size() < 120)
        message += "Service " + std::to_string(message.size()) + " ";
    message = message.substr(0, 119) + "!";
    ASSERT_EQ(message.size(), 120u);
    ShownStartStep step(message);
    if (GetParam().columns - 8 >= 120)
    {
        // Wide enough for its place: there, on one row.
        const Lines rows = step.Rows();
        const size_t row = static_cast<size_t>(MessageRow(GetParam()));
        EXPECT_EQ(rows[row], Spaces((GetParam().columns - 8 - 120) / 2) + message);
        EXPECT_EQ(rows[row + 1], "");
        return;
    }
    const Lines lines = WrapText(message, step.Width());
    ASSERT_EQ(lines.size(), 2u);
    std::string joined;
    for (const auto& line : lines)
        joined += (joined.empty() ? "" : " ") + line;
    EXPECT_EQ(joined, message);
    ExpectWrapped(step.Rows(), menu, lines, step.Width(),
                  static_cast<size_t>(MessageRow(GetParam())));
}

TEST_P(StartStepMessage, AMessageFillingTheRowsBelowTheMenuIsLiftedToThem)
{
    const Lines menu = MenuAlone();
    const int belowMenu = (GetParam().lines - 2 - 16) / 2 + 11;
    const int rows = GetParam().lines - 2 - 3;
    const size_t wanted = static_cast<size_t>(rows - belowMenu);
    std::string message;
    const int width = GetParam().columns - 4;
    for (int i = 0; WrapText(message, width).size() < wanted; ++i)
        message += (message.empty() ? "" : " ") + std::string("word") + std::to_string(i);
    ASSERT_EQ(WrapText(message, width).size(), wanted);
    ShownStartStep step(message);
    ExpectWrapped(step.Rows(), menu, WrapText(message, width), width,
                  static_cast<size_t>(belowMenu));
}

INSTANTIATE_TEST_SUITE_P(ConsoleSizes, StartStepMessage,
                         testing::Values(Size{25, 80}, Size{24, 80}, Size{48, 128}),
                         [](const testing::TestParamInfo<Size>& info) {
                             return std::to_string(info.param.columns) + "x" +
                                    std::to_string(info.param.lines);
                         });

} // namespace

namespace
{

// The main menu from the key with an answer file waiting: Run() on a screen
// whose keyboard holds the keys queued before.
class UnattendedCountdown : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(screen.IsOpen());
        ASSERT_NE(getcwd(previous, sizeof(previous)), nullptr);
        // The step logs its choice into the working directory.
        ASSERT_EQ(chdir(dir.Path().c_str()), 0);
    }
    void TearDown() override { EXPECT_EQ(chdir(previous), 0); }

    Sandbox::TempDir dir{"/tmp/StartStepCountdown-"};
    Sandbox::FileScreen screen{dir.Path()};
    char previous[4096] = {};
};

class CountingStartStep : public StartStep
{
public:
    CountingStartStep()
    {
        SetRunningFromDisk(false);
        SetRunningFromUsbKey(true);
        SetUnattendedCountdown(true);
    }
};

} // namespace

// The countdown running out is seen on the guest's console
// (AutoInstallScreenTest): a keyboard of /dev/null never times out as a
// console does.

TEST_F(UnattendedCountdown, AKeyStopsItAndIsActedUpon)
{
    CountingStartStep step;
    // Down, then "1": "Install Vidorama" (code 0), as without an answer file.
    ungetch('1');
    ungetch(KEY_DOWN);
    ASSERT_TRUE(step.Run());
    EXPECT_EQ(step.GetSelection(), 0);
    EXPECT_EQ(screen.Sent().find("Unattended installation in 9 seconds"), std::string::npos);
}

TEST_F(UnattendedCountdown, NeverFromTheInstalledDisk)
{
    CountingStartStep step;
    step.SetRunningFromDisk(true);
    step.SetRunningFromUsbKey(false);
    // "2" on the maintenance menu is "Versions": ESC leaves its sub-menu.
    ungetch(27);
    ungetch('2');
    ASSERT_TRUE(step.Run());
    EXPECT_EQ(step.GetSelection(), -1);
    EXPECT_EQ(screen.Sent().find("Unattended"), std::string::npos);
}
