#include "AutoInstallFile.h"

#include "DnsTools.h"
#include "NetworkStep.h"
#include "NetworkTools.h"

#include <json/json.h>

#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using ZarnLinuxTools::DnsTools;
using ZarnLinuxTools::NetworkTools;

const char* const AutoInstallFile::FileName = "autoinstall.json";

namespace
{

// Name servers the network form holds.
const size_t MaxNameServers = 3;
// The form's "no server".
const char* const NoServer = "0.0.0.0";

// A value as written in the file, for the problem line.
std::string Written(const Json::Value& value)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

class Checker
{
public:
    explicit Checker(AutoInstallProblem& problem) : problem(problem) {}

    bool Fail(const std::string& key, const Json::Value& value, const std::string& reason)
    {
        problem.key = key;
        problem.value = Written(value);
        problem.reason = reason;
        return false;
    }

    bool KnownKeys(const Json::Value& object, const std::string& prefix,
                   const std::set<std::string>& known)
    {
        for (const std::string& name : object.getMemberNames())
            if (known.count(name) == 0)
                return Fail(prefix + name, object[name], "unknown key");
        return true;
    }

    bool String(const Json::Value& object, const std::string& prefix, const char* name,
                std::string& out)
    {
        const Json::Value& value = object[name];
        if (!value.isString())
            return Fail(prefix + name, value, "must be a text");
        out = value.asString();
        return true;
    }

    bool Bool(const Json::Value& object, const char* name, bool& out)
    {
        if (!object.isMember(name))
            return true;
        const Json::Value& value = object[name];
        if (!value.isBool())
            return Fail(name, value, "must be true or false");
        out = value.asBool();
        return true;
    }

    bool OneOf(const Json::Value& object, const char* name, const std::set<std::string>& choices,
               const char* wanted, std::string& out)
    {
        if (!object.isMember(name))
            return true;
        std::string text;
        if (!String(object, "", name, text))
            return false;
        if (choices.count(text) == 0)
            return Fail(name, object[name], std::string("must be ") + wanted);
        out = text;
        return true;
    }

    bool Disk(const Json::Value& root, AutoInstallAnswers::DiskFilter& disk)
    {
        if (!root.isMember("disk"))
            return true;
        const Json::Value& object = root["disk"];
        if (!object.isObject())
            return Fail("disk", object, "must be an object of filters");
        if (!KnownKeys(object, "disk.", {"path", "model", "minSizeGiB", "maxSizeGiB"}))
            return false;
        if (object.isMember("path") && !String(object, "disk.", "path", disk.path))
            return false;
        if (object.isMember("model") && !String(object, "disk.", "model", disk.model))
            return false;
        for (const char* name : {"minSizeGiB", "maxSizeGiB"})
        {
            if (!object.isMember(name))
                continue;
            const Json::Value& value = object[name];
            if (!value.isNumeric() || value.asDouble() < 0)
                return Fail(std::string("disk.") + name, value, "must be a number of GiB");
            (std::string(name) == "minSizeGiB" ? disk.minSizeGiB : disk.maxSizeGiB) =
                value.asDouble();
        }
        if (disk.minSizeGiB && disk.maxSizeGiB && *disk.minSizeGiB > *disk.maxSizeGiB)
            return Fail("disk.maxSizeGiB", object["maxSizeGiB"], "is below \"minSizeGiB\"");
        return true;
    }

    // An address as the form keeps it: padding and leading zeros gone.
    bool Address(const Json::Value& object, const char* name, bool netmask, std::string& out)
    {
        const std::string key = std::string("network.") + name;
        if (!object.isMember(name))
            return Fail(key, Json::Value(), "is required with \"mode\": \"static\"");
        if (!String(object, "network.", name, out))
            return false;
        std::vector<char> text(out.begin(), out.end());
        text.push_back('\0');
        NetworkStep::TrimIpAddress(text.data());
        out = text.data();
        const bool valid = netmask ? NetworkTools::ValidateNetMask(out.c_str())
                                   : NetworkTools::ValidateIpAddress(out.c_str());
        if (!valid)
            return Fail(key, object[name],
                        netmask ? "is not a valid net mask" : "is not a valid IPv4 address");
        return true;
    }

    bool Network(const Json::Value& root, const std::string& serialNumber,
                 AutoInstallAnswers::Network& network)
    {
        if (!root.isMember("network"))
            return true;
        const Json::Value& object = root["network"];
        if (!object.isObject())
            return Fail("network", object, "must be an object of the network form's fields");
        if (!KnownKeys(object, "network.",
                       {"hostname", "mode", "address", "mask", "gateway", "dns", "domain"}))
            return false;
        network.present = true;

        if (object.isMember("hostname"))
        {
            std::string hostname;
            if (!String(object, "network.", "hostname", hostname))
                return false;
            const std::string placeholder = "{serial}";
            for (size_t at = hostname.find(placeholder); at != std::string::npos;
                 at = hostname.find(placeholder, at + serialNumber.size()))
                hostname.replace(at, placeholder.size(), serialNumber);
            if (!NetworkTools::ValidateHostname(hostname.c_str()))
                return Fail("network.hostname", object["hostname"],
                            "is not a valid host name (" + hostname + ")");
            network.hostname = hostname;
        }

        if (!object.isMember("mode"))
            return Fail("network.mode", Json::Value(), "is required: \"static\" or \"dhcp\"");
        if (!String(object, "network.", "mode", network.mode))
            return false;
        if (network.mode != "static" && network.mode != "dhcp")
            return Fail("network.mode", object["mode"], "must be \"static\" or \"dhcp\"");
        if (network.mode == "static")
        {
            if (!Address(object, "address", false, network.address) ||
                !Address(object, "mask", true, network.mask) ||
                !Address(object, "gateway", false, network.gateway))
                return false;
        }
        else
        {
            // DHCP needs no address; one given anyway must still be right.
            for (const char* name : {"address", "mask", "gateway"})
                if (object.isMember(name) && !object[name].isString())
                    return Fail(std::string("network.") + name, object[name], "must be a text");
        }

        network.dnsGiven = object.isMember("dns") || object.isMember("domain");
        if (object.isMember("dns"))
        {
            const Json::Value& list = object["dns"];
            if (!list.isArray())
                return Fail("network.dns", list, "must be a list of addresses");
            if (list.size() > MaxNameServers)
                return Fail("network.dns", list, "holds more than three name servers");
            for (Json::ArrayIndex i = 0; i < list.size(); ++i)
            {
                const std::string key = "network.dns[" + std::to_string(i) + "]";
                if (!list[i].isString())
                    return Fail(key, list[i], "must be a text");
                std::string server = list[i].asString();
                std::vector<char> text(server.begin(), server.end());
                text.push_back('\0');
                NetworkStep::TrimIpAddress(text.data());
                server = text.data();
                if (server == NoServer || !DnsTools::ValidateIpAddress(server.c_str()))
                    return Fail(key, list[i], "is not a valid IPv4 address");
                network.dns.push_back(server);
            }
        }
        if (object.isMember("domain"))
        {
            if (!String(object, "network.", "domain", network.domain))
                return false;
            if (!network.domain.empty() && !DnsTools::ValidateDomain(network.domain.c_str()))
                return Fail("network.domain", object["domain"], "is not a valid domain");
        }
        // The form's rule: a name server and a search domain go together.
        if (network.dnsGiven && network.dns.empty() != network.domain.empty())
        {
            if (network.dns.empty())
                return Fail("network.dns", object.isMember("dns") ? object["dns"] : Json::Value(),
                            "is required with \"domain\"");
            return Fail("network.domain",
                        object.isMember("domain") ? object["domain"] : Json::Value(),
                        "is required with \"dns\"");
        }
        return true;
    }

private:
    AutoInstallProblem& problem;
};

} // namespace

bool AutoInstallFile::Parse(const std::string& text, const std::string& serialNumber,
                            AutoInstallAnswers& answers, AutoInstallProblem& problem)
{
    Checker check(problem);
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    builder["rejectDupKeys"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &errors))
    {
        // The first line names the place.
        std::string first = errors.substr(0, errors.find('\n'));
        const std::string second = errors.substr(errors.find('\n') + 1);
        first += " " + second.substr(0, second.find('\n'));
        return check.Fail("", Json::Value(),
                          std::string(FileName) + " is not valid JSON: " + first);
    }
    if (!root.isObject())
        return check.Fail("", root, std::string(FileName) + " must hold one JSON object");

    AutoInstallAnswers read;
    if (!check.KnownKeys(root, "",
                         {"disk", "format", "replaceExisting", "package", "overwrite", "bios",
                          "network", "finish"}) ||
        !check.Disk(root, read.disk) || !check.Bool(root, "format", read.format) ||
        !check.Bool(root, "replaceExisting", read.replaceExisting) ||
        !check.Bool(root, "overwrite", read.overwrite))
        return false;
    if (root.isMember("package"))
    {
        if (!check.String(root, "", "package", read.package))
            return false;
        if (read.package.empty())
            return check.Fail("package", root["package"],
                              "must be \"newest\", a full version or a package file name");
    }
    if (!check.OneOf(root, "bios", {"default", "enhanced", "keep"},
                     "\"default\", \"enhanced\" or \"keep\"", read.bios) ||
        !check.OneOf(root, "finish", {"reboot", "poweroff", "wait"},
                     "\"reboot\", \"poweroff\" or \"wait\"", read.finish) ||
        !check.Network(root, serialNumber, read.network))
        return false;
    answers = read;
    return true;
}

bool AutoInstallFile::Read(const std::string& path, std::string& text)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return false;
    std::ostringstream content;
    content << file.rdbuf();
    text = content.str();
    return !file.bad();
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
