#pragma once

#include <string>

namespace Kel
{
namespace ZarnLinuxTools
{

// One interface stanza of the installed system's network configuration, as the
// network form shows it and as the DOS side's network batch file takes it.
struct NetworkInterface
{
    // The stanza's own name, e.g. "pc_lan_1".
    std::string name;
    // Dotted IPv4 texts; empty when the stanza has none.
    std::string address;
    std::string netmask;
    std::string gateway;
    // "static" or "dhcp".
    std::string method;
    // "inet".
    std::string family;
    // Sent by the DHCP client; meaningful with "dhcp" only.
    std::string hostname;
};

} // namespace ZarnLinuxTools
} // namespace Kel
