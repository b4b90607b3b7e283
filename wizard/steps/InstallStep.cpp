#include "InstallStep.h"

#include "BootLoader.h"
#include "InstallWizard.h"
#include "NCursesOutputStream.h"
#include "PackageReadProgress.h"
#include "PackageScanCache.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <sstream>
#include <string>

#include <unistd.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

namespace
{

const int KeyEnter = 10;
const char* const ProgressText = "Installation in progress";
// The longest figure the pop-up makes room for: " 100%".
const int FigureWidth = 5;

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

void InstallStep::ShowReadFigure(int percent)
{
    const std::string base = ProgressText;
    const std::string text = percent >= 0 ? base + " " + std::to_string(percent) + "%" : base;
    if (_popupWindow == nullptr || text == _popupText)
    {
        return;
    }
    // Room for the widest figure, made once, so that the pop-up does not move as it grows.
    const int length = static_cast<int>(base.size()) + FigureWidth;
    if (getmaxx(_popupWindow) < length + _popupSize + 4)
    {
        mvwin(_popupWindow, _height / 2, std::max(0, (_width - length - _popupSize) / 2));
        wresize(_popupWindow, 3, length + _popupSize + 4);
    }
    _popupText = text;
    _popupPosition = 0;
    werase(_popupWindow);
    box(_popupWindow, 0, 0);
    mvwprintw(_popupWindow, 1, 2, "%s", _popupText.c_str());
    wrefresh(_contentWindow);
    touchwin(_popupWindow);
    wrefresh(_popupWindow);
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

    // A package the background reading already found damaged is refused at once: asking
    // whether to overwrite a good installation with it would suggest that it could.
    const auto kept = InstallerLib::PackageScanCache::Instance().Kept(package->GetPath());
    const bool knownDamaged = kept && kept->Damaged();
    if (!knownDamaged && package->IsInstalled(disk->path.c_str()))
    {
        output << "Package already installed, overwrite existing installation (y/n) ?" << std::endl;
        wrefresh(_contentWindow);
        for (bool decided = false; !decided;)
        {
            const int key = ReadKeyFrom(_contentWindow);
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

    ShowProgressPopup(ProgressText, 5);
    std::shared_ptr<InstallerLib::InstallPackage> installing = package;
    const std::string device = disk->path;
    std::future<InstallerLib::InstallPackage::InstallStatus> task =
        std::async(std::launch::async, [installing, device, &output]
                   { return installing->Install(device.c_str(), output); });
    // Each second: how far the installer has read the package, then the moving dots.
    const std::string packagePath = package->GetPath();
    while (task.wait_for(std::chrono::seconds(1)) != std::future_status::ready)
    {
        ShowReadFigure(InstallerLib::PackageReadProgress::Percent(::getpid(), packagePath));
        UpdateProgressPopup();
    }
    HideProgressPopup();
    const int status = task.get();

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
    while (ReadKeyFrom(_contentWindow) != KeyEnter)
    {
    }
    return false;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
