#include "NetworkTools.h"

#include "AugeasMatches.h"
#include "DiskDiagnostics.h"
#include "SystemTools.h"

#include <augeas.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace Kel
{
namespace ZarnLinuxTools
{

namespace
{

// The installed system's own tree: its files are the ones edited.
const char* const AugeasRoot = "/mnt/SYS/Versions/current";

const char* const InterfacesMatch = "/files/etc/network/interfaces/iface[*]";
const char* const HostnameNode = "/files/etc/hostname/hostname";
const char* const HostsEntries = "/files/etc/hosts/*";
// An entry of our own label, created or overwritten, when the host name has
// no entry yet.
const char* const OwnHostsEntryAddress = "/files/etc/hosts/01/ipaddr";
const char* const OwnHostsEntryName = "/files/etc/hosts/01/canonical";
const char* const OwnHostAddress = "127.0.1.1";

const char* const UpdateScript = "/mnt/SYS/Versions/current/etc/init.d/S38UpdateNetworkSettings.sh";
const char* const UpdateScriptWithoutSuffix =
    "/mnt/SYS/Versions/current/etc/init.d/S38UpdateNetworkSettings";

constexpr std::size_t HostnameMinLength = 2;
constexpr std::size_t HostnameMaxLength = 253;
constexpr std::size_t LabelMinLength = 2;
constexpr std::size_t LabelMaxLength = 63;
constexpr unsigned long MaxAddressPiece = 255;
constexpr int AddressPieces = 4;

bool Set(augeas* handle, const std::string& path, const std::string& value)
{
    return handle != nullptr && aug_set(handle, path.c_str(), value.c_str()) == 0;
}

void Remove(augeas* handle, const std::string& path)
{
    if (handle != nullptr)
    {
        aug_rm(handle, path.c_str());
    }
}

// The value of the one node at path; false when there is none, several, or
// one without a value.
bool GetSingle(augeas* handle, const std::string& path, std::string& value)
{
    const char* found = nullptr;
    if (handle == nullptr || aug_get(handle, path.c_str(), &found) != 1 || found == nullptr)
    {
        return false;
    }
    value = found;
    return true;
}

// Splits dotted text the lenient way operators' entries are read here: every
// piece converts with strtoul (so an empty or non-numeric piece is 0, leading
// blanks are skipped and trailing junk is ignored) and a final "." adds no
// piece. Stops with false at a fifth piece or a piece above 255; otherwise
// pieces holds how many were read and mask the pieces packed big-endian.
bool ReadDottedQuad(const char* text, int& pieces, std::uint32_t& mask)
{
    pieces = 0;
    mask = 0;
    std::istringstream input(text);
    std::string piece;
    while (std::getline(input, piece, '.'))
    {
        ++pieces;
        if (pieces > AddressPieces)
        {
            return false;
        }
        const unsigned long value = std::strtoul(piece.c_str(), nullptr, 10);
        if (value > MaxAddressPiece)
        {
            return false;
        }
        mask = (mask << 8) | static_cast<std::uint32_t>(value);
    }
    return true;
}

bool IsAsciiLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsAsciiLetterOrDigit(char c)
{
    return IsAsciiLetter(c) || (c >= '0' && c <= '9');
}

} // namespace

namespace detail
{

// The accepted names are those of the patterns
// "^[a-zA-Z]([a-zA-Z0-9]?-*[a-zA-Z0-9])*$" (labels) and
// "^[a-zA-Z]([a-zA-Z0-9]?[-.]*[a-zA-Z0-9])*$" (domains). Both describe the
// same simple shape, checked here character by character: std::regex
// backtracks through those nested repetitions in exponential time, so a
// 40-letter entry ending in a hyphen would freeze the form for minutes.
bool IsLetterDigitName(const std::string& text, bool dotsInside)
{
    if (text.empty() || !IsAsciiLetter(text.front()) || !IsAsciiLetterOrDigit(text.back()))
    {
        return false;
    }
    for (const char c : text)
    {
        if (!IsAsciiLetterOrDigit(c) && c != '-' && !(dotsInside && c == '.'))
        {
            return false;
        }
    }
    return true;
}

} // namespace detail

NetworkTools::NetworkAccessor& NetworkTools::NetworkAccessor::GetInstance()
{
    static NetworkAccessor instance;
    return instance;
}

NetworkTools::NetworkAccessor::NetworkAccessor()
    : handle_(aug_init(AugeasRoot, nullptr, AUG_NO_LOAD | AUG_NO_MODL_AUTOLOAD))
{
    if (handle_ == nullptr)
    {
        return;
    }
    // Only these three lenses are loaded: all the others would parse every
    // file of the installed system for nothing.
    aug_set(handle_, "/augeas/load/Interfaces/lens", "Interfaces.lns");
    aug_set(handle_, "/augeas/load/Interfaces/incl", "/etc/network/interfaces");
    aug_set(handle_, "/augeas/load/Hostname/lens", "Hostname.lns");
    aug_set(handle_, "/augeas/load/Hostname/incl", "/etc/hostname");
    aug_set(handle_, "/augeas/load/Hosts/lens", "Hosts.lns");
    aug_set(handle_, "/augeas/load/Hosts/incl", "/etc/hosts");
    // A missing or unreadable file simply leaves its part of the tree empty.
    aug_load(handle_);
}

NetworkTools::NetworkAccessor::~NetworkAccessor()
{
    aug_close(handle_);
}

NetworkTools::NetworkTools() : accessor_(&NetworkAccessor::GetInstance()) {}

std::string NetworkTools::FindInterface(const char* name) const
{
    augeas* const handle = accessor_->GetHandle();
    if (name == nullptr || handle == nullptr)
    {
        return std::string();
    }
    const AugeasMatches stanzas(handle, InterfacesMatch);
    for (int i = 0; i < stanzas.Count(); ++i)
    {
        const char* value = nullptr;
        if (aug_get(handle, stanzas[i], &value) == 1 && value != nullptr &&
            std::strcmp(value, name) == 0)
        {
            return stanzas[i];
        }
    }
    return std::string();
}

NetworkInterface NetworkTools::GetInterface(const char* name)
{
    NetworkInterface iface;
    const std::string node = FindInterface(name);
    if (node.empty())
    {
        return iface;
    }
    augeas* const handle = accessor_->GetHandle();
    iface.name = name;
    GetSingle(handle, node + "/address", iface.address);
    GetSingle(handle, node + "/netmask", iface.netmask);
    GetSingle(handle, node + "/gateway", iface.gateway);
    GetSingle(handle, node + "/method", iface.method);
    GetSingle(handle, node + "/family", iface.family);
    GetSingle(handle, node + "/hostname", iface.hostname);
    return iface;
}

bool NetworkTools::SetInterface(const char* name, NetworkInterface& iface)
{
    const std::string node = FindInterface(name);
    if (node.empty())
    {
        return false;
    }
    augeas* const handle = accessor_->GetHandle();
    bool ok =
        Set(handle, node + "/method", iface.method) && Set(handle, node + "/family", iface.family);
    if (iface.method == "dhcp")
    {
        // The DHCP server hands out the addresses; stale static ones would
        // only confuse the next reader of the file.
        Remove(handle, node + "/address");
        Remove(handle, node + "/netmask");
        Remove(handle, node + "/gateway");
        if (ok)
        {
            ok = Set(handle, node + "/hostname", iface.hostname);
        }
    }
    else
    {
        if (ok)
        {
            ok = Set(handle, node + "/address", iface.address) &&
                 Set(handle, node + "/netmask", iface.netmask) &&
                 Set(handle, node + "/gateway", iface.gateway);
        }
        Remove(handle, node + "/hostname");
    }
    return ok;
}

NetworkInterface NetworkTools::CreateDefaultPcLan1Interface()
{
    NetworkInterface iface;
    iface.family = "inet";
    iface.method = "static";
    iface.address = "192.168.1.1";
    iface.netmask = "255.255.255.0";
    iface.gateway = "192.168.1.254";
    return iface;
}

const char* NetworkTools::GetHostname()
{
    augeas* const handle = accessor_->GetHandle();
    const char* value = nullptr;
    if (handle == nullptr || aug_get(handle, HostnameNode, &value) != 1)
    {
        return nullptr;
    }
    return value;
}

bool NetworkTools::SetHostname(const char* name)
{
    augeas* const handle = accessor_->GetHandle();
    if (name == nullptr || handle == nullptr)
    {
        return false;
    }
    // Copied first: name may be the very value GetHostname() handed out,
    // which the first change of that node frees.
    const std::string newName = name;

    std::string oldName;
    const bool hasOldName = GetSingle(handle, HostnameNode, oldName);

    bool entryFound = false;
    bool lastRenameOk = false;
    if (hasOldName)
    {
        const AugeasMatches entries(handle, HostsEntries);
        for (int i = 0; i < entries.Count(); ++i)
        {
            const std::string canonical = std::string(entries[i]) + "/canonical";
            std::string value;
            if (GetSingle(handle, canonical, value) && value == oldName)
            {
                // Only the canonical name follows; aliases stay as the
                // administrator wrote them.
                entryFound = true;
                lastRenameOk = Set(handle, canonical, newName);
            }
        }
    }

    if (entryFound)
    {
        return lastRenameOk && Set(handle, HostnameNode, newName);
    }
    if (!Set(handle, OwnHostsEntryAddress, OwnHostAddress) ||
        !Set(handle, OwnHostsEntryName, newName))
    {
        return false;
    }
    return Set(handle, HostnameNode, newName);
}

bool NetworkTools::Save()
{
    augeas* const handle = accessor_->GetHandle();
    return handle != nullptr && aug_save(handle) == 0;
}

bool NetworkTools::UpdateNetworkConfiguration(std::ostream& output)
{
    std::string command;
    if (DiskDiagnostics::IsFile(UpdateScript))
    {
        command = UpdateScript;
    }
    else if (DiskDiagnostics::IsFile(UpdateScriptWithoutSuffix))
    {
        command = UpdateScriptWithoutSuffix;
    }
    else
    {
        return false;
    }
    command += " start";
    return SystemTools::ExecuteCommand(command.c_str(), output, true);
}

bool NetworkTools::ValidateIpAddress(const char* text)
{
    if (text == nullptr)
    {
        return false;
    }
    int pieces = 0;
    std::uint32_t address = 0;
    return ReadDottedQuad(text, pieces, address) && pieces == AddressPieces;
}

bool NetworkTools::ValidateNetMask(const char* text)
{
    if (text == nullptr)
    {
        return false;
    }
    int pieces = 0;
    std::uint32_t mask = 0;
    if (!ReadDottedQuad(text, pieces, mask) || pieces != AddressPieces || mask == 0)
    {
        return false;
    }
    // -mask is ~mask + 1, which shares no bit with ~mask exactly when ~mask
    // is a run of low one-bits: when the mask's ones are contiguous from the
    // top. Every prefix from /1 to /32 passes.
    return ((0u - mask) & ~mask) == 0;
}

bool NetworkTools::ValidateHostname(const char* text)
{
    if (text == nullptr)
    {
        return false;
    }
    const std::size_t length = std::strlen(text);
    if (length < HostnameMinLength || length > HostnameMaxLength)
    {
        return false;
    }
    std::istringstream input(text);
    std::string label;
    while (std::getline(input, label, '.'))
    {
        if (label.size() < LabelMinLength || label.size() > LabelMaxLength ||
            !detail::IsLetterDigitName(label, false))
        {
            return false;
        }
    }
    return true;
}

} // namespace ZarnLinuxTools
} // namespace Kel
