// Runs the BIOS settings step as the formatting installation does (within
// installation), since that workflow comes with the installation itself.
// Writes what the step returned and the selection to "result.txt".
#include "BiosStep.h"
#include "Wizard.h"

#include <fstream>

using namespace Kel::Vidorama::InstallerWizard;

namespace
{

class BiosApp : public Wizard
{
public:
    int Start() override
    {
        BiosStep step;
        step.SetTitle("Format and Install Vidorama");
        step.SetWithinInstallation(true);
        const bool result = step.Run();
        std::ofstream("result.txt")
            << "run " << result << " selection " << step.GetSelection() << std::endl;
        return 0;
    }
};

} // namespace

int main()
{
    BiosApp app;
    return app.Start();
}
