// The text viewer on a curses screen of 80x25 whose terminal is a file: the
// key's text must reach the window exactly as written, whatever it holds.
#include "TextStep.h"

#include "FileScreen.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <curses.h>

#include <deque>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace
{

using Kel::Vidorama::InstallerWizard::TextStep;

const int Escape = 27;

// The viewer driven by a key script; a check placed between keys runs when the
// viewer asks for the next key. ESC ends every script.
class ScriptedViewer : public TextStep
{
public:
    explicit ScriptedViewer(const std::string& path) : TextStep("Contacts", path.c_str()) {}

    void Key(int key) { script.push_back({key, nullptr}); }
    void Then(std::function<void()> check) { script.push_back({0, std::move(check)}); }

    // A row of the content window, without trailing blanks.
    std::string Row(int row) const { return Sandbox::FileScreen::Row(_contentWindow, row); }
    int Width() const { return _width; }

protected:
    int ReadKey() override
    {
        while (!script.empty())
        {
            Step step = std::move(script.front());
            script.pop_front();
            if (step.check)
                step.check();
            else
                return step.key;
        }
        return Escape;
    }

private:
    struct Step
    {
        int key;
        std::function<void()> check;
    };
    std::deque<Step> script;
};

class TextViewer : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(screen.IsOpen()); }

    std::string Write(const std::vector<std::string>& lines)
    {
        const std::string path = dir.Path() + "/contacts.txt";
        std::ofstream out(path, std::ios::binary);
        for (const auto& line : lines)
            out << line << '\n';
        return path;
    }

    Sandbox::TempDir dir{"/tmp/TextStepTest-"};
    Sandbox::FileScreen screen{dir.Path()};
};

// Lines that a formatted print would read as conversions.
const std::vector<std::string> FormatLines = {
    "Ticket %s%s%s%s", "%n", "%d", "%%", "100% of calls are logged", "%s%n%x%p%ls %99999999d",
};

TEST_F(TextViewer, FormatLikeLinesShowExactlyAsWritten)
{
    ScriptedViewer viewer(Write(FormatLines));
    bool checked = false;
    viewer.Then(
        [&]
        {
            for (size_t row = 0; row < FormatLines.size(); ++row)
                EXPECT_EQ(viewer.Row(static_cast<int>(row)), FormatLines[row]) << "row " << row;
            EXPECT_EQ(viewer.Row(static_cast<int>(FormatLines.size())), "");
            checked = true;
        });
    EXPECT_TRUE(viewer.Run());
    EXPECT_TRUE(checked);
}

TEST_F(TextViewer, FormatLikeLinesScrolledInAndBackStayAsWritten)
{
    // Down: the format lines, placed after the 19 rows of the first display
    // at 80x25, arrive one by one on the last row.
    std::vector<std::string> lines;
    for (int i = 0; i < 19; ++i)
        lines.push_back("line " + std::to_string(i));
    lines.insert(lines.end(), FormatLines.begin(), FormatLines.end());
    ScriptedViewer viewer(Write(lines));
    const int lastRow = 19;
    std::vector<std::string> lastRows;
    for (size_t i = 0; i < FormatLines.size(); ++i)
    {
        viewer.Key(KEY_DOWN);
        viewer.Then([&] { lastRows.push_back(viewer.Row(lastRow)); });
    }
    EXPECT_TRUE(viewer.Run());
    EXPECT_EQ(lastRows, FormatLines);
}

TEST_F(TextViewer, FormatLikeLinesComingBackFromTheTopStayAsWritten)
{
    // Up: the format lines, first in the file, come back one by one on the
    // first row once they have been scrolled out of it.
    std::vector<std::string> lines = FormatLines;
    for (int i = 0; i < 19; ++i)
        lines.push_back("line " + std::to_string(i));
    ScriptedViewer viewer(Write(lines));
    for (size_t i = 0; i < FormatLines.size(); ++i)
        viewer.Key(KEY_DOWN);
    std::vector<std::string> firstRows;
    for (size_t i = 0; i < FormatLines.size(); ++i)
    {
        viewer.Key(KEY_UP);
        viewer.Then([&] { firstRows.push_back(viewer.Row(0)); });
    }
    viewer.Then(
        [&]
        {
            for (size_t row = 0; row < FormatLines.size(); ++row)
                EXPECT_EQ(viewer.Row(static_cast<int>(row)), FormatLines[row]) << "row " << row;
        });
    EXPECT_TRUE(viewer.Run());
    const std::vector<std::string> expected(FormatLines.rbegin(), FormatLines.rend());
    EXPECT_EQ(firstRows, expected);
}

TEST_F(TextViewer, ALongLineWithPercentIsCutAtTheWidthNotInterpreted)
{
    const std::string longLine = std::string(70, '%') + "%s%n%d and the rest of the line";
    ScriptedViewer viewer(Write({longLine, "next"}));
    viewer.Then(
        [&]
        {
            const auto shown = static_cast<size_t>(viewer.Width() - 1);
            EXPECT_EQ(viewer.Row(0), longLine.substr(0, shown));
            EXPECT_EQ(viewer.Row(1), "next");
        });
    EXPECT_TRUE(viewer.Run());
}

TEST_F(TextViewer, ControlCharactersNeitherGarbleTheRowNorSpillOver)
{
    // A DOS line end, a bell, an escape sequence and a tab.
    const std::vector<std::string> lines = {"Support line\r", std::string("Ring\a here"),
                                            "\x1b[2J cleared?", "Name:\tValue",
                                            std::string(60, 'x') + "\a\a\a\a\a\a\a\a\a\a"};
    ScriptedViewer viewer(Write(lines));
    viewer.Then(
        [&]
        {
            EXPECT_EQ(viewer.Row(0), "Support line");
            EXPECT_EQ(viewer.Row(1), "Ring^G here");
            EXPECT_EQ(viewer.Row(2), "^[[2J cleared?");
            EXPECT_EQ(viewer.Row(3), "Name:   Value");
            // 60 + 7 * 2 columns fit in 75; the eighth "^G" would not.
            EXPECT_EQ(viewer.Row(4), std::string(60, 'x') + "^G^G^G^G^G^G^G");
            EXPECT_EQ(viewer.Row(5), "");
        });
    EXPECT_TRUE(viewer.Run());
}

} // namespace
