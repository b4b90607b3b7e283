#pragma once

#include <istream>
#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// Identity of one product version: read from a package manifest, found installed on the
// disk, or taken from a DOS package name. Lists of versions on screen are sorted with
// operator> (highest first), so the comparison rules below decide what the operator sees.
class PackageVersion
{
public:
    PackageVersion();
    PackageVersion(const PackageVersion& other);
    PackageVersion& operator=(const PackageVersion& other);
    ~PackageVersion();

    const char* GetVersion() const;
    // The version with its revision appended, when there is a revision.
    const char* GetVersion(bool full) const;
    // GetVersion(full) as a menu line shows it: a DOS version is followed by " (DOS)", so
    // that it is told apart from a Linux version of the same number.
    std::string GetVersionLabel(bool full) const;
    const char* GetRevision() const;
    const char* GetName() const;
    const char* GetPath() const;
    const char* GetDosVersion() const;

    void SetName(const char* value);
    void SetPath(const char* value);
    void SetVersion(const char* value);
    void SetRevision(const char* value);

    bool IsDos() const;
    void SetDos(bool value);

    // True only when neither a name nor a version is known.
    bool IsEmpty() const;

    // Linux grammar: "12.05.01.3456" (three two-character groups, optional revision).
    void ParseFullVersion(const char* text);
    // DOS grammar: "120501" (three two-character groups, no separator).
    void ParseDosVersion(const char* text);

    // Two-line manifest: the name, then the full version.
    static PackageVersion ParseTxt(std::istream& stream);
    // JSON manifest with the string members "name", "version" and "revision".
    static PackageVersion ParseJs(std::istream& stream);

    // Strips the carriage return that a DOS-edited manifest leaves at the end of a line.
    static void removeLeadingCarriageReturn(std::string& line);

    bool operator==(const PackageVersion& other) const;
    bool operator!=(const PackageVersion& other) const;
    bool operator<(const PackageVersion& other) const;
    bool operator>(const PackageVersion& other) const;

private:
    // Lets the unit tests see the stored full version, which no accessor exposes while the
    // revision is empty.
    friend class PackageVersionTestPeer;

    void UpdateFullVersion();

    std::string version;
    std::string revision;
    std::string fullVersion;
    std::string name;
    std::string path;
    std::string dosVersion;
    bool dos;
};

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
