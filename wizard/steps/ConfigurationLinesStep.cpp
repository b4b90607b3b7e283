#include "ConfigurationLinesStep.h"

#include "DiskDiagnostics.h"
#include "DiskTools.h"
#include "InstallPackage.h"
#include "InstallWizard.h"

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using InstallerLib::InstallPackage;
using ZarnLinuxTools::DiskDiagnostics;
using ZarnLinuxTools::DiskTools;

namespace
{

const int KeyEnter = 10;

// Upper case here, lower case in the partition step: the same directory of a
// FAT partition, which does not tell them apart.
const char* const SetupDirectory = "/DORIM/DATA/SETUP";

} // namespace

// "\w+\.lin" with the extension in any case. The DOS side writes upper-case
// 8.3 names ("CAM3.LIN"); FAT mounts once showed such names in lower case
// (shortname=lower), today's kernels show them as stored (shortname=mixed).
// Mounting with shortname=lower would help only where this step mounts the
// partition itself (a partition already mounted keeps its options) and not
// for a long name stored in mixed case ("Video.Lin"); a pattern that takes
// the extension in any case works on every mount. Written with character
// classes, it stays a plain ECMAScript pattern for DiskTools::DeleteAllFiles.
const char* const ConfigurationLinesStep::LinePattern = "\\w+\\.[Ll][Ii][Nn]";

ConfigurationLinesStep::ConfigurationLinesStep() : WizardStep("Clear configuration lines", "") {}

ConfigurationLinesStep::~ConfigurationLinesStep() = default;

bool ConfigurationLinesStep::Run()
{
    CreateWindow();
    mvwprintw(_contentWindow, 1, 3,
              "All configuration lines of Vidorama will be deleted, continue? (y/n)");
    wrefresh(_contentWindow);

    bool result = false;
    for (bool decided = false; !decided;)
    {
        const int key = wgetch(_contentWindow);
        if (key == 'y' || key == 'Y')
        {
            decided = true;
            result = CleanConfigurationLines();
            if (!result)
            {
                mvwprintw(_contentWindow, 2, 3, "Error deleting configuration lines!");
                InstallWizard::log(0, "Error deleting configuration lines");
                SetBottomText("<ENTER> return to the main menu");
                wrefresh(_contentWindow);
                while (wgetch(_contentWindow) != KeyEnter)
                {
                }
            }
        }
        else if (key == 'n' || key == 'N')
        {
            decided = true;
            InstallWizard::log(0, "Cancel clear configuration lines");
        }
    }
    DestroyWindow();
    return result;
}

bool ConfigurationLinesStep::CleanConfigurationLines()
{
    // Whatever is mounted there is taken as the DOS side.
    if (!DiskDiagnostics::IsDirectoryMounted(InstallPackage::DosMountPoint) &&
        (!disk || !DiskTools::MountPartition(disk->path.c_str(), 1, "fat16",
                                             InstallPackage::DosMountPoint, false)))
    {
        return false;
    }
    const std::string directory = std::string(InstallPackage::DosMountPoint) + SetupDirectory;
    const bool result = DiskTools::DeleteAllFiles(directory.c_str(), LinePattern, true);
    if (!result)
    {
        InstallWizard::log(3, "Error cleaning configuration lines");
    }
    return result;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
