#include "AutoInstallTargets.h"

#include "SelectDiskStep.h"

#include <algorithm>
#include <cstdio>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using ZarnLinuxTools::Disk;
using ZarnLinuxTools::Partition;

namespace
{

const double BytesPerGiB = 1024.0 * 1024.0 * 1024.0;

bool IsUsb(const Disk& disk)
{
    const auto bus = disk.udevProperties.find("ID_BUS");
    return bus != disk.udevProperties.end() && bus->second == "usb";
}

std::string Quoted(const std::string& text)
{
    return "\"" + text + "\"";
}

std::string FilterText(const AutoInstallAnswers::DiskFilter& filter)
{
    std::string text;
    auto add = [&text](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
    if (!filter.path.empty())
        add("\"path\": " + Quoted(filter.path));
    if (!filter.model.empty())
        add("\"model\": " + Quoted(filter.model));
    char number[64];
    if (filter.minSizeGiB)
    {
        snprintf(number, sizeof(number), "%g", *filter.minSizeGiB);
        add(std::string("\"minSizeGiB\": ") + number);
    }
    if (filter.maxSizeGiB)
    {
        snprintf(number, sizeof(number), "%g", *filter.maxSizeGiB);
        add(std::string("\"maxSizeGiB\": ") + number);
    }
    return "{" + text + "}";
}

std::string FileName(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

} // namespace

bool AutoInstallTargets::ChooseDisk(const AutoInstallAnswers::DiskFilter& filter,
                                    const std::vector<Disk>& disks, size_t& index,
                                    AutoInstallProblem& problem)
{
    std::vector<size_t> matches;
    for (size_t i = 0; i < disks.size(); ++i)
    {
        const Disk& disk = disks[i];
        if (IsUsb(disk))
            continue;
        if (!filter.path.empty() && disk.path != filter.path)
            continue;
        if (!filter.model.empty() && disk.model != filter.model)
            continue;
        const double size = static_cast<double>(disk.size);
        if (filter.minSizeGiB && size < *filter.minSizeGiB * BytesPerGiB)
            continue;
        if (filter.maxSizeGiB && size > *filter.maxSizeGiB * BytesPerGiB)
            continue;
        matches.push_back(i);
    }

    problem.key = "disk";
    problem.value = FilterText(filter);
    if (matches.empty())
    {
        problem.reason = "matches no disk";
        return false;
    }
    if (matches.size() > 1)
    {
        // By name: the same text whatever order the disks were found in.
        std::vector<std::string> paths;
        for (size_t i : matches)
            paths.push_back(disks[i].path);
        std::sort(paths.begin(), paths.end());
        problem.reason = "matches " + std::to_string(matches.size()) + " disks:";
        for (const std::string& path : paths)
            problem.reason += " " + path;
        return false;
    }
    const Disk& disk = disks[matches.front()];
    if (!SelectDiskStep::IsLargeEnough(disk.size))
    {
        problem.reason = "matches " + disk.path + ", too small for Vidorama installation";
        return false;
    }
    index = matches.front();
    problem = AutoInstallProblem();
    return true;
}

bool AutoInstallTargets::ChoosePackage(const std::string& wanted,
                                       const std::vector<Package>& packages, size_t& index,
                                       AutoInstallProblem& problem)
{
    problem.key = "package";
    problem.value = Quoted(wanted);
    if (packages.empty())
    {
        problem.reason = "no package on the key";
        return false;
    }
    if (wanted == "newest")
    {
        size_t best = 0;
        for (size_t i = 1; i < packages.size(); ++i)
            if (packages[i].version > packages[best].version)
                best = i;
        index = best;
        problem = AutoInstallProblem();
        return true;
    }

    std::vector<size_t> matches;
    for (size_t i = 0; i < packages.size(); ++i)
    {
        const Package& package = packages[i];
        if (wanted == package.version.GetVersion(true) || wanted == FileName(package.path))
            matches.push_back(i);
    }
    if (matches.empty())
    {
        problem.reason = "matches no package on the key";
        return false;
    }
    if (matches.size() > 1)
    {
        problem.reason = "matches " + std::to_string(matches.size()) + " packages:";
        for (size_t i : matches)
            problem.reason += " " + FileName(packages[i].path);
        return false;
    }
    index = matches.front();
    problem = AutoInstallProblem();
    return true;
}

bool AutoInstallTargets::HoldsInstallation(const std::vector<Partition>& partitions)
{
    for (const Partition& partition : partitions)
    {
        if (partition.number == 1 && partition.fileSystem.rfind("fat", 0) == 0)
            return true;
        if (partition.number == 2 && partition.fileSystem == "ext4")
            return true;
    }
    return false;
}

bool AutoInstallTargets::MayFormat(const AutoInstallAnswers& answers, const std::string& diskPath,
                                   bool holdsInstallation, AutoInstallProblem& problem)
{
    if (!answers.format || !holdsInstallation || answers.replaceExisting)
        return true;
    problem.key = "replaceExisting";
    problem.value = "false";
    problem.reason = diskPath + " already holds an installation";
    return false;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
