#include "DiskDescription.h"

#include <cstdio>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

std::string DescribeSize(long long bytes)
{
    if (bytes < 0)
        return "";
    const double mebi = 1024.0 * 1024.0;
    const double gibi = mebi * 1024.0;
    const double tebi = gibi * 1024.0;
    char text[32];
    const auto value = static_cast<double>(bytes);
    if (value >= tebi)
        std::snprintf(text, sizeof(text), "%.1f TiB", value / tebi);
    else if (value >= gibi)
        std::snprintf(text, sizeof(text), "%.1f GiB", value / gibi);
    else
        std::snprintf(text, sizeof(text), "%.0f MiB", value / mebi);
    return text;
}

std::string DescribeDisk(const ZarnLinuxTools::Disk& disk)
{
    std::string text = disk.path;
    if (!disk.model.empty())
        text += " " + disk.model;
    const std::string size = DescribeSize(disk.size);
    if (!size.empty())
        text += ", " + size;
    return text;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
