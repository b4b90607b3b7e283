#include "PartitionStep.h"

#include "BootLoader.h"
#include "DiskDescription.h"
#include "DiskDiagnostics.h"
#include "DiskTools.h"
#include "EepromInfo.h"
#include "EepromReader.h"
#include "HardwareCheckStep.h"
#include "InstallPackage.h"
#include "InstallWizard.h"
#include "MsDos.h"
#include "RootUserGuard.h"

#include <algorithm>
#include <future>
#include <memory>
#include <sstream>
#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using InstallerLib::BootLoader;
using InstallerLib::InstallPackage;
using InstallerLib::MsDos;
using ZarnLinuxTools::DiskDiagnostics;
using ZarnLinuxTools::DiskTools;
using ZarnLinuxTools::Partition;

namespace
{

const int KeyEscape = 27;

const int64_t MinimumFatBytes = 1073741824;
const int64_t MinimumExt4Bytes = 1073741824;
const int64_t MinimumSwapBytes = 268435456;

// The DOS side always gets the same size, whatever the disk.
const char* const FatPartitionSize = "4096512s";
const char* const ConfigurationLinesDirectory = "/dorim/data/setup";
const char* const DosSyslinuxDirectory = "/boot/syslinux";
const char* const DosBootSectorBackup = "/boot/syslinux/msdosmbr.bin";
const char* const SplashImage = "KELVidorama.jpg";
const char* const DosAndLinuxBootConfiguration = "bootDosLinux.config";
const char* const LinuxBootConfiguration = "bootLinux.config";
const char* const MasterBootRecord = "/usr/share/syslinux/mbr.bin";

// One failure logs its own line and every line after it.
const char* const FailureChain[] = {
    "Fail create MsDos partition table", "Fail delete primary partition 1",
    "Fail delete primary partition 2",   "Fail delete primary partition 3",
    "Fail delete primary partition 4",   "Fail set fat partition bootable",
    "Fail create Ext4 partition",        "Fail create Swap partition",
};
const int ChainCreateTable = 0;
const int ChainBootable = 5;
const int ChainExt4 = 6;
const int ChainSwap = 7;

std::string Sectors(int64_t count)
{
    return std::to_string(count) + "s";
}

} // namespace

PartitionStep::PartitionStep(InstallerLib::EepromReader& reader)
    : WizardStep("Disk partitions", ""), eepromReader(reader)
{
}

PartitionStep::~PartitionStep() = default;

void PartitionStep::ClearPlan()
{
    createPartitionTable = false;
    createFatPartition = false;
    setFatBootable = false;
    createExt4Partition = false;
    createSwapPartition = false;
    deletePartition1 = false;
    deletePartition2 = false;
    deletePartition3 = false;
    deletePartition4 = false;
    fatSectors = -1;
    ext4Sectors = -1;
    swapSectors = -1;
}

bool PartitionStep::AnalyzePartitions()
{
    ClearPlan();
    const char* path = disk->path.c_str();

    int count = 0;
    if (!DiskDiagnostics::HasMsdosPartitionTable(path))
    {
        createPartitionTable = true;
    }
    else
    {
        count = DiskDiagnostics::GetNbPrimaryPartitions(path);
    }

    if (count != 0)
    {
        std::unique_ptr<std::vector<Partition>> partitions(DiskDiagnostics::GetPartitions(path));
        if (count == 1)
        {
            createExt4Partition = true;
            createSwapPartition = true;
        }
        else if (count == 2)
        {
            createSwapPartition = true;
        }

        for (const Partition& partition : *partitions)
        {
            if (partition.number == 1)
            {
                if ((partition.fileSystem != "fat32" && partition.fileSystem != "fat16") ||
                    partition.size < MinimumFatBytes)
                {
                    deletePartition1 = true;
                    createFatPartition = true;
                    setFatBootable = true;
                    createExt4Partition = true;
                    createSwapPartition = true;
                    deletePartition2 = count > 1;
                    deletePartition3 = count > 2;
                    deletePartition4 = count > 3;
                    break;
                }
                if (!partition.bootable)
                {
                    setFatBootable = true;
                }
                fatSectors = partition.sectorCount;
            }
            else if (partition.number == 2)
            {
                if (partition.fileSystem != "ext4" || partition.size < MinimumExt4Bytes)
                {
                    deletePartition2 = true;
                    createExt4Partition = true;
                    createSwapPartition = true;
                    deletePartition3 = count > 2;
                    deletePartition4 = count > 3;
                    break;
                }
                ext4Sectors = partition.sectorCount;
            }
            else if (partition.number == 3)
            {
                if (partition.fileSystem != "linux-swap(v1)" || partition.size < MinimumSwapBytes)
                {
                    deletePartition3 = true;
                    createSwapPartition = true;
                    deletePartition4 = count > 3;
                    break;
                }
                swapSectors = partition.sectorCount;
            }
        }
        return IsPartitionsReady();
    }

    // No table, or a table without any primary partition: everything is made.
    createFatPartition = true;
    setFatBootable = true;
    createExt4Partition = true;
    createSwapPartition = true;
    return false;
}

bool PartitionStep::IsPartitionsReady() const
{
    return !createFatPartition && !createExt4Partition && !createSwapPartition;
}

bool PartitionStep::ReFormatPartition()
{
    if (!createFatPartition)
    {
        if (eepromReader.Read().IsVidorama14AndLessCompatible())
        {
            keepDosPartition = true;
        }
        else
        {
            deletePartition1 = true;
            createFatPartition = true;
            setFatBootable = true;
        }
    }
    if (!createExt4Partition)
    {
        deletePartition2 = true;
    }
    if (!createSwapPartition)
    {
        deletePartition3 = true;
    }
    createExt4Partition = true;
    createSwapPartition = true;

    mvwprintw(_contentWindow, 1, 3,
              "The Linux partition will be formatted. All the data will be lost.");
    mvwprintw(_contentWindow, 2, 3,
              "If you want to keep them, backup them before to proceed to the format.");

    // The plan goes to the log before the operator answers.
    const std::pair<bool, const char*> plan[] = {
        {createPartitionTable, "TODO : Create a msdos partitions table"},
        {deletePartition1, "TODO : Delete the primary partition 1"},
        {deletePartition2, "TODO : Delete the primary partition 2"},
        {deletePartition3, "TODO : Delete the primary partition 3"},
        {deletePartition4, "TODO : Delete the primary partition 4"},
        {createFatPartition, "TODO : Create a FAT16 partition"},
        {setFatBootable, "TODO : Set the FAT16 partition bootable"},
        {createExt4Partition, "TODO : Create a EXT4 partition"},
        {createSwapPartition, "TODO : Create a Linux Swap partition"},
    };
    for (const auto& step : plan)
    {
        if (step.first)
        {
            InstallWizard::log(0, step.second);
        }
    }

    mvwprintw(_contentWindow, 3, 3, "Continue? (y/n)");

    // Under the question, the disk it acts on and what the format destroys:
    // the operator decides on a named disk, not on "the Linux partition".
    std::string target = "Disk: " + DescribeDisk(*disk);
    const size_t room = static_cast<size_t>(std::max(_width - 6, 20));
    if (target.size() > room)
        target = "Disk: " + disk->path + ", " + DescribeSize(disk->size);
    mvwprintw(_contentWindow, 5, 3, "%s", target.c_str());
    int row = 6;
    for (const auto& line : DescribePlan())
        mvwprintw(_contentWindow, row++, 3, "%s", line.c_str());
    // What the hardware check warned about is said again here, where the
    // operator decides, under the plan with a free row between.
    const auto rows =
        ConfirmationWarningRows(row, getmaxy(_contentWindow), HardwareCheckStep::CurrentWarnings());
    for (const auto& warning : rows)
    {
        wattron(_contentWindow, COLOR_PAIR(4) | A_BOLD);
        mvwprintw(_contentWindow, warning.first, 3, "%s", warning.second.c_str());
        wattroff(_contentWindow, COLOR_PAIR(4) | A_BOLD);
    }
    wrefresh(_contentWindow);
    for (;;)
    {
        const int key = ReadKeyFrom(_contentWindow);
        if (key == 'y' || key == 'Y')
        {
            InstallWizard::log(0, "Perform a format and install");
            return true;
        }
        if (key == 'n' || key == 'N')
        {
            InstallWizard::log(0, "Cancel partitions operations");
            InstallWizard::log(0, "Cancel format and install");
            return false;
        }
    }
}

std::vector<std::pair<int, std::string>>
PartitionStep::ConfirmationWarningRows(int firstFreeRow, int contentRows,
                                       const std::vector<std::string>& warnings)
{
    // A free row between the plan and the warnings when there is room for
    // it; never a row outside the content window.
    int row = firstFreeRow + 1;
    if (row + static_cast<int>(warnings.size()) > contentRows)
        row = firstFreeRow;
    std::vector<std::pair<int, std::string>> rows;
    for (const auto& warning : warnings)
    {
        if (row >= contentRows)
            break;
        rows.emplace_back(row++, warning);
    }
    return rows;
}

std::vector<std::string> PartitionStep::DescribePlan() const
{
    std::vector<std::string> lines;
    if (createPartitionTable)
        lines.emplace_back("- A new partition table: everything on the disk is lost.");
    if (deletePartition1)
        lines.emplace_back("- Partition 1 (DOS) is deleted: DOS and all its files are lost.");
    if (createFatPartition)
        lines.emplace_back("- Partition 1 is made anew: FAT16 \"DOS\", bootable.");
    else if (keepDosPartition)
        lines.emplace_back("- Partition 1 (DOS) is kept; its configuration lines are deleted.");
    if (setFatBootable && !createFatPartition)
        lines.emplace_back("- Partition 1 is made bootable.");
    if (deletePartition2)
        lines.emplace_back("- Partition 2 (Linux) is deleted: every version on it is lost.");
    if (deletePartition3)
        lines.emplace_back("- Partition 3 (swap) is deleted.");
    if (deletePartition4)
        lines.emplace_back("- Partition 4 is deleted: everything on it is lost.");
    if (createExt4Partition && createSwapPartition)
        lines.emplace_back("- Partitions 2 (EXT4 \"LINUX\") and 3 (swap \"SWAP\") are made anew.");
    else if (createExt4Partition)
        lines.emplace_back("- Partition 2 is made anew: EXT4 \"LINUX\".");
    else if (createSwapPartition)
        lines.emplace_back("- Partition 3 is made anew: swap \"SWAP\".");
    if (!lines.empty())
        lines.emplace_back("- The disk's boot code is replaced by syslinux's.");
    return lines;
}

void PartitionStep::ShowFailure(const char* firstLine, const char* secondLine)
{
    wclear(_contentWindow);
    wrefresh(_contentWindow);
    mvwprintw(_contentWindow, 3, 3, "%s", firstLine);
    mvwprintw(_contentWindow, 4, 3, "%s", secondLine);
    SetBottomText("<ESC> return to the main menu");
    wrefresh(_contentWindow);
    while (ReadKeyFrom(_contentWindow) != KeyEscape)
    {
    }
}

bool PartitionStep::Run()
{
    if (!disk)
    {
        return false;
    }
    CreateWindow();
    const bool ready = AnalyzePartitions();

    bool result = false;
    if (!formatRequested)
    {
        if (ready)
        {
            result = true;
        }
        else
        {
            ShowFailure("Disk not ready for installation!",
                        "Choose \"Format and Install Vidorama\" in the main menu.");
        }
    }
    else if (!InstallWizard::IsRunningFromUsbKey())
    {
        InstallWizard::log(3, "Format must be executed from the USB key");
        ShowFailure("Disk not correctly prepared for installation!",
                    "Please reboot the server and retry installation of Vidorama.");
    }
    else if (ReFormatPartition())
    {
        if (IsPartitionsReady())
        {
            result = true;
        }
        else
        {
            ShowProgressPopup("Disk partitioning", 5);
            std::future<bool> changes =
                std::async(std::launch::async, [this] { return ApplyPartitionsChanges(); });
            result = WaitForTask(changes, true);
            if (!result)
            {
                ShowFailure("Disk not correctly prepared for installation!",
                            "Please reboot the server and retry installation of Vidorama.");
            }
        }
    }
    DestroyWindow();
    return result;
}

bool PartitionStep::ApplyPartitionsChanges()
{
    // The whole sequence runs as root; the ids come back when the guard goes.
    ZarnLinuxTools::RootUserGuard root;
    if (!root.Succeeded())
    {
        return false;
    }
    const char* path = disk->path.c_str();

    // Sectors left for the Linux and swap partitions. A missing partition (-1)
    // adds a sector, and a freshly made FAT partition is not taken off, so the
    // Linux side is sized from the old DOS partition's room as well.
    int64_t freeSectors = disk->sectorCount;
    if (!deletePartition1)
    {
        freeSectors -= fatSectors;
    }
    if (!deletePartition2)
    {
        freeSectors -= ext4Sectors;
    }
    if (!deletePartition3)
    {
        freeSectors -= swapSectors;
    }

    int failure = -1;
    const bool deleteFlags[] = {deletePartition1, deletePartition2, deletePartition3,
                                deletePartition4};
    if (createPartitionTable && !DiskTools::CreateMsdosPartitionTable(path))
    {
        failure = ChainCreateTable;
    }
    for (int number = 1; failure < 0 && number <= 4; ++number)
    {
        if (deleteFlags[number - 1] && !DiskTools::DeletePrimaryPartition(path, number))
        {
            failure = number;
        }
    }

    if (failure < 0 && createFatPartition)
    {
        std::unique_ptr<Partition> fat(
            DiskTools::AppendPrimaryPartition(path, "fat16", FatPartitionSize));
        if (!fat)
        {
            InstallWizard::log(3, "Fail create fat partition");
            failure = ChainBootable;
        }
        else if (!DiskTools::FormatPartition(path, fat->number, "fat16", "DOS"))
        {
            InstallWizard::log(3, "Cannot format Fat partition");
            freeSectors -= fat->sectorCount;
            failure = ChainBootable;
        }
    }
    else if (failure < 0 && keepDosPartition && !ClearConfigurationLines())
    {
        InstallWizard::log(3, "Fail clear configuration lines");
        failure = ChainBootable;
    }

    if (failure < 0 && setFatBootable && !DiskTools::SetPartitionBootable(path, 1, true))
    {
        failure = ChainBootable;
    }

    if (failure < 0 && createExt4Partition)
    {
        std::unique_ptr<Partition> system(
            DiskTools::AppendPrimaryPartition(path, "ext4", Sectors(freeSectors / 2).c_str()));
        bool formatted = false;
        if (system)
        {
            formatted = DiskTools::FormatPartition(path, system->number, "ext4", "LINUX");
            freeSectors -= system->sectorCount;
        }
        if (!formatted)
        {
            failure = ChainExt4;
        }
    }

    if (failure < 0 && createSwapPartition)
    {
        std::unique_ptr<Partition> swap(DiskTools::AppendPrimaryPartition(
            path, "linux-swap(v1)", Sectors(freeSectors).c_str()));
        if (!swap || !DiskTools::FormatPartition(path, swap->number, "linux-swap", "SWAP"))
        {
            failure = ChainSwap;
        }
    }

    if (failure >= 0)
    {
        for (int line = failure;
             line < static_cast<int>(sizeof(FailureChain) / sizeof(FailureChain[0])); ++line)
        {
            InstallWizard::log(3, FailureChain[line]);
        }
        eepromReader.Read();
        return false;
    }

    if (eepromReader.Read().IsVidorama14AndLessCompatible() && !BackupDosBootLoader())
    {
        return false;
    }
    return InstallBootloader();
}

bool PartitionStep::MountDosPartition()
{
    return DiskDiagnostics::IsDirectoryMountedOn(InstallPackage::DosMountPoint, disk->path.c_str(),
                                                 1) ||
           DiskTools::MountPartition(disk->path.c_str(), 1, "fat16", InstallPackage::DosMountPoint,
                                     false);
}

bool PartitionStep::ClearConfigurationLines()
{
    if (!MountDosPartition())
    {
        InstallWizard::log(3, "Fail clear configuration lines, cannot mount fat partition");
        return false;
    }
    const std::string directory =
        std::string(InstallPackage::DosMountPoint) + ConfigurationLinesDirectory;
    if (!DiskDiagnostics::IsDirectory(directory.c_str()))
    {
        InstallWizard::log(2, "Clear configuration lines, no directory found!");
        return true;
    }
    if (!DiskTools::DeleteAllFiles(directory.c_str(), true))
    {
        InstallWizard::log(3, "Fail clear configuration lines, delete failed");
        return false;
    }
    return true;
}

bool PartitionStep::BackupDosBootLoader()
{
    if (!MountDosPartition())
    {
        InstallWizard::log(3, "Fail backup Dos boot loader, cannot mount fat partition");
        return false;
    }
    if (!MsDos::IsInstalled(InstallPackage::DosMountPoint))
    {
        InstallWizard::log(2, "Ms Dos not installed. No bootloader to backup.");
        return true;
    }

    bool result = true;
    const std::string syslinux = std::string(InstallPackage::DosMountPoint) + DosSyslinuxDirectory;
    if (!DiskDiagnostics::IsDirectory(syslinux.c_str()) &&
        !DiskTools::CreateDirectories(syslinux.c_str()))
    {
        InstallWizard::log(3,
                           "Fail backup Dos boot loader, cannot create /boot/syslinux directories");
        result = false;
    }

    // The first saved DOS boot sector is kept for good: a later format would
    // otherwise save syslinux's own sector over it.
    const std::string target = std::string(InstallPackage::DosMountPoint) + DosBootSectorBackup;
    if (result && !DiskDiagnostics::IsFile(target.c_str()))
    {
        const std::string partition =
            ZarnLinuxTools::detail::PartitionDeviceName(disk->path.c_str(), 1);
        if (!BootLoader::BackupMbr(partition.c_str(), target.c_str()))
        {
            InstallWizard::log(
                3, "Fail backup Dos boot loader, cannot create /boot/syslinux/msdosmbr.bin");
            result = false;
        }
    }
    return result;
}

bool PartitionStep::InstallBootloader()
{
    const std::string data = InstallWizard::GetDataPath();
    const std::string splash = data + SplashImage;
    const std::string configuration =
        data + (MsDos::IsInstalled(InstallPackage::DosMountPoint) ? DosAndLinuxBootConfiguration
                                                                  : LinuxBootConfiguration);
    if (!DiskDiagnostics::IsFile(configuration.c_str()))
    {
        InstallWizard::log(3, "Fail install bootloader, cannot find syslinux config");
        return false;
    }

    std::ostringstream errors;
    if (!BootLoader::InstallSyslinux(disk->path.c_str(), 1, InstallPackage::DosMountPoint,
                                     DosSyslinuxDirectory, configuration.c_str(), splash.c_str(),
                                     errors))
    {
        InstallWizard::log(
            3, ("Fail install bootloader, cannot install syslinux : " + errors.str()).c_str());
        return false;
    }
    if (!BootLoader::InstallMbr(disk->path.c_str(), MasterBootRecord))
    {
        InstallWizard::log(3, "Fail install bootloader, cannot write boot sector");
        return false;
    }
    return true;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
