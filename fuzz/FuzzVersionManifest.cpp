// The manifests of installed versions as they are read from the disk: one
// version directory holding "Version.json" or "Version.txt" with the input as
// its contents, read through InstallPackage::ReadVersionManifest and through
// the listing of the versions directory (which skips the "current" link).
#include "FuzzCheck.h"
#include "FuzzScratchDirectory.h"
#include "InstallPackage.h"
#include "PackageVersion.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using Kel::Vidorama::Fuzz::FuzzScratchDirectory;
using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::PackageVersion;

namespace
{

struct Layout
{
    std::string versions;
    // The one version directory, with its trailing "/".
    std::string version;
    std::string json;
    std::string text;
};

// Made once: "Versions/v/" and the "current" link to it.
const Layout& GetLayout()
{
    static const Layout layout = []
    {
        Layout made;
        made.versions = FuzzScratchDirectory::Get().GetPath() + "/Versions";
        made.version = made.versions + "/v/";
        made.json = made.version + InstallPackage::ManifestFilenameJs;
        made.text = made.version + InstallPackage::ManifestFilenameTxt;
        if (::mkdir(made.versions.c_str(), 0700) != 0 || ::mkdir(made.version.c_str(), 0700) != 0 ||
            ::symlink("v", (made.versions + "/current").c_str()) != 0)
        {
            std::abort();
        }
        return made;
    }();
    return layout;
}

// The manifest read from the disk must be the one parsed from memory, and the
// listing must show it once, with its directory as its path.
void CheckManifest(const Layout& layout, const std::string& file, const PackageVersion& expected)
{
    const PackageVersion read = InstallPackage::ReadVersionManifest(layout.version);
    FUZZ_CHECK(read == expected);

    std::unique_ptr<std::vector<PackageVersion>> listed(
        InstallPackage::GetInstalledPackages(layout.versions.c_str()));
    FUZZ_CHECK(listed != nullptr);
    FUZZ_CHECK(listed->size() == 1);
    FUZZ_CHECK(listed->front() == expected);
    FUZZ_CHECK(std::string(listed->front().GetPath()) == layout.versions + "/v");

    FUZZ_CHECK(::unlink(file.c_str()) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Layout& layout = GetLayout();
    const std::string contents(reinterpret_cast<const char*>(data), size);

    std::istringstream jsonStream(contents);
    FUZZ_CHECK(FuzzScratchDirectory::WriteFile(layout.json, contents));
    CheckManifest(layout, layout.json, PackageVersion::ParseJs(jsonStream));

    std::istringstream textStream(contents);
    FUZZ_CHECK(FuzzScratchDirectory::WriteFile(layout.text, contents));
    CheckManifest(layout, layout.text, PackageVersion::ParseTxt(textStream));
    return 0;
}
