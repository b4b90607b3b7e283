// Package identification from the names of the files on the USB key: the
// input is one directory entry of "/mnt/USB/Packages" (so no "/" and no NUL,
// at most NAME_MAX bytes), identified as the package listing does it.
#include "FuzzCheck.h"
#include "InstallPackage.h"
#include "PackageVersion.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::IsInstallerFile;
using Kel::Vidorama::InstallerLib::IsManifestJsFile;
using Kel::Vidorama::InstallerLib::IsManifestTextFile;
using Kel::Vidorama::InstallerLib::IsPackageDosFile;
using Kel::Vidorama::InstallerLib::IsPackageLinuxFile;
using Kel::Vidorama::InstallerLib::PackageVersion;

namespace
{

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool IsThreeGroupVersion(const char* version)
{
    return std::strlen(version) == 8 && version[2] == '.' && version[5] == '.';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string name(reinterpret_cast<const char*>(data), size);
    // Names a directory cannot hold are no input of this parser.
    if (name.empty() || name.size() > NAME_MAX ||
        name.find_first_of(std::string("/\0", 2)) != std::string::npos)
        return 0;
    const std::string path =
        std::string(InstallPackage::UsbMountPoint) + InstallPackage::PackagesPath + "/" + name;

    const bool dos = IsPackageDosFile(path);
    const bool isLinux = IsPackageLinuxFile(path);
    FUZZ_CHECK(dos == EndsWith(name, InstallPackage::DosExtension));
    FUZZ_CHECK(isLinux == EndsWith(name, InstallPackage::LinuxExtension));
    FUZZ_CHECK(IsManifestJsFile(path) == EndsWith(name, InstallPackage::ManifestFilenameJs));
    FUZZ_CHECK(IsManifestTextFile(path) == EndsWith(name, InstallPackage::ManifestFilenameTxt));
    FUZZ_CHECK(IsInstallerFile(path) == EndsWith(name, InstallPackage::InstallerFilename));

    const InstallPackage package(path.c_str());
    const PackageVersion& version = package.GetVersion();
    FUZZ_CHECK(std::string(package.GetPath()) == path);
    FUZZ_CHECK(std::string(version.GetPath()) == path);
    FUZZ_CHECK(version.IsDos() == dos);
    if (package.IsValid())
    {
        FUZZ_CHECK(dos || isLinux);
        FUZZ_CHECK(IsThreeGroupVersion(version.GetVersion()));
        if (dos)
            FUZZ_CHECK(std::strcmp(version.GetName(), "Vidorama") == 0);
        else
            FUZZ_CHECK(*version.GetName() != '\0');
    }
    else
    {
        // Nothing is read from a name that was not recognised.
        FUZZ_CHECK(*version.GetVersion() == '\0');
    }

    // The listing copies every package it keeps.
    const InstallPackage copy(package);
    FUZZ_CHECK(copy.IsValid() == package.IsValid());
    FUZZ_CHECK(copy.GetVersion() == version);
    return 0;
}
