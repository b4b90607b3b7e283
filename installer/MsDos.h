#pragma once

#include "NetworkInterface.h"
#include "PackageVersion.h"

#include <istream>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// The DOS system on the target disk's first partition: whether one is there,
// and the network batch file that the DOS side reads at start-up. The wizard
// never installs DOS itself; it only hands over to it through batch files.
class MsDos
{
public:
    // Whether "COMMAND.COM", "IO.SYS" and "MSDOS.SYS" are all regular files in
    // the directory (names with exactly this case).
    static bool IsInstalled(const char* directory);

    // Writes the three "set NET_..." lines for static settings. False for
    // "dhcp" (the file is then left existing and empty) or when the file could
    // not be written (any previous file is then left unchanged).
    static bool SaveNetworkDosConfiguration(const Kel::ZarnLinuxTools::NetworkInterface& settings,
                                            const char* file);

    // Reads the "set NET_IP=", "set NET_MASK=" and "set NET_GATEWAY=" lines of
    // that file into the address, mask and gateway of settings (at most 15
    // characters each, up to the first blank). Other lines are ignored; a
    // value without its line is left as it was, the last line of a kind wins.
    static void ParseNetworkDosConfiguration(std::istream& in,
                                             Kel::ZarnLinuxTools::NetworkInterface& settings);
};

// Writes "/mnt/DOS/preboot.bat", which makes DOS install the version (by its
// raw six-character DOS version) at its next start and then reset.
bool GenerateDosPreboot(const PackageVersion& version);

namespace detail
{
// The same batch file written to any path, so that its contents can be checked
// without the fixed mount point.
bool WriteDosPreboot(const PackageVersion& version, const char* file);
} // namespace detail

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
