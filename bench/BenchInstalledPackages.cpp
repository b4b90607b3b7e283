// InstallPackage::GetInstalledPackages over one versions directory with many versions:
//
//   BenchInstalledPackages create DIR COUNT    COUNT version directories, most with a
//                                              "Version.json", every fourth with only a
//                                              "Version.txt", and a "current" link
//   BenchInstalledPackages measure DIR [CALLS] [EXPECTED]
//
// "measure" prints "versions=K calls=N median_ms=... min_ms=..."; exit status 1 when a call
// lists another number of versions than EXPECTED (when given) or than the first call did.
#include "InstallPackage.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::PackageVersion;

namespace
{

bool WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    return static_cast<bool>(file);
}

int Create(const std::string& directory, unsigned count)
{
    std::error_code ignored;
    std::filesystem::create_directories(directory, ignored);
    for (unsigned i = 0; i < count; ++i)
    {
        const std::string revision = std::to_string(3000 + i);
        const std::string version = directory + "/12.05.01." + revision;
        ::mkdir(version.c_str(), 0755);
        ::mkdir((version + "/boot").c_str(), 0755);
        const bool written =
            i % 4 == 3
                ? WriteFile(version + "/Version.txt", "Vidorama\n12.05.01." + revision + "\n")
                : WriteFile(version + "/Version.json",
                            "{\"name\": \"Vidorama\", \"version\": \"12.05.01\", \"revision\": \"" +
                                revision + "\"}\n");
        if (!written)
        {
            std::fprintf(stderr, "BenchInstalledPackages: cannot write in %s\n", version.c_str());
            return 1;
        }
    }
    // The link to the running version is not a version of its own.
    if (count > 0 &&
        ::symlink((directory + "/12.05.01.3000").c_str(), (directory + "/current").c_str()) != 0)
    {
        std::perror("BenchInstalledPackages: current");
        return 1;
    }
    return 0;
}

int Measure(const std::string& directory, int calls, long expected)
{
    std::vector<double> times;
    long first = -1;
    for (int call = 0; call < calls; ++call)
    {
        const auto start = std::chrono::steady_clock::now();
        std::unique_ptr<std::vector<PackageVersion>> versions(
            InstallPackage::GetInstalledPackages(directory.c_str()));
        const auto end = std::chrono::steady_clock::now();
        times.push_back(std::chrono::duration<double, std::milli>(end - start).count());
        const long found = static_cast<long>(versions->size());
        if (first < 0)
        {
            first = found;
        }
        if (found != first || (expected >= 0 && found != expected))
        {
            std::fprintf(stderr, "BenchInstalledPackages: %ld versions listed, %ld expected\n",
                         found, expected >= 0 ? expected : first);
            return 1;
        }
    }
    std::sort(times.begin(), times.end());
    std::printf("versions=%ld calls=%d median_ms=%.3f min_ms=%.3f\n", first, calls,
                times[times.size() / 2], times.front());
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "create" && argc == 4)
    {
        return Create(argv[2], static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10)));
    }
    if (mode == "measure" && argc >= 3 && argc <= 5)
    {
        const int calls = argc > 3 ? std::atoi(argv[3]) : 21;
        const long expected = argc > 4 ? std::atol(argv[4]) : -1;
        if (calls > 0)
        {
            return Measure(argv[2], calls, expected);
        }
    }
    std::fprintf(stderr, "usage: BenchInstalledPackages create DIR COUNT\n"
                         "       BenchInstalledPackages measure DIR [CALLS] [EXPECTED]\n");
    return 2;
}
