// What the operator may type into the network form (addresses, masks, host
// names, search domains) and the factory settings of the first interface.
// Nothing here reads or writes the installed system's files.
#include "NetworkTools.h"
#include "DnsTools.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

using Kel::ZarnLinuxTools::DnsTools;
using Kel::ZarnLinuxTools::NetworkInterface;
using Kel::ZarnLinuxTools::NetworkTools;
namespace detail = Kel::ZarnLinuxTools::detail;

namespace
{

struct Case
{
    const char* text;
    bool valid;
};

std::string Describe(const char* text)
{
    return text == nullptr ? std::string("(null)") : "\"" + std::string(text) + "\"";
}

const Case AddressCases[] = {
    {"192.168.1.1", true},
    {"0.0.0.0", true},
    {"255.255.255.255", true},
    {"192.168.1", false},
    {"1.2.3.4.5", false},
    {"1.2.3.256", false},
    {"256.1.1.1", false},
    // Lenient on purpose: a piece that is no number counts as 0, an empty
    // piece too, and a final dot adds no piece.
    {"a.b.c.d", true},
    {"1..2.3", true},
    {"1.2.3.4.", true},
    {" 1. 2.3x.4", true},
    {"1.2.3.4..", false},
    {"-1.2.3.4", false},
    {"", false},
    {nullptr, false},
};

} // namespace

TEST(NetworkToolsValidate, IpAddressTable)
{
    for (const Case& c : AddressCases)
    {
        EXPECT_EQ(NetworkTools::ValidateIpAddress(c.text), c.valid) << Describe(c.text);
    }
}

TEST(DnsToolsValidate, IpAddressFollowsTheNetworkRules)
{
    for (const Case& c : AddressCases)
    {
        EXPECT_EQ(DnsTools::ValidateIpAddress(c.text), c.valid) << Describe(c.text);
    }
}

TEST(NetworkToolsValidate, NetMaskTable)
{
    const Case cases[] = {
        {"255.255.255.0", true},    {"128.0.0.0", true},      {"255.255.255.255", true},
        {"255.255.0.255", false},   {"0.0.0.0", false},       {"255.255.255", false},
        {"255.255.255.0.0", false}, {"255.255.256.0", false}, {"0.255.255.255", false},
        {"255.255.255.254", true},  {"255.254.255.0", false}, {"", false},
        {nullptr, false},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(NetworkTools::ValidateNetMask(c.text), c.valid) << Describe(c.text);
    }
}

TEST(NetworkToolsValidate, EveryPrefixLengthIsAMask)
{
    for (int prefix = 1; prefix <= 32; ++prefix)
    {
        const unsigned long long mask = (0xFFFFFFFFull << (32 - prefix)) & 0xFFFFFFFFull;
        const std::string text =
            std::to_string((mask >> 24) & 0xFF) + "." + std::to_string((mask >> 16) & 0xFF) + "." +
            std::to_string((mask >> 8) & 0xFF) + "." + std::to_string(mask & 0xFF);
        EXPECT_TRUE(NetworkTools::ValidateNetMask(text.c_str())) << "/" << prefix << " " << text;
        // One bit below the prefix is a hole in the mask.
        if (prefix <= 30)
        {
            const unsigned long long holed = mask | (1ull << (30 - prefix));
            const std::string holedText =
                std::to_string((holed >> 24) & 0xFF) + "." + std::to_string((holed >> 16) & 0xFF) +
                "." + std::to_string((holed >> 8) & 0xFF) + "." + std::to_string(holed & 0xFF);
            EXPECT_FALSE(NetworkTools::ValidateNetMask(holedText.c_str())) << holedText;
        }
    }
}

TEST(NetworkToolsValidate, HostnameTable)
{
    const Case cases[] = {
        {"server", true},
        {"my-host.local", true},
        {"server.", true},
        {"ab", true},
        {"a1", true},
        {"my--host", true},
        {"Host9.Example2.org", true},
        {"a", false},
        {"host-", false},
        {"-host", false},
        {"x.example", false},
        {"example.x", false},
        {"1host", false},
        {"host.1ab", false},
        {"my_host", false},
        {"my host", false},
        {"server..local", false},
        {".server", false},
        {"server..", false},
        {"..", false},
        {"", false},
        {nullptr, false},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(NetworkTools::ValidateHostname(c.text), c.valid) << Describe(c.text);
    }
}

TEST(NetworkToolsValidate, HostnameLengthLimits)
{
    const std::string label63(63, 'a');
    EXPECT_TRUE(NetworkTools::ValidateHostname(label63.c_str()));
    EXPECT_FALSE(NetworkTools::ValidateHostname((label63 + "b").c_str()));

    // Three labels of 63 and one of 61: 253 characters, the longest name.
    const std::string longest =
        label63 + "." + label63 + "." + label63 + "." + std::string(61, 'c');
    ASSERT_EQ(longest.size(), 253u);
    EXPECT_TRUE(NetworkTools::ValidateHostname(longest.c_str()));

    const std::string tooLong = longest + "d";
    ASSERT_EQ(tooLong.size(), 254u);
    EXPECT_FALSE(NetworkTools::ValidateHostname(tooLong.c_str()));
    // The final dot counts in the length.
    EXPECT_FALSE(NetworkTools::ValidateHostname((longest + ".").c_str()));
}

TEST(DnsToolsValidate, DomainTable)
{
    const Case cases[] = {
        {"example.com", true},
        {"a-b.c", true},
        {"a", true},
        {"x.y", true},
        {"a..b", true},
        {"a.-b", true},
        {"Example9.COM", true},
        {"", false},
        {"1abc", false},
        {"example.com.", false},
        {"example-", false},
        {".example.com", false},
        {"-example.com", false},
        {"exa mple.com", false},
        {"exa_mple.com", false},
        {nullptr, false},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(DnsTools::ValidateDomain(c.text), c.valid) << Describe(c.text);
    }
}

// The names accepted are exactly those of the two patterns the network form
// has always used; checked against std::regex for every short text over
// letters, a digit and every separator of interest.
TEST(NetworkToolsValidate, NamesMatchTheRegularExpressionsExactly)
{
    const std::regex label("^[a-zA-Z]([a-zA-Z0-9]?-*[a-zA-Z0-9])*$", std::regex::ECMAScript);
    const std::regex domain("^[a-zA-Z]([a-zA-Z0-9]?[-.]*[a-zA-Z0-9])*$", std::regex::ECMAScript);
    const std::string alphabet = "aZ7-._";

    std::vector<std::string> texts = {""};
    std::vector<std::string> previous = {""};
    for (int length = 1; length <= 6; ++length)
    {
        std::vector<std::string> next;
        for (const std::string& prefix : previous)
        {
            for (const char c : alphabet)
            {
                next.push_back(prefix + c);
            }
        }
        texts.insert(texts.end(), next.begin(), next.end());
        previous.swap(next);
    }

    int mismatches = 0;
    for (const std::string& text : texts)
    {
        if (detail::IsLetterDigitName(text, false) != std::regex_match(text, label) ||
            detail::IsLetterDigitName(text, true) != std::regex_match(text, domain))
        {
            ADD_FAILURE() << "\"" << text << "\"";
            if (++mismatches > 20)
            {
                break;
            }
        }
    }
}

// The patterns' nested repetitions make a backtracking matcher explode on a
// long entry that just fails at its end; these must answer at once.
TEST(NetworkToolsValidate, LongRejectedNamesAnswerAtOnce)
{
    const std::string letters(62, 'a');
    EXPECT_FALSE(NetworkTools::ValidateHostname((letters + "-").c_str()));
    EXPECT_FALSE(DnsTools::ValidateDomain((std::string(100000, 'a') + ".").c_str()));
    EXPECT_TRUE(DnsTools::ValidateDomain((std::string(100000, 'a') + ".b").c_str()));
}

TEST(NetworkTools, DefaultPcLan1Interface)
{
    NetworkTools tools;
    const NetworkInterface iface = tools.CreateDefaultPcLan1Interface();
    EXPECT_EQ(iface.family, "inet");
    EXPECT_EQ(iface.method, "static");
    EXPECT_EQ(iface.address, "192.168.1.1");
    EXPECT_EQ(iface.netmask, "255.255.255.0");
    EXPECT_EQ(iface.gateway, "192.168.1.254");
    EXPECT_EQ(iface.name, "");
    EXPECT_EQ(iface.hostname, "");
}
