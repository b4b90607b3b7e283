#pragma once

#include <string>

namespace Kel
{
namespace ZarnLinuxTools
{

// The resolver settings of the installed system as the network form shows
// them.
struct DnsInterface
{
    // Dotted IPv4 texts; "0.0.0.0" stands for no server.
    std::string primaryServer;
    std::string secondaryServer;
    std::string tertiaryServer;
    // The first search domain; empty for none.
    std::string domain;
};

} // namespace ZarnLinuxTools
} // namespace Kel
