#include "RemoveVersionStep.h"

#include "InstallPackage.h"
#include "InstallWizard.h"
#include "NCursesOutputStream.h"

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
        result = version.IsEmpty() ? RemoveAllVersion() : RemoveVersion();
    }
    SetBottomText("<ENTER> return to main menu");
    wrefresh(_contentWindow);
    while (wgetch(_contentWindow) != KeyEnter)
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

    if (versions->empty() || (versions->size() == 1 && versions->front() == current))
    {
        output << std::endl << "   No unused version to be removed!" << std::endl;
        return false;
    }

    output << std::endl
           << "   All versions of Vidorama will be deleted, continue ? (y/n)" << std::endl;
    wrefresh(_contentWindow);
    for (;;)
    {
        const int key = wgetch(_contentWindow);
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
        // The running version is passed over without a word.
        if (installed != current && !Uninstall(installed, output))
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
