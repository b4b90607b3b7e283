// Runs the hardware check or the disk selection alone on the console, since
// the workflows that chain them come with the installation. Writes what the
// step returned (and the disk it holds) to "result.txt".
//   DiskStepsProgram check   draws the hardware warnings, writes "drawn" and
//                            keeps them on screen until a file "go" appears,
//                            then runs the step itself
//   DiskStepsProgram disk N  runs the disk selection N times
#include "HardwareCheckStep.h"
#include "SelectDiskStep.h"
#include "Wizard.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <unistd.h>

using namespace Kel::Vidorama::InstallerWizard;

namespace
{

// The step clears its frame as soon as it returns; the test needs to see what
// it drew. No curses call is made between the check and the frame's removal,
// so what the terminal shows meanwhile is what the step itself sent there.
class VisibleHardwareCheck : public HardwareCheckStep
{
public:
    bool Show()
    {
        CreateWindow();
        const bool result = CheckHardware();
        std::ofstream("drawn") << "drawn" << std::endl;
        while (access("go", F_OK) != 0)
            usleep(100000);
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
