// "HardwareMaintenance/HWMaintenance.json", the tool list read beside the
// program when the wizard starts, parsed for each kind of machine.
#include "FuzzCheck.h"
#include "HWMaintenanceStep.h"

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

using Kel::Vidorama::InstallerWizard::HWMaintenanceStep;
using Tool = HWMaintenanceStep::HWMaintenanceTool;

namespace
{

bool Parse(const std::string& text, bool isK9Q, bool isRb417, std::vector<Tool>& tools)
{
    std::istringstream in(text);
    const bool parsed = HWMaintenanceStep::ParseTools(in, isK9Q, isRb417, tools);
    if (!parsed)
        FUZZ_CHECK(tools.empty());
    for (const Tool& tool : tools)
    {
        // The shell command line and the working directory of every tool.
        const std::string command = HWMaintenanceStep::CommandLine(tool, "/mnt/USB/");
        FUZZ_CHECK(command.size() > tool.parameters.size());
        const std::string directory = HWMaintenanceStep::WorkingDirectory(tool, "/mnt/USB/");
        FUZZ_CHECK(directory.size() >= tool.workingDirectory.size());
    }
    return parsed;
}

// A machine of one board keeps a subset of the tools that a machine of no
// known board keeps, in the same order; its list can only be spoiled by
// elements that the other list has as well.
void CheckSubsequence(const std::vector<Tool>& all, const std::vector<Tool>& board)
{
    std::size_t next = 0;
    for (const Tool& tool : board)
    {
        while (next < all.size() && (all[next].menu != tool.menu || all[next].label != tool.label ||
                                     all[next].executable != tool.executable))
            ++next;
        FUZZ_CHECK(next < all.size());
        ++next;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<Tool> all;
    std::vector<Tool> k9q;
    std::vector<Tool> rb417;
    const bool parsedAll = Parse(text, false, false, all);
    const bool parsedK9Q = Parse(text, true, false, k9q);
    const bool parsedRb417 = Parse(text, false, true, rb417);
    if (parsedAll)
    {
        FUZZ_CHECK(parsedK9Q && parsedRb417);
        CheckSubsequence(all, k9q);
        CheckSubsequence(all, rb417);
    }
    return 0;
}
