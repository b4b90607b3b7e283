// One operation of NetworkTools or DnsTools on the installed version under
// /mnt/SYS/Versions/current, in a process of its own: both load their files
// once per process, so every case that needs fresh files runs here anew.
// Prints what it got as "key=value" lines; prepares nothing itself.
//
//   NetworkToolsCase get-interface NAME
//   NetworkToolsCase set-interface NAME METHOD FAMILY ADDRESS NETMASK GATEWAY HOSTNAME
//   NetworkToolsCase get-hostname
//   NetworkToolsCase set-hostname NAME
//   NetworkToolsCase get-dns
//   NetworkToolsCase set-dns PRIMARY SECONDARY TERTIARY DOMAIN
//   NetworkToolsCase update
//
// Exit status 0 when the case ran (whatever its results), 2 for a bad call.
#include "DnsTools.h"
#include "NetworkTools.h"

#include <cstring>
#include <iostream>
#include <string>

using Kel::ZarnLinuxTools::DnsInterface;
using Kel::ZarnLinuxTools::DnsTools;
using Kel::ZarnLinuxTools::NetworkInterface;
using Kel::ZarnLinuxTools::NetworkTools;

namespace
{

void PrintInterface(const char* prefix, const NetworkInterface& iface)
{
    std::cout << prefix << "name=" << iface.name << "\n"
              << prefix << "address=" << iface.address << "\n"
              << prefix << "netmask=" << iface.netmask << "\n"
              << prefix << "gateway=" << iface.gateway << "\n"
              << prefix << "method=" << iface.method << "\n"
              << prefix << "family=" << iface.family << "\n"
              << prefix << "hostname=" << iface.hostname << "\n";
}

void PrintDns(const DnsInterface& dns)
{
    std::cout << "primary=" << dns.primaryServer << "\n"
              << "secondary=" << dns.secondaryServer << "\n"
              << "tertiary=" << dns.tertiaryServer << "\n"
              << "domain=" << dns.domain << "\n";
}

int Usage()
{
    std::cerr << "usage: NetworkToolsCase get-interface|set-interface|get-hostname|set-hostname|"
                 "get-dns|set-dns|update [arguments]\n";
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        return Usage();
    }
    const std::string name = argv[1];

    if (name == "get-interface" && argc == 3)
    {
        NetworkTools tools;
        PrintInterface("", tools.GetInterface(argv[2]));
        return 0;
    }
    if (name == "set-interface" && argc == 9)
    {
        NetworkInterface iface;
        iface.name = argv[2];
        iface.method = argv[3];
        iface.family = argv[4];
        iface.address = argv[5];
        iface.netmask = argv[6];
        iface.gateway = argv[7];
        iface.hostname = argv[8];
        {
            NetworkTools tools;
            std::cout << "set=" << tools.SetInterface(argv[2], iface) << "\n";
        }
        // A later object sees the unsaved edit: the tree lives for the process.
        NetworkTools later;
        PrintInterface("unsaved-", later.GetInterface(argv[2]));
        std::cout << "save=" << later.Save() << "\n";
        return 0;
    }
    if (name == "get-hostname" && argc == 2)
    {
        NetworkTools tools;
        const char* hostname = tools.GetHostname();
        std::cout << "hostname=" << (hostname != nullptr ? hostname : "(null)") << "\n";
        return 0;
    }
    if (name == "set-hostname" && argc == 3)
    {
        NetworkTools tools;
        std::cout << "set=" << tools.SetHostname(argv[2]) << "\n";
        const char* hostname = tools.GetHostname();
        std::cout << "unsaved-hostname=" << (hostname != nullptr ? hostname : "(null)") << "\n";
        std::cout << "save=" << tools.Save() << "\n";
        return 0;
    }
    if (name == "get-dns" && argc == 2)
    {
        DnsTools tools;
        PrintDns(tools.GetInterface());
        return 0;
    }
    if (name == "set-dns" && argc == 6)
    {
        DnsInterface dns;
        dns.primaryServer = argv[2];
        dns.secondaryServer = argv[3];
        dns.tertiaryServer = argv[4];
        dns.domain = argv[5];
        DnsTools tools;
        std::cout << "set=" << tools.SetInterface(dns) << "\n";
        std::cout << "save=" << tools.Save() << "\n";
        return 0;
    }
    if (name == "update" && argc == 2)
    {
        NetworkTools tools;
        const bool updated = tools.UpdateNetworkConfiguration(std::cout);
        std::cout << "update=" << updated << "\n";
        return 0;
    }
    return Usage();
}
