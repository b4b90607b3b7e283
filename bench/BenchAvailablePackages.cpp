// InstallPackage::GetAvailablePackages over a directory of many package files:
//
//   BenchAvailablePackages create DIR COUNT    COUNT empty package files, Linux and DOS mixed
//   BenchAvailablePackages measure DIR [CALLS] [EXPECTED]
//
// Identification reads only the file names, so the files may stay empty. "measure" prints
// "packages=K calls=N median_ms=... min_ms=..."; exit status 1 when a call lists another
// number of packages than EXPECTED (when given) or than the first call did.
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

using Kel::Vidorama::InstallerLib::InstallPackage;

namespace
{

const char* const LinuxNames[] = {"Vidorama", "VidoramaLab", "Vidorama_Test"};

// Even numbers are Linux packages ("name_12.05.01.N.tar.gz"), odd ones DOS packages with a
// six-digit version ("VVRRSS.zip"), all different.
std::string PackageName(unsigned index)
{
    char name[64];
    const unsigned n = index / 2;
    if (index % 2 == 0)
    {
        std::snprintf(name, sizeof name, "%s_12.05.01.%u.tar.gz", LinuxNames[n % 3], n + 1);
    }
    else
    {
        std::snprintf(name, sizeof name, "%02u%02u%02u.zip", 10 + (n / 3600) % 90, (n / 60) % 60,
                      n % 60);
    }
    return name;
}

int Create(const std::string& directory, unsigned count)
{
    std::error_code ignored;
    std::filesystem::create_directories(directory, ignored);
    for (unsigned i = 0; i < count; ++i)
    {
        std::ofstream file(directory + "/" + PackageName(i));
        if (!file)
        {
            std::fprintf(stderr, "BenchAvailablePackages: cannot create in %s\n",
                         directory.c_str());
            return 1;
        }
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
        std::unique_ptr<std::vector<InstallPackage>> packages(
            InstallPackage::GetAvailablePackages(directory.c_str()));
        const auto end = std::chrono::steady_clock::now();
        times.push_back(std::chrono::duration<double, std::milli>(end - start).count());
        const long found = static_cast<long>(packages->size());
        if (first < 0)
        {
            first = found;
        }
        if (found != first || (expected >= 0 && found != expected))
        {
            std::fprintf(stderr, "BenchAvailablePackages: %ld packages listed, %ld expected\n",
                         found, expected >= 0 ? expected : first);
            return 1;
        }
    }
    std::sort(times.begin(), times.end());
    std::printf("packages=%ld calls=%d median_ms=%.3f min_ms=%.3f\n", first, calls,
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
    std::fprintf(stderr, "usage: BenchAvailablePackages create DIR COUNT\n"
                         "       BenchAvailablePackages measure DIR [CALLS] [EXPECTED]\n");
    return 2;
}
