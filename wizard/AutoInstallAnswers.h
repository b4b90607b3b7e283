#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// What the answer file on the key says, checked and ready for the screens of
// an unattended installation. Every key is optional; the defaults are the
// answers that can destroy nothing by surprise.
struct AutoInstallAnswers
{
    // Filters that must together single out one target disk.
    struct DiskFilter
    {
        std::string path;
        std::string model;
        std::optional<double> minSizeGiB;
        std::optional<double> maxSizeGiB;
    };

    // The network form's fields. Only a present "network" changes what the
    // form proposes; within it, host name, name servers and domain keep the
    // proposed values when they are not given.
    struct Network
    {
        bool present = false;
        // "{serial}" already replaced by the server's serial number.
        std::optional<std::string> hostname;
        std::string mode;
        std::string address;
        std::string mask;
        std::string gateway;
        bool dnsGiven = false;
        std::vector<std::string> dns;
        std::string domain;
    };

    DiskFilter disk;
    // "Format and Install Vidorama" when true, "Install Vidorama" otherwise.
    bool format = false;
    // A disk that already holds an installation is formatted only when true.
    bool replaceExisting = false;
    // "newest", a full version ("12.05.01.3456") or a package file name.
    std::string package = "newest";
    // The answer to "Package already installed, overwrite ...".
    bool overwrite = false;
    // "default", "enhanced" or "keep"; used on an RB417 board only.
    std::string bios = "keep";
    Network network;
    // "reboot", "poweroff" or "wait" (for ENTER, then restart).
    std::string finish = "wait";
};

// Why an answer file cannot be used: the key (dotted path, "" for the file as
// a whole), its value as written, and the reason.
struct AutoInstallProblem
{
    std::string key;
    std::string value;
    std::string reason;

    // One line for the screen and the report.
    std::string Text() const
    {
        if (key.empty())
            return reason;
        return "\"" + key + "\": " + value + ": " + reason;
    }
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
