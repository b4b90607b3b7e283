#include "Wizard.h"

#include <csignal>
#include <curses.h>

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

} // namespace

Wizard::Wizard()
{
    std::signal(SIGINT, OnInterrupt);
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
