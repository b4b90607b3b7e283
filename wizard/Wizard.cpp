#include "Wizard.h"

#include "WizardStep.h"

#include <csignal>
#include <curses.h>
#include <signal.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

namespace
{

// An interrupt from outside only leaves curses mode; the process goes on so that
// an operation in progress (partitioning, installation) is never cut in half.
extern "C" void OnInterrupt(int)
{
    endwin();
}

// A resized terminal: only noted here (curses may not be called from a
// handler); the current step redraws itself at the next key or tick.
extern "C" void OnResize(int)
{
    WizardStep::terminalResized = 1;
}

} // namespace

Wizard::Wizard()
{
    std::signal(SIGINT, OnInterrupt);
    // Installed before curses starts, so that curses keeps its own handler
    // out. SA_RESTART: a key read in progress goes on waiting for the key.
    struct sigaction resize = {};
    resize.sa_handler = OnResize;
    sigemptyset(&resize.sa_mask);
    resize.sa_flags = SA_RESTART;
    sigaction(SIGWINCH, &resize, nullptr);
    initscr();
    start_color();
    // Raw mode: Ctrl-C and friends reach the program as keys instead of signals.
    raw();
    noecho();
    keypad(stdscr, TRUE);
}

Wizard::~Wizard()
{
    endwin();
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
