// One package operation per process, so that its time and peak memory are its own:
//
//   BenchPackage size PACKAGE            InstallPackage::GetExtractedSize()
//   BenchPackage extract PACKAGE NAME    InstallPackage::ExtractFileFomTar(NAME), into the
//                                        current working directory
//   BenchPackage install PACKAGE [HEAD]  what an installation reads before the package's
//                                        "Install.sh" starts: GetExtractedSize64() and
//                                        ExtractFileFomTar("Install.sh"), into the current
//                                        working directory. With HEAD seconds, the background
//                                        reading of the package menu is started first and
//                                        given that long (the operator choosing); the time
//                                        from then ("ENTER") to the script is printed.
//
// The package is built from its path as the package selection does. Prints the result;
// exit status 1 when the package is not recognised or the operation reports a failure.
#include "InstallPackage.h"
#include "PackageScanCache.h"
#include "PackageScanner.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::PackageScanCache;
using Kel::Vidorama::InstallerLib::PackageScanner;

namespace
{

int Install(InstallPackage& package, double headStart)
{
    PackageScanner scanner;
    if (headStart > 0)
    {
        scanner.Start({package.GetPath()});
        std::this_thread::sleep_for(std::chrono::duration<double>(headStart));
    }
    const std::size_t before = PackageScanCache::Instance().Readings();
    const auto enter = std::chrono::steady_clock::now();
    bool damaged = false;
    std::int64_t size = 0;
    bool extracted = false;
    {
        // As the installation does: other readings give way, this one is waited for.
        const PackageScanCache::Use use(package.GetPath());
        size = package.GetExtractedSize64(&damaged);
        extracted = package.ExtractFileFomTar("Install.sh");
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - enter).count();
    std::printf("GetExtractedSize=%d\n", static_cast<int>(static_cast<std::int32_t>(size)));
    std::printf("GetExtractedSize64=%lld damaged=%d\n", static_cast<long long>(size),
                damaged ? 1 : 0);
    std::printf("ExtractFileFomTar=%s\n", extracted ? "true" : "false");
    // Readings made after ENTER by the installation itself, and in all.
    std::printf("enter_to_script_s=%.6f readings_after_enter=%zu readings=%zu\n", seconds,
                PackageScanCache::Instance().Readings() - before,
                PackageScanCache::Instance().Readings());
    return size >= 0 && extracted ? 0 : 1;
}

} // namespace

int main(int argc, char* argv[])
{
    const bool known = argc >= 3 && (std::strcmp(argv[1], "size") == 0 ||
                                     (std::strcmp(argv[1], "extract") == 0 && argc >= 4) ||
                                     std::strcmp(argv[1], "install") == 0);
    if (!known)
    {
        std::fprintf(stderr, "usage: BenchPackage size PACKAGE | extract PACKAGE NAME | "
                             "install PACKAGE [HEAD_START_S]\n");
        return 2;
    }
    InstallPackage package(argv[2]);
    if (!package.IsValid())
    {
        std::fprintf(stderr, "BenchPackage: %s is not a package name\n", argv[2]);
        return 1;
    }

    if (std::strcmp(argv[1], "size") == 0)
    {
        const int size = package.GetExtractedSize();
        std::printf("GetExtractedSize=%d\n", size);
        return size == -1 ? 1 : 0;
    }
    if (std::strcmp(argv[1], "install") == 0)
    {
        return Install(package, argc >= 4 ? std::atof(argv[3]) : 0.0);
    }

    const bool extracted = package.ExtractFileFomTar(argv[3]);
    std::printf("ExtractFileFomTar=%s\n", extracted ? "true" : "false");
    return extracted ? 0 : 1;
}
