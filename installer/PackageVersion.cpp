#include "PackageVersion.h"

#include <cstdio>
#include <exception>
#include <iomanip>
#include <sstream>

#include <json/json.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

namespace
{

// Callers hand over C strings from readdir, regex groups and the like; a missing one is
// treated as empty text rather than crashing the wizard.
std::string FromCString(const char* text)
{
    return text != nullptr ? std::string(text) : std::string();
}

// Versions are compared as text, so every group is widened to two characters ("1" -> "01",
// "" -> "00") to keep the byte-wise order in line with the numeric one.
std::string JoinGroups(const char* first, const char* second, const char* third)
{
    std::ostringstream out;
    out << std::setfill('0') << std::setw(2) << first << '.' << std::setw(2) << second << '.'
        << std::setw(2) << third;
    return out.str();
}

// Copies a manifest member only when it is really text; numbers and the like are ignored.
void CopyStringMember(const Json::Value& root, const char* member, std::string& target)
{
    const Json::Value& value = root[member];
    if (!value.isNull() && value.isString())
    {
        target = value.asString();
    }
}

} // namespace

PackageVersion::PackageVersion() : dos(false) {}

PackageVersion::PackageVersion(const PackageVersion& other)
    : version(other.version), revision(other.revision), fullVersion(other.fullVersion),
      name(other.name), path(other.path), dosVersion(other.dosVersion), dos(other.dos)
{
}

PackageVersion& PackageVersion::operator=(const PackageVersion& other)
{
    if (this != &other)
    {
        version = other.version;
        revision = other.revision;
        fullVersion = other.fullVersion;
        name = other.name;
        path = other.path;
        dosVersion = other.dosVersion;
        dos = other.dos;
    }
    return *this;
}

PackageVersion::~PackageVersion() {}

const char* PackageVersion::GetVersion() const
{
    return version.c_str();
}

const char* PackageVersion::GetVersion(bool full) const
{
    if (full && !revision.empty())
    {
        return fullVersion.c_str();
    }
    return version.c_str();
}

std::string PackageVersion::GetVersionLabel(bool full) const
{
    return std::string(GetVersion(full)) + (dos ? " (DOS)" : "");
}

const char* PackageVersion::GetRevision() const
{
    return revision.c_str();
}

const char* PackageVersion::GetName() const
{
    return name.c_str();
}

const char* PackageVersion::GetPath() const
{
    return path.c_str();
}

const char* PackageVersion::GetDosVersion() const
{
    return dosVersion.c_str();
}

void PackageVersion::SetName(const char* value)
{
    name = FromCString(value);
}

void PackageVersion::SetPath(const char* value)
{
    path = FromCString(value);
}

void PackageVersion::SetVersion(const char* value)
{
    version = FromCString(value);
    UpdateFullVersion();
}

void PackageVersion::SetRevision(const char* value)
{
    revision = FromCString(value);
    UpdateFullVersion();
}

bool PackageVersion::IsDos() const
{
    return dos;
}

void PackageVersion::SetDos(bool value)
{
    dos = value;
}

bool PackageVersion::IsEmpty() const
{
    return name.empty() && version.empty();
}

void PackageVersion::ParseFullVersion(const char* text)
{
    // %2c does not terminate its buffer, hence the third, zeroed byte of each group. The scan
    // stops at the first mismatch; whatever it did not reach stays empty and the revision 0.
    char first[3] = {0, 0, 0};
    char second[3] = {0, 0, 0};
    char third[3] = {0, 0, 0};
    int number = 0;
    std::sscanf(FromCString(text).c_str(), "%2c.%2c.%2c.%d", first, second, third, &number);

    version = JoinGroups(first, second, third);
    if (number == 0)
    {
        // A revision of 0 means "no revision"; the previous full version is kept on purpose.
        revision.clear();
    }
    else
    {
        revision = std::to_string(number);
        fullVersion = version + "." + revision;
    }
}

void PackageVersion::ParseDosVersion(const char* text)
{
    dosVersion = FromCString(text);
    dos = true;

    char first[3] = {0, 0, 0};
    char second[3] = {0, 0, 0};
    char third[3] = {0, 0, 0};
    std::sscanf(dosVersion.c_str(), "%2c%2c%2c", first, second, third);

    version = JoinGroups(first, second, third);
    // DOS versions carry no build revision; name and path are the caller's business.
    revision.clear();
}

PackageVersion PackageVersion::ParseTxt(std::istream& stream)
{
    PackageVersion result;
    std::string line;
    if (std::getline(stream, line))
    {
        removeLeadingCarriageReturn(line);
        result.name = line;
        if (std::getline(stream, line))
        {
            removeLeadingCarriageReturn(line);
            result.ParseFullVersion(line.c_str());
        }
    }
    return result;
}

PackageVersion PackageVersion::ParseJs(std::istream& stream)
{
    PackageVersion result;
    Json::Value root;
    try
    {
        Json::CharReaderBuilder builder;
        builder["collectComments"] = true;
        std::string errors;
        if (!Json::parseFromStream(builder, stream, &root, &errors))
        {
            return PackageVersion();
        }
        // Only an object can name the members; anything else leaves the record empty.
        if (!root.isObject())
        {
            return PackageVersion();
        }
        CopyStringMember(root, "name", result.name);
        CopyStringMember(root, "version", result.version);
        CopyStringMember(root, "revision", result.revision);
    }
    catch (const std::exception&)
    {
        // The reader throws on pathological input (nesting too deep); treat it as unreadable.
        return PackageVersion();
    }
    result.UpdateFullVersion();
    return result;
}

void PackageVersion::removeLeadingCarriageReturn(std::string& line)
{
    if (!line.empty() && line.back() == '\r')
    {
        line.pop_back();
    }
}

bool PackageVersion::operator==(const PackageVersion& other) const
{
    return name == other.name && version == other.version && revision == other.revision;
}

bool PackageVersion::operator!=(const PackageVersion& other) const
{
    return !(*this == other);
}

// The third clause does not look at the names: records of different products with the same
// version are ordered by revision. Lists of installed versions have always been shown in this
// order, so it is kept as it is.
bool PackageVersion::operator<(const PackageVersion& other) const
{
    if (name < other.name)
    {
        return true;
    }
    if (name == other.name && version < other.version)
    {
        return true;
    }
    return version == other.version && revision < other.revision;
}

bool PackageVersion::operator>(const PackageVersion& other) const
{
    if (name > other.name)
    {
        return true;
    }
    if (name == other.name && version > other.version)
    {
        return true;
    }
    return version == other.version && revision > other.revision;
}

void PackageVersion::UpdateFullVersion()
{
    if (!revision.empty())
    {
        fullVersion = version + "." + revision;
    }
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
