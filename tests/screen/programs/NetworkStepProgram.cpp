// Runs the network configuration step alone on the console, as the end of an
// installation does, and writes what it returned and the values edited to
// "result.txt" in the working directory.
//   NetworkStepProgram linux|dos [DISK|none]
// linux: a Linux version 12.05.01.3456 was installed; dos: the DOS version
// 120501. DISK: the target disk's path (default: the first disk found);
// none: no disk at all.
#include "EepromReader.h"
#include "InstallPackage.h"
#include "InstallWizard.h"
#include "NetworkStep.h"
#include "StepProgram.h"

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

class NetworkApp : public StepPrograms::StepProgram
{
public:
    using StepProgram::StepProgram;

    int Start() override
    {
        const std::string kind = Argument(0);
        if (kind != "linux" && kind != "dos")
            return 3;

        EepromReader reader(InstallWizard::GetDriversPath(), InstallWizard::GetUcodeZarnPath(),
                            (std::string(InstallWizard::GetExePath()) + "EepromReader").c_str());
        NetworkStep step(reader);
        step.SetPackage(std::make_shared<InstallPackage>(
            kind == "dos" ? "/mnt/USB/Packages/120501.zip"
                          : "/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz"));
        const std::string diskArgument = Argument(1);
        if (diskArgument.empty())
        {
            step.SetDisk(FirstDisk());
        }
        else if (diskArgument != "none")
        {
            auto disk = std::make_shared<Disk>();
            disk->path = diskArgument;
            step.SetDisk(disk);
        }

        const bool result = step.Run();
        std::ofstream out("result.txt");
        out << "run " << result << "\n"
            << "hostname " << step.GetHostname() << "\n"
            << "method " << step.GetInterface().method << "\n"
            << "address " << step.GetInterface().address << "\n"
            << "netmask " << step.GetInterface().netmask << "\n"
            << "gateway " << step.GetInterface().gateway << "\n"
            << "primary " << step.GetDnsInterface().primaryServer << "\n"
            << "secondary " << step.GetDnsInterface().secondaryServer << "\n"
            << "domain " << step.GetDnsInterface().domain << std::endl;
        return 0;
    }
};

} // namespace

int main(int argc, char* argv[])
{
    return StepPrograms::Main<NetworkApp>(argc, argv);
}
