#include "StartStep.h"

#include "InstallPackage.h"
#include "InstallWizard.h"
#include "ScreenLayout.h"
#include "WrapText.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <sstream>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using InstallerLib::InstallPackage;

const char* const StartStep::installTitle = "Vidorama Install and Rescue";
const char* const StartStep::bootTitle = "Vidorama Maintenance";

namespace
{

const char* const InstallNames[] = {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10"};
const char* const BootNames[] = {"1", "2", "3", "4", "5", "6", "7", "8", "9"};
const char* const SubMenuNames[] = {"1", "2", "3"};

const int CountdownSeconds = 7;
const int UnattendedSeconds = 10;
const char* const UnattendedCountdown =
    "Unattended installation in %d seconds, any key for the menu";
// Content rows of the -e message and of the countdown under it.
const int MessageRow = 15;
const int CountdownRow = 16;
const int Escape = 27;
const int Enter = 10;

} // namespace

StartStep::StartStep()
    : _runningFromDisk(InstallWizard::IsRunningFromDisk()),
      _runningFromUsbKey(InstallWizard::IsRunningFromUsbKey())
{
}

StartStep::~StartStep()
{
    FreeMenu();
}

void StartStep::CreateWindow()
{
    WizardStep::CreateWindow();
    SetTitle(_runningFromDisk ? bootTitle : installTitle);
    DrawMessage();
    if (_runningFromDisk)
        CreateBootMenu();
    else
        CreateInstallMenu();
    SetBottomText("<ENTER> or number to select the operation.");
}

void StartStep::DrawMessage()
{
    // The message and the countdown go below the menu's window: at their own
    // rows when those are free, lower on a console tall enough to bring the
    // menu down onto them.
    const int belowMenu = (_height - 16) / 2 + 11;
    const int rows = getmaxy(_contentWindow);
    int next = std::max(MessageRow, belowMenu);
    if (!_message.empty())
    {
        const attr_t attributes = A_BOLD | COLOR_PAIR(4);
        const int length = static_cast<int>(_message.size());
        const int column = (COLS - 8 - length) / 2;
        if (column >= 0 && column + length <= _width)
        {
            PrintInMiddle(_contentWindow, next, 0, COLS - 8, _message.c_str(), attributes);
            ++next;
        }
        else
        {
            // Too long for its place: whole, on as many rows as it needs, each
            // centred in the content window. When the window ends first the
            // message is lifted, never into the menu's window, keeping a row
            // for the countdown when there can be one.
            const std::vector<std::string> lines = WrapText(_message, _width);
            const int count = static_cast<int>(lines.size());
            const int reserved = ((_runningFromDisk && _timer) || _unattendedCountdown) ? 1 : 0;
            const int first = std::max(std::min(next, rows - reserved - count), belowMenu);
            for (int i = 0; i < count && first + i < rows; ++i)
                PrintInMiddle(_contentWindow, first + i, 0, _width,
                              lines[static_cast<size_t>(i)].c_str(), attributes);
            next = first + count;
        }
    }
    _countdownRow = std::min(std::max(CountdownRow, next), rows - 1);
}

void StartStep::BuildItems(const std::vector<Entry>& entries, int count, const char* const names[])
{
    _itemCount = count;
    _codes.assign(static_cast<size_t>(std::max(0, count)), -1);
    _lines.clear();
    for (size_t i = 0; i < entries.size() && static_cast<int>(i) < count; ++i)
    {
        _lines.emplace_back(names[i], entries[i].text);
        _codes[i] = entries[i].code;
    }
}

void StartStep::CreateInstallMenu()
{
    std::vector<Entry> entries = {
        {"Install Vidorama", 0},
        {"Format and Install Vidorama", 2},
        {"Versions", 3},
        {"Clear configuration lines", 7},
    };
    if (_hardwareMaintenanceAvailable)
        entries.push_back({"Hardware maintenance", 8});
    if (_biosResetAvailable)
        entries.push_back({"Reset bios (RB417 only)", 9});
    entries.push_back({"Exit to shell", 10});
    entries.push_back({"Support contact", 11});
    entries.push_back({"Licenses", 12});
    entries.push_back({"Shutdown", 13});
    // The count ignores the BIOS item: without it, the last slot selects nothing.
    BuildItems(entries, _hardwareMaintenanceAvailable ? 10 : 9, InstallNames);
    DisplayMenu();
}

void StartStep::CreateBootMenu()
{
    if (!_startVersionLabelSet)
    {
        _startVersionLabel = std::string("Start version ") +
                             InstallPackage::GetCurrentLinuxVersion().GetVersion(_showRevisions);
        _startVersionLabelSet = true;
    }
    std::vector<Entry> entries = {
        {_startVersionLabel.c_str(), 1},
        {"Versions", 3},
        {"Clear Configuration lines", 7},
    };
    if (_hardwareMaintenanceAvailable)
        entries.push_back({"Hardware maintenance", 8});
    if (_biosResetAvailable)
        entries.push_back({"Reset bios (RB417 only)", 9});
    entries.push_back({"Exit to shell", 10});
    entries.push_back({"Support contact", 11});
    entries.push_back({"Licenses", 12});
    entries.push_back({"Shutdown", 13});
    BuildItems(entries, _hardwareMaintenanceAvailable ? 9 : 8, BootNames);
    DisplayMenu();
}

void StartStep::CreateVersionSubMenu()
{
    FreeMenu();
    if (_runningFromDisk)
        BuildItems({{"Change active version", 4},
                    {"Delete specific version", 5},
                    {"Delete all unused versions", 6}},
                   3, SubMenuNames);
    else
        BuildItems({{"Delete specific version", 5}, {"Delete all unused versions", 6}}, 2,
                   SubMenuNames);
    DisplayMenu();
    SetTitle("Versions");
    SetBottomText("<ESC> return to the main menu, <ENTER> or number to select the operation");
}

void StartStep::DisplayMenu()
{
    _menu.reset();
    // The menu has the content window to itself: nothing else is drawn above it.
    ScreenLayout layout(getmaxy(_contentWindow));
    const ScreenLayout::Block place =
        layout.PlaceMenu((_height - 16) / 2, std::min(10, std::max(1, _itemCount)));
    _menu = std::make_unique<CursesMenu>(
        _lines, _contentWindow,
        CursesMenu::Place{place.row, (_width - 34) / 2, 11, _width - 35, place.count});
    // The last position indexes whichever menu is shown; ignored when out of range.
    _menu->SetCurrent(_lastPosition);
    wrefresh(_contentWindow);
}

void StartStep::DrawCountdown(int seconds)
{
    wattron(_contentWindow, A_BOLD | COLOR_PAIR(4));
    if (_countingToUnattended)
    {
        // Too long for the start countdown's column: centred, one blank
        // more at its end once the number has only one digit.
        char text[128];
        snprintf(text, sizeof(text), UnattendedCountdown, seconds);
        const int length = static_cast<int>(std::strlen(text));
        mvwprintw(_contentWindow, _countdownRow, std::max(0, (_width - length - 1) / 2), "%s ",
                  text);
    }
    else
    {
        mvwprintw(_contentWindow, _countdownRow, (_width - 34) / 2,
                  "Automatically start in %d seconds", seconds);
    }
    wattroff(_contentWindow, A_BOLD | COLOR_PAIR(4));
    wrefresh(_contentWindow);
}

void StartStep::ClearCountdown()
{
    wattron(_contentWindow, COLOR_PAIR(2));
    if (_countingToUnattended)
    {
        wmove(_contentWindow, _countdownRow, 0);
        wclrtoeol(_contentWindow);
    }
    else
    {
        mvwprintw(_contentWindow, _countdownRow, (_width - 34) / 2, "%33s", "");
    }
    wattroff(_contentWindow, COLOR_PAIR(2));
}

void StartStep::ReadMenuSelection(bool autoStart, bool escapeAllowed)
{
    const int seconds = _countingToUnattended ? UnattendedSeconds : CountdownSeconds;
    if (autoStart)
    {
        DrawCountdown(seconds);
        wtimeout(_contentWindow, 1000);
    }
    _selection = -1;
    int counter = seconds;

    for (;;)
    {
        const int key = ReadKeyFrom(_contentWindow);
        if (key == Escape && escapeAllowed)
            return;

        if (autoStart)
        {
            if (key == ERR)
            {
                --counter;
                DrawCountdown(counter);
                if (counter < 1)
                {
                    _selection = _countingToUnattended ? UnattendedInstallation : 1;
                    wtimeout(_contentWindow, -1);
                    return;
                }
                continue;
            }
            // Any key cancels the countdown for good and is then acted upon.
            ClearCountdown();
            wtimeout(_contentWindow, -1);
            autoStart = false;
        }

        switch (key)
        {
        case KEY_DOWN:
            _menu->Down();
            break;
        case KEY_UP:
            _menu->Up();
            break;
        case Enter:
        {
            const int current = _menu->CurrentIndex();
            if (current >= 0 && current < static_cast<int>(_codes.size()))
                _selection = _codes[static_cast<size_t>(current)];
            break;
        }
        default:
            // "1".."9" address items 1 to 9; a tenth item is ":", the character after "9".
            if (key - '1' >= 0 && key - '1' < _itemCount)
                _selection = _codes[static_cast<size_t>(key - '1')];
            break;
        }
        wrefresh(_contentWindow);
        if (_selection != -1)
            return;
    }
}

bool StartStep::Run()
{
    CreateWindow();
    // Never from the installed disk: there the answer file is not looked at.
    _countingToUnattended = _unattendedCountdown && _firstRun && !_runningFromDisk;
    const bool autoStart = (_runningFromDisk && _timer && _firstRun) || _countingToUnattended;
    ReadMenuSelection(autoStart, false);
    _countingToUnattended = false;
    _firstRun = false;
    _lastPosition = _menu->CurrentIndex();

    if (_selection == 3)
    {
        CreateVersionSubMenu();
        ReadMenuSelection(false, true);
    }

    std::ostringstream message;
    message << "StartStep selected item: " << _selection;
    InstallWizard::log(0, message.str().c_str());

    DestroyWindow();
    return true;
}

void StartStep::FreeMenu()
{
    _menu.reset();
    _codes.clear();
}

void StartStep::DestroyWindow()
{
    FreeMenu();
    WizardStep::DestroyWindow();
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
