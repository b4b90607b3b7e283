#include "WizardStep.h"

#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

volatile std::sig_atomic_t WizardStep::terminalResized = 0;

WizardStep::WizardStep() : WizardStep("", "") {}

WizardStep::WizardStep(const char* title, const char* bottomText)
    : _title(title), _bottomText(bottomText), _width(COLS - 4), _height(LINES - 2)
{
}

WizardStep::~WizardStep() = default;

std::string WizardStep::GetTitle() const
{
    return _title;
}

std::string WizardStep::GetBottomText() const
{
    return _bottomText;
}

void WizardStep::SetTitle(const char* title)
{
    _title = title;
    if (_titleWindow != nullptr)
    {
        wclear(_titleWindow);
        DrawTitle();
        wrefresh(_titleWindow);
    }
}

void WizardStep::SetBottomText(const char* text)
{
    _bottomText = text;
    if (_bottomWindow != nullptr)
    {
        wclear(_bottomWindow);
        DrawBottomText();
        wrefresh(_bottomWindow);
    }
}

void WizardStep::DrawTitle()
{
    PrintInMiddle(_titleWindow, 0, 0, _width, GetTitle().c_str(), COLOR_PAIR(1));
}

void WizardStep::DrawBottomText()
{
    mvwhline(_bottomWindow, 0, 0, ACS_HLINE, _width);
    // Pair 2 is switched on the standard screen, not on the bottom window, so the
    // help text keeps the bottom window's own attributes. Kept that way on purpose.
    attron(COLOR_PAIR(2));
    mvwprintw(_bottomWindow, 1, 0, "%s", GetBottomText().c_str());
    attroff(COLOR_PAIR(2));
}

void WizardStep::CreateWindow()
{
    curs_set(0);
    init_pair(1, COLOR_BLACK, COLOR_WHITE);
    init_pair(2, COLOR_WHITE, COLOR_BLACK);
    init_pair(3, COLOR_WHITE, COLOR_BLUE);
    init_pair(4, COLOR_YELLOW, COLOR_BLACK);
    init_pair(5, COLOR_CYAN, COLOR_BLACK);
    init_pair(6, COLOR_RED, COLOR_BLACK);

    // A resize signalled while no frame was up, or taken by another step,
    // is followed here: every frame is made at the terminal's current size.
    ApplyPendingResize();
    _width = COLS - 4;
    _height = LINES - 2;

    _mainWindow = newwin(_height, _width, (LINES - _height) / 2, (COLS - _width) / 2);

    _titleWindow = derwin(_mainWindow, 1, _width, 0, 0);
    wbkgd(_titleWindow, COLOR_PAIR(1));
    wclear(_titleWindow);
    DrawTitle();

    _contentWindow = derwin(_mainWindow, _height - 3, _width, 1, 0);
    keypad(_contentWindow, TRUE);
    touchwin(_contentWindow);

    _bottomWindow = derwin(_mainWindow, 2, _width, _height - 2, 0);
    DrawBottomText();

    wrefresh(_mainWindow);
    wrefresh(_titleWindow);
    wrefresh(_contentWindow);
    wrefresh(_bottomWindow);
}

void WizardStep::DestroyWindow()
{
    for (WINDOW* win : {_titleWindow, _contentWindow, _bottomWindow, _mainWindow})
    {
        if (win == nullptr)
            continue;
        wclear(win);
        wrefresh(win);
        delwin(win);
    }
    _mainWindow = nullptr;
    _contentWindow = nullptr;
    _titleWindow = nullptr;
    _bottomWindow = nullptr;
}

void WizardStep::RedrawContent() {}

int WizardStep::ReadKeyFrom(WINDOW* window)
{
    const int key = wgetch(window);
    ApplyPendingResize();
    return key;
}

bool WizardStep::ApplyPendingResize()
{
    if (terminalResized == 0)
        return false;
    terminalResized = 0;
    // A serial line that reports no size keeps the size curses has.
    struct winsize size = {};
    for (int fd : {STDOUT_FILENO, STDIN_FILENO})
    {
        if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0)
        {
            resizeterm(size.ws_row, size.ws_col);
            break;
        }
    }
    ResizeFrame();
    return true;
}

void WizardStep::ResizeFrame()
{
    _width = COLS - 4;
    _height = LINES - 2;
    if (_mainWindow == nullptr)
        return;

    // The title and bottom bars are made anew at their new places; the content
    // window is resized in place, since menus, forms and streams hold it.
    // The old bottom bar is wiped first: on a larger terminal its rows
    // become content rows.
    werase(_bottomWindow);
    delwin(_titleWindow);
    delwin(_bottomWindow);
    wresize(_mainWindow, _height, _width);
    mvwin(_mainWindow, (LINES - _height) / 2, (COLS - _width) / 2);
    wresize(_contentWindow, _height - 3, _width);

    _titleWindow = derwin(_mainWindow, 1, _width, 0, 0);
    wbkgd(_titleWindow, COLOR_PAIR(1));
    wclear(_titleWindow);
    DrawTitle();
    _bottomWindow = derwin(_mainWindow, 2, _width, _height - 2, 0);
    wclear(_bottomWindow);
    DrawBottomText();

    // What the old frame left outside the new one is wiped.
    clearok(curscr, TRUE);
    wclear(stdscr);
    wnoutrefresh(stdscr);
    RedrawContent();
    touchwin(_mainWindow);
    wnoutrefresh(_mainWindow);
    wnoutrefresh(_titleWindow);
    wnoutrefresh(_contentWindow);
    wnoutrefresh(_bottomWindow);
    if (_popupWindow != nullptr)
    {
        const int length = static_cast<int>(_popupText.size());
        mvwin(_popupWindow, _height / 2, (_width - length - _popupSize) / 2);
        touchwin(_popupWindow);
        wnoutrefresh(_popupWindow);
    }
    doupdate();
}

void WizardStep::PrintInMiddle(WINDOW* win, int y, int x, int width, const char* text,
                               attr_t attributes)
{
    int row = y;
    if (y == 0)
        row = (win != nullptr) ? getcury(win) : -1;
    if (width == 0)
        width = 80;
    const int length = static_cast<int>(std::strlen(text));
    const int column = x + (width - length) / 2;
    wattron(win, attributes);
    // Written only where the cursor move succeeds.
    mvwprintw(win, row, column, "%s", text);
    wattroff(win, attributes);
    refresh();
}

void WizardStep::ShowProgressPopup(const char* text, int size)
{
    _popupPosition = 0;
    _popupSize = size;
    _popupText = text;
    const int length = static_cast<int>(_popupText.size());
    _popupWindow = newwin(3, length + size + 4, _height / 2, (_width - length - size) / 2);
    box(_popupWindow, 0, 0);
    mvwprintw(_popupWindow, 1, 2, "%s", _popupText.c_str());
    wrefresh(_popupWindow);
}

void WizardStep::UpdateProgressPopup()
{
    const int length = static_cast<int>(_popupText.size());
    if (_popupPosition == 0)
        mvwprintw(_popupWindow, 1, length + 2, "%*s", _popupSize, "");
    mvwprintw(_popupWindow, 1, _popupPosition + length + 2, ".");
    wrefresh(_contentWindow);
    // The content window may just have been redrawn by a worker: keep the pop-up on top.
    touchwin(_popupWindow);
    wrefresh(_popupWindow);
    _popupPosition = (_popupPosition + 1) % _popupSize;
}

void WizardStep::HideProgressPopup()
{
    delwin(_popupWindow);
    _popupWindow = nullptr;
    touchwin(_contentWindow);
    wrefresh(_contentWindow);
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
