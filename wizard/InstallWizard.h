#pragma once

#include "AutoInstallAnswers.h"
#include "AutoInstallReport.h"
#include "AutoInstallStep.h"
#include "AvailableVersionsStep.h"
#include "BiosStep.h"
#include "ChangeVersionStep.h"
#include "CommandLine.h"
#include "ConfigurationLinesStep.h"
#include "EepromReader.h"
#include "HWMaintenanceStep.h"
#include "HardwareCheckStep.h"
#include "InstallStep.h"
#include "NetworkStep.h"
#include "PackageStep.h"
#include "PartitionStep.h"
#include "RemoveVersionStep.h"
#include "SelectDiskStep.h"
#include "StartStep.h"
#include "TextStep.h"
#include "Wizard.h"

#include <fstream>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// The application: owns every step, runs the main loop and answers the
// run-context questions (where the program runs from, where its files are).
class InstallWizard : public Wizard
{
public:
    InstallWizard();
    ~InstallWizard() override;

    int Start() override;

    // Hands the parsed command line to the steps that use it.
    void ApplyOptions(const CommandLineOptions& options);
    // The options as they stand before parsing: the mode flags of the main menu.
    CommandLineOptions DefaultOptions() const;

    // One line per call to "installer.log" in the working directory.
    static void log(int level, const char* message);

    static bool IsRunningFromUsbKey();
    static bool IsRunningFromDisk();
    static const char* GetDataPath();
    static const char* GetExePath();
    static const char* GetDriversPath();
    static const char* GetUcodeZarnPath();

    // The whole installation chain; format also repartitions the disk. True
    // only when the chain ended and the restart request failed.
    bool InstallVidorama(bool format);
    // Switches to another installed version; true when the switch was made
    // (the machine is then restarting).
    bool ChangeVersion();
    // Removes the chosen version, or every unused one.
    bool RemoveVersion(bool allVersions);
    // Deletes the DOS side's configuration lines after a confirmation.
    bool ClearConfigurationLines();
    // Loads BIOS settings from the main menu and restarts after success.
    bool ResetBios();
    // The installation chain with the answers of the key's answer file, each
    // screen answered as the operator would; leaves a report on the key. True
    // only when it ended and the restart request failed.
    bool InstallUnattended();

private:
    static std::ofstream* _log;
    // The failures (level 3) logged since this was last cleared, in order:
    // the reason an unattended installation names when a step gives up.
    static std::string _lastFailure;

    // Every screen of an installation carries the title of the menu entry that started it.
    void SetInstallTitles(bool format);
    // Whether this start may look at the answer file at all.
    bool MayInstallUnattended() const;
    // Shows why the run stopped, writes the report and waits for ENTER.
    bool FailUnattended(AutoInstallReport& report, const std::string& heading,
                        const std::string& reason, bool diskUntouched);
    // Writes the report; its path, or why it could not be written.
    std::string WriteReport(AutoInstallReport& report, bool& written);
    bool RunUnattendedChain(const AutoInstallAnswers& answers, AutoInstallReport& report);

    // Built once, in this order, and reused for every visit of the main loop.
    InstallerLib::EepromReader _eepromReader;
    StartStep _startStep;
    PackageStep _packageStep;
    HardwareCheckStep _hardwareCheckStep;
    SelectDiskStep _selectDiskStep;
    PartitionStep _partitionStep;
    InstallStep _installStep;
    AvailableVersionsStep _availableVersionsStep;
    ChangeVersionStep _changeVersionStep;
    RemoveVersionStep _removeVersionStep;
    TextStep _contactsStep;
    TextStep _licensesStep;
    NetworkStep _networkStep;
    ConfigurationLinesStep _configurationLinesStep;
    BiosStep _biosStep;
    HWMaintenanceStep _hwMaintenanceStep;
    AutoInstallStep _autoInstallStep;

    bool _autoNow = false;
    bool _noAuto = false;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
