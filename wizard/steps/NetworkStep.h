#pragma once

#include "Disk.h"
#include "DnsInterface.h"
#include "DnsTools.h"
#include "EepromReader.h"
#include "InstallPackage.h"
#include "NetworkInterface.h"
#include "NetworkTools.h"
#include "WizardStep.h"

#include <form.h>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// The last screen of an installation: the network settings of the freshly
// installed version (host name, "PC Lan 1" static or dhcp, DNS servers and
// search domain) in a form that only a valid entry leaves, saved into the
// installed system (Linux) or its network batch file (DOS); then the operator
// is asked to remove the USB key before the restart.
class NetworkStep : public WizardStep
{
public:
    explicit NetworkStep(InstallerLib::EepromReader& eepromReader);
    ~NetworkStep() override;

    // True when the settings were saved.
    bool Run() override;

    void SetPackage(const std::shared_ptr<InstallerLib::InstallPackage>& value) { package = value; }
    std::shared_ptr<InstallerLib::InstallPackage> GetPackage() const { return package; }
    void SetDisk(const std::shared_ptr<ZarnLinuxTools::Disk>& value) { disk = value; }
    std::shared_ptr<ZarnLinuxTools::Disk> GetDisk() const { return disk; }

    // Changes what the reading proposes before the form shows it (the
    // answers of an unattended installation); an empty one changes nothing.
    using Proposal = std::function<void(ZarnLinuxTools::NetworkInterface&, std::string&,
                                        ZarnLinuxTools::DnsInterface&)>;
    void SetProposal(Proposal value) { proposal = std::move(value); }

    // What the form edits; filled by the reading, taken from the fields by
    // the validation.
    const ZarnLinuxTools::NetworkInterface& GetInterface() const { return pcLan1; }
    const std::string& GetHostname() const { return hostname; }
    const ZarnLinuxTools::DnsInterface& GetDnsInterface() const { return dns; }

    // Leading and trailing white space cut, in place.
    static void TrimValue(char* text);
    // Four dotted integers rewritten without padding or leading zeros, in
    // place; any other text only trimmed.
    static void TrimIpAddress(char* text);
    // The domain rules of the resolver tools, and at most 253 characters.
    static bool IsDomainAccepted(const std::string& domain);

protected:
    void ReadNetworkConfiguration();
    void ReadLinuxNetworkConfiguration();
    void ReadDosNetworkConfiguration();
    // True when the operator entered a valid form; false when he left it
    // with ESC, which only a DOS version without its partition allows.
    bool CreateNetworkForm();
    void ShowCurrentField();
    void UpdatePcLan1StaticConfigurationVisibility();
    void UpdateDosConfigurationVisibility();
    bool ValidateNetworkForm();
    bool SaveConfiguration();
    bool SaveLinuxConfiguration();
    bool SaveDosNetworkConfiguration();

    // The next key of the form; a seam for driving the form without a
    // keyboard.
    virtual int ReadKey();
    // At a new terminal size: the message window kept within the content
    // window, the cursor back in its field.
    void RedrawContent() override;

    // The message window's rows for a content window of that many rows.
    static int MessageRows(int contentRows);
    static constexpr int MessageWindowRow = 10;
    static constexpr int MessageWindowRows = 10;
    // A DOS version whose partition could not be mounted: nothing can be
    // saved.
    bool IsDosPartitionUnavailable() const;

    // Unposts and frees the form, then its fields, then deletes the form's
    // sub-window and the message window; nothing when there is no form.
    void ReleaseNetworkForm();
    bool IsDosVersion() const;

    std::shared_ptr<InstallerLib::InstallPackage> package;
    std::shared_ptr<ZarnLinuxTools::Disk> disk;
    InstallerLib::EepromReader& eepromReader;

    FORM* form = nullptr;
    // Eight input fields, ten labels, and the terminating null.
    FIELD* fields[19] = {};
    WINDOW* formWindow = nullptr;
    WINDOW* messageWindow = nullptr;
    FIELD* highlightedField = nullptr;

    std::unique_ptr<ZarnLinuxTools::NetworkTools> networkTools;
    std::unique_ptr<ZarnLinuxTools::DnsTools> dnsTools;

    ZarnLinuxTools::NetworkInterface pcLan1;
    std::string hostname;
    ZarnLinuxTools::DnsInterface dns;
    bool dosPartitionUnavailable = false;
    Proposal proposal;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
