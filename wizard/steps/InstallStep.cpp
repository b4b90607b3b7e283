#include "InstallStep.h"

#include "BootLoader.h"
#include "InstallWizard.h"
#include "NCursesOutputStream.h"

#include <future>
#include <sstream>
#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

namespace
{

const int KeyEnter = 10;

} // namespace

InstallStep::InstallStep() : WizardStep("Install package", "") {}

InstallStep::~InstallStep() = default;

const char* InstallStep::StatusText(int status)
{
    switch (status)
    {
    case InstallerLib::InstallPackage::InstallationSucceeded:
        return "Installation succeed!";
    case InstallerLib::InstallPackage::InvalidPackage:
        return "Installation failed! Invalid package.";
    case InstallerLib::InstallPackage::DestinationNotReady:
        return "Installation failed! Destination not ready.";
    case InstallerLib::InstallPackage::NotEnoughSpace:
        return "Installation failed! No available disk space.";
    case InstallerLib::InstallPackage::NoPreviousDosInstallation:
        return "Installation failed! No previous vidorama dos installation found.";
    default:
        return "Installation failed!";
    }
}

bool InstallStep::Run()
{
    CreateWindow();
    const bool result = InstallPackage();
    DestroyWindow();

    if (result)
    {
        const char* entry = package->GetVersion().IsDos() ? "VidoramaDos" : "VidoramaLinux";
        std::ostringstream text;
        text << "Syslinux change default entry -> ";
        // Only a change that worked is logged; a failure leaves the result as it is.
        if (InstallerLib::BootLoader::ChangeDefaultBootEntry(disk->path.c_str(), 1,
                                                             "/boot/syslinux", entry, text))
        {
            InstallWizard::log(3, text.str().c_str());
        }
    }
    return result;
}

bool InstallStep::InstallPackage()
{
    if (!package || !disk)
    {
        mvwprintw(_contentWindow, 3, 3, "No package or disk selected !");
        wrefresh(_contentWindow);
        return false;
    }

    move(LINES - 1, 0);
    clrtoeol();
    refresh();
    scrollok(_contentWindow, TRUE);
    NCursesOutputStream output(_contentWindow);

    if (package->IsInstalled(disk->path.c_str()))
    {
        output << "Package already installed, overwrite existing installation (y/n) ?" << std::endl;
        wrefresh(_contentWindow);
        for (bool decided = false; !decided;)
        {
            const int key = wgetch(_contentWindow);
            if (key == 'y' || key == 'Y')
            {
                decided = true;
            }
            else if (key == 'n' || key == 'N')
            {
                InstallWizard::log(0, "Cancel installation");
                return false;
            }
        }
    }

    ShowProgressPopup("Installation in progress", 5);
    std::shared_ptr<InstallerLib::InstallPackage> installing = package;
    const std::string device = disk->path;
    std::future<InstallerLib::InstallPackage::InstallStatus> task =
        std::async(std::launch::async, [installing, device, &output]
                   { return installing->Install(device.c_str(), output); });
    const int status = WaitForTask(task);

    const bool succeeded = status == InstallerLib::InstallPackage::InstallationSucceeded;
    if (status == InstallerLib::InstallPackage::DamagedPackage)
    {
        // The package, not the disk, is at fault: said in the log as on the screen.
        InstallWizard::log(3, InstallerLib::detail::DamagedPackageLine(package->GetPath()).c_str());
    }
    InstallWizard::log(succeeded ? 0 : 3, StatusText(status));
    if (succeeded)
    {
        return true;
    }
    SetBottomText("<ENTER> return to the main menu");
    wrefresh(_contentWindow);
    while (wgetch(_contentWindow) != KeyEnter)
    {
    }
    return false;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
