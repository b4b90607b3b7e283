// Runs the partition, package and installation steps alone on the console,
// as the installation workflows will chain them. Writes what each step
// returned to "result.txt" in the working directory.
//   InstallStepsProgram partition plain|format   the partition step on the
//                                                first target disk
//   InstallStepsProgram package escape|noescape N   the package step N times
//   InstallStepsProgram install PACKAGE [read-ahead]
//                                                the installation step with
//                                                PACKAGE on the first disk;
//                                                read-ahead: PACKAGE read first,
//                                                as the package menu does
#include "EepromReader.h"
#include "InstallPackage.h"
#include "InstallStep.h"
#include "InstallWizard.h"
#include "PackageScanCache.h"
#include "PackageStep.h"
#include "PartitionStep.h"
#include "StepProgram.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

using namespace Kel::Vidorama::InstallerWizard;
using Kel::Vidorama::InstallerLib::EepromReader;
using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::ZarnLinuxTools::Disk;

namespace
{

using StepPrograms::FirstDisk;

class StepsApp : public StepPrograms::StepProgram
{
public:
    using StepProgram::StepProgram;

    int Start() override
    {
        std::ofstream out("result.txt");
        const std::string mode = Argument(0);
        if (mode == "partition")
        {
            EepromReader reader(
                InstallWizard::GetDriversPath(), InstallWizard::GetUcodeZarnPath(),
                (std::string(InstallWizard::GetExePath()) + "EepromReader").c_str());
            PartitionStep step(reader);
            step.SetDisk(FirstDisk());
            step.SetFormatRequested(Argument(1) == "format");
            const bool result = step.Run();
            out << "run " << result << " plan " << step.createPartitionTable
                << step.deletePartition1 << step.deletePartition2 << step.deletePartition3
                << step.deletePartition4 << step.createFatPartition << step.setFatBootable
                << step.createExt4Partition << step.createSwapPartition << " keep "
                << step.keepDosPartition << std::endl;
            return 0;
        }
        if (mode == "package")
        {
            PackageStep step;
            step.SetEscapeAllowed(Argument(1) != "noescape");
            const int runs = std::atoi(Argument(2).c_str());
            for (int run = 0; run < (runs > 0 ? runs : 1); ++run)
            {
                const bool result = step.Run();
                out << "run " << result << " package "
                    << (step.GetPackage() ? step.GetPackage()->GetPath() : "none") << std::endl;
            }
            return 0;
        }
        if (mode == "install")
        {
            InstallStep step;
            if (Argument(2) == "read-ahead")
                Kel::Vidorama::InstallerLib::PackageScanCache::Instance().Get(Argument(1));
            if (!Argument(1).empty())
                step.SetPackage(std::make_shared<InstallPackage>(Argument(1).c_str()));
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
    return StepPrograms::Main<StepsApp>(argc, argv);
}
