// What the operator types into the network form: addresses, masks, the host
// name and the search domain, as NetworkTools and DnsTools validate them.
#include "DnsTools.h"
#include "FuzzCheck.h"
#include "NetworkTools.h"

#include <cstddef>
#include <cstdint>
#include <regex>
#include <sstream>
#include <string>

#include <arpa/inet.h>

using Kel::ZarnLinuxTools::DnsTools;
using Kel::ZarnLinuxTools::NetworkTools;

namespace
{

// The names the form accepts are written down as these two patterns. A
// backtracking engine needs exponential time on some refused texts, so they
// only judge short inputs here.
const std::size_t LongestRegexInput = 16;

const std::regex& LabelPattern()
{
    static const std::regex pattern("^[a-zA-Z]([a-zA-Z0-9]?-*[a-zA-Z0-9])*$");
    return pattern;
}

const std::regex& DomainPattern()
{
    static const std::regex pattern("^[a-zA-Z]([a-zA-Z0-9]?[-.]*[a-zA-Z0-9])*$");
    return pattern;
}

// 2 to 253 characters, split at "." (a final "." adds no label), every label
// 2 to 63 characters of the label pattern.
bool HostnameByPattern(const std::string& text)
{
    if (text.size() < 2 || text.size() > 253)
        return false;
    std::istringstream input(text);
    std::string label;
    while (std::getline(input, label, '.'))
    {
        if (label.size() < 2 || label.size() > 63 || !std::regex_match(label, LabelPattern()))
            return false;
    }
    return true;
}

// A mask whose one-bits run contiguously from the top: a prefix of /1 to /32.
bool IsPrefixMask(std::uint32_t mask)
{
    for (int length = 1; length <= 32; ++length)
    {
        if (mask == static_cast<std::uint32_t>(0xFFFFFFFFull << (32 - length)))
            return true;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Form fields are C texts: nothing after a NUL reaches the validators.
    std::string text(reinterpret_cast<const char*>(data), size);
    text = text.substr(0, text.find('\0'));
    const char* value = text.c_str();

    const bool address = NetworkTools::ValidateIpAddress(value);
    const bool mask = NetworkTools::ValidateNetMask(value);
    const bool hostname = NetworkTools::ValidateHostname(value);
    const bool domain = DnsTools::ValidateDomain(value);
    FUZZ_CHECK(DnsTools::ValidateIpAddress(value) == address);
    FUZZ_CHECK(!mask || address);

    // Strict dotted quads are addresses, and masks exactly when they are a
    // prefix.
    in_addr strict{};
    if (::inet_pton(AF_INET, value, &strict) == 1)
    {
        FUZZ_CHECK(address);
        FUZZ_CHECK(mask == IsPrefixMask(ntohl(strict.s_addr)));
    }

    if (text.size() <= LongestRegexInput)
    {
        FUZZ_CHECK(domain == std::regex_match(text, DomainPattern()));
        FUZZ_CHECK(hostname == HostnameByPattern(text));
    }
    return 0;
}
