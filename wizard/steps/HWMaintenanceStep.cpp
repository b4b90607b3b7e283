#include "HWMaintenanceStep.h"

#include "Bios.h"
#include "InstallWizard.h"
#include "ScreenLayout.h"
#include "WrapText.h"

#include <algorithm>

#include <json/json.h>

#include <cstdlib>
#include <exception>
#include <fstream>
#include <unistd.h>
#include <utility>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using InstallerLib::Bios;

namespace
{

const int Escape = 27;
const int Enter = 10;
const int HelpColumn = 4;
const int HelpWidth = 76;

// Relative paths in the tool list are taken from the program's directory.
std::string FromExePath(const std::string& path, const std::string& exePath)
{
    if (!path.empty() && path[0] == '/')
        return path;
    return exePath + path;
}

std::string OptionalString(const Json::Value& value)
{
    return value.isString() ? value.asString() : std::string();
}

} // namespace

HWMaintenanceStep::HWMaintenanceStep() : WizardStep("Hardware maintenance", "")
{
    // A partly valid file must not offer the tools read before the bad one.
    if (!ReadHWMaintenanceToolsFromFile())
        _tools.clear();
}

HWMaintenanceStep::~HWMaintenanceStep()
{
    FreeMenu();
}

std::string HWMaintenanceStep::ToolListPath(const std::string& exePath)
{
    return exePath + "HardwareMaintenance/HWMaintenance.json";
}

bool HWMaintenanceStep::ParseTools(std::istream& in, bool isK9Q, bool isRb417,
                                   std::vector<HWMaintenanceTool>& tools)
{
    tools.clear();
    Json::Value root;
    // The classic reader, comments collected; newer jsoncpp releases mark it
    // deprecated, which must not turn into a warning here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    Json::Reader reader;
    // jsoncpp throws on nesting beyond its stack limit and lets a failed
    // read of the stream through (a directory, a bad sector of the key):
    // both are a list that cannot be read, not a reason to end the wizard.
    bool parsed = false;
    try
    {
        parsed = reader.parse(in, root, true);
    }
    catch (const std::exception&)
    {
        parsed = false;
    }
#pragma GCC diagnostic pop
    if (!parsed || !root.isArray())
        return false;

    for (const Json::Value& element : root)
    {
        if (element.isNull() || !element.isObject())
            continue;
        const Json::Value& runAsRoot = element["runAsRoot"];
        const Json::Value& menu = element["menu"];
        const Json::Value& label = element["label"];
        const Json::Value& description = element["description"];
        const Json::Value& workingDirectory = element["workingDirectory"];
        const Json::Value& executable = element["executable"];
        const Json::Value& parameters = element["parameters"];
        const Json::Value& board = element["board"];

        // Filtered before the checks below: a tool for another board never
        // spoils the list of this one. A machine that is both boards thus
        // keeps only the tools without a board.
        if (board.isString())
        {
            const std::string boardName = board.asString();
            if (isK9Q && boardName != "K9Q")
                continue;
            if (isRb417 && boardName != "RB417")
                continue;
        }

        if (!menu.isString() || !label.isString() || !executable.isString())
        {
            tools.clear();
            return false;
        }

        HWMaintenanceTool tool;
        tool.runAsRoot = runAsRoot.isBool() && runAsRoot.asBool();
        tool.menu = menu.asString();
        tool.label = label.asString();
        tool.description = OptionalString(description);
        tool.workingDirectory = OptionalString(workingDirectory);
        tool.executable = executable.asString();
        tool.parameters = OptionalString(parameters);
        tools.push_back(tool);
    }
    return true;
}

bool HWMaintenanceStep::ReadToolsFromFile(const std::string& path, bool isK9Q, bool isRb417,
                                          std::vector<HWMaintenanceTool>& tools)
{
    std::ifstream file(path.c_str(), std::ios::in);
    if (!file.is_open())
    {
        tools.clear();
        return false;
    }
    return ParseTools(file, isK9Q, isRb417, tools);
}

bool HWMaintenanceStep::ReadHWMaintenanceToolsFromFile()
{
    return ReadToolsFromFile(ToolListPath(InstallWizard::GetExePath()), Bios::IsK9Q(),
                             Bios::IsRb417(), _tools);
}

std::string HWMaintenanceStep::CommandLine(const HWMaintenanceTool& tool,
                                           const std::string& exePath)
{
    return FromExePath(tool.executable, exePath) + " " + tool.parameters;
}

std::string HWMaintenanceStep::WorkingDirectory(const HWMaintenanceTool& tool,
                                                const std::string& exePath)
{
    return FromExePath(tool.workingDirectory, exePath);
}

HWMaintenanceStep::Layout HWMaintenanceStep::Place(int height, int rows, int count, int helpLines)
{
    // Drawn in this order: the heading, the menu, then the help.
    ScreenLayout layout(rows);
    layout.Place(HeadingRow);
    const ScreenLayout::Block menu = layout.PlaceMenu((height - 6 - count) / 2, count, helpLines);
    const int helpRow = layout.Place(count + 6, helpLines);
    return {menu.row, menu.count, helpRow};
}

void HWMaintenanceStep::CreateWindow()
{
    WizardStep::CreateWindow();
    mvwprintw(_contentWindow, HeadingRow, 3, "%s", "Select an Hardware Maintenance tool:  ");

    const int count = static_cast<int>(_tools.size());
    if (count == 0)
    {
        // Not offered by the main menu; nothing to choose from, ESC leaves.
        wrefresh(_contentWindow);
        return;
    }

    // A help longer than the window's width goes on several rows.
    _helpLines.clear();
    _helpRows = 1;
    for (const auto& tool : _tools)
    {
        _helpLines.push_back(tool.description.size() > static_cast<size_t>(_width)
                                 ? WrapText(tool.description, _width)
                                 : std::vector<std::string>{tool.description});
        _helpRows = std::max(_helpRows, static_cast<int>(_helpLines.back().size()));
    }
    const int rows = getmaxy(_contentWindow);
    _layout = Place(_height, rows, count, _helpRows);

    std::vector<std::pair<std::string, std::string>> lines;
    for (const HWMaintenanceTool& tool : _tools)
        lines.emplace_back(tool.menu, tool.label);
    _menu = std::make_unique<CursesMenu>(std::move(lines), _contentWindow,
                                         CursesMenu::Place{_layout.menuRow, (_width - 34) / 2,
                                                           _layout.visibleItems + 1, _width - 35,
                                                           _layout.visibleItems});
    DisplayHelpMessage(0);
    wrefresh(_contentWindow);
}

void HWMaintenanceStep::DisplayHelpMessage(int index)
{
    if (index < 0 || index >= static_cast<int>(_tools.size()) ||
        index >= static_cast<int>(_helpLines.size()))
        return;
    // The help rows are blanked within the content window only; each line is
    // centred over 76 columns from column 4, or over the window itself where
    // that would run past the window's edge.
    const std::vector<std::string>& lines = _helpLines[static_cast<size_t>(index)];
    for (int i = 0; i < _helpRows; ++i)
    {
        const int row = _layout.helpRow + i;
        wattron(_contentWindow, COLOR_PAIR(2));
        mvwprintw(_contentWindow, row, 0, "%*s", _width, "");
        wattroff(_contentWindow, COLOR_PAIR(2));
        if (i >= static_cast<int>(lines.size()))
            continue;
        const std::string& line = lines[static_cast<size_t>(i)];
        const int length = static_cast<int>(line.size());
        const int column = HelpColumn + (HelpWidth - length) / 2;
        if (column + length <= _width)
            PrintInMiddle(_contentWindow, row, HelpColumn, HelpWidth, line.c_str(), COLOR_PAIR(2));
        else
            PrintInMiddle(_contentWindow, row, 0, _width, line.c_str(), COLOR_PAIR(2));
    }
}

bool HWMaintenanceStep::ReadMenuSelection()
{
    _selection = -1;
    const int count = static_cast<int>(_tools.size());
    do
    {
        const int key = ReadKeyFrom(_contentWindow);
        switch (key)
        {
        case Escape:
            return false;
        case KEY_DOWN:
        case KEY_UP:
            if (_menu)
            {
                if (key == KEY_DOWN)
                    _menu->Down();
                else
                    _menu->Up();
                DisplayHelpMessage(_menu->CurrentIndex());
            }
            break;
        case Enter:
            if (_menu && _menu->CurrentIndex() >= 0)
                _selection = _menu->CurrentIndex();
            break;
        default:
            // Digits run their tool at once, without ENTER.
            if (key - '1' >= 0 && key - '1' < count)
                _selection = key - '1';
            break;
        }
        wrefresh(_contentWindow);
    } while (_selection == -1);
    return true;
}

void HWMaintenanceStep::Execute()
{
    if (_selection < 0 || _selection >= static_cast<int>(_tools.size()))
        return;
    const HWMaintenanceTool& tool = _tools[static_cast<size_t>(_selection)];

    // The tool owns the terminal until it ends.
    endwin();

    char saved[4096];
    const bool haveSaved = getcwd(saved, sizeof(saved)) != nullptr;
    if (!haveSaved)
        InstallWizard::log(1, "Error reading working directory");

    const std::string exePath = InstallWizard::GetExePath();
    const std::string directory = WorkingDirectory(tool, exePath);
    const std::string command = CommandLine(tool, exePath);

    if (chdir(directory.c_str()) != 0)
    {
        // The tool still runs, in the directory the program was in.
        const std::string message = "Error changing working directory to : " + directory;
        InstallWizard::log(1, message.c_str());
    }

    // The switch holds for the whole process, but nothing else runs while the
    // tool is in the foreground.
    uid_t real = 0;
    uid_t effective = 0;
    uid_t savedId = 0;
    bool haveIds = false;
    if (tool.runAsRoot)
    {
        haveIds = getresuid(&real, &effective, &savedId) == 0;
        if (!haveIds || setuid(0) != 0)
            InstallWizard::log(1, "Error changing user to root");
    }

    // The tool's own failures are its business.
    const int ignored = std::system(command.c_str());
    (void)ignored;

    if (tool.runAsRoot && (!haveIds || setresuid(real, effective, savedId) != 0))
        InstallWizard::log(1, "Error restoring user right");

    if (!haveSaved || chdir(saved) != 0)
        InstallWizard::log(1, "Error restoring working directory");

    // Back to curses mode: the whole frame is drawn again.
    refresh();
}

bool HWMaintenanceStep::Run()
{
    CreateWindow();
    SetBottomText("<ESC> return to the main menu, <ENTER> or number to select the settings");
    while (ReadMenuSelection())
        Execute();
    DestroyWindow();
    return false;
}

void HWMaintenanceStep::FreeMenu()
{
    _menu.reset();
}

void HWMaintenanceStep::DestroyWindow()
{
    FreeMenu();
    WizardStep::DestroyWindow();
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
