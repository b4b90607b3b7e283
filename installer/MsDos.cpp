#include "MsDos.h"

#include "AtomicFile.h"
#include "DiskDiagnostics.h"
#include "InstallPackage.h"

#include <cstdio>
#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

using Kel::ZarnLinuxTools::DiskDiagnostics;
using Kel::ZarnLinuxTools::NetworkInterface;

namespace
{

// DOS reads its batch files with carriage return and line feed.
const char* const DosLineEnd = "\r\n";

} // namespace

bool MsDos::IsInstalled(const char* directory)
{
    if (directory == nullptr)
    {
        return false;
    }
    const std::string root(directory);
    // The three files of a bootable DOS system, in the order DOS itself needs them.
    for (const char* name : {"/COMMAND.COM", "/IO.SYS", "/MSDOS.SYS"})
    {
        if (!DiskDiagnostics::IsFile((root + name).c_str()))
        {
            return false;
        }
    }
    return true;
}

bool MsDos::SaveNetworkDosConfiguration(const NetworkInterface& settings, const char* file)
{
    if (file == nullptr)
    {
        return false;
    }
    AtomicFile output(file);
    if (!output.IsOpen())
    {
        return false;
    }
    if (settings.method == "dhcp")
    {
        // DOS has no DHCP client: the file is emptied, so the DOS side finds no
        // stale static address, and the caller learns that nothing was written.
        output.Commit();
        return false;
    }
    const std::string text = "set NET_IP=" + settings.address + DosLineEnd +
                             "set NET_MASK=" + settings.netmask + DosLineEnd +
                             "set NET_GATEWAY=" + settings.gateway + DosLineEnd;
    return output.Write(text) && output.Commit();
}

void MsDos::ParseNetworkDosConfiguration(std::istream& in, NetworkInterface& settings)
{
    std::string line;
    while (std::getline(in, line))
    {
        char value[16] = {};
        if (std::sscanf(line.c_str(), "set NET_IP=%15s", value) == 1)
            settings.address = value;
        else if (std::sscanf(line.c_str(), "set NET_MASK=%15s", value) == 1)
            settings.netmask = value;
        else if (std::sscanf(line.c_str(), "set NET_GATEWAY=%15s", value) == 1)
            settings.gateway = value;
    }
}

namespace detail
{

bool WriteDosPreboot(const PackageVersion& version, const char* file)
{
    if (file == nullptr)
    {
        return false;
    }
    AtomicFile output(file);
    if (!output.IsOpen())
    {
        return false;
    }
    const std::string lines[] = {
        "path=C:\\;C:\\DOS;C:\\UTILS",
        "",
        "cls",
        "",
        std::string("set SOURCE_DRIVE=c:\\versions\\") + version.GetDosVersion(),
        "set DESTINATION_DRIVE=c:",
        "set CURRENT_OS_TYPE=WCE",
        "set INSTALL_ADDONS=YES",
        "",
        "call %SOURCE_DRIVE%\\SCRIPTS\\REINSTAL.BAT",
        "echo.",
        "echo System updated.",
        "seconds 1",
        "reset",
    };
    std::string text;
    for (const std::string& line : lines)
    {
        text += line + DosLineEnd;
    }
    return output.Write(text) && output.Commit();
}

} // namespace detail

bool GenerateDosPreboot(const PackageVersion& version)
{
    const std::string file = std::string(InstallPackage::DosMountPoint) + "/preboot.bat";
    return detail::WriteDosPreboot(version, file.c_str());
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
