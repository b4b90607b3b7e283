// One package operation per process, so that its time and peak memory are its own:
//
//   BenchPackage size PACKAGE            InstallPackage::GetExtractedSize()
//   BenchPackage extract PACKAGE NAME    InstallPackage::ExtractFileFomTar(NAME), into the
//                                        current working directory
//
// The package is built from its path as the package selection does. Prints the result;
// exit status 1 when the package is not recognised or the operation reports a failure.
#include "InstallPackage.h"

#include <cstdio>
#include <cstring>

using Kel::Vidorama::InstallerLib::InstallPackage;

int main(int argc, char* argv[])
{
    if (argc < 3 || (std::strcmp(argv[1], "size") != 0 && std::strcmp(argv[1], "extract") != 0) ||
        (std::strcmp(argv[1], "extract") == 0 && argc < 4))
    {
        std::fprintf(stderr, "usage: BenchPackage size PACKAGE | extract PACKAGE NAME\n");
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

    const bool extracted = package.ExtractFileFomTar(argv[3]);
    std::printf("ExtractFileFomTar=%s\n", extracted ? "true" : "false");
    return extracted ? 0 : 1;
}
