#pragma once

#include "TempDir.h"
#include "TmuxScreen.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Sandbox
{

struct GuestOptions
{
    // Image files. Virtio disks are /dev/vda, /dev/vdb... in this order; USB
    // disks sit behind an xhci controller and show ID_BUS=usb.
    std::vector<std::string> disks, usbDisks;
    // NVMe disks (/dev/nvme0n1, /dev/nvme1n1...) and one SD card
    // (/dev/mmcblk0, its image's size a power of two).
    std::vector<std::string> nvmeDisks, sdDisks;
    int memMb = 512;
    // /sys/class/dmi/id/bios_vendor; empty: qemu's own.
    std::string biosVendor;
    // Bound over /proc/cmdline: nullopt leaves it untouched, "" gives an empty file.
    std::optional<std::string> kernelCmdline;
    // Host directory shown at /mnt/USB; writable there, changes stay in the guest.
    std::string usbKeyDir;
    // Guest shell text, sourced by the guest's init before the agent starts.
    std::string setupScript;
    // Host file (at most 114 bytes) written into the guest's CMOS through the
    // kernel's /dev/nvram at start; what the guest writes there stays in the
    // guest: read it through the guest (GuestCmos in Cmos.h) before it ends.
    std::string nvramFile;
    // The guest is ended after this long whatever happens.
    int timeoutSec = 3600;
    // Size of the console: the tmux screen's and the guest's serial line's.
    int columns = 80;
    int rows = 25;
};

// One sandbox guest (sandbox/guest ... agent) on the console of a tmux screen
// (80x25 unless the options say otherwise), with a host directory of its own as the guest's /io.
// Everything (qemu, tmux, the directory) is gone when the object is.
class Guest
{
public:
    // Boots and waits until the agent answers (up to 120 s). Throws
    // std::runtime_error with the end of the kernel log when it does not.
    explicit Guest(const GuestOptions& options);
    ~Guest();
    Guest(const Guest&) = delete;
    Guest& operator=(const Guest&) = delete;

    struct Result
    {
        // The command's status; -1: no answer in time or the guest has ended.
        int rc;
        // stdout and stderr together.
        std::string output;
    };
    // Runs shellCommand with sh in the guest (as root, cwd /io/work).
    Result Run(const std::string& shellCommand, int timeoutSec = 120);

    // Starts shellCommand on the guest's console (the tmux screen) in cwd,
    // created when missing, and returns at once. Throws std::runtime_error
    // when the guest cannot start it.
    void StartOnConsole(const std::string& command, const std::string& cwd);
    // The status of the program started on the console, once it has ended
    // (the status file is then removed); nullopt on time-out or when the
    // guest has ended.
    std::optional<int> WaitConsoleExit(int timeoutSec);

    // The screen: exactly as many lines as it has rows, each ending in '\n',
    // trailing blanks of each line removed.
    std::string Screen() const;
    // One row (0 to rows - 1) without its '\n'.
    std::string ScreenLine(int row) const;
    // The screen with its colours as SGR escape sequences (tmux capture-pane -e).
    std::string StyledScreen() const;
    bool WaitForText(const std::string& text, int timeoutSec) const;
    bool WaitForScreen(std::function<bool(const std::string&)> test, int timeoutSec) const;
    // tmux send-keys names: "Down", "Up", "Enter", "Escape", "C-c", "1", ":"...
    void SendKeys(const std::vector<std::string>& keys) const;
    // Characters typed as they are.
    void SendText(const std::string& literal) const;

    // True once qemu has ended and the launcher has told how.
    bool WaitEnded(int timeoutSec);
    // "exit N" | "reboot" | "halt" | "timeout" | "crash"; empty while running.
    std::string Outcome() const;
    // Host path of the guest's /io.
    std::string IoDir() const;
    // A file under IoDir(); empty when it does not exist.
    std::string ReadIoFile(const std::string& relative) const;

private:
    bool Ended() const;
    void Stop() noexcept;
    std::string Diagnostics() const;

    TempDir _ioDir;
    std::unique_ptr<TmuxScreen> _screen;
    int _launcherPid = 0;
    unsigned _requests = 0;
};

} // namespace Sandbox
