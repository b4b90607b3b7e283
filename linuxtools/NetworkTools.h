#pragma once

#include "NetworkInterface.h"

#include <ostream>
#include <string>

struct augeas;

namespace Kel
{
namespace ZarnLinuxTools
{

// The network settings of the installed system (interface stanzas, host name,
// hosts file), edited through augeas in the tree of the current installed
// version rather than in the system this program runs on. Nothing here throws
// or logs: failures come back as false or as empty fields.
class NetworkTools
{
public:
    // The one augeas handle for the three network files, loaded once per
    // process on first use and closed at exit. Edits not saved yet stay in it
    // for every later NetworkTools object; files changed on disk after the
    // load are not read again.
    class NetworkAccessor
    {
    public:
        static NetworkAccessor& GetInstance();

        // Null when augeas could not be started at all.
        augeas* GetHandle() const { return handle_; }

        NetworkAccessor(const NetworkAccessor&) = delete;
        NetworkAccessor& operator=(const NetworkAccessor&) = delete;

    private:
        NetworkAccessor();
        ~NetworkAccessor();

        augeas* handle_ = nullptr;
    };

    NetworkTools();

    // All fields empty when the stanza does not exist.
    NetworkInterface GetInterface(const char* name);
    // Changes an existing stanza only; it is never created here. Nothing
    // reaches the disk before Save().
    bool SetInterface(const char* name, NetworkInterface& iface);
    NetworkInterface CreateDefaultPcLan1Interface();

    // Owned by augeas: valid until the host name is changed. Null when the
    // installed system has none.
    const char* GetHostname();
    // Also renames the hosts file's entry for the old name, or adds a
    // 127.0.1.1 entry for the new one when there is no such entry.
    bool SetHostname(const char* name);
    bool Save();

    // Runs the installed system's network update script with "start" as root,
    // its output going to output. False when the script is missing. Needs no
    // augeas handle, so that the script can run before the files are loaded.
    static bool UpdateNetworkConfiguration(std::ostream& output);

    static bool ValidateIpAddress(const char* text);
    static bool ValidateNetMask(const char* text);
    static bool ValidateHostname(const char* text);

private:
    // The augeas path of the iface node named name; empty when not found.
    std::string FindInterface(const char* name) const;

    NetworkAccessor* accessor_;
};

namespace detail
{

// True when text is a letter, optionally followed by letters, digits and
// inner separators (a hyphen, and a dot as well when dotsInside), ending with
// a letter or a digit: the names accepted for host name labels and for
// search domains.
bool IsLetterDigitName(const std::string& text, bool dotsInside);

} // namespace detail

} // namespace ZarnLinuxTools
} // namespace Kel
