#pragma once

#include "CursesMenu.h"
#include "WizardStep.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// The main menu: the installation/rescue menu from the USB key, the maintenance
// menu from an installed disk, and the "Versions" sub-menu. Leaves the chosen
// operation code in the selection for the main loop.
class StartStep : public WizardStep
{
public:
    static const char* const installTitle;
    static const char* const bootTitle;
    // The operation code when the unattended installation's countdown ran out.
    static constexpr int UnattendedInstallation = 14;

    StartStep();
    ~StartStep() override;

    bool Run() override;
    void CreateWindow() override;
    void DestroyWindow() override;

    bool IsRunningFromDisk() const { return _runningFromDisk; }
    bool IsRunningFromUsbKey() const { return _runningFromUsbKey; }
    bool GetTimer() const { return _timer; }
    bool GetShowRevisions() const { return _showRevisions; }
    bool IsHardwareMaintenanceAvailable() const { return _hardwareMaintenanceAvailable; }
    bool IsBiosResetAvailable() const { return _biosResetAvailable; }
    const std::string& GetMessage() const { return _message; }
    int GetItemCount() const { return _itemCount; }
    int GetSelection() const { return _selection; }

    void SetRunningFromDisk(bool value) { _runningFromDisk = value; }
    void SetRunningFromUsbKey(bool value) { _runningFromUsbKey = value; }
    void SetTimer(bool value) { _timer = value; }
    void SetShowRevisions(bool value) { _showRevisions = value; }
    void SetHardwareMaintenanceAvailable(bool value) { _hardwareMaintenanceAvailable = value; }
    void SetBiosResetAvailable(bool value) { _biosResetAvailable = value; }
    void SetMessage(const char* message) { _message = message; }
    // An answer file waits on the key: the first menu counts down to the
    // unattended installation, and any key stops it.
    void SetUnattendedCountdown(bool value) { _unattendedCountdown = value; }
    bool GetUnattendedCountdown() const { return _unattendedCountdown; }

protected:
    void CreateInstallMenu();
    void CreateBootMenu();
    void CreateVersionSubMenu();
    void DisplayMenu();
    void ReadMenuSelection(bool autoStart, bool escapeAllowed);

private:
    struct Entry
    {
        const char* text;
        int code;
    };
    // Builds the items of one menu; `count` may exceed the entries (the
    // missing slots carry code -1 and select nothing).
    void BuildItems(const std::vector<Entry>& entries, int count, const char* const names[]);
    void FreeMenu();
    void DrawCountdown(int seconds);
    void ClearCountdown();
    void DrawMessage();

    bool _runningFromDisk;
    bool _runningFromUsbKey;
    bool _timer = false;
    bool _showRevisions = false;
    bool _hardwareMaintenanceAvailable = false;
    bool _biosResetAvailable = false;
    std::string _message;
    int _itemCount = 0;
    int _selection = -1;
    int _lastPosition = -1;
    // Content row of the countdown: under the -e message, however many rows it takes.
    int _countdownRow = 16;
    // The operation code of each slot; -1 for a slot without an item.
    std::vector<int> _codes;
    // The items of the menu being built: number and text.
    std::vector<std::pair<std::string, std::string>> _lines;
    std::unique_ptr<CursesMenu> _menu;

    // The countdown runs at most once per process.
    bool _firstRun = true;
    bool _unattendedCountdown = false;
    // The countdown of this Run(): the unattended installation's instead of
    // the start of the installed version.
    bool _countingToUnattended = false;
    // Item texts must outlive the items; the version label is computed once.
    std::string _startVersionLabel;
    bool _startVersionLabelSet = false;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
