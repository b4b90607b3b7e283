#pragma once

#include <ostream>
#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// The target disk's boot chain: the boot code of the master boot record,
// syslinux on the DOS (FAT16) partition, extlinux on the Linux (EXT4)
// partition, and the entry that syslinux starts by default or once.
// A partition is named by its disk's device path and its number. Every
// operation returns true on success; the commands' own output goes to the
// caller's log stream and nothing else is reported.
class BootLoader
{
public:
    // The first 512 bytes of a block device into a file; an existing longer
    // file keeps whatever follows byte 512.
    static bool BackupMbr(const char* device, const char* file);
    // The first 440 bytes of a file onto the start of a block device: the
    // disk signature and the partition table after them stay as they are.
    static bool InstallMbr(const char* device, const char* file);
    // The configuration (as "syslinux.cfg"), the extra file (when given) and
    // the modules into mountDirectory + syslinuxDirectory.
    static bool CopySyslinuxFiles(const char* sourceDirectory, const char* mountDirectory,
                                  const char* syslinuxDirectory, const char* configFile,
                                  const char* extraFile);
    static bool InstallSyslinux(const char* device, int partition, const char* mountDirectory,
                                const char* syslinuxDirectory, const char* configFile,
                                const char* extraFile, std::ostream& log);
    static bool InstallExtlinux(const char* device, int partition, const char* mountDirectory,
                                const char* syslinuxDirectory, const char* configFile,
                                const char* extraFile, std::ostream& log);
    // label becomes the saved default and the entry of the next boot.
    static bool ChangeDefaultBootEntry(const char* device, int partition,
                                       const char* syslinuxDirectory, const char* label,
                                       std::ostream& log);
    // label becomes the entry of the next boot only.
    static bool BootOnceSyslinux(const char* device, int partition, const char* syslinuxDirectory,
                                 const char* label, std::ostream& log);
};

namespace detail
{
// The command lines run by the boot loader operations, output merged into
// the log (" 2>&1" at the end).
std::string SyslinuxInstallCommand(const char* syslinuxDirectory, const char* device,
                                   int partition);
std::string ExtlinuxInstallCommand(const char* mountDirectory, const char* syslinuxDirectory);
std::string SyslinuxDefaultEntryCommand(const char* syslinuxDirectory, const char* device,
                                        int partition, const char* label);
std::string SyslinuxBootOnceCommand(const char* syslinuxDirectory, const char* device,
                                    int partition, const char* label);
} // namespace detail

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
