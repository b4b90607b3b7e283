// The hardware maintenance tool list and the command a tool runs with; no
// terminal needed.
#include "HWMaintenanceStep.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

using Kel::Vidorama::InstallerWizard::HWMaintenanceStep;
using Tool = HWMaintenanceStep::HWMaintenanceTool;

namespace
{

struct Board
{
    bool k9q;
    bool rb417;
};
const Board Neither = {false, false};
const Board K9Q = {true, false};
const Board Rb417 = {false, true};
const Board Both = {true, true};

bool Parse(const std::string& text, std::vector<Tool>& tools, Board board = Neither)
{
    std::istringstream in(text);
    return HWMaintenanceStep::ParseTools(in, board.k9q, board.rb417, tools);
}

std::vector<std::string> Labels(const std::vector<Tool>& tools)
{
    std::vector<std::string> labels;
    for (const auto& tool : tools)
        labels.push_back(tool.label);
    return labels;
}

const std::string Complete = R"([
  {
    "runAsRoot": true,
    "menu": "1",
    "label": "Disk health",
    "description": "SMART report of every disk",
    "workingDirectory": "HardwareMaintenance",
    "executable": "HardwareMaintenance/disk-health.sh",
    "parameters": "-v --all"
  }
])";

// One tool per board case, each with only the required keys besides "board".
std::string BoardList(const std::string& middle = "")
{
    return R"([
  {"menu": "1", "label": "any board", "executable": "a"},
  {"menu": "2", "label": "K9Q only", "executable": "b", "board": "K9Q"},
  {"menu": "3", "label": "RB417 only", "executable": "c", "board": "RB417"},
  {"menu": "4", "label": "board not a text", "executable": "d", "board": 417},
  {"menu": "5", "label": "other board", "executable": "e", "board": "k9q"})" +
           middle + R"(
])";
}

Tool MakeTool(const std::string& executable, const std::string& parameters,
              const std::string& workingDirectory)
{
    Tool tool;
    tool.menu = "1";
    tool.label = "Tool";
    tool.executable = executable;
    tool.parameters = parameters;
    tool.workingDirectory = workingDirectory;
    return tool;
}

} // namespace

TEST(HWMaintenanceToolList, ReadsEveryFieldOfAnElement)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(Complete, tools));
    ASSERT_EQ(tools.size(), 1u);
    EXPECT_TRUE(tools[0].runAsRoot);
    EXPECT_EQ(tools[0].menu, "1");
    EXPECT_EQ(tools[0].label, "Disk health");
    EXPECT_EQ(tools[0].description, "SMART report of every disk");
    EXPECT_EQ(tools[0].workingDirectory, "HardwareMaintenance");
    EXPECT_EQ(tools[0].executable, "HardwareMaintenance/disk-health.sh");
    EXPECT_EQ(tools[0].parameters, "-v --all");
}

TEST(HWMaintenanceToolList, KeepsTheFileOrder)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(R"([{"menu": "b", "label": "second", "executable": "x"},
                          {"menu": "a", "label": "first", "executable": "y"},
                          {"menu": "b", "label": "second", "executable": "x"}])",
                      tools));
    EXPECT_EQ(Labels(tools), (std::vector<std::string>{"second", "first", "second"}));
    EXPECT_EQ(tools[1].menu, "a");
    EXPECT_EQ(tools[1].executable, "y");
}

TEST(HWMaintenanceToolList, CommentsAreAccepted)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse("// tools of the demo key\n"
                      "[ /* the only one */ {\"menu\": \"1\", \"label\": \"L\", \"executable\": "
                      "\"x\"} // done\n]",
                      tools));
    EXPECT_EQ(Labels(tools), std::vector<std::string>{"L"});
}

TEST(HWMaintenanceToolList, AnEmptyArrayIsValidAndHasNoTools)
{
    std::vector<Tool> tools = {MakeTool("stale", "", "")};
    EXPECT_TRUE(Parse("[]", tools));
    EXPECT_TRUE(tools.empty());
    EXPECT_TRUE(Parse("  [ ]\n", tools));
    EXPECT_TRUE(tools.empty());
}

TEST(HWMaintenanceToolList, ARootThatIsNotAnArrayIsRefused)
{
    for (const std::string text :
         {R"({"tools": [{"menu": "1", "label": "L", "executable": "x"}]})",
          R"({"menu": "1", "label": "L", "executable": "x"})", "\"text\"", "12", "null", "true"})
    {
        std::vector<Tool> tools = {MakeTool("stale", "", "")};
        EXPECT_FALSE(Parse(text, tools)) << text;
        EXPECT_TRUE(tools.empty()) << text;
    }
}

TEST(HWMaintenanceToolList, TextThatIsNotJsonIsRefused)
{
    for (const std::string text :
         {"", "\n", "not json", "[{\"menu\": \"1\", \"label\": \"L\", \"executable\": \"x\"}",
          "[{\"menu\": \"1\" \"label\": \"L\"}]"})
    {
        std::vector<Tool> tools;
        EXPECT_FALSE(Parse(text, tools)) << text;
        EXPECT_TRUE(tools.empty()) << text;
    }
}

TEST(HWMaintenanceToolList, NullAndNonObjectElementsAreSkipped)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(
        Parse(R"([null, 1, "tool", true, [], [{"menu": "9", "label": "in", "executable": "z"}],
                          {"menu": "1", "label": "L", "executable": "x"}, null])",
              tools));
    EXPECT_EQ(Labels(tools), std::vector<std::string>{"L"});
    ASSERT_TRUE(Parse("[null, 3.5, false]", tools));
    EXPECT_TRUE(tools.empty());
}

TEST(HWMaintenanceToolList, AnEmptyObjectInvalidatesTheFile)
{
    std::vector<Tool> tools;
    EXPECT_FALSE(Parse(R"([{"menu": "1", "label": "L", "executable": "x"}, {}])", tools));
    EXPECT_TRUE(tools.empty());
}

TEST(HWMaintenanceToolList, OneElementWithoutARequiredTextInvalidatesTheWholeFile)
{
    const std::string good = R"({"menu": "1", "label": "Good", "executable": "x"})";
    for (const std::string bad : {
             R"({"menu": "2", "executable": "y"})",                     // no label
             R"({"menu": "2", "label": null, "executable": "y"})",      // null label
             R"({"menu": "2", "label": 2, "executable": "y"})",         // label not a text
             R"({"label": "Bad", "executable": "y"})",                  // no menu
             R"({"menu": 2, "label": "Bad", "executable": "y"})",       // menu not a text
             R"({"menu": ["2"], "label": "Bad", "executable": "y"})",   // menu an array
             R"({"menu": "2", "label": "Bad"})",                        // no executable
             R"({"menu": "2", "label": "Bad", "executable": true})",    // executable not a text
             R"({"menu": "2", "label": "Bad", "executable": {"a": 1}})" // executable an object
         })
    {
        std::vector<Tool> tools;
        EXPECT_FALSE(Parse("[" + good + ", " + bad + "]", tools)) << bad;
        EXPECT_TRUE(tools.empty()) << "nothing of a partly valid file is kept: " << bad;
        EXPECT_FALSE(Parse("[" + bad + ", " + good + "]", tools)) << bad;
        EXPECT_TRUE(tools.empty()) << bad;
    }
}

TEST(HWMaintenanceToolList, EmptyRequiredTextsAreStillTexts)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(R"([{"menu": "", "label": "", "executable": ""}])", tools));
    ASSERT_EQ(tools.size(), 1u);
    EXPECT_EQ(tools[0].menu, "");
    EXPECT_EQ(tools[0].executable, "");
}

TEST(HWMaintenanceToolList, OptionalFieldsAbsentAreEmptyAndNotRoot)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(R"([{"menu": "1", "label": "L", "executable": "x"}])", tools));
    ASSERT_EQ(tools.size(), 1u);
    EXPECT_FALSE(tools[0].runAsRoot);
    EXPECT_EQ(tools[0].description, "");
    EXPECT_EQ(tools[0].workingDirectory, "");
    EXPECT_EQ(tools[0].parameters, "");
}

TEST(HWMaintenanceToolList, OptionalFieldsOfAnotherTypeAreEmpty)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(R"([
      {"menu": "1", "label": "L", "executable": "x",
       "description": 12, "workingDirectory": ["/tmp"], "parameters": {"-v": true}},
      {"menu": "2", "label": "M", "executable": "y",
       "description": null, "workingDirectory": false, "parameters": 1.5}])",
                      tools));
    ASSERT_EQ(tools.size(), 2u);
    for (const auto& tool : tools)
    {
        EXPECT_EQ(tool.description, "") << tool.label;
        EXPECT_EQ(tool.workingDirectory, "") << tool.label;
        EXPECT_EQ(tool.parameters, "") << tool.label;
    }
}

TEST(HWMaintenanceToolList, RunAsRootOnlyFromABoolean)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(R"([
      {"menu": "1", "label": "true", "executable": "x", "runAsRoot": true},
      {"menu": "2", "label": "false", "executable": "x", "runAsRoot": false},
      {"menu": "3", "label": "text", "executable": "x", "runAsRoot": "true"},
      {"menu": "4", "label": "number", "executable": "x", "runAsRoot": 1},
      {"menu": "5", "label": "null", "executable": "x", "runAsRoot": null},
      {"menu": "6", "label": "object", "executable": "x", "runAsRoot": {"yes": true}}])",
                      tools));
    ASSERT_EQ(tools.size(), 6u);
    EXPECT_TRUE(tools[0].runAsRoot);
    for (size_t i = 1; i < tools.size(); ++i)
        EXPECT_FALSE(tools[i].runAsRoot) << tools[i].label;
}

TEST(HWMaintenanceToolList, MembersOtherThanTheKnownOnesAreIgnored)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(R"([{"menu": "1", "label": "L", "executable": "x", "Label": 3,
                           "version": 2, "EXECUTABLE": null}])",
                      tools));
    ASSERT_EQ(tools.size(), 1u);
    EXPECT_EQ(tools[0].label, "L");
}

TEST(HWMaintenanceToolBoards, AMachineOfNeitherBoardShowsEveryTool)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(BoardList(), tools, Neither));
    EXPECT_EQ(Labels(tools), (std::vector<std::string>{"any board", "K9Q only", "RB417 only",
                                                       "board not a text", "other board"}));
}

TEST(HWMaintenanceToolBoards, AK9QShowsItsOwnToolsAndThoseWithoutBoard)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(BoardList(), tools, K9Q));
    EXPECT_EQ(Labels(tools),
              (std::vector<std::string>{"any board", "K9Q only", "board not a text"}));
}

TEST(HWMaintenanceToolBoards, AnRb417ShowsItsOwnToolsAndThoseWithoutBoard)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(BoardList(), tools, Rb417));
    EXPECT_EQ(Labels(tools),
              (std::vector<std::string>{"any board", "RB417 only", "board not a text"}));
}

TEST(HWMaintenanceToolBoards, AMachineThatIsBothShowsOnlyToolsWithoutBoard)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(BoardList(), tools, Both));
    EXPECT_EQ(Labels(tools), (std::vector<std::string>{"any board", "board not a text"}));
}

TEST(HWMaintenanceToolBoards, TheBoardNameIsComparedExactly)
{
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(R"([{"menu": "1", "label": "blank", "executable": "x", "board": "K9Q "},
                          {"menu": "2", "label": "empty", "executable": "x", "board": ""},
                          {"menu": "3", "label": "null", "executable": "x", "board": null}])",
                      tools, K9Q));
    EXPECT_EQ(Labels(tools), std::vector<std::string>{"null"});
}

TEST(HWMaintenanceToolBoards, AToolOfAnotherBoardIsSkippedBeforeItIsChecked)
{
    // The RB417's broken entry does not spoil the K9Q's list...
    const std::string text = BoardList(R"(,
  {"menu": "6", "executable": "f", "board": "RB417"})");
    std::vector<Tool> tools;
    ASSERT_TRUE(Parse(text, tools, K9Q));
    EXPECT_EQ(tools.size(), 3u);
    // ...but it does spoil the list where it would be shown.
    EXPECT_FALSE(Parse(text, tools, Rb417));
    EXPECT_TRUE(tools.empty());
    EXPECT_FALSE(Parse(text, tools, Neither));
    EXPECT_TRUE(tools.empty());
    ASSERT_TRUE(Parse(text, tools, Both));
    EXPECT_EQ(tools.size(), 2u);
}

TEST(HWMaintenanceToolFile, TheListLiesUnderTheProgramDirectory)
{
    EXPECT_EQ(HWMaintenanceStep::ToolListPath("/mnt/USB/"),
              "/mnt/USB/HardwareMaintenance/HWMaintenance.json");
    EXPECT_EQ(HWMaintenanceStep::ToolListPath("/mnt/SYS/Versions/current/apps/code/"),
              "/mnt/SYS/Versions/current/apps/code/HardwareMaintenance/HWMaintenance.json");
}

TEST(HWMaintenanceToolFile, AMissingFileGivesNoTools)
{
    std::vector<Tool> tools = {MakeTool("stale", "", "")};
    EXPECT_FALSE(HWMaintenanceStep::ReadToolsFromFile("/nonexistent/HWMaintenance.json", false,
                                                      false, tools));
    EXPECT_TRUE(tools.empty());
}

TEST(HWMaintenanceToolFile, AFileIsReadLikeText)
{
    char path[] = "/tmp/hw-maintenance-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    std::ofstream(path) << BoardList();
    std::vector<Tool> tools;
    EXPECT_TRUE(HWMaintenanceStep::ReadToolsFromFile(path, false, true, tools));
    EXPECT_EQ(tools.size(), 3u);
    std::ofstream(path) << R"({"menu": "1", "label": "L", "executable": "x"})";
    EXPECT_FALSE(HWMaintenanceStep::ReadToolsFromFile(path, false, true, tools));
    EXPECT_TRUE(tools.empty());
    std::remove(path);
}

TEST(HWMaintenanceToolCommand, ARelativeExecutableIsTakenFromTheProgramDirectory)
{
    EXPECT_EQ(HWMaintenanceStep::CommandLine(MakeTool("diag.sh", "-v", ""), "/mnt/USB/"),
              "/mnt/USB/diag.sh -v");
    EXPECT_EQ(HWMaintenanceStep::CommandLine(MakeTool("HardwareMaintenance/mem.sh", "-a -b", ""),
                                             "/mnt/SYS/Versions/current/apps/code/"),
              "/mnt/SYS/Versions/current/apps/code/HardwareMaintenance/mem.sh -a -b");
}

TEST(HWMaintenanceToolCommand, AnAbsoluteExecutableIsUsedAsItIs)
{
    EXPECT_EQ(HWMaintenanceStep::CommandLine(MakeTool("/usr/sbin/smartctl", "-a /dev/sda", ""),
                                             "/mnt/USB/"),
              "/usr/sbin/smartctl -a /dev/sda");
}

TEST(HWMaintenanceToolCommand, TheBlankStaysWithoutParameters)
{
    EXPECT_EQ(HWMaintenanceStep::CommandLine(MakeTool("diag.sh", "", ""), "/mnt/USB/"),
              "/mnt/USB/diag.sh ");
    EXPECT_EQ(HWMaintenanceStep::CommandLine(MakeTool("/bin/true", "", ""), "/mnt/USB/"),
              "/bin/true ");
}

TEST(HWMaintenanceToolCommand, TheTextIsTakenAsWritten)
{
    // Shell text in either field reaches the shell untouched.
    EXPECT_EQ(HWMaintenanceStep::CommandLine(MakeTool("run me.sh", "a | b > 'c d'", ""), "/x/"),
              "/x/run me.sh a | b > 'c d'");
    EXPECT_EQ(HWMaintenanceStep::CommandLine(MakeTool("", "", ""), "/mnt/USB/"), "/mnt/USB/ ");
}

TEST(HWMaintenanceToolDirectory, ARelativeDirectoryIsTakenFromTheProgramDirectory)
{
    EXPECT_EQ(
        HWMaintenanceStep::WorkingDirectory(MakeTool("x", "", "HardwareMaintenance"), "/mnt/USB/"),
        "/mnt/USB/HardwareMaintenance");
    EXPECT_EQ(HWMaintenanceStep::WorkingDirectory(MakeTool("x", "", "a/b/"), "/mnt/USB/"),
              "/mnt/USB/a/b/");
}

TEST(HWMaintenanceToolDirectory, AnAbsoluteDirectoryIsUsedAsItIs)
{
    EXPECT_EQ(HWMaintenanceStep::WorkingDirectory(MakeTool("x", "", "/tmp"), "/mnt/USB/"), "/tmp");
    EXPECT_EQ(HWMaintenanceStep::WorkingDirectory(MakeTool("x", "", "/"), "/mnt/USB/"), "/");
}

TEST(HWMaintenanceToolDirectory, AnEmptyDirectoryIsTheProgramDirectory)
{
    EXPECT_EQ(HWMaintenanceStep::WorkingDirectory(MakeTool("/bin/true", "", ""), "/mnt/USB/"),
              "/mnt/USB/");
}

TEST(HWMaintenanceSampleKey, ItsToolListIsValidOnEveryBoardAndNamesItsOwnScripts)
{
    const std::string key = std::string(WIZARD_SOURCE_DIR) + "/sample/usbkey/";
    for (const Board board : {Neither, K9Q, Rb417, Both})
    {
        std::vector<Tool> tools;
        ASSERT_TRUE(HWMaintenanceStep::ReadToolsFromFile(HWMaintenanceStep::ToolListPath(key),
                                                         board.k9q, board.rb417, tools));
        EXPECT_EQ(tools.size(), 4u);
        for (const auto& tool : tools)
        {
            const std::string command = HWMaintenanceStep::CommandLine(tool, key);
            const std::string executable = command.substr(0, command.find(' '));
            EXPECT_EQ(access(executable.c_str(), X_OK), 0) << executable;
            const std::string directory = HWMaintenanceStep::WorkingDirectory(tool, key);
            EXPECT_EQ(access(directory.c_str(), X_OK), 0) << directory;
            EXPECT_FALSE(tool.description.empty()) << tool.label;
        }
    }
    EXPECT_EQ(access((key + "EepromReader").c_str(), X_OK), 0);
}

namespace
{

using Layout = HWMaintenanceStep::Layout;

// Frame height and content rows of the console sizes.
struct Console
{
    int height;
    int rows;
};
const Console Console80x25{23, 20};
const Console Console80x24{22, 19};
const Console Console128x48{46, 43};

std::vector<int> Of(const Layout& layout)
{
    return {layout.menuRow, layout.visibleItems, layout.helpRow};
}

std::vector<int> Placed(const Console& console, int count, int helpLines = 1)
{
    return Of(HWMaintenanceStep::Place(console.height, console.rows, count, helpLines));
}

} // namespace

TEST(HWMaintenanceLayout, AtTheTallConsoleEveryPositionIsKeptUpToEightTools)
{
    // Menu at (height - 6 - count) / 2, help at count + 6, above the menu.
    for (int count = 1; count <= 8; ++count)
        EXPECT_EQ(Placed(Console128x48, count),
                  std::vector<int>({(40 - count) / 2, count, count + 6}))
            << count;
    // From nine tools on the help row reaches the menu's first row even there.
    EXPECT_EQ(Placed(Console128x48, 9), std::vector<int>({15, 9, 24}));
}

TEST(HWMaintenanceLayout, At80x25TheHelpGoesUnderTheMenuInsteadOfOverItsLastItem)
{
    // One tool: the help row (7) is above the item (8), both free.
    EXPECT_EQ(Placed(Console80x25, 1), std::vector<int>({8, 1, 7}));
    // Two and three tools: the help row is the last item's; it goes under it.
    EXPECT_EQ(Placed(Console80x25, 2), std::vector<int>({7, 2, 9}));
    EXPECT_EQ(Placed(Console80x25, 3), std::vector<int>({7, 3, 10}));
    // From four tools on, the positions do not collide.
    EXPECT_EQ(Placed(Console80x25, 4), std::vector<int>({6, 4, 10}));
    EXPECT_EQ(Placed(Console80x25, 5), std::vector<int>({6, 5, 11}));
}

TEST(HWMaintenanceLayout, At80x24TheHelpGoesUnderTheMenuToo)
{
    EXPECT_EQ(Placed(Console80x24, 1), std::vector<int>({7, 1, 8}));
    EXPECT_EQ(Placed(Console80x24, 2), std::vector<int>({7, 2, 9}));
    EXPECT_EQ(Placed(Console80x24, 3), std::vector<int>({6, 3, 9}));
}

TEST(HWMaintenanceLayout, AMenuReachingTheHeadingGoesUnderIt)
{
    // Eight tools start on row (23 - 14) / 2 = 4, the heading's row.
    EXPECT_EQ(Placed(Console80x25, 8), std::vector<int>({5, 8, 14}));
    EXPECT_EQ(Placed(Console80x25, 10), std::vector<int>({5, 10, 16}));
}

TEST(HWMaintenanceLayout, ALongListScrollsAndTheHelpStaysInTheWindow)
{
    for (int count : {14, 15, 30})
    {
        const auto placed = Placed(Console80x25, count);
        EXPECT_EQ(placed, std::vector<int>({5, 14, 19})) << count;
    }
    EXPECT_EQ(Placed(Console80x24, 20), std::vector<int>({5, 13, 18}));
}

TEST(HWMaintenanceLayout, AHelpOnSeveralRowsIsKeptClearOfTheMenu)
{
    // One tool at 80x25: the help of two rows (7 and 8) would reach the item.
    EXPECT_EQ(Placed(Console80x25, 1, 2), std::vector<int>({8, 1, 9}));
    // Its last row stays in the window.
    const auto placed = Placed(Console80x25, 14, 3);
    EXPECT_EQ(placed, std::vector<int>({5, 12, 17}));
}
