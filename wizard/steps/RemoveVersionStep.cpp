#include "RemoveVersionStep.h"

#include "ChosenDiskMounts.h"
#include "DiskDescription.h"
#include "InstallPackage.h"
#include "InstallWizard.h"
#include "NCursesOutputStream.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using InstallerLib::InstallPackage;
using InstallerLib::PackageVersion;

namespace
{

const int KeyEnter = 10;

// The version that runs now, when it is not the current one any more (a switch without a
// restart), is kept like the current one. A DOS record is never it.
bool IsRunning(const PackageVersion& version, const PackageVersion& running)
{
    return !running.IsEmpty() && !version.IsDos() && version == running;
}

} // namespace

RemoveVersionStep::RemoveVersionStep() : WizardStep("Remove version", "<ESC> return to main menu")
{
}

RemoveVersionStep::~RemoveVersionStep() = default;

bool RemoveVersionStep::Run()
{
    CreateWindow();
    bool result = false;
    if (!disk)
    {
        mvwprintw(_contentWindow, 3, 3, "No disk available !");
        wrefresh(_contentWindow);
    }
    else
    {
        scrollok(_contentWindow, TRUE);
        // The removal acts on the chosen disk alone: its own partitions go on
        // the mount points, never another disk's left there by an earlier
        // operation; one that cannot be released stops it before anything.
        std::string refusal;
        const struct
        {
            int number;
            const char* type;
            const char* directory;
        } sides[] = {{2, "ext4", InstallPackage::SystemMountPoint},
                     {1, "fat16", InstallPackage::DosMountPoint}};
        for (const auto& side : sides)
        {
            const MountPointState state =
                TakeMountPoint(disk->path, side.number, side.type, side.directory);
            if (state.held && refusal.empty())
                refusal = HeldMessage(side.directory, state.holder, disk->path);
        }
        if (!refusal.empty())
        {
            NCursesOutputStream output(_contentWindow);
            output << std::endl << "   " << refusal << std::endl;
            InstallWizard::log(3, refusal.c_str());
        }
        else
            result = version.IsEmpty() ? RemoveAllVersion() : RemoveVersion();
    }
    SetBottomText("<ENTER> return to main menu");
    wrefresh(_contentWindow);
    while (ReadKeyFrom(_contentWindow) != KeyEnter)
    {
    }
    DestroyWindow();
    return result;
}

bool RemoveVersionStep::Uninstall(const PackageVersion& target, std::ostream& output)
{
    const bool removed = InstallPackage::UninstallPackageVersion(target, output);
    // The line end comes first only: the lines of a removal of all versions
    // follow one another without a blank line between them.
    output << std::endl
           << "   Remove version " << target.GetVersion(showRevisions)
           << (removed ? " succeed!" : " failed!");
    InstallWizard::log(removed ? 0 : 3,
                       removed ? "Remove version succeed!" : "Remove version failed!");
    return removed;
}

bool RemoveVersionStep::RemoveVersion()
{
    NCursesOutputStream output(_contentWindow);
    const PackageVersion current = InstallPackage::GetCurrentLinuxVersion();
    if (version == current)
    {
        output << "   The current version cannot be removed!";
        InstallWizard::log(3, "The current version cannot be removed!");
        return false;
    }
    if (IsRunning(version, InstallPackage::GetRunningLinuxVersion()))
    {
        output << "   The running version cannot be removed!";
        InstallWizard::log(3, "The running version cannot be removed!");
        return false;
    }

    ShowProgressPopup("Uninstall in progress", 5);
    const bool removed = Uninstall(version, output);
    if (removed)
    {
        // Forgotten: the next run without a new choice removes all unused ones.
        version = PackageVersion();
    }
    HideProgressPopup();
    return removed;
}

bool RemoveVersionStep::RemoveAllVersion()
{
    NCursesOutputStream output(_contentWindow);
    std::unique_ptr<std::vector<PackageVersion>> versions(InstallPackage::GetInstalledPackages());
    const PackageVersion current = InstallPackage::GetCurrentLinuxVersion();
    const PackageVersion running = InstallPackage::GetRunningLinuxVersion();
    const auto kept = [&current, &running](const PackageVersion& installed)
    { return installed == current || IsRunning(installed, running); };

    // Nothing but the current and the running version: nothing to ask about.
    if (std::all_of(versions->begin(), versions->end(), kept))
    {
        output << std::endl << "   No unused version to be removed!" << std::endl;
        return false;
    }

    // The operator answers for one disk among several: it is named on the
    // row above the question, which keeps the question and the removal lines
    // where they always were.
    mvwprintw(_contentWindow, 0, 3, "Disk: %s", DescribeDisk(*disk).c_str());
    output << std::endl
           << "   All versions of Vidorama will be deleted, continue ? (y/n)" << std::endl;
    wrefresh(_contentWindow);
    for (;;)
    {
        const int key = ReadKeyFrom(_contentWindow);
        if (key == 'n' || key == 'N')
        {
            InstallWizard::log(0, "Cancel remove all version");
            return false;
        }
        if (key == 'y' || key == 'Y')
        {
            break;
        }
    }

    ShowProgressPopup("Uninstall in progress", 5);
    bool result = true;
    for (const PackageVersion& installed : *versions)
    {
        UpdateProgressPopup();
        // The current and the running version are passed over without a word.
        if (!kept(installed) && !Uninstall(installed, output))
        {
            result = false;
        }
    }
    HideProgressPopup();
    return result;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
