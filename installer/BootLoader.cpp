#include "BootLoader.h"

#include "DiskDiagnostics.h"
#include "DiskTools.h"
#include "SystemTools.h"

#include <cerrno>
#include <cstddef>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

using ZarnLinuxTools::DiskDiagnostics;
using ZarnLinuxTools::DiskTools;
using ZarnLinuxTools::SystemTools;

namespace
{

// Where the appliance keeps the syslinux modules; both installers copy from here.
const char* const SyslinuxModulesDirectory = "/usr/share/syslinux";

// In this order; a missing one ends the copy, the earlier ones stay.
const char* const SyslinuxModules[] = {
    "/hdt.c32",  "/chain.c32",    "/ldlinux.c32", "/libcom32.c32", "/libgpl.c32",   "/libmenu.c32",
    "/menu.c32", "/poweroff.c32", "/reboot.c32",  "/libutil.c32",  "/vesamenu.c32",
};

const size_t BootSectorSize = 512;
// The boot code only: the disk signature and the partition table follow it.
const size_t BootCodeSize = 440;

// Owner read/write: a boot sector is nobody else's business.
const mode_t BackupFileMode = S_IRUSR | S_IWUSR;

std::string Text(const char* text)
{
    return text != nullptr ? text : "";
}

// Closes the descriptor on every way out.
class FileDescriptor
{
public:
    explicit FileDescriptor(int descriptor) : _descriptor(descriptor) {}
    ~FileDescriptor()
    {
        if (_descriptor >= 0)
            close(_descriptor);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    bool IsOpen() const { return _descriptor >= 0; }
    int Get() const { return _descriptor; }

private:
    int _descriptor;
};

// Reads up to size bytes from the start of path, going on after short reads
// until the buffer is full, the file ends or a read fails. The number of
// bytes read, or -1 when the file does not open.
ssize_t ReadStart(const char* path, int flags, char* buffer, size_t size)
{
    FileDescriptor file(open(path, flags));
    if (!file.IsOpen())
        return -1;

    size_t done = 0;
    while (done < size)
    {
        const ssize_t count = read(file.Get(), buffer + done, size - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        done += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

std::string BaseName(const std::string& path)
{
    const std::string::size_type slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

} // namespace

namespace detail
{

std::string SyslinuxInstallCommand(const char* syslinuxDirectory, const char* device, int partition)
{
    return "syslinux -i -d " + Text(syslinuxDirectory) + " " +
           ZarnLinuxTools::detail::PartitionDeviceName(device, partition) + " 2>&1";
}

std::string ExtlinuxInstallCommand(const char* mountDirectory, const char* syslinuxDirectory)
{
    return "extlinux --install " + Text(mountDirectory) + Text(syslinuxDirectory) + " 2>&1";
}

std::string SyslinuxDefaultEntryCommand(const char* syslinuxDirectory, const char* device,
                                        int partition, const char* label)
{
    return "syslinux --update --menu-save='" + Text(label) + "' --once='" + Text(label) + "' -d " +
           Text(syslinuxDirectory) + " " +
           ZarnLinuxTools::detail::PartitionDeviceName(device, partition) + " 2>&1";
}

std::string SyslinuxBootOnceCommand(const char* syslinuxDirectory, const char* device,
                                    int partition, const char* label)
{
    return "syslinux --once='" + Text(label) + "' -d " + Text(syslinuxDirectory) + " " +
           ZarnLinuxTools::detail::PartitionDeviceName(device, partition) + " 2>&1";
}

} // namespace detail

bool BootLoader::BackupMbr(const char* device, const char* file)
{
    if (file == nullptr || !DiskDiagnostics::IsBlockDevice(device))
        return false;

    char sector[BootSectorSize] = {};
    if (ReadStart(device, O_RDONLY | O_NONBLOCK, sector, sizeof(sector)) !=
        static_cast<ssize_t>(sizeof(sector)))
        return false;

    // No truncation: a longer file keeps its tail beyond the sector.
    FileDescriptor backup(open(file, O_WRONLY | O_CREAT, BackupFileMode));
    if (!backup.IsOpen())
        return false;
    return write(backup.Get(), sector, sizeof(sector)) == static_cast<ssize_t>(sizeof(sector));
}

bool BootLoader::InstallMbr(const char* device, const char* file)
{
    if (file == nullptr || !DiskDiagnostics::IsBlockDevice(device))
        return false;

    char code[BootCodeSize] = {};
    if (ReadStart(file, O_RDONLY, code, sizeof(code)) != static_cast<ssize_t>(sizeof(code)))
        return false;

    FileDescriptor disk(open(device, O_WRONLY));
    if (!disk.IsOpen())
        return false;
    return write(disk.Get(), code, sizeof(code)) == static_cast<ssize_t>(sizeof(code));
}

bool BootLoader::CopySyslinuxFiles(const char* sourceDirectory, const char* mountDirectory,
                                   const char* syslinuxDirectory, const char* configFile,
                                   const char* extraFile)
{
    if (sourceDirectory == nullptr || mountDirectory == nullptr || syslinuxDirectory == nullptr ||
        configFile == nullptr)
        return false;

    // The syslinux directory starts with "/": no separator in between.
    const std::string destination = std::string(mountDirectory) + syslinuxDirectory;
    if (!DiskDiagnostics::IsDirectory(destination.c_str()) &&
        !DiskTools::CreateDirectories(destination.c_str()))
        return false;

    const bool configCopied =
        DiskTools::CopyFile(configFile, (destination + "/syslinux.cfg").c_str());
    bool extraCopied = true;
    if (extraFile != nullptr && *extraFile != '\0')
        extraCopied =
            DiskTools::CopyFile(extraFile, (destination + "/" + BaseName(extraFile)).c_str());
    if (!configCopied || !extraCopied)
        return false;

    const std::string source = sourceDirectory;
    for (const char* module : SyslinuxModules)
    {
        if (!DiskTools::CopyFile((source + module).c_str(), (destination + module).c_str()))
            return false;
    }
    return true;
}

bool BootLoader::InstallSyslinux(const char* device, int partition, const char* mountDirectory,
                                 const char* syslinuxDirectory, const char* configFile,
                                 const char* extraFile, std::ostream& log)
{
    if (!DiskDiagnostics::IsDirectoryMountedOn(mountDirectory, device, partition))
    {
        // Mounted elsewhere, perhaps: the files go in through mountDirectory only.
        if (!DiskTools::UmountPartition(device, partition))
            return false;
        if (!DiskTools::MountPartition(device, partition, "fat16", mountDirectory, false))
            return false;
    }

    if (!CopySyslinuxFiles(SyslinuxModulesDirectory, mountDirectory, syslinuxDirectory, configFile,
                           extraFile))
        return false;

    // syslinux works on the unmounted partition. When the partition stays
    // busy the files are in place all the same, and that counts as success
    // without running syslinux; deliberately so, keep it.
    if (!DiskTools::UmountPartition(device, partition))
        return true;

    const std::string command =
        detail::SyslinuxInstallCommand(syslinuxDirectory, device, partition);
    return SystemTools::ExecuteCommand(command.c_str(), log, true);
}

bool BootLoader::InstallExtlinux(const char* device, int partition, const char* mountDirectory,
                                 const char* syslinuxDirectory, const char* configFile,
                                 const char* extraFile, std::ostream& log)
{
    // extlinux works through the mounted file system, which stays mounted.
    if (!DiskDiagnostics::IsDirectoryMountedOn(mountDirectory, device, partition) &&
        !DiskTools::MountPartition(device, partition, "ext4", mountDirectory, false))
        return false;

    const std::string command = detail::ExtlinuxInstallCommand(mountDirectory, syslinuxDirectory);
    if (!CopySyslinuxFiles(SyslinuxModulesDirectory, mountDirectory, syslinuxDirectory, configFile,
                           extraFile))
        return false;
    return SystemTools::ExecuteCommand(command.c_str(), log, true);
}

bool BootLoader::ChangeDefaultBootEntry(const char* device, int partition,
                                        const char* syslinuxDirectory, const char* label,
                                        std::ostream& log)
{
    const std::string command =
        detail::SyslinuxDefaultEntryCommand(syslinuxDirectory, device, partition, label);
    if (!DiskTools::UmountPartition(device, partition))
        return false;
    return SystemTools::ExecuteCommand(command.c_str(), log, true);
}

bool BootLoader::BootOnceSyslinux(const char* device, int partition, const char* syslinuxDirectory,
                                  const char* label, std::ostream& log)
{
    const std::string command =
        detail::SyslinuxBootOnceCommand(syslinuxDirectory, device, partition, label);
    if (!DiskTools::UmountPartition(device, partition))
        return false;
    return SystemTools::ExecuteCommand(command.c_str(), log, true);
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
