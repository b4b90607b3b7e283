#include "NetworkStep.h"

#include "DiskDiagnostics.h"
#include "DiskTools.h"
#include "InstallWizard.h"
#include "MsDos.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <future>
#include <sstream>
#include <utility>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

using InstallerLib::InstallPackage;
using ZarnLinuxTools::DiskDiagnostics;
using ZarnLinuxTools::DiskTools;
using ZarnLinuxTools::DnsTools;
using ZarnLinuxTools::NetworkTools;

namespace
{

const int KeyEnter = 10;
const int KeyEscape = 27;
const int KeyTab = 9;
const int KeySpace = ' ';
// Terminals send backspace as DEL or as ^H when their description does not
// map it to KEY_BACKSPACE.
const int KeyDelete = 127;
const int KeyControlH = 8;

// The longest host name and domain the form takes; the field scrolls
// horizontally past its visible width. Whether a name of that length is
// valid (labels, total length) is the validation's to say.
const int NameMaxLength = 253;

const char* const DosUnavailableMessage =
    "The DOS partition cannot be mounted: nothing can be saved.";

const char* const PcLan1 = "pc_lan_1";
const char* const NoServer = "0.0.0.0";
const char* const DefaultHostname = "Vidorama";

// Indexes in the form's field array: the inputs first, then the labels.
enum FieldIndex
{
    HostnameField,
    ModeField,
    IpAddressField,
    NetMaskField,
    GatewayField,
    PrimaryDnsField,
    SecondaryDnsField,
    DomainField,
    HostnameLabel,
    PcLan1Label,
    ModeLabel,
    DnsLabel,
    PrimaryLabel,
    SecondaryLabel,
    DomainLabel,
    IpAddressLabel,
    SubmaskLabel,
    GatewayLabel,
    FieldCount
};

struct FieldPlace
{
    int row;
    int column;
    int width;
};

// Row and column inside the step window; every field is one line high.
const FieldPlace InputPlaces[] = {
    {2, 13, 24}, // host name
    {5, 13, 8},  // mode
    {6, 13, 15}, // IP address
    {7, 13, 15}, // mask
    {8, 13, 15}, // gateway
    {5, 51, 15}, // primary DNS
    {6, 51, 15}, // secondary DNS
    {7, 51, 24}, // domain
};

struct LabelPlace
{
    const char* text;
    int row;
    int column;
};

const int LabelWidth = 12;
const LabelPlace LabelPlaces[] = {
    {"Hostname:", 2, 1}, {"PC Lan 1", 4, 1},    {"Mode:", 5, 1},    {"DNS", 4, 40},
    {"Primary:", 5, 40}, {"Secondary:", 6, 40}, {"Domain:", 7, 40}, {"IP Address:", 6, 1},
    {"Submask:", 7, 1},  {"Gateway:", 8, 1},
};

// The mode's choices; the enumeration type keeps pointers to them for as
// long as the field lives.
const char* ModeChoices[] = {"static", "dhcp", nullptr};

const char* const HostnameMessages[] = {
    "Invalid hostname, here are the main constraints: ",
    "- Characters available: A-Z, a-z, 0-9, -",
    "- Hostnames cannot start by a number or a '-'",
    "- Hostnames cannot finish by a '-'",
    "- Hostnames can be segmented with '.'",
};

const char* const DomainMessages[] = {
    "Invalid domain, here are the main constraints: ",
    "- Characters available: A-Z, a-z, 0-9, -, .",
    "- Domain cannot start by a number or a '-'",
    "- Domain cannot finish by a '-'",
    "- Domain can be segmented with '.'",
};

// A field's text copied out of the form, whole (its buffer belongs to curses;
// it is padded to the field's width, or to what a scrolling field grew to),
// trimmed as the field's kind wants.
std::string FieldText(FIELD* field, bool ipAddress)
{
    const char* buffer = field_buffer(field, 0);
    const std::string copy = buffer != nullptr ? buffer : "";
    std::vector<char> text(copy.begin(), copy.end());
    text.push_back('\0');
    if (ipAddress)
        NetworkStep::TrimIpAddress(text.data());
    else
        NetworkStep::TrimValue(text.data());
    return text.data();
}

bool IsChoiceField(const FIELD* field)
{
    return field_type(field) == TYPE_ENUM;
}

// The column right after the field, on its row.
void DrawChoiceMarker(WINDOW* window, const FIELD* field, chtype marker)
{
    int rows = 0;
    int columns = 0;
    int row = 0;
    int column = 0;
    int offscreen = 0;
    int buffers = 0;
    if (field_info(field, &rows, &columns, &row, &column, &offscreen, &buffers) == E_OK)
        mvwaddch(window, row, column + columns, marker);
}

void SetVisible(FIELD* field, bool visible)
{
    if (visible)
        field_opts_on(field, O_VISIBLE);
    else
        field_opts_off(field, O_VISIBLE);
}

} // namespace

NetworkStep::NetworkStep(InstallerLib::EepromReader& eepromReader)
    : WizardStep("Network Configuration", ""), eepromReader(eepromReader)
{
}

NetworkStep::~NetworkStep()
{
    ReleaseNetworkForm();
}

bool NetworkStep::IsDosVersion() const
{
    return package && package->GetVersion().IsDos();
}

bool NetworkStep::Run()
{
    CreateWindow();

    ShowProgressPopup("Read network configuration", 5);
    std::future<void> reading =
        std::async(std::launch::async, [this] { ReadNetworkConfiguration(); });
    WaitForTask(reading, true);
    if (proposal)
        proposal(pcLan1, hostname, dns);

    if (!CreateNetworkForm())
    {
        // Left with ESC: nothing to save into, so nothing is written and
        // the workflow goes back to the main menu.
        InstallWizard::log(2, "Network configuration not saved");
        DestroyWindow();
        networkTools.reset();
        dnsTools.reset();
        return false;
    }

    ShowProgressPopup("Save network configuration", 5);
    std::future<bool> saving =
        std::async(std::launch::async, [this] { return SaveConfiguration(); });
    const bool result = WaitForTask(saving, true);
    if (!result)
        InstallWizard::log(3, "Unable to save network configuration");

    // The operator sees the same end whatever the saving gave; the workflow
    // learns the result.
    SetBottomText("<ENTER> to reboot");
    ShowProgressPopup("Installation is done, remove the USB key then press <ENTER>", 0);
    while (ReadKeyFrom(_contentWindow) != KeyEnter)
    {
    }
    HideProgressPopup();
    DestroyWindow();

    networkTools.reset();
    dnsTools.reset();
    return result;
}

int NetworkStep::ReadKey()
{
    return ReadKeyFrom(_contentWindow);
}

bool NetworkStep::IsDosPartitionUnavailable() const
{
    return IsDosVersion() && dosPartitionUnavailable;
}

void NetworkStep::RedrawContent()
{
    if (form == nullptr)
        return;
    // The message window keeps to the rows the content window still has.
    if (messageWindow != nullptr)
    {
        const int rows = MessageRows(getmaxy(_contentWindow));
        if (rows > 0)
            wresize(messageWindow, rows, getmaxx(messageWindow));
    }
    pos_form_cursor(form);
}

void NetworkStep::ReadNetworkConfiguration()
{
    // A reading that stops early leaves empty values, not those of an earlier run.
    pcLan1 = ZarnLinuxTools::NetworkInterface();
    hostname.clear();
    dns = ZarnLinuxTools::DnsInterface();
    dosPartitionUnavailable = false;

    if (IsDosVersion())
        ReadDosNetworkConfiguration();
    else
        ReadLinuxNetworkConfiguration();
}

void NetworkStep::ReadLinuxNetworkConfiguration()
{
    if (!DiskDiagnostics::IsDirectoryMounted(InstallPackage::SystemMountPoint))
    {
        if (!disk || !DiskTools::MountPartition(disk->path.c_str(), 2, "ext4",
                                                InstallPackage::SystemMountPoint, false))
        {
            InstallWizard::log(3, "Unable to mount system mount point");
            return;
        }
    }

    // The script runs before the tools exist: the files it brings up to date
    // are loaded by the first tools object of the process.
    std::ostringstream output;
    const bool updated = NetworkTools::UpdateNetworkConfiguration(output);
    networkTools = std::make_unique<NetworkTools>();
    if (updated)
    {
        InstallWizard::log(0, output.str().c_str());
        pcLan1 = networkTools->GetInterface(PcLan1);
    }
    else
    {
        // Without a working update script the installed files are not
        // trusted: the factory settings are proposed instead.
        InstallWizard::log(2, output.str().c_str());
        pcLan1 = networkTools->CreateDefaultPcLan1Interface();
    }

    dnsTools = std::make_unique<DnsTools>();
    dns = dnsTools->GetInterface();

    const char* name = networkTools->GetHostname();
    hostname = name != nullptr ? name : DefaultHostname;
    if (hostname == DefaultHostname)
    {
        // Every server of a fresh installation would otherwise answer to the
        // same name on the network.
        const std::string serialNumber = eepromReader.Read().serialNumber;
        if (!serialNumber.empty())
            hostname = std::string(DefaultHostname) + "-" + serialNumber;
    }
}

void NetworkStep::ReadDosNetworkConfiguration()
{
    if (!DiskDiagnostics::IsDirectoryMounted(InstallPackage::DosMountPoint))
    {
        if (!disk || !DiskTools::MountPartition(disk->path.c_str(), 1, "fat16",
                                                InstallPackage::DosMountPoint, false))
        {
            InstallWizard::log(3, "Unable to mount dos mount point");
            // Its batch file could not be written either: the form says so
            // and lets the operator leave.
            dosPartitionUnavailable = true;
            return;
        }
    }

    // The DOS side knows no DHCP.
    pcLan1.method = "static";
    std::ifstream file(std::string(InstallPackage::DosMountPoint) + "/cecfg.bat");
    InstallerLib::MsDos::ParseNetworkDosConfiguration(file, pcLan1);
}

int NetworkStep::MessageRows(int contentRows)
{
    // Ten rows where the content window has them; on a console of 24 lines
    // nine, still more than the eight that the checks can stack at most.
    return std::min(MessageWindowRows, contentRows - MessageWindowRow);
}

bool NetworkStep::CreateNetworkForm()
{
    ReleaseNetworkForm();
    highlightedField = nullptr;

    for (int index = HostnameField; index <= DomainField; ++index)
    {
        const FieldPlace& place = InputPlaces[index];
        FIELD* field = new_field(1, place.width, place.row, place.column, 0, 0);
        // The operator leaves a field with the arrows or TAB only, never by
        // filling it.
        field_opts_off(field, O_AUTOSKIP);
        fields[index] = field;
    }
    // Names longer than their field scroll in it instead of being cut: the
    // text shown is the text checked and saved. A value read longer than the
    // form takes is kept whole too, for the validation to refuse it.
    const std::pair<int, size_t> names[] = {{HostnameField, hostname.size()},
                                            {DomainField, dns.domain.size()}};
    for (const auto& name : names)
    {
        field_opts_off(fields[name.first], O_STATIC);
        set_max_field(fields[name.first], std::max(NameMaxLength, static_cast<int>(name.second)));
    }
    for (int index = HostnameLabel; index < FieldCount; ++index)
    {
        const LabelPlace& place = LabelPlaces[index - HostnameLabel];
        FIELD* field = new_field(1, LabelWidth, place.row, place.column, 0, 0);
        field_opts_off(field, O_ACTIVE | O_EDIT);
        set_field_buffer(field, 0, place.text);
        fields[index] = field;
    }
    fields[FieldCount] = nullptr;

    set_field_type(fields[ModeField], TYPE_ENUM, const_cast<char**>(ModeChoices), 0, 0);
    // The mode changes with Space only.
    field_opts_off(fields[ModeField], O_EDIT);
    for (int index :
         {IpAddressField, NetMaskField, GatewayField, PrimaryDnsField, SecondaryDnsField})
    {
        set_field_type(fields[index], TYPE_IPV4);
    }
    // The domain has no field type: its rules are checked on ENTER, with
    // messages that say what is wrong.

    set_field_buffer(fields[HostnameField], 0, hostname.c_str());
    set_field_buffer(fields[ModeField], 0, pcLan1.method.c_str());
    set_field_buffer(fields[IpAddressField], 0, pcLan1.address.c_str());
    set_field_buffer(fields[NetMaskField], 0, pcLan1.netmask.c_str());
    set_field_buffer(fields[GatewayField], 0, pcLan1.gateway.c_str());
    set_field_buffer(fields[PrimaryDnsField], 0,
                     dns.primaryServer.empty() ? NoServer : dns.primaryServer.c_str());
    set_field_buffer(fields[SecondaryDnsField], 0,
                     dns.secondaryServer.empty() ? NoServer : dns.secondaryServer.c_str());
    set_field_buffer(fields[DomainField], 0, dns.domain.c_str());

    form = new_form(fields);
    // Backspace at the start of a field stays in that field.
    form_opts_off(form, O_BS_OVERLOAD);
    int rows = 0;
    int columns = 0;
    scale_form(form, &rows, &columns);
    set_form_win(form, _contentWindow);
    formWindow = derwin(_contentWindow, rows, columns, 0, 0);
    set_form_sub(form, formWindow);
    post_form(form);

    messageWindow = derwin(_contentWindow, MessageRows(getmaxy(_contentWindow)), _width - 12,
                           MessageWindowRow, 6);
    wattrset(messageWindow, COLOR_PAIR(6));

    if (IsDosVersion())
        UpdateDosConfigurationVisibility();
    UpdatePcLan1StaticConfigurationVisibility();

    // Without its partition a DOS entry has nowhere to go: said at once, and
    // ESC leaves.
    const bool unsaveable = IsDosPartitionUnavailable();
    if (unsaveable)
    {
        mvwprintw(messageWindow, 0, 0, "%s", DosUnavailableMessage);
        wsyncup(messageWindow);
    }

    wrefresh(_contentWindow);
    ShowCurrentField();
    SetBottomText(unsaveable ? "<ESC> return to the main menu" : "<ENTER> to apply configuration");

    // Only a valid entry leaves the form.
    for (;;)
    {
        const int key = ReadKey();
        switch (key)
        {
        case KEY_UP:
        case KEY_BTAB:
            form_driver(form, REQ_PREV_FIELD);
            form_driver(form, REQ_END_LINE);
            ShowCurrentField();
            break;
        case KEY_DOWN:
        case KeyTab:
            form_driver(form, REQ_NEXT_FIELD);
            form_driver(form, REQ_END_LINE);
            ShowCurrentField();
            break;
        case KEY_LEFT:
            form_driver(form, REQ_PREV_CHAR);
            break;
        case KEY_RIGHT:
            form_driver(form, REQ_NEXT_CHAR);
            break;
        case KEY_BACKSPACE:
        case KeyDelete:
        case KeyControlH:
            form_driver(form, REQ_DEL_PREV);
            break;
        case KEY_DL:
            form_driver(form, REQ_DEL_CHAR);
            break;
        case KeySpace:
            form_driver(form, REQ_NEXT_CHOICE);
            if (current_field(form) == fields[ModeField])
            {
                UpdatePcLan1StaticConfigurationVisibility();
                pos_form_cursor(form);
                wrefresh(_contentWindow);
            }
            break;
        case KeyEnter:
            if (unsaveable)
            {
                werase(messageWindow);
                mvwprintw(messageWindow, 0, 0, "%s", DosUnavailableMessage);
                wrefresh(messageWindow);
                pos_form_cursor(form);
                break;
            }
            // A field whose type refuses the text still reaches the checks
            // below, which name what is wrong.
            form_driver(form, REQ_VALIDATION);
            if (ValidateNetworkForm())
            {
                ReleaseNetworkForm();
                curs_set(0);
                return true;
            }
            pos_form_cursor(form);
            break;
        case KeyEscape:
            if (unsaveable)
            {
                ReleaseNetworkForm();
                curs_set(0);
                return false;
            }
            form_driver(form, key);
            break;
        default:
            form_driver(form, key);
            break;
        }
    }
}

void NetworkStep::ReleaseNetworkForm()
{
    // ncurses needs this order: unpost, free the form, then its fields; the
    // windows go last, the sub-windows before their parent.
    if (form != nullptr)
    {
        unpost_form(form);
        free_form(form);
        form = nullptr;
    }
    for (FIELD*& field : fields)
    {
        if (field != nullptr)
        {
            free_field(field);
            field = nullptr;
        }
    }
    if (formWindow != nullptr)
    {
        delwin(formWindow);
        formWindow = nullptr;
    }
    if (messageWindow != nullptr)
    {
        delwin(messageWindow);
        messageWindow = nullptr;
    }
    highlightedField = nullptr;
}

void NetworkStep::ShowCurrentField()
{
    FIELD* current = current_field(form);
    if (current == highlightedField)
        return;

    if (highlightedField != nullptr)
    {
        set_field_back(highlightedField, COLOR_PAIR(2));
        if (IsChoiceField(highlightedField))
            DrawChoiceMarker(formWindow, highlightedField, ' ');
    }
    set_field_back(current, COLOR_PAIR(1));
    curs_set((field_opts(current) & O_EDIT) != 0 ? 1 : 0);
    if (IsChoiceField(current))
        DrawChoiceMarker(formWindow, current, ACS_DARROW);
    wsyncup(formWindow);
    highlightedField = current;

    // The markers moved the cursor: put it back into the field.
    pos_form_cursor(form);
    wrefresh(_contentWindow);
}

void NetworkStep::UpdatePcLan1StaticConfigurationVisibility()
{
    const char* mode = field_buffer(fields[ModeField], 0);
    const bool visible = mode != nullptr && std::strncmp(mode, "static", 5) == 0;
    for (int index :
         {IpAddressField, NetMaskField, GatewayField, IpAddressLabel, SubmaskLabel, GatewayLabel})
    {
        SetVisible(fields[index], visible);
    }
}

void NetworkStep::UpdateDosConfigurationVisibility()
{
    set_current_field(form, fields[IpAddressField]);
    SetVisible(fields[HostnameField], false);
    SetVisible(fields[ModeField], false);
    // A DOS version has no host name and is always static: the labels are
    // blanked rather than hidden.
    mvwprintw(formWindow, 2, 1, "%s", "          ");
    mvwprintw(formWindow, 5, 1, "%s", "      ");
    wsyncup(formWindow);
}

void NetworkStep::TrimValue(char* text)
{
    if (text == nullptr)
        return;
    const char* start = text;
    while (*start != '\0' && std::isspace(static_cast<unsigned char>(*start)))
        ++start;
    size_t length = std::strlen(start);
    while (length > 0 && std::isspace(static_cast<unsigned char>(start[length - 1])))
        --length;
    std::memmove(text, start, length);
    text[length] = '\0';
}

void NetworkStep::TrimIpAddress(char* text)
{
    if (text == nullptr)
        return;
    int parts[4] = {};
    if (std::sscanf(text, "%d.%d.%d.%d", &parts[0], &parts[1], &parts[2], &parts[3]) == 4)
    {
        char rewritten[64] = {};
        const int length = std::snprintf(rewritten, sizeof(rewritten), "%d.%d.%d.%d", parts[0],
                                         parts[1], parts[2], parts[3]);
        // Rewritten in place: only when it fits where the text was (a number
        // too large for an int could read back longer than it was typed).
        if (length > 0 && static_cast<size_t>(length) <= std::strlen(text))
        {
            std::memcpy(text, rewritten, static_cast<size_t>(length) + 1);
            return;
        }
    }
    TrimValue(text);
}

bool NetworkStep::IsDomainAccepted(const std::string& domain)
{
    // A name of the resolver is at most 253 characters long, as the field
    // takes; a longer one read from the installed system is refused.
    return domain.size() <= static_cast<size_t>(NameMaxLength) &&
           DnsTools::ValidateDomain(domain.c_str());
}

bool NetworkStep::ValidateNetworkForm()
{
    werase(messageWindow);
    int row = 0;
    auto write = [this, &row](const char* message)
    { mvwprintw(messageWindow, row++, 0, "%s", message); };

    pcLan1.method = FieldText(fields[ModeField], false);
    pcLan1.address = FieldText(fields[IpAddressField], true);
    pcLan1.netmask = FieldText(fields[NetMaskField], true);
    pcLan1.gateway = FieldText(fields[GatewayField], true);

    bool valid = true;
    if (!IsDosVersion())
    {
        hostname = FieldText(fields[HostnameField], false);
        pcLan1.hostname = hostname;
        if (!NetworkTools::ValidateHostname(hostname.c_str()))
        {
            for (const char* message : HostnameMessages)
                write(message);
            valid = false;
        }
    }

    if (valid && pcLan1.method != "dhcp")
    {
        if (!NetworkTools::ValidateIpAddress(pcLan1.address.c_str()))
        {
            write("Invalid ip address");
            valid = false;
        }
        else if (!NetworkTools::ValidateNetMask(pcLan1.netmask.c_str()))
        {
            write("Invalid net mask");
            valid = false;
        }
        else if (!NetworkTools::ValidateIpAddress(pcLan1.gateway.c_str()))
        {
            write("Invalid gateway address");
            valid = false;
        }
    }

    if (valid)
    {
        dns.primaryServer = FieldText(fields[PrimaryDnsField], true);
        dns.secondaryServer = FieldText(fields[SecondaryDnsField], true);
        dns.domain = FieldText(fields[DomainField], false);

        // These checks all run, their messages one below the other.
        if (!DnsTools::ValidateIpAddress(dns.primaryServer.c_str()))
            write("Invalid dns primary ip address");
        if (!DnsTools::ValidateIpAddress(dns.secondaryServer.c_str()))
            write("Invalid dns secondary ip address");
        if (!dns.domain.empty() && !IsDomainAccepted(dns.domain))
        {
            for (const char* message : DomainMessages)
                write(message);
        }
        const bool noPrimary = dns.primaryServer == NoServer;
        if (noPrimary != dns.domain.empty())
            write("Primary IP and domain should both be filled or left empty");
        if (noPrimary && dns.secondaryServer != NoServer)
            write("Secondary IP can't be set if primary isn't");
        valid = row == 0;
    }

    wrefresh(messageWindow);
    return valid;
}

bool NetworkStep::SaveConfiguration()
{
    if (IsDosVersion())
        return SaveDosNetworkConfiguration();
    return SaveLinuxConfiguration();
}

bool NetworkStep::SaveLinuxConfiguration()
{
    // No tools object: the system partition could not be read, so there is
    // nothing to save into.
    if (!networkTools)
        return false;
    if (!networkTools->SetInterface(PcLan1, pcLan1))
        return false;
    if (!networkTools->SetHostname(hostname.c_str()))
        return false;
    if (dnsTools)
    {
        if (!dnsTools->SetInterface(dns))
            return false;
        if (!dnsTools->Save())
            return false;
    }
    return networkTools->Save();
}

bool NetworkStep::SaveDosNetworkConfiguration()
{
    return InstallerLib::MsDos::SaveNetworkDosConfiguration(
        pcLan1, (std::string(InstallPackage::DosMountPoint) + "/cecfg.bat").c_str());
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
