#include "InstallWizard.h"

#include "RunContext.h"
#include "SystemTools.h"

#include <cstdio>
#include <sstream>
#include <sys/utsname.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using ZarnLinuxTools::SystemTools;

namespace
{

// Operation codes of the main menu.
enum Operation
{
    InstallWithoutFormat = 0,
    StartVersion = 1,
    FormatAndInstall = 2,
    ChangeActiveVersion = 4,
    DeleteSpecificVersion = 5,
    DeleteUnusedVersions = 6,
    ClearConfiguration = 7,
    HardwareMaintenance = 8,
    ResetBiosSettings = 9,
    ExitToShell = 10,
    SupportContact = 11,
    Licenses = 12,
    Shutdown = 13,
};

} // namespace

InstallWizard::InstallWizard()
    : _eepromReader(GetDriversPath(), GetUcodeZarnPath(),
                    (std::string(GetExePath()) + "EepromReader").c_str()),
      _partitionStep(_eepromReader),
      _contactsStep("Contacts", (std::string(GetDataPath()) + "contacts.txt").c_str()),
      _licensesStep("Licenses", (std::string(GetDataPath()) + "licenses.txt").c_str()),
      _networkStep(_eepromReader)
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
    _packageStep.SetShowRevisions(options.showRevisions);
    _availableVersionsStep.SetShowRevisions(options.showRevisions);
    _changeVersionStep.SetShowRevisions(options.showRevisions);
    _removeVersionStep.SetShowRevisions(options.showRevisions);
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
        case InstallWithoutFormat:
            if (InstallVidorama(false))
                return 2;
            break;
        case FormatAndInstall:
            if (InstallVidorama(true))
                return 2;
            break;
        case ChangeActiveVersion:
            if (ChangeVersion())
                return 2;
            break;
        case DeleteSpecificVersion:
            RemoveVersion(false);
            break;
        case DeleteUnusedVersions:
            RemoveVersion(true);
            break;
        case ClearConfiguration:
            ClearConfigurationLines();
            break;
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

bool InstallWizard::InstallVidorama(bool format)
{
    const char* title = format ? "Format and Install Vidorama" : "Install Vidorama";
    _hardwareCheckStep.SetTitle(title);
    _selectDiskStep.SetTitle(title);
    _partitionStep.SetTitle(title);
    _packageStep.SetTitle(title);
    _installStep.SetTitle(title);
    _biosStep.SetTitle(title);
    _networkStep.SetTitle(title);

    bool ok = _hardwareCheckStep.Run();
    if (ok)
        ok = _selectDiskStep.Run();

    // Handed over even after a cancelled selection; unused then.
    _partitionStep.SetDisk(_selectDiskStep.GetDisk());
    _partitionStep.SetFormatRequested(format);
    if (ok)
        ok = _partitionStep.Run();

    // A freshly formatted disk must not be left without a version.
    _packageStep.SetEscapeAllowed(!format);
    if (!ok || !_packageStep.Run())
        return false;

    _installStep.SetPackage(_packageStep.GetPackage());
    _installStep.SetDisk(_selectDiskStep.GetDisk());
    _networkStep.SetPackage(_packageStep.GetPackage());
    _networkStep.SetDisk(_selectDiskStep.GetDisk());
    if (!_installStep.Run())
        return false;

    if (format && _biosStep.IsAvailable())
    {
        // A failed BIOS load is shown by the step; the installation goes on.
        _biosStep.SetWithinInstallation(true);
        _biosStep.Run();
    }

    if (!_networkStep.Run())
        return false;

    SystemTools::Reboot();
    return true;
}

bool InstallWizard::ChangeVersion()
{
    // The plural is the screen's own wording.
    _selectDiskStep.SetTitle("Change active versions");
    _availableVersionsStep.SetTitle("Change active versions");

    const bool ok = _selectDiskStep.Run();
    _availableVersionsStep.SetDisk(_selectDiskStep.GetDisk());
    if (!ok || !_availableVersionsStep.Run())
        return false;

    _changeVersionStep.SetDisk(_selectDiskStep.GetDisk());
    _changeVersionStep.SetVersion(_availableVersionsStep.GetSelectedVersion());
    return _changeVersionStep.Run();
}

bool InstallWizard::RemoveVersion(bool allVersions)
{
    const char* title = allVersions ? "Delete all unused versions" : "Delete specific version";
    _selectDiskStep.SetTitle(title);
    _availableVersionsStep.SetTitle(title);
    _removeVersionStep.SetTitle(title);

    if (!_selectDiskStep.Run())
        return false;

    if (!allVersions)
    {
        _availableVersionsStep.SetDisk(_selectDiskStep.GetDisk());
        if (!_availableVersionsStep.Run())
            return false;
        _removeVersionStep.SetVersion(_availableVersionsStep.GetSelectedVersion());
    }
    // "All" takes whatever version the step still holds: none after a
    // successful removal, the same one again after a failed one.
    _removeVersionStep.SetDisk(_selectDiskStep.GetDisk());
    return _removeVersionStep.Run();
}

bool InstallWizard::ClearConfigurationLines()
{
    _selectDiskStep.SetTitle(_configurationLinesStep.GetTitle().c_str());
    if (!_selectDiskStep.Run())
        return false;
    _configurationLinesStep.SetDisk(_selectDiskStep.GetDisk());
    return _configurationLinesStep.Run();
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

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
