#pragma once

#include "CursesMenu.h"
#include "WizardStep.h"

#include <cstddef>
#include <istream>
#include <memory>
#include <string>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// The menu of hardware maintenance programs (diagnostics, firmware tools...)
// listed in "HardwareMaintenance/HWMaintenance.json" beside the program. The
// chosen tool gets the bare terminal, optionally with user id 0, and the menu
// comes back when it ends, so several tools may run in one visit.
class HWMaintenanceStep : public WizardStep
{
public:
    struct HWMaintenanceTool
    {
        bool runAsRoot = false;
        // The key shown left of the label (usually its number).
        std::string menu;
        std::string label;
        // Help line shown under the menu while the tool is highlighted.
        std::string description;
        // Relative to the program's directory unless it begins with "/".
        std::string workingDirectory;
        // Relative to the program's directory unless it begins with "/".
        std::string executable;
        std::string parameters;
    };

    // Reads the tool list once; a file that is missing, not JSON or has one bad
    // element gives no tools at all.
    HWMaintenanceStep();
    ~HWMaintenanceStep() override;

    // Always false: the main loop goes back to the menu whatever happened.
    bool Run() override;
    void CreateWindow() override;
    void DestroyWindow() override;

    std::size_t GetToolCount() const { return _tools.size(); }
    const std::vector<HWMaintenanceTool>& GetTools() const { return _tools; }

    // The tool list file under the program's directory.
    static std::string ToolListPath(const std::string& exePath);
    // Parses a tool list for a machine with the given board(s). On success the
    // list holds the tools of this machine in file order (possibly none); on
    // failure it is empty.
    static bool ParseTools(std::istream& in, bool isK9Q, bool isRb417,
                           std::vector<HWMaintenanceTool>& tools);
    // ParseTools on a file; false when it cannot be opened.
    static bool ReadToolsFromFile(const std::string& path, bool isK9Q, bool isRb417,
                                  std::vector<HWMaintenanceTool>& tools);
    // The shell command line: the executable, one blank, the parameters (the
    // blank is there even without parameters).
    static std::string CommandLine(const HWMaintenanceTool& tool, const std::string& exePath);
    // Where the tool runs; an empty value means the program's directory.
    static std::string WorkingDirectory(const HWMaintenanceTool& tool, const std::string& exePath);

    // Rows of the menu and of its help in the content window. The menu starts
    // at (height - 6 - count) / 2 and the help at count + 6 wherever they are
    // free; the menu goes under the heading (row 4) when it would reach it,
    // the help under the menu when they would share a row, and the menu shows
    // fewer items at a time (it scrolls) when the window ends first.
    struct Layout
    {
        int menuRow;
        int visibleItems;
        int helpRow;
    };
    static const int HeadingRow = 4;
    static Layout Place(int height, int rows, int count, int helpLines);

protected:
    bool ReadHWMaintenanceToolsFromFile();
    // Waits for a tool choice: true with the selection set, false on ESC.
    bool ReadMenuSelection();
    void Execute();
    void DisplayHelpMessage(int index);

private:
    void FreeMenu();

    std::unique_ptr<CursesMenu> _menu;
    int _selection = -1;
    Layout _layout{0, 0, 0};
    // Each tool's help, on as many rows as the longest one needs.
    std::vector<std::vector<std::string>> _helpLines;
    int _helpRows = 1;
    // Fixed for the life of the process.
    std::vector<HWMaintenanceTool> _tools;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
