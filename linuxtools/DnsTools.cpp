#include "DnsTools.h"

#include "AugeasMatches.h"
#include "NetworkTools.h"

#include <augeas.h>

#include <fstream>
#include <string>

namespace Kel
{
namespace ZarnLinuxTools
{

namespace
{

// The installed system's own tree, as for the network files.
const char* const AugeasRoot = "/mnt/SYS/Versions/current";
const char* const ResolverFile = "/mnt/SYS/Versions/current/etc/resolv.conf";

const char* const NameServers = "/files/etc/resolv.conf/nameserver";
const char* const NameServerNodes[] = {"/files/etc/resolv.conf/nameserver[1]",
                                       "/files/etc/resolv.conf/nameserver[2]",
                                       "/files/etc/resolv.conf/nameserver[3]"};
const char* const SearchDomains = "/files/etc/resolv.conf/search/domain";

const char* const NoServer = "0.0.0.0";

bool Set(augeas* handle, const char* path, const std::string& value)
{
    return handle != nullptr && aug_set(handle, path, value.c_str()) == 0;
}

} // namespace

DnsTools::DnsAccessor& DnsTools::DnsAccessor::GetInstance()
{
    static DnsAccessor instance;
    return instance;
}

DnsTools::DnsAccessor::DnsAccessor()
    : handle_(aug_init(AugeasRoot, nullptr, AUG_NO_LOAD | AUG_NO_MODL_AUTOLOAD))
{
    if (handle_ == nullptr)
    {
        return;
    }
    aug_set(handle_, "/augeas/load/Resolv/lens", "Resolv.lns");
    aug_set(handle_, "/augeas/load/Resolv/incl", "/etc/resolv.conf");
    // A missing or unreadable file simply leaves the tree empty.
    aug_load(handle_);
}

DnsTools::DnsAccessor::~DnsAccessor()
{
    aug_close(handle_);
}

DnsTools::DnsTools() : accessor_(&DnsAccessor::GetInstance()) {}

DnsInterface DnsTools::GetInterface()
{
    DnsInterface iface;
    iface.primaryServer = NoServer;
    iface.secondaryServer = NoServer;
    iface.tertiaryServer = NoServer;

    augeas* const handle = accessor_->GetHandle();
    if (handle == nullptr)
    {
        return iface;
    }

    std::string* const servers[] = {&iface.primaryServer, &iface.secondaryServer,
                                    &iface.tertiaryServer};
    const AugeasMatches found(handle, NameServers);
    // The resolver itself uses no more than three either; a server without a
    // value keeps its own place as "0.0.0.0".
    for (int i = 0; i < found.Count() && i < 3; ++i)
    {
        const char* value = nullptr;
        if (aug_get(handle, found[i], &value) == 1 && value != nullptr)
        {
            *servers[i] = value;
        }
    }

    const AugeasMatches domains(handle, SearchDomains);
    if (domains.Count() > 0)
    {
        const char* value = nullptr;
        if (aug_get(handle, domains[0], &value) == 1 && value != nullptr)
        {
            iface.domain = value;
        }
    }
    return iface;
}

bool DnsTools::SetInterface(DnsInterface& iface)
{
    if (iface.primaryServer == NoServer)
    {
        clear_ = true;
        return true;
    }

    augeas* const handle = accessor_->GetHandle();
    // Servers already in the file after the ones written here are kept.
    bool ok = Set(handle, NameServerNodes[0], iface.primaryServer);
    if (ok && iface.secondaryServer != NoServer)
    {
        ok = Set(handle, NameServerNodes[1], iface.secondaryServer);
        if (ok && iface.tertiaryServer != NoServer)
        {
            ok = Set(handle, NameServerNodes[2], iface.tertiaryServer);
        }
    }
    if (ok && !iface.domain.empty())
    {
        return Set(handle, SearchDomains, iface.domain);
    }

    // Deliberately, settings without a search domain (or whose change failed)
    // leave an empty resolver file rather than a partly written one.
    clear_ = true;
    return true;
}

bool DnsTools::Save()
{
    if (clear_)
    {
        // Truncated and closed at once; an unwritable file is not reported.
        std::ofstream emptied(ResolverFile, std::ios::out | std::ios::trunc);
        return true;
    }
    augeas* const handle = accessor_->GetHandle();
    return handle != nullptr && aug_save(handle) == 0;
}

bool DnsTools::ValidateIpAddress(const char* text)
{
    return NetworkTools::ValidateIpAddress(text);
}

bool DnsTools::ValidateDomain(const char* text)
{
    return text != nullptr && detail::IsLetterDigitName(text, true);
}

} // namespace ZarnLinuxTools
} // namespace Kel
