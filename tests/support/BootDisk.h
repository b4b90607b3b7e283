#pragma once

#include <string>
#include <vector>

namespace Sandbox
{

struct BootResult
{
    // Every expected text appeared on the serial port in time.
    bool found = false;
    // What the machine wrote to its first serial port, escape sequences
    // stripped: cursor moves as line breaks, line-drawing glyphs as + - |.
    std::string serial;
    // SeaBIOS' own messages ("Booting from Hard Disk...", "No bootable
    // device." and its debug lines); they do not reach the serial port.
    std::string firmware;
    // The launcher's messages: time to the texts, texts not seen, qemu errors.
    std::string messages;
};

// Boots image in a PC (SeaBIOS, no -kernel) with sandbox/boot-disk, the image
// never written, until every text of expect has appeared on the serial port
// or timeoutSec has passed. With expect empty the machine runs for the whole
// time (or until it stops) and found only says that it could be started.
// writable: what the machine writes reaches image (boot a copy then).
// diskKind: how image is attached, "ide", "nvme" or "sd".
BootResult BootDisk(const std::string& image, const std::vector<std::string>& expect,
                    int timeoutSec = 120, bool writable = false,
                    const std::string& diskKind = "ide");

} // namespace Sandbox
