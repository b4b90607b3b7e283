#include "ChangeVersionStep.h"

#include "BootLoader.h"
#include "InstallPackage.h"
#include "InstallWizard.h"
#include "NCursesOutputStream.h"
#include "SystemTools.h"

#include <sstream>
#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using InstallerLib::InstallPackage;

namespace
{

const int KeyEnter = 10;

} // namespace

ChangeVersionStep::ChangeVersionStep() : WizardStep("Change version", "") {}

ChangeVersionStep::~ChangeVersionStep() = default;

bool ChangeVersionStep::Run()
{
    CreateWindow();
    const bool result = ChangeVersion();
    DestroyWindow();

    if (result)
    {
        const char* entry = version.IsDos() ? "VidoramaDos" : "VidoramaLinux";
        std::ostringstream text;
        text << "Syslinux change default entry -> ";
        // Only a failure is logged here; the restart follows either way.
        if (!InstallerLib::BootLoader::ChangeDefaultBootEntry(disk->path.c_str(), 1,
                                                              "/boot/syslinux", entry, text))
        {
            InstallWizard::log(3, text.str().c_str());
        }
        ZarnLinuxTools::SystemTools::Reboot();
    }
    return result;
}

bool ChangeVersionStep::ChangeVersion()
{
    if (!disk || version.IsEmpty())
    {
        mvwprintw(_contentWindow, 3, 3, "No disk or available version selected !");
        wrefresh(_contentWindow);
        return false;
    }

    move(LINES - 1, 0);
    clrtoeol();
    refresh();
    scrollok(_contentWindow, TRUE);
    NCursesOutputStream output(_contentWindow);

    ShowProgressPopup("Change version in progress", 5);
    move(LINES - 3, 6);
    const bool result = InstallPackage::ChangeCurrentVersion(version, output);

    output << std::endl
           << "Change current version to " << version.GetVersion(showRevisions)
           << (result ? " succeed!" : " failed!") << std::endl;
    if (result)
    {
        InstallWizard::log(0, "Change current version succeed!");
        SetBottomText("<ENTER> to reboot");
    }
    else
    {
        InstallWizard::log(3, "Change current version failed!");
        SetBottomText("<ENTER> to exit");
    }
    HideProgressPopup();
    wrefresh(_contentWindow);
    while (ReadKeyFrom(_contentWindow) != KeyEnter)
    {
    }
    return result;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
