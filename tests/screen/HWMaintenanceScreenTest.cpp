// The "Hardware maintenance" tool menu on the sandbox console: which lists
// offer it, how it looks and moves, and what the chosen tools really run.
// Every test writes its own tool list (and tool scripts) on the key.
#include "ScreenTest.h"

#include <algorithm>
#include <chrono>
#include <sstream>
#include <thread>

using namespace ScreenTest;

namespace
{

const int TitleRow = 1;
const int FirstMainMenuRow = 5;
const int PromptRow = 6;
const int BottomRow = 23;

const std::string Title = "Hardware maintenance";
const std::string Prompt = "Select an Hardware Maintenance tool:";
const std::string BottomText =
    "  <ESC> return to the main menu, <ENTER> or number to select the settings";
const std::string ToolList = "/mnt/USB/HardwareMaintenance/HWMaintenance.json";

// Guest ids of the user the wizard is started as in the user-switch tests.
const std::string Nobody = "65534";

std::string MenuRow(bool current, const std::string& name, const std::string& text,
                    size_t nameWidth = 1)
{
    std::string padded = name;
    padded.resize(nameWidth, ' ');
    return std::string(23, ' ') + (current ? " > " : "   ") + padded + " " + text;
}

std::string Centered(const std::string& text, int width, int offset = 2)
{
    if (text.empty())
        return "";
    return std::string(static_cast<size_t>(offset + (width - static_cast<int>(text.size())) / 2),
                       ' ') +
           text;
}

void Pause(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// The main menu from the key: the tools item where there are tools, the
// BIOS reset item on an RB417.
std::vector<std::string> MainMenuItems(bool tools, bool rb417)
{
    std::vector<std::string> items = {"Install Vidorama", "Format and Install Vidorama", "Versions",
                                      "Clear configuration lines"};
    if (tools)
        items.push_back("Hardware maintenance");
    if (rb417)
        items.push_back("Reset bios (RB417 only)");
    for (const char* item : {"Exit to shell", "Support contact", "Licenses", "Shutdown"})
        items.push_back(item);
    return items;
}

struct ShownTool
{
    std::string menu;
    std::string label;
    std::string description;
};

// Four tools: with two or three the help row is the last item's own row.
const std::string FourTools = R"([
  {"menu": "1", "label": "Disk report", "description": "Partitions and usage of every disk",
   "executable": "hwtest/one.sh"},
  {"menu": "2", "label": "Memory", "description": "Free memory",
   "executable": "hwtest/two.sh"},
  {"menu": "3", "label": "Identity", "description": "Board serial number and chassis",
   "executable": "hwtest/three.sh"},
  {"menu": "4", "label": "Quiet tool", "executable": "hwtest/four.sh"}
])";
const std::vector<ShownTool> FourShown = {
    {"1", "Disk report", "Partitions and usage of every disk"},
    {"2", "Memory", "Free memory"},
    {"3", "Identity", "Board serial number and chassis"},
    {"4", "Quiet tool", ""}};

// One tool per board case. The labels say where each must be listed.
const std::string BoardTools = R"([
  {"menu": "1", "label": "every board", "executable": "hwtest/one.sh"},
  {"menu": "2", "label": "K9Q", "executable": "hwtest/two.sh", "board": "K9Q"},
  {"menu": "3", "label": "RB417", "executable": "hwtest/three.sh", "board": "RB417"},
  {"menu": "4", "label": "board not a text", "executable": "hwtest/four.sh", "board": 4},
  {"menu": "5", "label": "lower-case k9q", "executable": "hwtest/five.sh", "board": "k9q"}
])";

class HWMaintenanceSuite : public GuestSuite
{
protected:
    std::string _runsDir;
    bool _asNobody = false;

    virtual bool Rb417() const { return false; }

    std::string ExitKey(bool tools) const
    {
        const auto items = MainMenuItems(tools, Rb417());
        for (size_t i = 0; i < items.size(); ++i)
            if (items[i] == "Exit to shell")
                return std::to_string(i + 1);
        return "";
    }

    void TearDown() override
    {
        GuestSuite::TearDown();
        RunInGuest("rm -rf /mnt/USB/diag.sh /mnt/USB/hwtest /run/hwtest " + SetuidDir());
    }

    // The copy of the wizard that the user-switch test makes set-user-id
    // root; in the build tree, so the fixture's clean-up finds it, and
    // written in the guest's overlay only.
    static std::string SetuidDir() { return Program("hw-setuid"); }

    void WriteToolList(const std::string& json)
    {
        RunInGuest("mkdir -p /mnt/USB/HardwareMaintenance && cat > " + ToolList + " <<'JSON'\n" +
                   json + "\nJSON");
    }

    // Where the recorders write; read through the guest, so it may lie
    // outside /io.
    std::string RunsFile() const { return (_runsDir.empty() ? WorkDir() : _runsDir) + "/runs.txt"; }

    // A tool that appends one line per run to the test's runs file:
    // name|$0|argument count|arguments|physical working directory|
    // effective user id|real user id.
    void WriteRecorder(const std::string& path, const std::string& name)
    {
        RunInGuest("mkdir -p \"$(dirname " + path + ")\" && cat > " + path + " <<'SH'\n" +
                   "#!/bin/sh\n"
                   "printf '%s|%s|%s|%s|%s|%s|%s\\n' " +
                   name + " \"$0\" \"$#\" \"$*\" \"$(pwd -P)\" \"$(id -u)\" \"$(id -ru)\" >> " +
                   RunsFile() + "\nSH\nchmod 755 " + path);
    }

    // The recorders that FourTools and BoardTools name.
    void WriteRecorders()
    {
        for (const char* name : {"one", "two", "three", "four", "five"})
            WriteRecorder(std::string("/mnt/USB/hwtest/") + name + ".sh", name);
    }

    std::vector<std::string> Runs()
    {
        std::vector<std::string> runs;
        std::istringstream in(Guest().Run("cat " + RunsFile() + " 2>/dev/null || true").output);
        std::string line;
        while (std::getline(in, line))
            runs.push_back(line);
        return runs;
    }

    // Waits until the tools have run `count` times in all and the menu is
    // drawn again.
    testing::AssertionResult WaitForRuns(size_t count, int timeoutSec = 20)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSec);
        while (Runs().size() < count)
        {
            if (std::chrono::steady_clock::now() >= deadline)
                return testing::AssertionFailure()
                       << Runs().size() << " runs instead of " << count << "\n"
                       << "program status: " << Guest().ReadIoFile("console.rc") << "\n"
                       << Guest().Run("ps -o pid,user,args | grep -v '\\['").output
                       << "--- log ---\n"
                       << Log();
            Pause(200);
        }
        if (!WaitFor(Prompt))
            return testing::AssertionFailure() << "the menu is not back";
        return testing::AssertionSuccess();
    }

    void ExpectMainMenu(const std::string& screen, bool tools)
    {
        const auto items = MainMenuItems(tools, Rb417());
        const size_t nameWidth = items.size() >= 10 ? 2 : 1;
        for (size_t i = 0; i < items.size(); ++i)
            EXPECT_EQ(Row(screen, FirstMainMenuRow + static_cast<int>(i)),
                      MenuRow(i == 0, std::to_string(i + 1), items[i], nameWidth))
                << screen;
        EXPECT_EQ(Row(screen, FirstMainMenuRow + static_cast<int>(items.size())), "") << screen;
    }

    // Starts the wizard and checks that its main menu offers no tools.
    void ExpectNoToolsOffered(const std::string& what)
    {
        Start(Wizard());
        ASSERT_TRUE(WaitFor("Shutdown")) << what << "\n" << Screen();
        ExpectMainMenu(Screen(), false);
        ExitToShell(ExitKey(false));
    }

    // Starts the wizard as nobody. The guest's /io is not open to other
    // users, so the wizard then works in a directory of the guest's own
    // (the runs file goes there too); the log is copied into the test's
    // directory by CollectLog().
    void StartAsNobody(const std::string& wizard)
    {
        _asNobody = true;
        RunInGuest("mkdir -p " + NobodyDir() + " && chmod 777 " + NobodyDir());
        Start("cd " + NobodyDir() + " && setpriv --reuid=" + Nobody + " --regid=" + Nobody +
              " --clear-groups " + wizard);
    }
    static std::string NobodyDir() { return "/run/hwtest/nobody"; }
    void CollectLog() { RunInGuest("cp " + NobodyDir() + "/installer.log " + WorkDir() + "/"); }

    void ExitToShell(const std::string& key)
    {
        ASSERT_FALSE(key.empty());
        Keys({key});
        const auto status = WaitExit();
        ASSERT_TRUE(status.has_value()) << Screen();
        EXPECT_EQ(*status, 2);
    }

    // From the main menu with tools to the tool menu.
    void OpenTools()
    {
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
        ExpectMainMenu(Screen(), true);
        Keys({"5"});
        ASSERT_TRUE(WaitFor(Prompt)) << Screen();
        // The log of a wizard started as nobody is elsewhere until CollectLog().
        if (!_asNobody)
        {
            EXPECT_TRUE(WaitForLog("0 StartStep selected item: 8", 5)) << Log();
        }
    }

    // The whole tool menu: title, prompt, items, the help of the highlighted
    // item and the bottom text, every other row blank.
    // The console has `lines` lines: 25, or 24 for a serial line that
    // reports no size.
    void ExpectToolMenu(const std::string& screen, const std::vector<ShownTool>& tools, int current,
                        int lines = 25)
    {
        // Content rows: the items from (height - 6 - count) / 2, under the
        // prompt when they would reach it; the help on count + 6, under the
        // items when it would share a row with one. Screen rows are two lower.
        const int count = static_cast<int>(tools.size());
        const int height = lines - 2;
        int menuRow = (height - 6 - count) / 2;
        if (menuRow <= PromptRow - 2)
            menuRow = PromptRow - 1;
        int helpRow = count + 6;
        if (helpRow >= menuRow && helpRow < menuRow + count)
            helpRow = menuRow + count;
        const int firstItemRow = 2 + menuRow;
        helpRow += 2;
        size_t nameWidth = 1;
        for (const auto& tool : tools)
            nameWidth = std::max(nameWidth, tool.menu.size());

        std::vector<std::string> expected(25);
        expected[TitleRow] = Centered(Title, 76);
        expected[PromptRow] = "     " + Prompt;
        for (int i = 0; i < count; ++i)
            expected[firstItemRow + i] =
                MenuRow(i == current, tools[i].menu, tools[i].label, nameWidth);
        expected[helpRow] = Centered(tools[current].description, 76, 6);
        const int bottomRow = lines - 2;
        expected[static_cast<size_t>(bottomRow)] = BottomText;
        for (int row = 1; row <= 23; ++row)
        {
            // The bottom window's line.
            if (row == bottomRow - 1)
                continue;
            EXPECT_EQ(Row(screen, row), expected[row]) << "row " << row << "\n" << screen;
        }
    }

    void EscapeToMainMenu()
    {
        Keys({"Escape"});
        ASSERT_TRUE(WaitFor("Vidorama Install and Rescue")) << Screen();
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    }

    // Lists of one, two and three tools, each tool with a help of its own: on
    // this 25-line console every label and the help of the highlighted tool
    // are on screen at once, whichever tool is highlighted, and the last tool
    // is the one its digit and ENTER run. On an RB417 the tools are one for
    // any board and the others for the RB417, with one for the K9Q left out.
    void ExpectSmallListsShown(bool rb417)
    {
        static const std::vector<std::string> scripts = {"one", "two", "three"};
        WriteRecorders();
        size_t runs = 0;
        for (int count = 1; count <= 3; ++count)
        {
            std::string json = "[";
            std::vector<ShownTool> shown;
            if (rb417)
                json += R"({"menu": "K", "label": "K9Q only", "executable": "hwtest/five.sh",
                           "board": "K9Q"},)";
            for (int i = 1; i <= count; ++i)
            {
                const std::string number = std::to_string(i);
                const std::string label = "Tool number " + number;
                const std::string help = "Help of tool number " + number;
                std::string board;
                if (rb417 && i > 1)
                    board = R"(, "board": "RB417")";
                json += std::string(i > 1 ? "," : "") + R"({"menu": ")" + number +
                        R"(", "label": ")" + label + R"(", "description": ")" + help +
                        R"(", "executable": "hwtest/)" + scripts[static_cast<size_t>(i - 1)] +
                        R"(.sh")" + board + "}";
                shown.push_back({number, label, help});
            }
            json += "]";
            WriteToolList(json);
            Start(Wizard());
            OpenTools();
            for (int current = 0; current < count; ++current)
            {
                if (current > 0)
                {
                    Keys({"Down"});
                    ASSERT_TRUE(WaitFor(shown[static_cast<size_t>(current)].description))
                        << Screen();
                }
                const std::string screen = Screen();
                SCOPED_TRACE(std::to_string(count) + " tools, tool " + std::to_string(current + 1) +
                             " highlighted");
                ExpectToolMenu(screen, shown, current);
                for (const auto& tool : shown)
                    EXPECT_NE(screen.find(tool.label), std::string::npos) << screen;
            }
            // ENTER on the last tool, then its digit, run the last tool.
            Keys({"Enter"});
            ASSERT_TRUE(WaitForRuns(++runs)) << Screen();
            Keys({std::to_string(count)});
            ASSERT_TRUE(WaitForRuns(++runs)) << Screen();
            const auto all = Runs();
            const std::string& script = scripts[static_cast<size_t>(count - 1)];
            EXPECT_EQ(all.at(runs - 2).substr(0, script.size() + 1), script + "|");
            EXPECT_EQ(all.at(runs - 1).substr(0, script.size() + 1), script + "|");
            EscapeToMainMenu();
            ExitToShell(ExitKey(true));
        }
    }

    // The board tests of the three machines: BoardTools filtered for this
    // one, given by the menu keys of the tools listed.
    void ExpectBoardTools(const std::vector<int>& listed, const std::string& vendorCheck)
    {
        static const std::vector<std::string> labels = {"every board", "K9Q", "RB417",
                                                        "board not a text", "lower-case k9q"};
        static const std::vector<std::string> scripts = {"one", "two", "three", "four", "five"};
        RunInGuest(vendorCheck);
        WriteToolList(BoardTools);
        WriteRecorders();
        Start(Wizard());
        OpenTools();
        std::vector<ShownTool> shown;
        for (int key : listed)
            shown.push_back({std::to_string(key), labels.at(key - 1), ""});
        ExpectToolMenu(Screen(), shown, 0);
        // Digits count the tools listed, whatever their keys.
        const std::string beyond = std::to_string(listed.size() + 1);
        Keys({beyond});
        Pause(1500);
        EXPECT_TRUE(Runs().empty()) << beyond << " is beyond the list";
        Keys({std::to_string(listed.size())});
        ASSERT_TRUE(WaitForRuns(1)) << Screen();
        const std::string& script = scripts.at(listed.back() - 1);
        EXPECT_EQ(Runs().at(0).substr(0, script.size() + 1), script + "|");
        EscapeToMainMenu();
        ExitToShell(ExitKey(true));
    }
};

// A machine of neither board: no BIOS vendor text at all.
class HWMaintenance : public HWMaintenanceSuite
{
protected:
    static void SetUpTestSuite()
    {
        auto options = SuiteDefaults();
        options.setupScript += "mount -t tmpfs -o mode=0755 tmpfs /sys/class/dmi/id\n";
        StartGuest(options);
    }
};

// Any readable vendor text other than the RB417's is a K9Q.
class HWMaintenanceK9Q : public HWMaintenanceSuite
{
protected:
    static void SetUpTestSuite()
    {
        auto options = SuiteDefaults();
        options.biosVendor = "American Megatrends Inc.";
        StartGuest(options);
    }
};

class HWMaintenanceRb417 : public HWMaintenanceSuite
{
protected:
    bool Rb417() const override { return true; }

    static void SetUpTestSuite()
    {
        auto options = SuiteDefaults();
        options.biosVendor = "Phoenix Technologies LTD";
        StartGuest(options);
    }
};

} // namespace

TEST_F(HWMaintenance, ListsThatGiveNoToolsHideTheItem)
{
    ExpectNoToolsOffered("no list");
    const std::vector<std::pair<std::string, std::string>> lists = {
        {"root object",
         R"({"tools": [{"menu": "1", "label": "L", "executable": "hwtest/one.sh"}]})"},
        {"missing label", R"([{"menu": "1", "label": "L", "executable": "hwtest/one.sh"},
                              {"menu": "2", "executable": "hwtest/two.sh"}])"},
        {"empty array", "[]"},
        {"only null elements", "[null, null]"},
        {"not JSON", "menu=1 label=L"},
    };
    for (const auto& [what, json] : lists)
    {
        WriteToolList(json);
        ExpectNoToolsOffered(what);
        EXPECT_EQ(LogMessages(),
                  (std::vector<std::string>{"0 Log created!", "0 StartStep selected item: 10"}))
            << what << ": list problems are not logged\n"
            << Log();
    }
}

TEST_F(HWMaintenance, TheToolMenuShowsEveryToolWithTheHelpOfTheFirst)
{
    WriteToolList(FourTools);
    Start(Wizard());
    OpenTools();
    ExpectToolMenu(Screen(), FourShown, 0);
    EscapeToMainMenu();
    ExpectMainMenu(Screen(), true);
    // The main menu keeps its highlight on its first item; the tool menu is
    // built again, from the first tool, at the next visit.
    OpenTools();
    ExpectToolMenu(Screen(), FourShown, 0);
    EscapeToMainMenu();
    ExitToShell(ExitKey(true));
    EXPECT_EQ(LogMessages(), (std::vector<std::string>{
                                 "0 Log created!", "0 StartStep selected item: 8",
                                 "0 StartStep selected item: 8", "0 StartStep selected item: 10"}))
        << Log();
}

TEST_F(HWMaintenance, ArrowsMoveTheHighlightAndTheHelp)
{
    WriteToolList(FourTools);
    Start(Wizard());
    OpenTools();
    Keys({"Up"});
    Pause(1000);
    ExpectToolMenu(Screen(), FourShown, 0);
    Keys({"Down"});
    ASSERT_TRUE(WaitFor(MenuRow(true, "2", "Memory"))) << Screen();
    ExpectToolMenu(Screen(), FourShown, 1);
    Keys({"Down"});
    ASSERT_TRUE(WaitFor(MenuRow(true, "3", "Identity"))) << Screen();
    ExpectToolMenu(Screen(), FourShown, 2);
    // A tool without description leaves the help row blank.
    Keys({"Down"});
    ASSERT_TRUE(WaitFor(MenuRow(true, "4", "Quiet tool"))) << Screen();
    ExpectToolMenu(Screen(), FourShown, 3);
    Keys({"Down"});
    Pause(1000);
    ExpectToolMenu(Screen(), FourShown, 3);
    Keys({"Up", "Up"});
    ASSERT_TRUE(WaitFor(MenuRow(true, "2", "Memory"))) << Screen();
    ExpectToolMenu(Screen(), FourShown, 1);
    EscapeToMainMenu();
    ExitToShell(ExitKey(true));
}

TEST_F(HWMaintenance, DigitsRunAToolAtOnceAndDigitsBeyondTheListAreIgnored)
{
    WriteToolList(FourTools);
    WriteRecorders();
    Start(Wizard());
    OpenTools();
    const std::string before = Screen();
    Keys({"5", "9", "0", ":", "a"});
    Pause(2500);
    EXPECT_EQ(Screen(), before);
    EXPECT_TRUE(Runs().empty());

    Keys({"3"});
    ASSERT_TRUE(WaitForRuns(1)) << Screen();
    // Back in the same menu, the highlight where it was.
    ExpectToolMenu(Screen(), FourShown, 0);
    // Several tools in one visit: ENTER runs the highlighted one.
    Keys({"Enter"});
    ASSERT_TRUE(WaitForRuns(2)) << Screen();
    Keys({"Down"});
    ASSERT_TRUE(WaitFor(MenuRow(true, "2", "Memory"))) << Screen();
    Keys({"Enter"});
    ASSERT_TRUE(WaitForRuns(3)) << Screen();
    ExpectToolMenu(Screen(), FourShown, 1);
    Keys({"4"});
    ASSERT_TRUE(WaitForRuns(4)) << Screen();

    const auto runs = Runs();
    ASSERT_EQ(runs.size(), 4u);
    EXPECT_EQ(runs[0], "three|/mnt/USB/hwtest/three.sh|0||/mnt/USB|0|0");
    EXPECT_EQ(runs[1], "one|/mnt/USB/hwtest/one.sh|0||/mnt/USB|0|0");
    EXPECT_EQ(runs[2], "two|/mnt/USB/hwtest/two.sh|0||/mnt/USB|0|0");
    EXPECT_EQ(runs[3], "four|/mnt/USB/hwtest/four.sh|0||/mnt/USB|0|0");
    EscapeToMainMenu();
    ExitToShell(ExitKey(true));
    // Running a tool logs nothing by itself.
    EXPECT_EQ(LogMessages(),
              (std::vector<std::string>{"0 Log created!", "0 StartStep selected item: 8",
                                        "0 StartStep selected item: 10"}))
        << Log();
}

TEST_F(HWMaintenance, ExecutablesAndWorkingDirectoriesRelativeOrAbsolute)
{
    WriteToolList(R"([
      {"menu": "1", "label": "relative", "executable": "diag.sh", "parameters": "-v",
       "workingDirectory": "hwtest/work"},
      {"menu": "2", "label": "absolute", "executable": "/run/hwtest/bin/abs.sh",
       "parameters": "a  'b c'", "workingDirectory": "/run/hwtest/work"},
      {"menu": "3", "label": "no directory", "executable": "hwtest/one.sh",
       "workingDirectory": ""}
    ])");
    WriteRecorder("/mnt/USB/diag.sh", "diag");
    WriteRecorder("/run/hwtest/bin/abs.sh", "abs");
    WriteRecorders();
    RunInGuest("mkdir -p /mnt/USB/hwtest/work /run/hwtest/work");
    Start(Wizard());
    OpenTools();
    Keys({"1"});
    ASSERT_TRUE(WaitForRuns(1)) << Screen();
    Keys({"2"});
    ASSERT_TRUE(WaitForRuns(2)) << Screen();
    Keys({"3"});
    ASSERT_TRUE(WaitForRuns(3)) << Screen();
    const auto runs = Runs();
    ASSERT_EQ(runs.size(), 3u);
    // The executable from the program's directory, a blank, the parameters.
    EXPECT_EQ(runs[0], "diag|/mnt/USB/diag.sh|1|-v|/mnt/USB/hwtest/work|0|0");
    // Both used as they are; the parameters go through the shell.
    EXPECT_EQ(runs[1], "abs|/run/hwtest/bin/abs.sh|2|a b c|/run/hwtest/work|0|0");
    // An empty directory is the program's directory.
    EXPECT_EQ(runs[2], "one|/mnt/USB/hwtest/one.sh|0||/mnt/USB|0|0");
    EscapeToMainMenu();
    ExitToShell(ExitKey(true));
    const auto log = LogMessages();
    ASSERT_EQ(log.size(), 3u) << Log();
    EXPECT_EQ(log[2], "0 StartStep selected item: 10") << "the log is still in the same place";
}

TEST_F(HWMaintenance, AMissingWorkingDirectoryIsLoggedAndTheToolStillRuns)
{
    WriteToolList(R"([
      {"menu": "1", "label": "missing", "executable": "hwtest/one.sh",
       "workingDirectory": "nowhere"},
      {"menu": "2", "label": "absolute missing", "executable": "hwtest/two.sh",
       "workingDirectory": "/run/hwtest/none"},
      {"menu": "3", "label": "existing", "executable": "hwtest/three.sh",
       "workingDirectory": "/run/hwtest"}
    ])");
    WriteRecorders();
    RunInGuest("mkdir -p /run/hwtest");
    Start(Wizard());
    OpenTools();
    Keys({"1"});
    ASSERT_TRUE(WaitForRuns(1)) << Screen();
    Keys({"3"});
    ASSERT_TRUE(WaitForRuns(2)) << Screen();
    // Back in the program's own directory after a tool that moved elsewhere.
    Keys({"2"});
    ASSERT_TRUE(WaitForRuns(3)) << Screen();
    const auto runs = Runs();
    ASSERT_EQ(runs.size(), 3u);
    EXPECT_EQ(runs[0], "one|/mnt/USB/hwtest/one.sh|0||" + WorkDir() + "|0|0");
    EXPECT_EQ(runs[1], "three|/mnt/USB/hwtest/three.sh|0||/run/hwtest|0|0");
    EXPECT_EQ(runs[2], "two|/mnt/USB/hwtest/two.sh|0||" + WorkDir() + "|0|0");
    EscapeToMainMenu();
    ExitToShell(ExitKey(true));
    EXPECT_EQ(LogMessages(),
              (std::vector<std::string>{"0 Log created!", "0 StartStep selected item: 8",
                                        "1 Error changing working directory to : /mnt/USB/nowhere",
                                        "1 Error changing working directory to : /run/hwtest/none",
                                        "0 StartStep selected item: 10"}))
        << Log();
}

// The wizard is normally set-user-id root or started by root. Started by
// nobody from a set-user-id copy, its real id is nobody's and the shell that
// runs a tool drops to it, unless the tool asks for root: then all three ids
// are 0 while the tool runs and the original ones come back afterwards.
TEST_F(HWMaintenance, RunAsRootSwitchesASetuidWizardToRootAndBack)
{
    WriteToolList(R"([
      {"menu": "1", "label": "as root", "executable": "hwtest/one.sh", "runAsRoot": true},
      {"menu": "2", "label": "as the user", "executable": "hwtest/two.sh", "runAsRoot": false},
      {"menu": "3", "label": "a text", "executable": "hwtest/three.sh", "runAsRoot": "true"},
      {"menu": "4", "label": "a number", "executable": "hwtest/four.sh", "runAsRoot": 1}
    ])");
    _runsDir = NobodyDir();
    WriteRecorders();
    const std::string wizard = SetuidDir() + "/InstallWizard";
    RunInGuest("mkdir -p " + SetuidDir() + " && cp " + Wizard() + " " + wizard + " && chown 0:0 " +
               wizard + " && chmod 4755 " + wizard);
    StartAsNobody(wizard);
    OpenTools();
    const std::string ids = "grep '^Uid:' /proc/$(pidof InstallWizard)/status";
    const std::string startIds = "Uid:\t" + Nobody + "\t0\t0\t0\n";
    EXPECT_EQ(Guest().Run(ids).output, startIds);

    Keys({"2"});
    ASSERT_TRUE(WaitForRuns(1)) << Screen();
    Keys({"1"});
    ASSERT_TRUE(WaitForRuns(2)) << Screen();
    EXPECT_EQ(Guest().Run(ids).output, startIds) << "the ids are restored";
    Keys({"3"});
    ASSERT_TRUE(WaitForRuns(3)) << Screen();
    Keys({"4"});
    ASSERT_TRUE(WaitForRuns(4)) << Screen();
    Keys({"1"});
    ASSERT_TRUE(WaitForRuns(5)) << Screen();
    EXPECT_EQ(Guest().Run(ids).output, startIds);
    const auto runs = Runs();
    ASSERT_EQ(runs.size(), 5u);
    EXPECT_EQ(runs[0], "two|/mnt/USB/hwtest/two.sh|0||/mnt/USB|" + Nobody + "|" + Nobody);
    EXPECT_EQ(runs[1], "one|/mnt/USB/hwtest/one.sh|0||/mnt/USB|0|0");
    EXPECT_EQ(runs[2], "three|/mnt/USB/hwtest/three.sh|0||/mnt/USB|" + Nobody + "|" + Nobody);
    EXPECT_EQ(runs[3], "four|/mnt/USB/hwtest/four.sh|0||/mnt/USB|" + Nobody + "|" + Nobody);
    EXPECT_EQ(runs[4], "one|/mnt/USB/hwtest/one.sh|0||/mnt/USB|0|0");
    EscapeToMainMenu();
    ExitToShell(ExitKey(true));
    CollectLog();
    EXPECT_EQ(LogMessages(),
              (std::vector<std::string>{"0 Log created!", "0 StartStep selected item: 8",
                                        "0 StartStep selected item: 10"}))
        << Log();
}

// Without any right to become root the switch fails: that is logged, the
// tool runs with the user's ids, and putting the unchanged ids back works.
TEST_F(HWMaintenance, RunAsRootWithoutTheRightIsLoggedAndTheToolRunsAsTheUser)
{
    WriteToolList(R"([
      {"menu": "1", "label": "as root", "executable": "hwtest/one.sh", "runAsRoot": true}
    ])");
    _runsDir = NobodyDir();
    WriteRecorders();
    StartAsNobody(Wizard());
    OpenTools();
    Keys({"1"});
    ASSERT_TRUE(WaitForRuns(1)) << Screen();
    EXPECT_EQ(Guest().Run("grep '^Uid:' /proc/$(pidof InstallWizard)/status").output,
              "Uid:\t" + Nobody + "\t" + Nobody + "\t" + Nobody + "\t" + Nobody + "\n");
    EXPECT_EQ(Runs().at(0), "one|/mnt/USB/hwtest/one.sh|0||/mnt/USB|" + Nobody + "|" + Nobody);
    EscapeToMainMenu();
    ExitToShell(ExitKey(true));
    CollectLog();
    EXPECT_EQ(LogMessages(), (std::vector<std::string>{
                                 "0 Log created!", "0 StartStep selected item: 8",
                                 "1 Error changing user to root", "0 StartStep selected item: 10"}))
        << Log();
}

TEST_F(HWMaintenance, WithOneToThreeToolsEveryToolAndItsHelpAreVisible)
{
    ExpectSmallListsShown(false);
}

// A serial console of 24 lines (the size curses takes when a serial line
// reports none): set for this test and back to 80x25 after it, whatever
// happens; the tmux screen keeps its 25th row empty.
TEST_F(HWMaintenance, At80x24EveryToolAndItsHelpAreVisible)
{
    SetConsoleSize(24);
    for (const std::string& json : {std::string(R"([{"menu": "1", "label": "Only tool",
        "description": "Help of the only tool", "executable": "hwtest/one.sh"}])"),
                                    FourTools})
    {
        const std::vector<ShownTool> shown =
            json == FourTools ? FourShown
                              : std::vector<ShownTool>{{"1", "Only tool", "Help of the only tool"}};
        WriteToolList(json);
        Start(Wizard());
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
        Keys({"5"});
        ASSERT_TRUE(WaitFor(Prompt)) << Screen();
        ASSERT_TRUE(WaitFor(shown[0].description)) << Screen();
        ExpectToolMenu(Screen(), shown, 0, 24);
        EscapeToMainMenu();
        ExitToShell(ExitKey(true));
    }
}

TEST_F(HWMaintenance, AMachineOfNeitherBoardListsEveryTool)
{
    ExpectBoardTools({1, 2, 3, 4, 5}, "test ! -e /sys/class/dmi/id/bios_vendor");
}

TEST_F(HWMaintenanceK9Q, OnlyToolsForThisBoardOrForAnyBoardAreListed)
{
    ExpectBoardTools({1, 2, 4},
                     "grep -qx 'American Megatrends Inc.' /sys/class/dmi/id/bios_vendor");
}

TEST_F(HWMaintenanceK9Q, AnIncompleteToolOfTheOtherBoardDoesNotSpoilTheList)
{
    WriteToolList(R"([
      {"menu": "1", "label": "for the K9Q", "executable": "hwtest/one.sh", "board": "K9Q"},
      {"menu": "2", "executable": "hwtest/two.sh", "board": "RB417"}
    ])");
    Start(Wizard());
    OpenTools();
    ExpectToolMenu(Screen(), {{"1", "for the K9Q", ""}}, 0);
    EscapeToMainMenu();
    ExitToShell(ExitKey(true));
}

TEST_F(HWMaintenanceRb417, OnlyToolsForThisBoardOrForAnyBoardAreListed)
{
    ExpectBoardTools({1, 3, 4}, "grep -q '^Phoenix Technologies' /sys/class/dmi/id/bios_vendor");
}

TEST_F(HWMaintenanceRb417, WithOneToThreeToolsEveryToolAndItsHelpAreVisible)
{
    ExpectSmallListsShown(true);
}

TEST_F(HWMaintenanceRb417, AnIncompleteToolOfThisBoardSpoilsTheList)
{
    WriteToolList(R"([
      {"menu": "1", "label": "for the K9Q", "executable": "hwtest/one.sh", "board": "K9Q"},
      {"menu": "2", "label": "for any board", "executable": "hwtest/one.sh"},
      {"menu": "3", "executable": "hwtest/two.sh", "board": "RB417"}
    ])");
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    ExpectMainMenu(Screen(), false);
    ExitToShell(ExitKey(false));
}
