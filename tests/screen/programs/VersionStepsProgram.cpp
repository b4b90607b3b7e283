// Runs one of the version maintenance steps alone on the console, on the first
// disk, as the version workflows will chain them. Writes what each run
// returned to "result.txt" in the working directory.
//   VersionStepsProgram available [N]      the version selection N times (1);
//                                          one line "run R version NAME
//                                          FULLVERSION" or "run R version none"
//                                          per run
//   VersionStepsProgram change VERSION     the change step with VERSION:
//                                          12.04.01.3000, DOS:120501 or none;
//                                          after a success the machine restarts
//   VersionStepsProgram change VERSION hold   only the change itself inside the
//                                          step's frame, which then stays until
//                                          Enter, so that a message written
//                                          just before the frame goes can be read
//   VersionStepsProgram remove VERSION|all [then-all]
//                                          the remove step with VERSION ("all":
//                                          none held); then-all runs it a second
//                                          time with whatever version it still
//                                          holds. One line per run with the
//                                          version held afterwards
//   VersionStepsProgram lines              the configuration lines step
// A Linux VERSION stands for the installed directory of that name below
// "/mnt/SYS/Versions", a DOS one for its directory below "/mnt/DOS/Versions":
// the record the version selection would have handed over.
#include "AvailableVersionsStep.h"
#include "ChangeVersionStep.h"
#include "ConfigurationLinesStep.h"
#include "InstallPackage.h"
#include "PackageVersion.h"
#include "RemoveVersionStep.h"
#include "StepProgram.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

using namespace Kel::Vidorama::InstallerWizard;
using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::PackageVersion;
using Kel::ZarnLinuxTools::Disk;

namespace
{

using StepPrograms::FirstDisk;

const int KeyEnter = 10;
const std::string DosPrefix = "DOS:";

PackageVersion VersionFromText(const std::string& text)
{
    PackageVersion version;
    if (text.empty() || text == "none" || text == "all")
        return version;
    version.SetName("Vidorama");
    if (text.rfind(DosPrefix, 0) == 0)
    {
        const std::string dosVersion = text.substr(DosPrefix.size());
        version.SetDos(true);
        version.ParseDosVersion(dosVersion.c_str());
        version.SetPath((std::string(InstallPackage::DosMountPoint) + InstallPackage::VersionsPath +
                         "/" + dosVersion)
                            .c_str());
        return version;
    }
    version.ParseFullVersion(text.c_str());
    version.SetPath(
        (std::string(InstallPackage::SystemMountPoint) + InstallPackage::VersionsPath + "/" + text)
            .c_str());
    return version;
}

std::string Describe(const PackageVersion& version)
{
    if (version.IsEmpty())
        return "none";
    return std::string(version.GetName()) + " " + version.GetVersion(true);
}

// The change step's own screen without the restart that follows a success.
class HeldChangeVersionStep : public ChangeVersionStep
{
public:
    bool RunAndHold()
    {
        CreateWindow();
        const bool result = ChangeVersion();
        while (wgetch(_contentWindow) != KeyEnter)
        {
        }
        DestroyWindow();
        return result;
    }
};

class VersionStepsApp : public StepPrograms::StepProgram
{
public:
    using StepProgram::StepProgram;

    int Start() override
    {
        std::ofstream out("result.txt");
        const std::string mode = Argument(0);
        if (mode == "available")
        {
            AvailableVersionsStep step;
            step.SetDisk(FirstDisk());
            const int runs = std::atoi(Argument(1).c_str());
            for (int run = 0; run < (runs > 0 ? runs : 1); ++run)
            {
                const bool result = step.Run();
                out << "run " << result << " version " << Describe(step.GetSelectedVersion())
                    << std::endl;
            }
            return 0;
        }
        if (mode == "change")
        {
            HeldChangeVersionStep step;
            step.SetDisk(FirstDisk());
            step.SetVersion(VersionFromText(Argument(1)));
            const bool result = Argument(2) == "hold" ? step.RunAndHold() : step.Run();
            out << "run " << result << std::endl;
            return 0;
        }
        if (mode == "remove")
        {
            RemoveVersionStep step;
            step.SetDisk(FirstDisk());
            step.SetVersion(VersionFromText(Argument(1)));
            const int runs = Argument(2) == "then-all" ? 2 : 1;
            for (int run = 0; run < runs; ++run)
            {
                const bool result = step.Run();
                out << "run " << result << " version " << Describe(step.GetVersion()) << std::endl;
            }
            return 0;
        }
        if (mode == "lines")
        {
            ConfigurationLinesStep step;
            step.SetDisk(FirstDisk());
            out << "run " << step.Run() << std::endl;
            return 0;
        }
        return 3;
    }
};

} // namespace

int main(int argc, char* argv[])
{
    return StepPrograms::Main<VersionStepsApp>(argc, argv);
}
