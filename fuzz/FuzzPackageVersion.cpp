// The version texts that reach PackageVersion from outside: the full Linux
// version of a package name or "Version.txt", the six-character DOS version of
// a package or directory name, and whole "Version.txt" / "Version.json"
// manifests as they come out of a package.
#include "FuzzCheck.h"
#include "PackageVersion.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

using Kel::Vidorama::InstallerLib::PackageVersion;

namespace
{

// Every version comes out as "NN.NN.NN", whatever the text held: groups are
// padded to two characters so that versions compare as text.
bool IsThreeGroupVersion(const char* version)
{
    return std::strlen(version) == 8 && version[2] == '.' && version[5] == '.';
}

// The C text the record hands out: up to the first NUL of the string.
std::string AsCText(const std::string& text)
{
    return text.substr(0, text.find('\0'));
}

// What the ordering must hold even though it is not a strict weak ordering:
// no record is below or above itself, and a copy is equal to its original.
void CheckOrderingOf(const PackageVersion& version)
{
    FUZZ_CHECK(!(version < version));
    FUZZ_CHECK(!(version > version));
    const PackageVersion copy(version);
    FUZZ_CHECK(copy == version);
    FUZZ_CHECK(!(copy != version));
    PackageVersion assigned;
    assigned = version;
    FUZZ_CHECK(assigned == version);
    FUZZ_CHECK(std::strcmp(assigned.GetVersion(true), version.GetVersion(true)) == 0);
}

void CheckFullVersion(const std::string& text)
{
    PackageVersion version;
    version.ParseFullVersion(text.c_str());
    FUZZ_CHECK(IsThreeGroupVersion(version.GetVersion()));
    FUZZ_CHECK(!version.IsDos());
    const std::string revision = version.GetRevision();
    if (revision.empty())
    {
        FUZZ_CHECK(std::strcmp(version.GetVersion(true), version.GetVersion()) == 0);
    }
    else
    {
        // A revision is the decimal text of a non-zero number.
        FUZZ_CHECK(revision != "0");
        FUZZ_CHECK(revision.find_first_not_of("-0123456789") == std::string::npos);
        FUZZ_CHECK(std::string(version.GetVersion(true)) ==
                   version.GetVersion() + ("." + revision));
    }
    CheckOrderingOf(version);
}

void CheckDosVersion(const std::string& text)
{
    PackageVersion version;
    version.ParseDosVersion(text.c_str());
    FUZZ_CHECK(version.IsDos());
    FUZZ_CHECK(IsThreeGroupVersion(version.GetVersion()));
    FUZZ_CHECK(*version.GetRevision() == '\0');
    // The raw text is kept: it names the DOS version's directory.
    FUZZ_CHECK(std::string(version.GetDosVersion()) == AsCText(text));
    CheckOrderingOf(version);
}

void CheckTextManifest(const std::string& text)
{
    std::istringstream stream(text);
    const PackageVersion version = PackageVersion::ParseTxt(stream);

    std::string firstLine = text.substr(0, text.find('\n'));
    PackageVersion::removeLeadingCarriageReturn(firstLine);
    FUZZ_CHECK(std::string(version.GetName()) == AsCText(firstLine));
    // Without a second line (even an empty one) there is no version at all.
    const std::size_t lineEnd = text.find('\n');
    if (lineEnd == std::string::npos || lineEnd + 1 == text.size())
        FUZZ_CHECK(*version.GetVersion() == '\0');
    else
        FUZZ_CHECK(IsThreeGroupVersion(version.GetVersion()));
    CheckOrderingOf(version);
}

void CheckJsonManifest(const std::string& text)
{
    std::istringstream stream(text);
    const PackageVersion version = PackageVersion::ParseJs(stream);
    FUZZ_CHECK(!version.IsDos());
    FUZZ_CHECK(*version.GetPath() == '\0');
    CheckOrderingOf(version);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    CheckFullVersion(text);
    CheckDosVersion(text);
    CheckTextManifest(text);
    CheckJsonManifest(text);
    return 0;
}
