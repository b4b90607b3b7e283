#include "InstallWizard.h"

#include "AutoInstallFile.h"
#include "AutoInstallTargets.h"
#include "DiskDescription.h"
#include "DiskDiagnostics.h"
#include "RunContext.h"
#include "SystemTools.h"

#include <cstdio>
#include <ctime>
#include <memory>
#include <sstream>
#include <sys/utsname.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using InstallerLib::InstallPackage;
using ZarnLinuxTools::DiskDiagnostics;
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

const int KeyEnter = 10;
const int KeyEscape = 27;
const char* const NoServer = "0.0.0.0";

// The keys one screen of an unattended installation reads, as the operator
// would type them. Whatever was typed before is dropped first, so that
// neither a key pressed on the console nor an answer the previous screen
// did not need reaches this screen.
void TypeAhead(const std::vector<int>& keys)
{
    flushinp();
    // The input queue gives back the last key pushed first.
    for (auto key = keys.rbegin(); key != keys.rend(); ++key)
        ungetch(*key);
}

// Down to the index-th line of a menu, then ENTER; a further ENTER passes
// a failure screen.
std::vector<int> MenuKeys(size_t index)
{
    std::vector<int> keys(index, KEY_DOWN);
    keys.push_back(KeyEnter);
    keys.push_back(KeyEnter);
    return keys;
}

// The directory the package selection lists.
std::string PackageDirectory()
{
    return std::string(DiskDiagnostics::IsDirectoryMounted(InstallPackage::UsbMountPoint)
                           ? InstallPackage::UsbMountPoint
                           : InstallPackage::SystemMountPoint) +
           InstallPackage::PackagesPath;
}

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
    options.autoNow = _autoNow;
    options.noAuto = _noAuto;
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
    _autoNow = options.autoNow;
    _noAuto = options.noAuto;
}

int InstallWizard::Start()
{
    if (MayInstallUnattended())
    {
        if (_autoNow)
        {
            if (InstallUnattended())
                return 2;
        }
        else
        {
            std::string text;
            _startStep.SetUnattendedCountdown(
                AutoInstallFile::Read(std::string(GetExePath()) + AutoInstallFile::FileName, text));
        }
    }

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
        case StartStep::UnattendedInstallation:
            if (InstallUnattended())
                return 2;
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

void InstallWizard::SetInstallTitles(bool format)
{
    const char* title = format ? "Format and Install Vidorama" : "Install Vidorama";
    _hardwareCheckStep.SetTitle(title);
    _selectDiskStep.SetTitle(title);
    _partitionStep.SetTitle(title);
    _packageStep.SetTitle(title);
    _installStep.SetTitle(title);
    _biosStep.SetTitle(title);
    _networkStep.SetTitle(title);
}

bool InstallWizard::InstallVidorama(bool format)
{
    SetInstallTitles(format);

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

bool InstallWizard::MayInstallUnattended() const
{
    // From the installed disk the answer file is never used, whatever the
    // options say about the menu.
    return !_noAuto && !_startStep.IsRunningFromDisk() && !IsRunningFromDisk();
}

std::string InstallWizard::WriteReport(AutoInstallReport& report, bool& written)
{
    report.ended = time(nullptr);
    std::string path;
    written = report.Write(std::string(GetExePath()) + "reports", "installer.log", path);
    if (!written)
    {
        log(3, ("Unable to write the unattended installation report " + path).c_str());
        return "The report could not be written to " + path;
    }
    return "Report: " + path;
}

bool InstallWizard::FailUnattended(AutoInstallReport& report, const std::string& heading,
                                   const std::string& reason, bool diskUntouched)
{
    log(3, (heading + ": " + reason).c_str());
    report.succeeded = false;
    report.reason = reason;
    bool written = false;
    const std::string where = WriteReport(report, written);

    std::vector<std::string> lines = {reason, ""};
    if (diskUntouched)
        lines.push_back("Nothing was written to any disk.");
    lines.push_back(where);
    // A failure never restarts the machine: it stays on screen until ENTER.
    _autoInstallStep.SetTitle("Unattended installation");
    _autoInstallStep.SetContent(heading, true, lines, "<ENTER> return to the main menu");
    _autoInstallStep.Run();
    return false;
}

bool InstallWizard::InstallUnattended()
{
    AutoInstallReport report;
    report.started = time(nullptr);
    report.serialNumber = _eepromReader.Read().serialNumber;
    const std::string refused = "The answer file cannot be used";
    log(0, "Unattended installation");

    // Everything is checked before any disk is touched.
    const std::string file = std::string(GetExePath()) + AutoInstallFile::FileName;
    std::string text;
    if (!AutoInstallFile::Read(file, text))
        return FailUnattended(report, refused, file + " cannot be read", true);

    AutoInstallAnswers answers;
    AutoInstallProblem problem;
    if (!AutoInstallFile::Parse(text, report.serialNumber.empty() ? "unknown" : report.serialNumber,
                                answers, problem))
        return FailUnattended(report, refused, problem.Text(), true);

    // The same list as the disk selection shows from the key.
    std::unique_ptr<std::vector<ZarnLinuxTools::Disk>> disks(DiskDiagnostics::GetDisks());
    if (!disks)
        disks = std::make_unique<std::vector<ZarnLinuxTools::Disk>>();
    size_t diskIndex = 0;
    if (!AutoInstallTargets::ChooseDisk(answers.disk, *disks, diskIndex, problem))
        return FailUnattended(report, refused, problem.Text(), true);
    const ZarnLinuxTools::Disk target = disks->at(diskIndex);
    report.diskKnown = true;
    report.diskPath = target.path;
    report.diskModel = target.model;
    report.diskSize = target.size;

    std::unique_ptr<std::vector<ZarnLinuxTools::Partition>> partitions(
        DiskDiagnostics::GetPartitions(target.path.c_str()));
    const bool holdsInstallation = partitions && AutoInstallTargets::HoldsInstallation(*partitions);
    if (!AutoInstallTargets::MayFormat(answers, target.path, holdsInstallation, problem))
        return FailUnattended(report, refused, problem.Text(), true);

    // The same list as the package selection shows.
    const std::string directory = PackageDirectory();
    std::unique_ptr<std::vector<InstallPackage>> packages(
        InstallPackage::GetAvailablePackages(directory.c_str()));
    std::vector<AutoInstallTargets::Package> choices;
    if (packages)
        for (const InstallPackage& package : *packages)
            choices.push_back({package.GetPath(), package.GetVersion()});
    size_t packageIndex = 0;
    if (!AutoInstallTargets::ChoosePackage(answers.package, choices, packageIndex, problem))
        return FailUnattended(report, refused, problem.Text(), true);
    const AutoInstallTargets::Package& chosen = choices[packageIndex];
    report.packageKnown = true;
    report.packageFile = chosen.path.substr(chosen.path.rfind('/') + 1);
    report.packageName = chosen.version.GetName();
    report.packageVersion = chosen.version.GetVersion(true);

    std::ostringstream answered;
    answered << "Unattended installation of " << report.packageName << " " << report.packageVersion
             << " on " << target.path << (answers.format ? " with a format" : " without a format");
    log(0, answered.str().c_str());

    if (!RunUnattendedChain(answers, report))
        return false;

    // The chain ended: the report first, then the answer's ending.
    report.succeeded = true;
    log(0, "Unattended installation succeeded");
    bool written = false;
    const std::string where = WriteReport(report, written);
    if (written && answers.finish == "reboot")
    {
        SystemTools::Reboot();
        return true;
    }
    if (written && answers.finish == "poweroff")
    {
        // The machine goes down on its own, as after "Shutdown".
        std::stringstream output;
        SystemTools::ExecuteCommand("poweroff", output, true);
        return false;
    }
    // "wait", or a report that could not be written: the operator sees it first.
    _autoInstallStep.SetTitle("Unattended installation");
    _autoInstallStep.SetContent(
        "Unattended installation succeeded", false,
        {DescribeDisk(target), report.packageName + " " + report.packageVersion, "", where},
        "<ENTER> to reboot");
    _autoInstallStep.Run();
    SystemTools::Reboot();
    return true;
}

bool InstallWizard::RunUnattendedChain(const AutoInstallAnswers& answers, AutoInstallReport& report)
{
    const std::string failed = "Unattended installation failed";
    // A step that gave up: what it showed, and what it logged as the failure.
    auto shown = [](const std::string& screen)
    {
        if (_lastFailure.empty() || _lastFailure == screen)
            return screen;
        return screen + " (" + _lastFailure + ")";
    };

    const bool format = answers.format;
    SetInstallTitles(format);

    _lastFailure.clear();
    TypeAhead({});
    _hardwareCheckStep.Run();

    // The disk list is read again by the step; the answer is its position.
    std::unique_ptr<std::vector<ZarnLinuxTools::Disk>> disks(DiskDiagnostics::GetDisks());
    size_t diskIndex = 0;
    while (disks && diskIndex < disks->size() && disks->at(diskIndex).path != report.diskPath)
        ++diskIndex;
    TypeAhead(MenuKeys(diskIndex));
    if (!_selectDiskStep.Run() || !_selectDiskStep.GetDisk() ||
        _selectDiskStep.GetDisk()->path != report.diskPath)
        return FailUnattended(report, failed, "The disk " + report.diskPath + " was not selected",
                              true);

    _partitionStep.SetDisk(_selectDiskStep.GetDisk());
    _partitionStep.SetFormatRequested(format);
    _lastFailure.clear();
    // "y" to the format's question; ESC passes a failure screen.
    TypeAhead({'y', KeyEscape});
    if (!_partitionStep.Run())
        return FailUnattended(report, failed,
                              shown(format ? "Disk not correctly prepared for installation!"
                                           : "Disk not ready for installation!"),
                              !format);

    _packageStep.SetEscapeAllowed(!format);
    size_t packageIndex = 0;
    {
        std::unique_ptr<std::vector<InstallPackage>> packages(
            InstallPackage::GetAvailablePackages(PackageDirectory().c_str()));
        const std::string wanted = report.packageFile;
        while (packages && packageIndex < packages->size())
        {
            const std::string path = packages->at(packageIndex).GetPath();
            if (path.substr(path.rfind('/') + 1) == wanted)
                break;
            ++packageIndex;
        }
    }
    _lastFailure.clear();
    TypeAhead(MenuKeys(packageIndex));
    if (!_packageStep.Run() || !_packageStep.GetPackage())
        return FailUnattended(
            report, failed, std::string("No available package in ") + InstallPackage::PackagesPath,
            false);
    const std::string taken = _packageStep.GetPackage()->GetPath();
    if (taken.substr(taken.rfind('/') + 1) != report.packageFile)
        return FailUnattended(report, failed,
                              "The package " + report.packageFile + " was not selected", false);

    _installStep.SetPackage(_packageStep.GetPackage());
    _installStep.SetDisk(_selectDiskStep.GetDisk());
    _networkStep.SetPackage(_packageStep.GetPackage());
    _networkStep.SetDisk(_selectDiskStep.GetDisk());
    _lastFailure.clear();
    // The overwrite question's answer; ENTER passes a failure screen.
    TypeAhead({answers.overwrite ? 'y' : 'n', KeyEnter});
    if (!_installStep.Run())
        return FailUnattended(
            report, failed,
            _lastFailure.empty()
                ? "Package already installed, not overwritten (\"overwrite\": false)"
                : _lastFailure,
            false);

    // "keep" leaves the board's settings alone: the menu has no such line.
    if (format && _biosStep.IsAvailable() && answers.bios != "keep")
    {
        // "1" loads the standard settings, "2" the enhanced ones; ENTER
        // passes a failure, which does not stop the installation.
        TypeAhead({answers.bios == "enhanced" ? '2' : '1', KeyEnter});
        _biosStep.SetWithinInstallation(true);
        _biosStep.Run();
    }

    const AutoInstallAnswers::Network network = answers.network;
    if (network.present)
    {
        _networkStep.SetProposal(
            [network](ZarnLinuxTools::NetworkInterface& lan, std::string& hostname,
                      ZarnLinuxTools::DnsInterface& dns)
            {
                if (network.hostname)
                    hostname = *network.hostname;
                lan.method = network.mode;
                if (network.mode == "static")
                {
                    lan.address = network.address;
                    lan.netmask = network.mask;
                    lan.gateway = network.gateway;
                }
                if (network.dnsGiven)
                {
                    const auto server = [&network](size_t i)
                    { return i < network.dns.size() ? network.dns[i] : std::string(NoServer); };
                    dns.primaryServer = server(0);
                    dns.secondaryServer = server(1);
                    dns.tertiaryServer = server(2);
                    dns.domain = network.domain;
                }
            });
    }
    _lastFailure.clear();
    // ENTER applies the form; ENTER passes "Installation is done".
    TypeAhead({KeyEnter, KeyEnter});
    const bool saved = _networkStep.Run();
    _networkStep.SetProposal(nullptr);

    const ZarnLinuxTools::NetworkInterface& lan = _networkStep.GetInterface();
    const ZarnLinuxTools::DnsInterface& dns = _networkStep.GetDnsInterface();
    report.networkApplied = saved;
    report.hostname = _networkStep.GetHostname();
    report.mode = lan.method;
    report.address = lan.address;
    report.mask = lan.netmask;
    report.gateway = lan.gateway;
    report.dns.clear();
    for (const std::string& server : {dns.primaryServer, dns.secondaryServer, dns.tertiaryServer})
        if (!server.empty() && server != NoServer)
            report.dns.push_back(server);
    report.domain = dns.domain;
    if (!saved)
        return FailUnattended(report, failed, "Unable to save network configuration", false);
    return true;
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
