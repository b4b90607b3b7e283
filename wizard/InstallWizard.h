#pragma once

#include "AvailableVersionsStep.h"
#include "BiosStep.h"
#include "ChangeVersionStep.h"
#include "ConfigurationLinesStep.h"
#include "CommandLine.h"
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

private:
    static std::ofstream* _log;

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
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
