// Runs the hardware check or the disk selection alone on the console, since
// the workflows that chain them come with the installation. Writes what the
// step returned (and the disk it holds) to "result.txt".
//   DiskStepsProgram check   draws the hardware warnings and keeps them on
//                            screen until a key, then runs the step itself
//   DiskStepsProgram disk N  runs the disk selection N times
#include "HardwareCheckStep.h"
#include "SelectDiskStep.h"
#include "Wizard.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

using namespace Kel::Vidorama::InstallerWizard;

namespace
{

// The step draws its warnings without refreshing the content window and
// clears the frame on return; the test needs to see what it drew.
class VisibleHardwareCheck : public HardwareCheckStep
{
public:
    bool Show()
    {
        CreateWindow();
        const bool result = CheckHardware();
        wrefresh(_contentWindow);
        wgetch(_contentWindow);
        DestroyWindow();
        return result;
    }
};

class StepsApp : public Wizard
{
public:
    StepsApp(int argc, char* argv[])
    {
        if (argc > 1)
            _mode = argv[1];
        if (argc > 2)
            _runs = std::atoi(argv[2]);
    }

    int Start() override
    {
        std::ofstream out("result.txt");
        if (_mode == "check")
        {
            VisibleHardwareCheck check;
            out << "check " << check.Show() << std::endl;
            out << "run " << check.Run() << std::endl;
            return 0;
        }
        if (_mode == "disk")
        {
            SelectDiskStep step;
            for (int run = 0; run < _runs; ++run)
            {
                const bool result = step.Run();
                out << "run " << result << " disk "
                    << (step.GetDisk() ? step.GetDisk()->path : "none") << std::endl;
            }
            return 0;
        }
        return 3;
    }

private:
    std::string _mode;
    int _runs = 1;
};

} // namespace

int main(int argc, char* argv[])
{
    StepsApp app(argc, argv);
    return app.Start();
}
