#include "ConfigurationLinesStep.h"

#include "ChosenDiskMounts.h"
#include "DiskDescription.h"
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
    // The disk whose lines go; row 2 stays free for the failure line.
    if (disk)
        mvwprintw(_contentWindow, 3, 3, "Disk: %s", DescribeDisk(*disk).c_str());
    wrefresh(_contentWindow);

    bool result = false;
    for (bool decided = false; !decided;)
    {
        const int key = ReadKeyFrom(_contentWindow);
        if (key == 'y' || key == 'Y')
        {
            decided = true;
            result = CleanConfigurationLines();
            if (!result)
            {
                mvwprintw(_contentWindow, 2, 3, "Error deleting configuration lines!");
                if (!refusal.empty())
                    mvwprintw(_contentWindow, 5, 3, "%s", refusal.c_str());
                InstallWizard::log(0, "Error deleting configuration lines");
                SetBottomText("<ENTER> return to the main menu");
                wrefresh(_contentWindow);
                while (ReadKeyFrom(_contentWindow) != KeyEnter)
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
    // Only the chosen disk's DOS partition is cleaned: another disk's left
    // on the mount point by an earlier operation is unmounted first, and one
    // that cannot be released stops the cleaning before anything is deleted.
    refusal.clear();
    if (!disk)
        return false;
    const MountPointState dos =
        TakeMountPoint(disk->path, 1, "fat16", InstallPackage::DosMountPoint);
    if (dos.held)
    {
        refusal = HeldMessage(InstallPackage::DosMountPoint, dos.holder, disk->path);
        InstallWizard::log(3, refusal.c_str());
        return false;
    }
    if (!dos.mounted)
        return false;
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
