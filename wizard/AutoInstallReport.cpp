#include "AutoInstallReport.h"

#include "AtomicFile.h"

#include <json/json.h>

#include <cctype>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

namespace
{

std::string Stamp(time_t moment, const char* format)
{
    tm parts{};
    gmtime_r(&moment, &parts);
    char text[64];
    strftime(text, sizeof(text), format, &parts);
    return text;
}

bool WriteWhole(const std::string& path, const std::string& text)
{
    InstallerLib::AtomicFile file(path);
    return file.IsOpen() && file.Write(text) && file.Commit();
}

} // namespace

std::string AutoInstallReport::BaseName() const
{
    std::string serial = serialNumber.empty() ? "unknown" : serialNumber;
    for (char& c : serial)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_' && c != '.')
            c = '_';
    if (serial[0] == '.')
        serial[0] = '_';
    return serial + "-" + Stamp(started, "%Y%m%d-%H%M%S");
}

std::string AutoInstallReport::ToJson() const
{
    Json::Value root(Json::objectValue);
    root["serialNumber"] = serialNumber.empty() ? "unknown" : serialNumber;
    root["outcome"] = succeeded ? "succeeded" : "failed";
    if (!succeeded)
        root["reason"] = reason;
    if (diskKnown)
    {
        Json::Value disk(Json::objectValue);
        disk["path"] = diskPath;
        disk["model"] = diskModel;
        disk["size"] = Json::Int64(diskSize);
        root["disk"] = disk;
    }
    else
    {
        root["disk"] = Json::Value();
    }
    if (packageKnown)
    {
        Json::Value package(Json::objectValue);
        package["file"] = packageFile;
        package["name"] = packageName;
        package["version"] = packageVersion;
        root["package"] = package;
    }
    else
    {
        root["package"] = Json::Value();
    }
    if (networkApplied)
    {
        Json::Value network(Json::objectValue);
        network["hostname"] = hostname;
        network["mode"] = mode;
        if (mode != "dhcp")
        {
            network["address"] = address;
            network["mask"] = mask;
            network["gateway"] = gateway;
        }
        Json::Value servers(Json::arrayValue);
        for (const std::string& server : dns)
            servers.append(server);
        network["dns"] = servers;
        network["domain"] = domain;
        root["network"] = network;
    }
    else
    {
        root["network"] = Json::Value();
    }
    root["started"] = Stamp(started, "%Y-%m-%dT%H:%M:%SZ");
    root["ended"] = Stamp(ended, "%Y-%m-%dT%H:%M:%SZ");

    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    return Json::writeString(builder, root) + "\n";
}

bool AutoInstallReport::Write(const std::string& directory, const std::string& logFile,
                              std::string& reportPath) const
{
    if (mkdir(directory.c_str(), 0775) != 0 && errno != EEXIST)
        return false;
    const std::string base = directory + "/" + BaseName();
    reportPath = base + ".json";

    std::ifstream log(logFile, std::ios::binary);
    std::ostringstream logText;
    logText << log.rdbuf();
    // A missing log still leaves the report; the copy then says so.
    const bool logWritten =
        WriteWhole(base + ".log", log ? logText.str() : "installer.log could not be read\n");
    return WriteWhole(reportPath, ToJson()) && logWritten;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
