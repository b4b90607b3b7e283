#include "DiskTools.h"

#include "DiskDiagnostics.h"
#include "PartedHandles.h"
#include "SystemTools.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>

#include <dirent.h>
#include <fcntl.h>
#include <mntent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace Kel
{
namespace ZarnLinuxTools
{

namespace
{

// Directories are created with these bits, written in hexadecimal on purpose:
// octal 3567 (set-group-id and sticky included) before the umask. Existing
// installations were made with them, so they stay.
constexpr mode_t DirectoryMode = 0x777;

// Time left to the kernel and udev to create or remove a partition's device
// node after the table was written.
constexpr unsigned int DeviceNodeDelaySeconds = 2;

// The first partition starts on the second track of the classic DOS layout,
// where the DOS system expects it.
constexpr PedSector FirstPartitionStart = 63;

constexpr const char* Mtab = "/etc/mtab";

struct MntentCloser
{
    void operator()(FILE* file) const { endmntent(file); }
};
using MntentPtr = std::unique_ptr<FILE, MntentCloser>;

struct DirCloser
{
    void operator()(DIR* dir) const { closedir(dir); }
};
using DirPtr = std::unique_ptr<DIR, DirCloser>;

struct MallocFree
{
    void operator()(char* text) const { std::free(text); }
};
using MallocText = std::unique_ptr<char, MallocFree>;

// A partition not yet handed over to its disk; once added, the disk owns it.
struct PartitionDeleter
{
    void operator()(PedPartition* partition) const
    {
        if (partition != nullptr)
            ped_partition_destroy(partition);
    }
};
using NewPartitionPtr = std::unique_ptr<PedPartition, PartitionDeleter>;

bool DeleteDirectoryContents(const std::string& directory, const char* pattern,
                             const std::regex* matcher, bool recursive)
{
    DirPtr dir(opendir(directory.c_str()));
    if (!dir)
        return false;

    while (const dirent* entry = readdir(dir.get()))
    {
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        const std::string path = directory + "/" + name;

        if (recursive && entry->d_type == DT_DIR)
        {
            if (!DeleteDirectoryContents(path, pattern, matcher, recursive))
                return false;
            if (rmdir(path.c_str()) != 0)
            {
                // With a pattern a directory may rightly keep the files that
                // did not match.
                if (pattern != nullptr && (errno == EEXIST || errno == ENOTEMPTY))
                    continue;
                return false;
            }
            continue;
        }

        if (matcher != nullptr && !std::regex_match(name, *matcher))
            continue;
        if (unlink(path.c_str()) != 0)
            return false;
    }
    return true;
}

} // namespace

namespace detail
{

std::string FormatCommand(const char* fileSystemType, const char* label)
{
    if (fileSystemType == nullptr)
        return std::string();
    const std::string type = fileSystemType;
    const std::string name = label != nullptr ? label : "";
    if (type == "fat16")
        return "mkfs.fat -F 16 -n " + name;
    if (type == "ext4")
        // No 64-bit block numbers: the boot loader could not read the file system.
        return "mkfs.ext4 -L " + name + " -O ^64bit";
    if (type == "linux-swap")
        return "mkswap -L " + name;
    return std::string();
}

} // namespace detail

bool DiskTools::CreateMsdosPartitionTable(const char* device)
{
    Parted::InstallQuietExceptionHandler();
    const PedDiskType* msdos = ped_disk_type_get("msdos");
    // A libparted built without msdos support leaves the disk as it is and
    // lets the caller go on.
    if (msdos == nullptr)
        return true;

    Parted::DevicePtr pedDevice = Parted::GetDevice(device);
    if (!pedDevice)
        return false;
    Parted::DiskPtr disk(ped_disk_new_fresh(pedDevice.get(), msdos));
    if (!disk)
        return false;
    return ped_disk_commit_to_dev(disk.get()) != 0;
}

Partition* DiskTools::AppendPrimaryPartition(const char* device, const char* fileSystemType,
                                             const char* size)
{
    Parted::InstallQuietExceptionHandler();
    ped_unit_set_default(PED_UNIT_SECTOR);

    Parted::DevicePtr pedDevice = Parted::GetDevice(device);
    if (!pedDevice)
        return nullptr;
    PedDevice* dev = pedDevice.get();
    Parted::DiskPtr disk(ped_disk_new(dev));
    if (!disk)
        return nullptr;

    if (ped_disk_is_flag_available(disk.get(), PED_DISK_CYLINDER_ALIGNMENT) == 1 &&
        ped_disk_set_flag(disk.get(), PED_DISK_CYLINDER_ALIGNMENT, 1) == 0)
    {
        // The disk object is not released on this path, as it never was.
        disk.release();
        return nullptr;
    }

    const int count = ped_disk_get_primary_partition_count(disk.get());
    if (count >= ped_disk_get_max_primary_partition_count(disk.get()))
        return nullptr;

    // Right behind the last primary partition.
    PedSector start = FirstPartitionStart;
    if (count > 0)
    {
        if (const PedPartition* last = ped_disk_get_partition(disk.get(), count))
            start = last->geom.end + 1;
    }

    const PedFileSystemType* type =
        fileSystemType != nullptr ? ped_file_system_type_get(fileSystemType) : nullptr;
    if (type == nullptr)
        return nullptr;

    Parted::GeometryPtr startRange(ped_geometry_new(dev, start, 1));
    if (!startRange)
        return nullptr;

    // No range asked for: a size beyond the disk is clipped instead of refused.
    PedSector sectors = 0;
    if (size == nullptr || ped_unit_parse(size, dev, &sectors, nullptr) == 0)
        return nullptr;

    // The partition holds one sector more than the size asked for; the
    // layouts already installed were made this way.
    PedSector end = start + sectors;
    if (end >= dev->length)
        end = dev->length - 1;

    MallocText endText(ped_unit_format(dev, end));
    if (!endText)
        return nullptr;
    PedGeometry* parsedEndRange = nullptr;
    if (ped_unit_parse(endText.get(), dev, &end, &parsedEndRange) == 0)
        return nullptr;
    Parted::GeometryPtr endRange(parsedEndRange);
    if (!endRange)
        return nullptr;

    NewPartitionPtr partition(
        ped_partition_new(disk.get(), PED_PARTITION_NORMAL, type, start, end));
    if (!partition)
        return nullptr;

    Parted::ConstraintPtr wanted(ped_constraint_new(
        ped_alignment_any, ped_alignment_any, startRange.get(), endRange.get(), 1, dev->length));
    Parted::ConstraintPtr possible(ped_device_get_constraint(dev));
    Parted::ConstraintPtr constraint(ped_constraint_intersect(wanted.get(), possible.get()));
    wanted.reset();
    possible.reset();
    if (!constraint)
        return nullptr;

    if (ped_disk_add_partition(disk.get(), partition.get(), constraint.get()) == 0)
        return nullptr;
    PedPartition* added = partition.release();
    if (added->num == -1)
        return nullptr;
    const int number = added->num;

    const int committed = ped_disk_commit(disk.get());
    sleep(DeviceNodeDelaySeconds);
    if (committed == 0)
        return nullptr;

    constraint.reset();
    endRange.reset();
    startRange.reset();
    disk.reset();
    pedDevice.reset();
    return new Partition(DiskDiagnostics::GetPartition(device, number));
}

bool DiskTools::SetPartitionBootable(const char* device, int number, bool bootable)
{
    Parted::DevicePtr pedDevice = Parted::GetDevice(device);
    if (!pedDevice)
        return false;
    Parted::DiskPtr disk(ped_disk_new(pedDevice.get()));
    if (!disk)
        return false;
    PedPartition* partition = ped_disk_get_partition(disk.get(), number);
    if (partition == nullptr || ped_partition_is_flag_available(partition, PED_PARTITION_BOOT) == 0)
        return false;
    // Asking for the flag it already has is refused: callers rely on false
    // meaning "nothing was written".
    if ((ped_partition_get_flag(partition, PED_PARTITION_BOOT) != 0) == bootable)
        return false;
    ped_partition_set_flag(partition, PED_PARTITION_BOOT, bootable ? 1 : 0);
    return ped_disk_commit_to_dev(disk.get()) == 1;
}

bool DiskTools::DeletePrimaryPartition(const char* device, int number)
{
    if (!UmountPartition(device, number))
        return false;

    Parted::DevicePtr pedDevice = Parted::GetDevice(device);
    if (!pedDevice)
        return false;
    Parted::DiskPtr disk(ped_disk_new(pedDevice.get()));
    if (!disk)
        return false;
    PedPartition* partition = ped_disk_get_partition(disk.get(), number);
    if (partition == nullptr || ped_disk_delete_partition(disk.get(), partition) == 0)
        return false;
    const int committed = ped_disk_commit(disk.get());
    sleep(DeviceNodeDelaySeconds);
    return committed != 0;
}

bool DiskTools::FormatPartition(const char* device, int number, const char* fileSystemType,
                                const char* label)
{
    if (!UmountPartition(device, number))
        return false;

    std::string command = detail::FormatCommand(fileSystemType, label);
    if (command.empty())
        return false;
    command += " " + detail::PartitionDeviceName(device, number) + " 2>&1";

    std::ostringstream output;
    return SystemTools::ExecuteCommand(command.c_str(), output);
}

bool DiskTools::MountPartition(const char* device, int number, const char* fileSystemType,
                               const char* directory, bool synchronous)
{
    const std::string type = fileSystemType != nullptr ? fileSystemType : "";
    const std::string kernelType = (type == "fat16" || type == "fat32") ? "vfat" : type;
    const std::string source = detail::PartitionDeviceName(device, number);
    return mount(source.c_str(), directory, kernelType.c_str(), synchronous ? MS_SYNCHRONOUS : 0,
                 "") == 0;
}

bool DiskTools::UmountPartition(const char* device, int number)
{
    const std::string name = detail::PartitionDeviceName(device, number);
    MntentPtr mtab(setmntent(Mtab, "r"));
    if (!mtab)
        return true;

    // Every mount of the partition goes, so the walk does not stop at the
    // first one nor at the first failure.
    bool result = true;
    while (const mntent* entry = getmntent(mtab.get()))
    {
        if (entry->mnt_fsname == nullptr || name != entry->mnt_fsname)
            continue;
        if (entry->mnt_dir == nullptr)
        {
            result = false;
            continue;
        }
        // EINVAL: the directory is no longer a mount point (an older entry
        // of the same partition already took it away).
        if (umount(entry->mnt_dir) != 0 && errno != EINVAL)
            result = false;
    }
    return result;
}

bool DiskTools::UmountDirectory(const char* directory)
{
    if (DiskDiagnostics::IsDirectoryMounted(directory))
        return umount(directory) == 0;
    return true;
}

namespace
{

std::atomic<unsigned> copyCounter{0};

// The temporary file of one copy, beside its destination: removed unless it
// was renamed over the destination.
class CopyTemporary
{
public:
    // Created with 0666 so that the file-creation mask decides the
    // permissions of a new destination, as for a file opened the ordinary
    // way; the name is unique to the process and the call, and a leftover of
    // a crashed run is skipped.
    explicit CopyTemporary(const std::string& destination)
    {
        for (int attempt = 0; attempt < 100 && _descriptor < 0; ++attempt)
        {
            _path = destination + "." + std::to_string(getpid()) + "." +
                    std::to_string(copyCounter++) + ".tmp";
            _descriptor = open(_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (_descriptor < 0 && errno != EEXIST)
                break;
        }
        if (_descriptor < 0)
            _path.clear();
    }
    ~CopyTemporary()
    {
        if (_descriptor >= 0)
            close(_descriptor);
        if (!_path.empty())
            unlink(_path.c_str());
    }
    CopyTemporary(const CopyTemporary&) = delete;
    CopyTemporary& operator=(const CopyTemporary&) = delete;

    int Descriptor() const { return _descriptor; }

    // Data on the disk, the file closed, then the name changed: the
    // destination is either the old file or the whole new one.
    bool RenameOver(const std::string& destination)
    {
        const bool synced = fsync(_descriptor) == 0;
        const bool closed = close(_descriptor) == 0;
        _descriptor = -1;
        if (!synced || !closed || rename(_path.c_str(), destination.c_str()) != 0)
            return false;
        _path.clear();
        return true;
    }

private:
    std::string _path;
    int _descriptor = -1;
};

// Every byte of the buffer, or false (a full file system, an I/O error).
bool WriteAll(int descriptor, const char* data, size_t size)
{
    while (size > 0)
    {
        const ssize_t written = write(descriptor, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

// The rename lasts only once the directory entry reached the disk. Some file
// systems refuse to sync a directory; the copy is in place by then, so that
// is no failure.
void SyncDirectoryOf(const std::string& path)
{
    const std::string::size_type slash = path.rfind('/');
    const std::string directory =
        slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
    const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0)
    {
        fsync(descriptor);
        close(descriptor);
    }
}

} // namespace

bool DiskTools::CopyFile(const char* source, const char* destination)
{
    if (source == nullptr || destination == nullptr)
        return false;

    // The source first: when it cannot be read, nothing is created.
    const int input = open(source, O_RDONLY | O_CLOEXEC);
    if (input < 0)
        return false;
    struct InputCloser
    {
        int descriptor;
        ~InputCloser() { close(descriptor); }
    } inputCloser{input};

    // Only a regular file (or a link to one) can be replaced by a rename: a
    // device, a directory or a pipe in the destination's place is refused;
    // devices are written by their callers with checks of their own. A link
    // keeps pointing at the file it named, which gets the new content.
    std::string target = destination;
    struct stat existing;
    const bool existed = stat(destination, &existing) == 0;
    if (existed)
    {
        if (!S_ISREG(existing.st_mode))
            return false;
        MallocText resolved(realpath(destination, nullptr));
        if (!resolved)
            return false;
        target = resolved.get();
    }
    else if (errno != ENOENT)
    {
        return false;
    }

    CopyTemporary temporary(target);
    if (temporary.Descriptor() < 0)
        return false;
    // The replaced file keeps its permissions and, as far as this process
    // may give them, its owners.
    if (existed)
    {
        struct stat created;
        if (fstat(temporary.Descriptor(), &created) != 0)
            return false;
        if ((created.st_mode & 07777) != (existing.st_mode & 07777) &&
            fchmod(temporary.Descriptor(), existing.st_mode & 07777) != 0)
            return false;
        if ((created.st_uid != existing.st_uid || created.st_gid != existing.st_gid) &&
            fchown(temporary.Descriptor(), existing.st_uid, existing.st_gid) != 0)
        {
            // A user may replace a file that is not his: it becomes his.
        }
    }

    char buffer[65536];
    for (;;)
    {
        const ssize_t count = read(input, buffer, sizeof(buffer));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        if (count == 0)
            break;
        if (!WriteAll(temporary.Descriptor(), buffer, static_cast<size_t>(count)))
            return false;
    }
    if (!temporary.RenameOver(target))
        return false;
    SyncDirectoryOf(target);
    return true;
}

bool DiskTools::CreateDirectory(const char* path)
{
    return mkdir(path, DirectoryMode) == 0;
}

bool DiskTools::CreateDirectories(const char* path)
{
    if (path == nullptr)
        return false;
    const std::string full = path;
    for (std::string::size_type position = 0; position <= full.size(); ++position)
    {
        if (position < full.size() && full[position] != '/')
            continue;
        const std::string part = full.substr(0, position);
        if (part.empty())
            continue;

        struct stat status;
        if (stat(part.c_str(), &status) == 0)
        {
            if (!S_ISDIR(status.st_mode))
            {
                errno = ENOTDIR;
                return false;
            }
        }
        else if (mkdir(part.c_str(), DirectoryMode) != 0 && errno != EEXIST)
        {
            return false;
        }
    }
    return true;
}

bool DiskTools::DeleteAllFiles(const char* directory, const char* pattern, bool recursive)
{
    if (directory == nullptr)
        return false;
    std::unique_ptr<std::regex> matcher;
    if (pattern != nullptr)
    {
        try
        {
            matcher = std::make_unique<std::regex>(pattern, std::regex::ECMAScript);
        }
        catch (const std::regex_error&)
        {
            return false;
        }
    }
    return DeleteDirectoryContents(directory, pattern, matcher.get(), recursive);
}

bool DiskTools::DeleteAllFiles(const char* directory, bool recursive)
{
    return DeleteAllFiles(directory, nullptr, recursive);
}

} // namespace ZarnLinuxTools
} // namespace Kel
