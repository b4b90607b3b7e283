// Runs the main menu step alone with the availability flags given on the
// command line (the items that later parts of the application switch on), and
// writes each selection to "selections.txt". Options: --disk, --hw, --bios,
// --timer, --runs N.
#include "StartStep.h"
#include "Wizard.h"

#include <cstdlib>
#include <cstring>
#include <fstream>

using namespace Kel::Vidorama::InstallerWizard;

namespace
{

class MenuApp : public Wizard
{
public:
    MenuApp(int argc, char* argv[])
    {
        _step.SetRunningFromDisk(false);
        _step.SetRunningFromUsbKey(true);
        for (int i = 1; i < argc; ++i)
        {
            if (std::strcmp(argv[i], "--disk") == 0)
            {
                _step.SetRunningFromDisk(true);
                _step.SetRunningFromUsbKey(false);
            }
            else if (std::strcmp(argv[i], "--hw") == 0)
                _step.SetHardwareMaintenanceAvailable(true);
            else if (std::strcmp(argv[i], "--bios") == 0)
                _step.SetBiosResetAvailable(true);
            else if (std::strcmp(argv[i], "--timer") == 0)
                _step.SetTimer(true);
            else if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc)
                _runs = std::atoi(argv[++i]);
        }
    }

    int Start() override
    {
        std::ofstream out("selections.txt");
        for (int run = 0; run < _runs; ++run)
        {
            if (!_step.Run())
                return 1;
            out << _step.GetSelection() << " count " << _step.GetItemCount() << std::endl;
        }
        return 0;
    }

private:
    StartStep _step;
    int _runs = 1;
};

} // namespace

int main(int argc, char* argv[])
{
    MenuApp app(argc, argv);
    return app.Start();
}
