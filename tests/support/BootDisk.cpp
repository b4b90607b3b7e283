#include "BootDisk.h"

#include "GuestShell.h"
#include "HostCommand.h"
#include "TempDir.h"

#ifndef WIZARD_SOURCE_DIR
#error "WIZARD_SOURCE_DIR must name the repository root"
#endif

namespace Sandbox
{

BootResult BootDisk(const std::string& image, const std::vector<std::string>& expect,
                    int timeoutSec, bool writable, const std::string& diskKind)
{
    const TempDir files("/tmp/boot-disk-result-");
    const std::string serial = files.Path() + "/serial";
    const std::string firmware = files.Path() + "/firmware";

    std::vector<std::string> argv = {std::string(WIZARD_SOURCE_DIR) + "/sandbox/boot-disk",
                                     "--timeout",
                                     std::to_string(timeoutSec),
                                     "--plain",
                                     "--serial",
                                     serial,
                                     "--firmware-log",
                                     firmware};
    if (writable)
        argv.push_back("--writable");
    argv.insert(argv.end(), {"--disk-kind", diskKind});
    for (const auto& text : expect)
        argv.insert(argv.end(), {"--expect", text});
    argv.insert(argv.end(), {"--", image});

    BootResult result;
    const int status = HostCommand::Run(argv, &result.messages);
    result.found = status == 0;
    result.serial = ReadFile(serial);
    result.firmware = ReadFile(firmware);
    if (status != 0 && status != 1)
        result.messages += "[sandbox/boot-disk ended with status " + std::to_string(status) + "]\n";
    return result;
}

} // namespace Sandbox
