// The "KEY=value" lines that `udevadm info --query property` prints for a
// disk, as DiskDiagnostics turns them into the disk's property map.
#include "DiskDiagnostics.h"
#include "FuzzCheck.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string output(reinterpret_cast<const char*>(data), size);
    std::map<std::string, std::string> properties;
    Kel::ZarnLinuxTools::detail::ParseUdevProperties(output, properties);

    for (const auto& property : properties)
    {
        // A key ends at the first "=", and nothing runs over a line end.
        FUZZ_CHECK(property.first.find('=') == std::string::npos);
        FUZZ_CHECK(property.first.find('\n') == std::string::npos);
        FUZZ_CHECK(property.second.find('\n') == std::string::npos);
        FUZZ_CHECK(output.find(property.first + "=" + property.second) != std::string::npos);
    }
    if (output.find('=') == std::string::npos)
        FUZZ_CHECK(properties.empty());

    // Earlier properties of the disk are kept unless a line names them again.
    std::map<std::string, std::string> kept{{"ID_BUS", "usb"}};
    Kel::ZarnLinuxTools::detail::ParseUdevProperties(output, kept);
    FUZZ_CHECK(kept.count("ID_BUS") == 1);
    return 0;
}
