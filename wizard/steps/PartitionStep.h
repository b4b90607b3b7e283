#pragma once

#include "WizardStep.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Disk.h"

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{
class EepromReader;
}
} // namespace Vidorama
} // namespace Kel

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Makes sure the chosen disk carries the product's layout: msdos table, a
// bootable FAT partition 1 of at least 1 GiB (DOS), an EXT4 partition 2 of at
// least 1 GiB (Linux) and a swap partition 3 of at least 256 MiB. A plain
// installation only checks; "Format and Install" repartitions after the
// operator agrees, on a worker thread behind a progress pop-up.
class PartitionStep : public WizardStep
{
public:
    explicit PartitionStep(InstallerLib::EepromReader& eepromReader);
    ~PartitionStep() override;

    // True when the disk is ready for installation at the end.
    bool Run() override;

    // Draws up the plan from the disk as it is; true when nothing must be
    // created.
    bool AnalyzePartitions();
    // Reads the plan only, never the disk.
    bool IsPartitionsReady() const;
    // Widens the plan to a format, shows it and asks "Continue? (y/n)".
    bool ReFormatPartition();
    // What the plan destroys and makes, in plain words, one line each (at
    // most 66 characters), as the confirmation lists them under the disk.
    std::vector<std::string> DescribePlan() const;
    // Where the confirmation repeats the hardware warnings: from the first
    // row under the plan, a free row left between when the content window
    // (contentRows high) has room for it; what would fall outside is left out.
    static std::vector<std::pair<int, std::string>>
    ConfirmationWarningRows(int firstFreeRow, int contentRows,
                            const std::vector<std::string>& warnings);

    // Carries out the plan as root; runs on the worker thread and never draws.
    bool ApplyPartitionsChanges();
    bool ClearConfigurationLines();
    bool BackupDosBootLoader();
    bool InstallBootloader();

    void SetDisk(const std::shared_ptr<ZarnLinuxTools::Disk>& value) { disk = value; }
    std::shared_ptr<ZarnLinuxTools::Disk> GetDisk() const { return disk; }
    void SetFormatRequested(bool value) { formatRequested = value; }
    bool IsFormatRequested() const { return formatRequested; }

private:
    InstallerLib::EepromReader& eepromReader;
    std::shared_ptr<ZarnLinuxTools::Disk> disk;
    // True in the "Format and Install" workflow.
    bool formatRequested = false;

public:
    // The plan, readable for the workflows and the tests.
    bool createPartitionTable = false;
    bool createFatPartition = false;
    bool setFatBootable = false;
    bool createExt4Partition = false;
    bool createSwapPartition = false;
    bool deletePartition1 = false;
    bool deletePartition2 = false;
    bool deletePartition3 = false;
    bool deletePartition4 = false;
    bool keepDosPartition = false;
    // Lengths of the accepted partitions 1, 2 and 3; -1 when none was found.
    int64_t fatSectors = -1;
    int64_t ext4Sectors = -1;
    int64_t swapSectors = -1;

private:
    void ClearPlan();
    void ShowFailure(const char* firstLine, const char* secondLine);
    bool MountDosPartition();
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
