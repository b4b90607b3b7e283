#include "InstallWizard.h"

#include "RunContext.h"
#include "SystemTools.h"

#include <cstdio>
#include <sstream>
#include <sys/utsname.h>

namespace Kel { namespace Vidorama { namespace InstallerWizard {

using ZarnLinuxTools::SystemTools;

namespace {

// Operation codes of the main menu.
enum Operation
{
    StartVersion = 1,
    HardwareMaintenance = 8,
    ResetBiosSettings = 9,
    ExitToShell = 10,
    SupportContact = 11,
    Licenses = 12,
    Shutdown = 13,
};

} // namespace

InstallWizard::InstallWizard()
    : _eepromReader(GetDriversPath(), GetUcodeZarnPath(), (std::string(GetExePath()) + "EepromReader").c_str()),
      _contactsStep("Contacts", (std::string(GetDataPath()) + "contacts.txt").c_str()),
      _licensesStep("Licenses", (std::string(GetDataPath()) + "licenses.txt").c_str())
{
    // The main menu offers only what this machine and this key can do.
    _startStep.SetHardwareMaintenanceAvailable(_hwMaintenanceStep.GetToolCount() > 0);
    _startStep.SetBiosResetAvailable(_biosStep.IsAvailable());
}

InstallWizard::~InstallWizard() = default;

CommandLineOptions InstallWizard::DefaultOptions() const
{
    CommandLineOptions options;
    options.runningFromDisk = _startStep.IsRunningFromDisk();
    options.runningFromUsbKey = _startStep.IsRunningFromUsbKey();
    options.timer = _startStep.GetTimer();
    options.showRevisions = _startStep.GetShowRevisions();
    options.message = _startStep.GetMessage();
    return options;
}

void InstallWizard::ApplyOptions(const CommandLineOptions& options)
{
    _startStep.SetRunningFromDisk(options.runningFromDisk);
    _startStep.SetRunningFromUsbKey(options.runningFromUsbKey);
    _startStep.SetTimer(options.timer);
    _startStep.SetShowRevisions(options.showRevisions);
    _startStep.SetMessage(options.message.c_str());
}

int InstallWizard::Start()
{
    for (;;)
    {
        if (!_startStep.Run())
            return -1;

        switch (_startStep.GetSelection())
        {
        case StartVersion:
            clear();
            refresh();
            return 0;
        case HardwareMaintenance:
            _hwMaintenanceStep.Run();
            break;
        case ResetBiosSettings:
            ResetBios();
            break;
        case ExitToShell:
            clear();
            refresh();
            return 2;
        case SupportContact:
            _contactsStep.Run();
            break;
        case Licenses:
            _licensesStep.Run();
            break;
        case Shutdown:
        {
            // The machine goes down on its own; the menu is simply drawn again.
            std::stringstream output;
            SystemTools::ExecuteCommand("halt", output, true);
            break;
        }
        default:
            // ESC in the sub-menu, "Versions" itself, and codes without an
            // operation in this build: back to the menu.
            break;
        }
    }
}

bool InstallWizard::ResetBios()
{
    _biosStep.SetTitle("Reset Bios");
    _biosStep.SetWithinInstallation(false);
    if (!_biosStep.Run())
        return false;
    return SystemTools::Reboot();
}

bool InstallWizard::IsRunningFromUsbKey()
{
    return RunContext::BootsFromUsbKey(SystemTools::GetKernelCommandLine());
}

bool InstallWizard::IsRunningFromDisk()
{
    return RunContext::BootsFromDisk(SystemTools::GetKernelCommandLine());
}

const char* InstallWizard::GetDataPath()
{
    return RunContext::DataPath(IsRunningFromDisk());
}

const char* InstallWizard::GetExePath()
{
    return RunContext::ExePath(IsRunningFromDisk());
}

const char* InstallWizard::GetUcodeZarnPath()
{
    return RunContext::UcodeZarnPath(IsRunningFromDisk());
}

const char* InstallWizard::GetDriversPath()
{
    static char path[256] = "";
    if (path[0] == '\0')
    {
        utsname names;
        // On failure the buffer stays empty and the next call tries again.
        if (uname(&names) == 0)
            snprintf(path, sizeof(path), "/lib/modules/%s/extra/", names.release);
    }
    return path;
}

}}} // namespace Kel::Vidorama::InstallerWizard
