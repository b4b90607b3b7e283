#include "AvailableVersionsStep.h"

#include "ChosenDiskMounts.h"

#include "CursesMenu.h"
#include "DiskDiagnostics.h"
#include "DiskTools.h"
#include "InstallPackage.h"
#include "InstallWizard.h"
#include "ScreenLayout.h"

#include <algorithm>

#include <string>
#include <utility>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using InstallerLib::InstallPackage;
using InstallerLib::PackageVersion;
using ZarnLinuxTools::DiskDiagnostics;
using ZarnLinuxTools::DiskTools;

namespace
{

const int KeyEscape = 27;
const int KeyEnter = 10;

std::string CouldNotRead(const std::string& disk, const char* mountPoint)
{
    return "Could not read installed version from disk " + disk + " in directory " + mountPoint +
           InstallPackage::VersionsPath;
}

// The mount point is emptied of whatever was there, then takes the partition.
bool Remount(const char* device, int number, const char* fileSystemType, const char* mountPoint)
{
    return DiskDiagnostics::IsDirectory(mountPoint) && DiskTools::UmountDirectory(mountPoint) &&
           DiskTools::MountPartition(device, number, fileSystemType, mountPoint, false);
}

} // namespace

AvailableVersionsStep::AvailableVersionsStep()
    : WizardStep("Available versions", "<ENTER> or number to select the version")
{
}

AvailableVersionsStep::~AvailableVersionsStep() = default;

bool AvailableVersionsStep::Run()
{
    CreateWindow();
    const bool result = SelectVersion();
    DestroyWindow();
    return result;
}

bool AvailableVersionsStep::MountPartitions()
{
    const std::string path = disk->path;
    bool linuxReady = false;
    if (DiskDiagnostics::IsDirectoryMountedOn(InstallPackage::SystemMountPoint, path.c_str(), 2))
    {
        // Written although the partition is in place; the line has always
        // read so.
        InstallWizard::log(3, CouldNotRead(path, InstallPackage::SystemMountPoint).c_str());
        linuxReady = true;
    }
    else
    {
        linuxReady = Remount(path.c_str(), 2, "ext4", InstallPackage::SystemMountPoint);
    }

    if (DiskDiagnostics::IsDirectoryMountedOn(InstallPackage::DosMountPoint, path.c_str(), 1))
    {
        InstallWizard::log(3, CouldNotRead(path, InstallPackage::DosMountPoint).c_str());
        return linuxReady;
    }
    // A DOS partition mounted afresh is enough: the Linux side counts only
    // when the DOS one was already in place.
    return Remount(path.c_str(), 1, "fat16", InstallPackage::DosMountPoint);
}

void AvailableVersionsStep::WaitForEnter()
{
    SetBottomText("<ENTER> return to the main menu");
    wrefresh(_contentWindow);
    while (ReadKeyFrom(_contentWindow) != KeyEnter)
    {
    }
}

bool AvailableVersionsStep::SelectVersion()
{
    if (!disk)
    {
        return false;
    }
    // A mount point that still shows another disk's partition (one that could
    // not be released) would list, and later change, that disk's versions.
    std::string refusal;
    const bool mounted = MountPartitions();
    for (const char* directory : {InstallPackage::SystemMountPoint, InstallPackage::DosMountPoint})
    {
        const std::string holder = DeviceMountedOn(directory);
        if (refusal.empty() && !holder.empty() && !IsPartitionOf(holder, disk->path))
            refusal = HeldMessage(directory, holder, disk->path);
    }
    if (!refusal.empty())
        InstallWizard::log(3, refusal.c_str());
    if (!mounted || !refusal.empty())
    {
        mvwprintw(_contentWindow, 3, 3, "Disk not correctly prepare for installation!");
        mvwprintw(_contentWindow, 4, 3, "See installer.log for details");
        if (!refusal.empty())
            mvwprintw(_contentWindow, 6, 3, "%s", refusal.c_str());
        WaitForEnter();
        return false;
    }

    const PackageVersion current = InstallPackage::GetCurrentLinuxVersion();
    // After a switch without a restart the version that runs is another one; it is out of
    // reach as well.
    const PackageVersion running = InstallPackage::GetRunningLinuxVersion();
    std::unique_ptr<std::vector<PackageVersion>> versions(InstallPackage::GetInstalledPackages());
    if (versions->empty())
    {
        mvwprintw(_contentWindow, 3, 3, "No available version");
        WaitForEnter();
        return false;
    }

    ScreenLayout layout(getmaxy(_contentWindow));
    mvwprintw(_contentWindow, layout.Place(3), (_width - 34) / 2, "%s", "Select the version :");
    std::vector<std::pair<std::string, std::string>> lines;
    std::vector<int> greyed;
    for (const PackageVersion& version : *versions)
    {
        if (version == current || (!running.IsEmpty() && !version.IsDos() && version == running))
        {
            greyed.push_back(static_cast<int>(lines.size()));
        }
        // A DOS version says so: it may carry a Linux version's number.
        lines.emplace_back(version.GetName(), version.GetVersionLabel(showRevisions));
    }

    bool result = false;
    selectedVersion = PackageVersion();
    const ScreenLayout::Block place =
        layout.PlaceMenu((_height - 13) / 2, std::min(10, static_cast<int>(lines.size())));
    {
        CursesMenu menu(
            std::move(lines), _contentWindow,
            CursesMenu::Place{place.row, (_width - 34) / 2, 11, _width - 35, place.count}, greyed);
        SetBottomText("<ESC> return to the main menu, <ENTER> to select the version");
        wrefresh(_contentWindow);
        refresh();

        for (bool decided = false; !decided;)
        {
            switch (ReadKeyFrom(_contentWindow))
            {
            case KEY_DOWN:
                menu.Down();
                break;
            case KEY_UP:
                menu.Up();
                break;
            case KeyEnter:
                // The current and the running version cannot be taken.
                if (menu.IsCurrentSelectable())
                {
                    selectedVersion = versions->at(static_cast<size_t>(menu.CurrentIndex()));
                    result = true;
                    decided = true;
                }
                break;
            case KeyEscape:
                decided = true;
                break;
            default:
                break;
            }
        }
    }
    wrefresh(_contentWindow);

    if (selectedVersion.IsEmpty())
    {
        InstallWizard::log(0, "No version selected!");
    }
    else
    {
        InstallWizard::log(0, (std::string("Selected version: ") + selectedVersion.GetName() + " " +
                               selectedVersion.GetVersion(true))
                                  .c_str());
    }
    return result;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
