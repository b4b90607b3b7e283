#pragma once

#include "DnsInterface.h"

struct augeas;

namespace Kel
{
namespace ZarnLinuxTools
{

// The resolver settings (three name servers, one search domain) of the
// installed system's "/etc/resolv.conf", edited through augeas in the tree of
// the current installed version. Nothing here throws or logs.
class DnsTools
{
public:
    // The resolver file's augeas handle, separate from the network files'
    // one: loaded once per process on first use and closed at exit.
    class DnsAccessor
    {
    public:
        static DnsAccessor& GetInstance();

        // Null when augeas could not be started at all.
        augeas* GetHandle() const { return handle_; }

        DnsAccessor(const DnsAccessor&) = delete;
        DnsAccessor& operator=(const DnsAccessor&) = delete;

    private:
        DnsAccessor();
        ~DnsAccessor();

        augeas* handle_ = nullptr;
    };

    DnsTools();

    // Servers missing from the file read "0.0.0.0", a missing domain empty.
    DnsInterface GetInterface();
    // A primary server "0.0.0.0", a failed change or an empty domain make the
    // next Save() of this object empty the resolver file instead.
    bool SetInterface(DnsInterface& iface);
    bool Save();

    static bool ValidateIpAddress(const char* text);
    static bool ValidateDomain(const char* text);

private:
    DnsAccessor* accessor_;
    // Once set, Save() empties the file; never reset within one object, so
    // SetInterface() and Save() must be called on the same object.
    bool clear_ = false;
};

} // namespace ZarnLinuxTools
} // namespace Kel
