#pragma once

#include "AutoInstallAnswers.h"
#include "Disk.h"
#include "PackageVersion.h"
#include "Partition.h"

#include <string>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Matches the answers against what the machine and the key hold: the disks
// of the disk selection, the packages of the package selection, the target's
// partitions. Only compares; the lists come from the caller.
class AutoInstallTargets
{
public:
    // One package of the package selection: its file and its version.
    struct Package
    {
        std::string path;
        InstallerLib::PackageVersion version;
    };

    // The index of the one disk the filters match (never a USB disk, never
    // one under the 2,304 MiB an installation needs); false with the problem.
    static bool ChooseDisk(const AutoInstallAnswers::DiskFilter& filter,
                           const std::vector<ZarnLinuxTools::Disk>& disks, size_t& index,
                           AutoInstallProblem& problem);

    // The index of the package "package" names: "newest" is the highest
    // version (the first of equals), otherwise a full version or a file
    // name; a full version or a name held by more than one package is a problem.
    static bool ChoosePackage(const std::string& wanted, const std::vector<Package>& packages,
                              size_t& index, AutoInstallProblem& problem);

    // A partition table that carries an installation: a FAT partition 1
    // (DOS side) or an EXT4 partition 2 (Linux versions).
    static bool HoldsInstallation(const std::vector<ZarnLinuxTools::Partition>& partitions);

    // False (with the problem) when a format would replace an installation
    // that the answers do not allow to replace.
    static bool MayFormat(const AutoInstallAnswers& answers, const std::string& diskPath,
                          bool holdsInstallation, AutoInstallProblem& problem);
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
