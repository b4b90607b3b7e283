#include "PackageStep.h"

#include "CursesMenu.h"
#include "DiskDiagnostics.h"
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
using ZarnLinuxTools::DiskDiagnostics;

namespace
{

const int KeyEscape = 27;
const int KeyEnter = 10;

} // namespace

PackageStep::PackageStep()
    : WizardStep("Available packages", "<ENTER> or number to select the package")
{
}

PackageStep::~PackageStep() = default;

bool PackageStep::Run()
{
    CreateWindow();
    const bool result = SelectPackage();
    DestroyWindow();
    return result;
}

bool PackageStep::SelectPackage()
{
    // Without a key, the packages a previous installation left on the disk.
    const std::string directory =
        std::string(DiskDiagnostics::IsDirectoryMounted(InstallPackage::UsbMountPoint)
                        ? InstallPackage::UsbMountPoint
                        : InstallPackage::SystemMountPoint) +
        InstallPackage::PackagesPath;
    std::unique_ptr<std::vector<InstallPackage>> packages(
        InstallPackage::GetAvailablePackages(directory.c_str()));

    bool result = false;
    if (packages->empty())
    {
        mvwprintw(_contentWindow, 3, (_width - 34) / 2, "No available package in %s",
                  InstallPackage::PackagesPath);
        wrefresh(_contentWindow);
    }
    else
    {
        ScreenLayout layout(getmaxy(_contentWindow));
        mvwprintw(_contentWindow, layout.Place(3), (_width - 34) / 2, "%s",
                  "Select the package to install:");
        std::vector<std::pair<std::string, std::string>> lines;
        for (const InstallPackage& entry : *packages)
        {
            // A DOS package says so: it may carry a Linux package's number.
            lines.emplace_back(entry.GetVersion().GetName(),
                               entry.GetVersion().GetVersionLabel(showRevisions));
        }

        const ScreenLayout::Block place =
            layout.PlaceMenu((_height - 13) / 2, std::min(10, static_cast<int>(lines.size())));
        {
            CursesMenu menu(
                std::move(lines), _contentWindow,
                CursesMenu::Place{place.row, (_width - 34) / 2, 11, _width - 35, place.count});
            SetBottomText(allowEscape
                              ? "<ESC> return to the main menu, <ENTER> to select the package"
                              : "<ENTER> to select the package");
            wrefresh(_contentWindow);
            refresh();

            // Every listed package, highest first, is read while the operator chooses.
            std::vector<std::string> paths;
            for (const InstallPackage& entry : *packages)
            {
                paths.emplace_back(entry.GetPath());
            }
            scanner.Start(paths);

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
                    package = std::make_shared<InstallPackage>(
                        packages->at(static_cast<size_t>(menu.CurrentIndex())));
                    result = true;
                    decided = true;
                    break;
                case KeyEscape:
                    // After a format the disk must not be left without a version.
                    decided = allowEscape;
                    break;
                default:
                    break;
                }
            }
        }
        wrefresh(_contentWindow);
    }

    // Named whatever happened in this call: an earlier choice is still held.
    if (!package)
    {
        InstallWizard::log(0, "No package selected!");
    }
    else
    {
        InstallWizard::log(0, (std::string("Selected package: ") + package->GetVersion().GetName() +
                               " " + package->GetVersion().GetVersion(true))
                                  .c_str());
    }
    return result;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
