#include "PackageReadProgress.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include <dirent.h>
#include <sys/stat.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

namespace
{

struct DirectoryCloser
{
    void operator()(DIR* directory) const { ::closedir(directory); }
};

// The names of a directory that are whole decimal numbers.
std::vector<long> NumberedEntries(const std::string& directory)
{
    std::vector<long> numbers;
    std::unique_ptr<DIR, DirectoryCloser> listing(::opendir(directory.c_str()));
    if (!listing)
    {
        return numbers;
    }
    while (const dirent* item = ::readdir(listing.get()))
    {
        const std::string name = item->d_name;
        if (name.empty() || !std::all_of(name.begin(), name.end(),
                                         [](unsigned char c) { return std::isdigit(c) != 0; }))
        {
            continue;
        }
        numbers.push_back(std::strtol(name.c_str(), nullptr, 10));
    }
    return numbers;
}

std::string ReadText(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

std::int64_t PackageReadProgress::FdinfoPosition(const std::string& fdinfo)
{
    std::istringstream lines(fdinfo);
    std::string line;
    while (std::getline(lines, line))
    {
        if (line.compare(0, 4, "pos:") != 0)
        {
            continue;
        }
        std::size_t at = 4;
        while (at < line.size() && (line[at] == ' ' || line[at] == '\t'))
        {
            ++at;
        }
        if (at == line.size() || !std::isdigit(static_cast<unsigned char>(line[at])))
        {
            return -1;
        }
        std::int64_t value = 0;
        for (; at < line.size() && std::isdigit(static_cast<unsigned char>(line[at])); ++at)
        {
            if (value > (INT64_MAX - 9) / 10)
            {
                return -1;
            }
            value = value * 10 + (line[at] - '0');
        }
        return value;
    }
    return -1;
}

pid_t PackageReadProgress::StatParent(const std::string& stat)
{
    // "PID (name) STATE PPID ...": the name ends at the last ")".
    const std::string::size_type close = stat.rfind(')');
    if (close == std::string::npos)
    {
        return -1;
    }
    std::istringstream rest(stat.substr(close + 1));
    std::string state;
    long parent = -1;
    if (!(rest >> state >> parent) || parent < 0)
    {
        return -1;
    }
    return static_cast<pid_t>(parent);
}

std::vector<pid_t>
PackageReadProgress::Descendants(pid_t root, const std::vector<std::pair<pid_t, pid_t>>& parents)
{
    std::vector<pid_t> found;
    std::vector<pid_t> level{root};
    // Each process is taken once, so that a loop in broken input cannot go on for ever.
    while (!level.empty())
    {
        std::vector<pid_t> next;
        for (const auto& process : parents)
        {
            if (process.first == root ||
                std::find(found.begin(), found.end(), process.first) != found.end())
            {
                continue;
            }
            if (std::find(level.begin(), level.end(), process.second) != level.end())
            {
                next.push_back(process.first);
            }
        }
        found.insert(found.end(), next.begin(), next.end());
        level = std::move(next);
    }
    return found;
}

int PackageReadProgress::ToPercent(std::int64_t position, std::int64_t size)
{
    if (position < 0 || size <= 0)
    {
        return -1;
    }
    const std::int64_t percent = position >= size ? 100 : position * 100 / size;
    return static_cast<int>(percent);
}

int PackageReadProgress::Percent(pid_t root, const std::string& packagePath,
                                 const std::string& proc)
{
    struct stat package;
    if (::stat(packagePath.c_str(), &package) != 0 || !S_ISREG(package.st_mode))
    {
        return -1;
    }

    std::vector<std::pair<pid_t, pid_t>> parents;
    for (const long id : NumberedEntries(proc))
    {
        const pid_t parent = StatParent(ReadText(proc + "/" + std::to_string(id) + "/stat"));
        if (parent >= 0)
        {
            parents.emplace_back(static_cast<pid_t>(id), parent);
        }
    }

    std::int64_t position = -1;
    for (const pid_t process : Descendants(root, parents))
    {
        const std::string base = proc + "/" + std::to_string(process);
        for (const long fd : NumberedEntries(base + "/fd"))
        {
            struct stat file;
            const std::string name = std::to_string(fd);
            if (::stat((base + "/fd/" + name).c_str(), &file) != 0 ||
                file.st_dev != package.st_dev || file.st_ino != package.st_ino)
            {
                continue;
            }
            position = std::max(position, FdinfoPosition(ReadText(base + "/fdinfo/" + name)));
        }
    }
    return ToPercent(position, static_cast<std::int64_t>(package.st_size));
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
