// Asks for a restart the way the wizard does after an installation; in the
// sandbox guest that ends the machine, which the launcher reports as a reboot.
#include "SystemTools.h"

#include <cstdio>

int main()
{
    const bool requested = Kel::ZarnLinuxTools::SystemTools::Reboot();
    // Only reached when the restart did not happen.
    std::fprintf(stderr, "SystemTools::Reboot() returned %s\n", requested ? "true" : "false");
    return 1;
}
