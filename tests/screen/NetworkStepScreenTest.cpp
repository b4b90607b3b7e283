// The network form at the end of an installation, on the sandbox console: one
// small disk (partition 1 FAT16, partition 2 ext4) on which each test lays out
// an installed version's network files (or the DOS side's batch file) before
// the step alone reads them, shows them, checks what is typed and saves it.
// The files are then read back from the disk.
#include "ScreenTest.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <sstream>

using namespace ScreenTest;

namespace
{

const std::string FormBottom = "<ENTER> to apply configuration";
const std::string FinalPopup = "Installation is done, remove the USB key then press <ENTER>";
const std::string VersionDir = "/mnt/SYS/Versions/12.05.01.3456";

// Content row r, column c of the step window is screen row r + 2, column c + 2.
const int HostnameRow = 4;
const int PcLan1Row = 6;
const int ModeRow = 7;
const int IpAddressRow = 8;
const int SubmaskRow = 9;
const int GatewayRow = 10;
const int FirstMessageRow = 12;
const std::string MessageIndent(8, ' ');

const std::string StaticInterfaces = "auto lo\n"
                                     "iface lo inet loopback\n"
                                     "\n"
                                     "auto pc_lan_1\n"
                                     "iface pc_lan_1 inet static\n"
                                     "    address 192.168.1.1\n"
                                     "    netmask 255.255.255.0\n"
                                     "    gateway 192.168.1.254\n";

// The update script of the installed version; delay: seconds it takes.
std::string UpdateScript(int delay)
{
    return "#!/bin/sh\n"
           "case \"$1\" in\n"
           "  start) sleep " +
           std::to_string(delay) +
           "; echo \"Network settings of $(cat \"$(dirname \"$0\")/../hostname\") applied\" ;;\n"
           "  *) exit 2 ;;\n"
           "esac\n";
}

// The network files of the installed version; nullopt leaves a file out.
struct InstalledVersion
{
    std::string interfaces = StaticInterfaces;
    std::optional<std::string> hostname = std::string("server-7\n");
    std::string hosts = "127.0.0.1\tlocalhost\n127.0.1.1\tserver-7\n";
    std::string resolv = "nameserver 192.168.1.254\nsearch example.com\n";
    bool updateScript = true;
    int updateDelay = 0;
};

// Text for a single-quoted shell word.
std::string Quoted(const std::string& text)
{
    std::string quoted = "'";
    for (char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// Text without the blanks that start its lines.
std::string Unindented(const std::string& text)
{
    std::istringstream in(text);
    std::string result;
    for (std::string line; std::getline(in, line);)
    {
        const size_t start = line.find_first_not_of(" \t");
        result += (start == std::string::npos ? "" : line.substr(start)) + "\n";
    }
    return result;
}

// Row text laid out field by field: left padded to column, then right.
std::string Line(const std::string& left, int column, const std::string& right)
{
    std::string line = left;
    line.resize(static_cast<size_t>(column), ' ');
    return line + right;
}

class NetworkStepSuite : public GuestSuite
{
protected:
    static void SetUpTestSuite()
    {
        auto options = SuiteDefaults();
        options.disks.push_back(NewDiskImage("disk.img", 128ULL << 20));
        // Partition 1 FAT16 for the DOS side, partition 2 ext4 for the Linux
        // versions; the identity tool of the key is kept aside so that a test
        // can take the serial number away.
        options.setupScript +=
            DosAndLinuxPartitions + "cp /mnt/USB/EepromReader /run/EepromReader.key\n";
        StartGuest(options);
    }

    void TearDown() override
    {
        GuestSuite::TearDown();
        Guest().Run("cp /run/EepromReader.key /mnt/USB/EepromReader");
    }

    // Lays out the installed version on partition 2, the "current" link
    // included, and leaves the partition unmounted for the step to mount.
    void Install(const InstalledVersion& version)
    {
        std::string script = "while umount /mnt/SYS 2>/dev/null; do :; done; set -e; "
                             "mount -t ext4 /dev/vda2 /mnt/SYS; rm -rf /mnt/SYS/*; "
                             "mkdir -p " +
                             VersionDir + "/etc/network " + VersionDir + "/etc/init.d; ";
        script += "printf %s " + Quoted(version.interfaces) + " > " + VersionDir +
                  "/etc/network/interfaces; ";
        if (version.hostname)
            script +=
                "printf %s " + Quoted(*version.hostname) + " > " + VersionDir + "/etc/hostname; ";
        script += "printf %s " + Quoted(version.hosts) + " > " + VersionDir + "/etc/hosts; ";
        script += "printf %s " + Quoted(version.resolv) + " > " + VersionDir + "/etc/resolv.conf; ";
        if (version.updateScript)
        {
            const std::string path = VersionDir + "/etc/init.d/S38UpdateNetworkSettings.sh";
            script += "printf %s " + Quoted(UpdateScript(version.updateDelay)) + " > " + path +
                      "; chmod 755 " + path + "; ";
        }
        script += "ln -s 12.05.01.3456 /mnt/SYS/Versions/current; umount /mnt/SYS";
        RunInGuest(script);
    }

    // The DOS side's network batch file on partition 1; nullopt: none.
    void WriteDosConfiguration(const std::optional<std::string>& text)
    {
        std::string script = "while umount /mnt/DOS 2>/dev/null; do :; done; set -e; "
                             "mount -t vfat /dev/vda1 /mnt/DOS; rm -f /mnt/DOS/cecfg.bat; ";
        if (text)
            script += "printf %s " + Quoted(*text) + " > /mnt/DOS/cecfg.bat; ";
        script += "umount /mnt/DOS";
        RunInGuest(script);
    }

    std::string GuestOutput(const std::string& command) { return Guest().Run(command).output; }
    // A file of the installed version, read back after the step.
    std::string VersionFile(const std::string& relative)
    {
        return GuestOutput("cat " + VersionDir + "/" + relative);
    }

    bool Logged(const std::string& message) const
    {
        const auto messages = LogMessages();
        return std::find(messages.begin(), messages.end(), message) != messages.end();
    }

    // The step on the console; waits for its form.
    void StartStep(const std::string& arguments)
    {
        Start(Program("NetworkStepProgram") + " " + arguments);
        ASSERT_TRUE(WaitFor(FormBottom, 60)) << Screen();
    }

    // Down that many inputs; every move leaves the cursor at the end of the
    // field's text (the host name is reached at its end by Down then Up).
    void Down(int times) { Keys(std::vector<std::string>(static_cast<size_t>(times), "Down")); }

    // Empties the current field, whose cursor stands at its end, and types text.
    void Retype(const std::string& text, int width)
    {
        Keys(std::vector<std::string>(static_cast<size_t>(width), "BSpace"));
        if (!text.empty())
            Guest().SendText(text);
    }

    // The message window's rows, from its first row to its last written one.
    std::vector<std::string> Messages() const
    {
        const auto rows = Rows(Screen());
        std::vector<std::string> messages;
        for (int row = FirstMessageRow; row < FirstMessageRow + 10; ++row)
        {
            const std::string& line = rows.at(static_cast<size_t>(row));
            messages.push_back(
                line.size() > MessageIndent.size() ? line.substr(MessageIndent.size()) : "");
        }
        while (!messages.empty() && messages.back().empty())
            messages.pop_back();
        return messages;
    }

    bool WaitForMessages(const std::vector<std::string>& wanted, int timeoutSec = 20) const
    {
        if (!WaitFor(wanted.back(), timeoutSec))
            return false;
        return Messages() == wanted;
    }

    // ENTER on a valid form: the saving, then the final pop-up until ENTER.
    void SaveAndFinish()
    {
        Keys({"Enter"});
        ASSERT_TRUE(WaitFor(FinalPopup, 60)) << Screen();
        EXPECT_NE(Screen().find("<ENTER> to reboot"), std::string::npos) << Screen();
        // Only ENTER ends it.
        Keys({"x", "Escape", "Space"});
        Settle();
        EXPECT_NE(Screen().find(FinalPopup), std::string::npos) << Screen();
        Keys({"Enter"});
        ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    }
};

} // namespace

TEST_F(NetworkStepSuite, TheFormShowsWhatTheInstalledVersionHolds)
{
    InstalledVersion version;
    version.updateDelay = 4;
    Install(version);
    Start(Program("NetworkStepProgram") + " linux");
    // The reading runs behind the progress pop-up, one dot a second.
    ASSERT_TRUE(WaitFor("Read network configuration..", 30)) << Screen();
    ASSERT_TRUE(WaitFor(FormBottom, 60)) << Screen();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, 1).find_first_not_of(' '), Row(screen, 1).find("Network Configuration"))
        << screen;
    EXPECT_NE(Row(screen, 1).find("Network Configuration"), std::string::npos) << screen;
    EXPECT_EQ(Row(screen, 3), "");
    EXPECT_EQ(Row(screen, HostnameRow), "   Hostname:   server-7");
    EXPECT_EQ(Row(screen, 5), "");
    EXPECT_EQ(Row(screen, PcLan1Row), Line("   PC Lan 1", 42, "DNS"));
    EXPECT_EQ(Row(screen, ModeRow),
              Line(Line("   Mode:", 15, "static"), 42, "Primary:   192.168.1.254"));
    EXPECT_EQ(Row(screen, IpAddressRow),
              Line(Line("   IP Address:", 15, "192.168.1.1"), 42, "Secondary: 0.0.0.0"));
    EXPECT_EQ(Row(screen, SubmaskRow),
              Line(Line("   Submask:", 15, "255.255.255.0"), 42, "Domain:    example.com"));
    EXPECT_EQ(Row(screen, GatewayRow), Line("   Gateway:", 15, "192.168.1.254"));
    EXPECT_EQ(Messages(), std::vector<std::string>{});
    EXPECT_EQ(Row(screen, 23), "  " + FormBottom);
    EXPECT_TRUE(Logged("0 Network settings of server-7 applied")) << Log();

    // No key but a valid ENTER leaves the form.
    Keys({"Escape"});
    Settle();
    Keys({"C-c"});
    Settle();
    EXPECT_NE(Screen().find(FormBottom), std::string::npos) << Screen();

    // The mode is marked while it is current.
    Down(1);
    Settle();
    const std::string marked = Row(Screen(), ModeRow);
    ASSERT_GT(marked.size(), 23u) << Screen();
    EXPECT_EQ(marked.substr(15, 8), "static  ");
    // The screen shows alternate-charset characters by their plain letters
    // (the separator line reads "qqq..."): the down arrow is a ".".
    EXPECT_EQ(marked.substr(23, 1), ".") << Screen();
    Down(1);
    Settle();
    EXPECT_EQ(Row(Screen(), ModeRow).substr(15, 9), "static   ") << Screen();

    SaveAndFinish();
    EXPECT_EQ(Result(), "run 1\nhostname server-7\nmethod static\naddress 192.168.1.1\n"
                        "netmask 255.255.255.0\ngateway 192.168.1.254\nprimary 192.168.1.254\n"
                        "secondary 0.0.0.0\ndomain example.com\n");
    EXPECT_FALSE(Logged("3 Unable to save network configuration")) << Log();
}

TEST_F(NetworkStepSuite, AValidStaticEntryIsSavedIntoTheInstalledSystem)
{
    Install(InstalledVersion());
    StartStep("linux");
    Down(1);
    Keys({"Up"});
    Retype("studio-2", 24);
    Down(2);
    Retype("10.1.2.3", 15);
    Down(1);
    Retype("255.255.0.0", 15);
    Down(1);
    Retype("10.1.0.1", 15);
    Down(1);
    Retype("10.1.0.2", 15);
    Down(1);
    Retype("10.1.0.3", 15);
    Down(1);
    Retype("studio.example", 24);
    ASSERT_TRUE(WaitFor("studio.example")) << Screen();
    SaveAndFinish();
    EXPECT_EQ(Result(), "run 1\nhostname studio-2\nmethod static\naddress 10.1.2.3\n"
                        "netmask 255.255.0.0\ngateway 10.1.0.1\nprimary 10.1.0.2\n"
                        "secondary 10.1.0.3\ndomain studio.example\n");
    EXPECT_EQ(VersionFile("etc/network/interfaces"), "auto lo\n"
                                                     "iface lo inet loopback\n"
                                                     "\n"
                                                     "auto pc_lan_1\n"
                                                     "iface pc_lan_1 inet static\n"
                                                     "    address 10.1.2.3\n"
                                                     "    netmask 255.255.0.0\n"
                                                     "    gateway 10.1.0.1\n");
    EXPECT_EQ(VersionFile("etc/hostname"), "studio-2\n");
    EXPECT_EQ(VersionFile("etc/hosts"), "127.0.0.1\tlocalhost\n127.0.1.1\tstudio-2\n");
    EXPECT_EQ(VersionFile("etc/resolv.conf"),
              "nameserver 10.1.0.2\nsearch studio.example\nnameserver 10.1.0.3\n");
    EXPECT_FALSE(Logged("3 Unable to save network configuration")) << Log();
}

TEST_F(NetworkStepSuite, AFreshInstallationIsNamedAfterTheSerialNumber)
{
    InstalledVersion version;
    version.hostname.reset();
    version.hosts = "127.0.0.1\tlocalhost\n";
    Install(version);
    StartStep("linux");
    EXPECT_EQ(Row(Screen(), HostnameRow), "   Hostname:   Vidorama-DEMO-0001") << Screen();
    SaveAndFinish();
    EXPECT_EQ(VersionFile("etc/hostname"), "Vidorama-DEMO-0001\n");
    EXPECT_EQ(VersionFile("etc/hosts"), "127.0.0.1\tlocalhost\n127.0.1.1\tVidorama-DEMO-0001\n");
}

TEST_F(NetworkStepSuite, OnlyTheExactDefaultNameGetsTheSerialNumber)
{
    InstalledVersion version;
    version.hostname = "Vidorama\n";
    Install(version);
    StartStep("linux");
    EXPECT_EQ(Row(Screen(), HostnameRow), "   Hostname:   Vidorama-DEMO-0001") << Screen();
    SaveAndFinish();

    version.hostname = "vidorama\n";
    Install(version);
    Start(Program("NetworkStepProgram") + " linux");
    ASSERT_TRUE(WaitFor(FormBottom, 60)) << Screen();
    EXPECT_EQ(Row(Screen(), HostnameRow), "   Hostname:   vidorama") << Screen();
    SaveAndFinish();
}

TEST_F(NetworkStepSuite, WithoutASerialNumberTheNameStaysVidorama)
{
    RunInGuest("printf '#!/bin/sh\\nexit 0\\n' > /mnt/USB/EepromReader");
    InstalledVersion version;
    version.hostname.reset();
    Install(version);
    StartStep("linux");
    EXPECT_EQ(Row(Screen(), HostnameRow), "   Hostname:   Vidorama") << Screen();
    SaveAndFinish();
    EXPECT_EQ(VersionFile("etc/hostname"), "Vidorama\n");
}

TEST_F(NetworkStepSuite, AnInvalidHostNameShowsItsFiveConstraints)
{
    Install(InstalledVersion());
    StartStep("linux");
    Down(1);
    Keys({"Up"});
    Retype("1abc", 24);
    Keys({"Enter"});
    ASSERT_TRUE(WaitForMessages({"Invalid hostname, here are the main constraints:",
                                 "- Characters available: A-Z, a-z, 0-9, -",
                                 "- Hostnames cannot start by a number or a '-'",
                                 "- Hostnames cannot finish by a '-'",
                                 "- Hostnames can be segmented with '.'"}))
        << Screen();
    EXPECT_EQ(Row(Screen(), FirstMessageRow),
              MessageIndent + "Invalid hostname, here are the main constraints:");
    // Corrected, the form is left.
    Retype("abc1", 4);
    SaveAndFinish();
    EXPECT_EQ(VersionFile("etc/hostname"), "abc1\n");
}

TEST_F(NetworkStepSuite, AddressMaskAndGatewayAreCheckedOneAtATime)
{
    Install(InstalledVersion());
    StartStep("linux");
    Down(2);
    Retype("192.168.1.300", 15);
    Keys({"Enter"});
    ASSERT_TRUE(WaitForMessages({"Invalid ip address"})) << Screen();
    EXPECT_EQ(Row(Screen(), FirstMessageRow), MessageIndent + "Invalid ip address");
    Retype("192.168.1.30", 15);
    Down(1);
    Retype("255.0.255.0", 15);
    Keys({"Enter"});
    ASSERT_TRUE(WaitForMessages({"Invalid net mask"})) << Screen();
    Retype("255.255.0.0", 15);
    Down(1);
    Retype("192.168.1.256", 15);
    Keys({"Enter"});
    ASSERT_TRUE(WaitForMessages({"Invalid gateway address"})) << Screen();
    Retype("192.168.1.25", 15);
    SaveAndFinish();
    EXPECT_NE(Result().find("address 192.168.1.30\nnetmask 255.255.0.0\ngateway 192.168.1.25\n"),
              std::string::npos)
        << Result();
}

TEST_F(NetworkStepSuite, APrimaryServerOfZerosWithADomainIsRefused)
{
    Install(InstalledVersion());
    StartStep("linux");
    Down(5);
    Retype("0.0.0.0", 15);
    Keys({"Enter"});
    ASSERT_TRUE(WaitForMessages({"Primary IP and domain should both be filled or left empty"}))
        << Screen();
    // No domain either: both left empty, accepted; the resolver file is emptied.
    Down(2);
    Retype("", 24);
    SaveAndFinish();
    EXPECT_EQ(VersionFile("etc/resolv.conf"), "");
}

TEST_F(NetworkStepSuite, DnsAndDomainMessagesStackOneBelowTheOther)
{
    Install(InstalledVersion());
    StartStep("linux");
    Down(5);
    Retype("", 15);
    Down(1);
    Retype("", 15);
    Down(1);
    Retype("1bad-", 24);
    Keys({"Enter"});
    const std::vector<std::string> wanted = {"Invalid dns primary ip address",
                                             "Invalid dns secondary ip address",
                                             "Invalid domain, here are the main constraints:",
                                             "- Characters available: A-Z, a-z, 0-9, -, .",
                                             "- Domain cannot start by a number or a '-'",
                                             "- Domain cannot finish by a '-'",
                                             "- Domain can be segmented with '.'"};
    ASSERT_TRUE(WaitForMessages(wanted)) << Screen();
    const auto rows = Rows(Screen());
    for (size_t i = 0; i < wanted.size(); ++i)
        EXPECT_EQ(rows.at(FirstMessageRow + i), MessageIndent + wanted[i]);
    // The domain alone fixed leaves the two server messages.
    Retype("studio.example", 24);
    Keys({"Enter"});
    ASSERT_TRUE(WaitGone("Invalid domain")) << Screen();
    Settle();
    EXPECT_EQ(Messages(), (std::vector<std::string>{"Invalid dns primary ip address",
                                                    "Invalid dns secondary ip address"}))
        << Screen();
}

TEST_F(NetworkStepSuite, ASecondaryServerNeedsAPrimaryOne)
{
    InstalledVersion version;
    version.resolv = "";
    Install(version);
    StartStep("linux");
    EXPECT_EQ(Row(Screen(), ModeRow).substr(42), "Primary:   0.0.0.0") << Screen();
    EXPECT_EQ(Row(Screen(), SubmaskRow).substr(42), "Domain:") << Screen();
    Down(6);
    Retype("8.8.8.8", 15);
    Keys({"Enter"});
    ASSERT_TRUE(WaitForMessages({"Secondary IP can't be set if primary isn't"})) << Screen();
    Retype("0.0.0.0", 15);
    SaveAndFinish();
    EXPECT_NE(Result().find("primary 0.0.0.0\nsecondary 0.0.0.0\ndomain \n"), std::string::npos)
        << Result();
}

TEST_F(NetworkStepSuite, DhcpHidesTheAddressFieldsAndRemovesThemOnSave)
{
    Install(InstalledVersion());
    StartStep("linux");
    Down(1);
    Keys({"Space"});
    ASSERT_TRUE(WaitGone("IP Address:")) << Screen();
    Settle();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, ModeRow).substr(0, 19), Line("   Mode:", 15, "dhcp")) << screen;
    EXPECT_EQ(Row(screen, IpAddressRow), Line("", 42, "Secondary: 0.0.0.0")) << screen;
    EXPECT_EQ(Row(screen, SubmaskRow), Line("", 42, "Domain:    example.com")) << screen;
    EXPECT_EQ(Row(screen, GatewayRow), "") << screen;
    // Space again brings them back, a third time hides them again.
    Keys({"Space"});
    ASSERT_TRUE(WaitFor("IP Address:")) << Screen();
    EXPECT_EQ(Row(Screen(), GatewayRow), Line("   Gateway:", 15, "192.168.1.254"));
    Keys({"Space"});
    ASSERT_TRUE(WaitGone("Gateway:")) << Screen();
    SaveAndFinish();
    EXPECT_NE(Result().find("method dhcp\n"), std::string::npos) << Result();
    // Indented as augeas indents the lines it adds.
    EXPECT_EQ(Unindented(VersionFile("etc/network/interfaces")), "auto lo\n"
                                                                 "iface lo inet loopback\n"
                                                                 "\n"
                                                                 "auto pc_lan_1\n"
                                                                 "iface pc_lan_1 inet dhcp\n"
                                                                 "hostname server-7\n");
    EXPECT_EQ(VersionFile("etc/hostname"), "server-7\n");
}

TEST_F(NetworkStepSuite, ADosVersionWritesOnlyItsBatchFile)
{
    Install(InstalledVersion());
    WriteDosConfiguration("set NET_IP=10.0.0.5\r\nset NET_MASK=255.0.0.0\r\n"
                          "set NET_GATEWAY=10.0.0.1\r\nset OTHER=1\r\n");
    StartStep("dos");
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, HostnameRow), "") << screen;
    EXPECT_EQ(Row(screen, PcLan1Row), Line("   PC Lan 1", 42, "DNS")) << screen;
    EXPECT_EQ(Row(screen, ModeRow), Line("", 42, "Primary:   0.0.0.0")) << screen;
    EXPECT_EQ(Row(screen, IpAddressRow),
              Line(Line("   IP Address:", 15, "10.0.0.5"), 42, "Secondary: 0.0.0.0"))
        << screen;
    EXPECT_EQ(Row(screen, SubmaskRow), Line(Line("   Submask:", 15, "255.0.0.0"), 42, "Domain:"))
        << screen;
    EXPECT_EQ(Row(screen, GatewayRow), Line("   Gateway:", 15, "10.0.0.1")) << screen;
    // The address is current: its cursor is at the start, where typing goes.
    Keys({"Down", "Up"});
    Retype("10.0.0.6", 15);
    // Up from the address goes to the domain: nothing above it is visited.
    Keys({"Up"});
    SaveAndFinish();
    EXPECT_EQ(Result(), "run 1\nhostname \nmethod static\naddress 10.0.0.6\nnetmask 255.0.0.0\n"
                        "gateway 10.0.0.1\nprimary 0.0.0.0\nsecondary 0.0.0.0\ndomain \n");
    EXPECT_EQ(GuestOutput("cat /mnt/DOS/cecfg.bat"),
              "set NET_IP=10.0.0.6\r\nset NET_MASK=255.0.0.0\r\nset NET_GATEWAY=10.0.0.1\r\n");
    // The Linux side was not even mounted.
    EXPECT_EQ(GuestOutput("grep -c ' /mnt/SYS ' /proc/mounts"), "0\n");
    RunInGuest("mount -t ext4 /dev/vda2 /mnt/SYS");
    EXPECT_EQ(VersionFile("etc/network/interfaces"), StaticInterfaces);
    EXPECT_EQ(VersionFile("etc/hostname"), "server-7\n");
}

TEST_F(NetworkStepSuite, AMountFailureStillShowsTheFormAndTheSaveFails)
{
    StartStep("linux /dev/vdz");
    EXPECT_TRUE(Logged("3 Unable to mount system mount point")) << Log();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, HostnameRow), "   Hostname:") << screen;
    // No mode read: the address fields are hidden.
    EXPECT_EQ(Row(screen, ModeRow), Line("   Mode:", 42, "Primary:   0.0.0.0")) << screen;
    EXPECT_EQ(Row(screen, GatewayRow), "") << screen;
    Guest().SendText("abc");
    Keys({"Down", "Space"});
    ASSERT_TRUE(WaitFor("static")) << Screen();
    Keys({"Space"});
    ASSERT_TRUE(WaitFor("dhcp")) << Screen();
    SaveAndFinish();
    EXPECT_TRUE(Logged("3 Unable to save network configuration")) << Log();
    EXPECT_EQ(Result(), "run 0\nhostname abc\nmethod dhcp\naddress \nnetmask \ngateway \n"
                        "primary 0.0.0.0\nsecondary 0.0.0.0\ndomain \n");
}

TEST_F(NetworkStepSuite, ASaveFailureIsLoggedAndEndsLikeASuccess)
{
    // No update script: the factory settings are proposed; no pc_lan_1
    // stanza: they cannot be saved.
    InstalledVersion version;
    version.interfaces = "auto lo\niface lo inet loopback\n";
    version.updateScript = false;
    Install(version);
    StartStep("linux");
    EXPECT_TRUE(Logged("2 ")) << Log();
    const std::string screen = Screen();
    EXPECT_EQ(Row(screen, ModeRow).substr(0, 21), Line("   Mode:", 15, "static")) << screen;
    EXPECT_EQ(Row(screen, IpAddressRow).substr(0, 26), Line("   IP Address:", 15, "192.168.1.1"));
    EXPECT_EQ(Row(screen, SubmaskRow).substr(0, 28), Line("   Submask:", 15, "255.255.255.0"));
    EXPECT_EQ(Row(screen, GatewayRow), Line("   Gateway:", 15, "192.168.1.254"));
    SaveAndFinish();
    EXPECT_TRUE(Logged("3 Unable to save network configuration")) << Log();
    EXPECT_EQ(Result().substr(0, 6), "run 0\n");
    EXPECT_EQ(VersionFile("etc/network/interfaces"), "auto lo\niface lo inet loopback\n");
    EXPECT_EQ(VersionFile("etc/hostname"), "server-7\n");
}

namespace
{

// A host name of four labels, three of them 63 characters long: 253
// characters, the longest the form and the files take.
const std::string Label63 = std::string(62, 'l') + "9";
const std::string LongestName =
    Label63 + "." + Label63 + "." + Label63 + "." + std::string(61, 'z');

} // namespace

TEST_F(NetworkStepSuite, LongNamesReadFromTheSystemAreSavedUnchanged)
{
    ASSERT_EQ(LongestName.size(), 253u);
    InstalledVersion version;
    version.hostname = LongestName + "\n";
    version.hosts = "127.0.0.1\tlocalhost\n127.0.1.1\t" + LongestName + "\n";
    version.resolv = "nameserver 192.168.1.254\nsearch corp.broadcaster-intl.net\n";
    Install(version);
    StartStep("linux");
    const std::string screen = Screen();
    // The fields show the names' beginnings; nothing else moved.
    EXPECT_EQ(Row(screen, HostnameRow), "   Hostname:   " + LongestName.substr(0, 24)) << screen;
    EXPECT_EQ(Row(screen, SubmaskRow), Line(Line("   Submask:", 15, "255.255.255.0"), 42,
                                            "Domain:    corp.broadcaster-intl.ne"))
        << screen;
    EXPECT_EQ(Row(screen, GatewayRow), Line("   Gateway:", 15, "192.168.1.254")) << screen;
    // The host name's end is scrolled to when the field is entered at its end.
    Keys({"Down", "Up"});
    ASSERT_TRUE(WaitFor(LongestName.substr(LongestName.size() - 20))) << Screen();
    SaveAndFinish();
    EXPECT_EQ(Result(), "run 1\nhostname " + LongestName +
                            "\nmethod static\naddress 192.168.1.1\n"
                            "netmask 255.255.255.0\ngateway 192.168.1.254\nprimary 192.168.1.254\n"
                            "secondary 0.0.0.0\ndomain corp.broadcaster-intl.net\n");
    EXPECT_EQ(VersionFile("etc/hostname"), LongestName + "\n");
    EXPECT_EQ(VersionFile("etc/hosts"), "127.0.0.1\tlocalhost\n127.0.1.1\t" + LongestName + "\n");
    EXPECT_EQ(VersionFile("etc/resolv.conf"),
              "nameserver 192.168.1.254\nsearch corp.broadcaster-intl.net\n");
}

TEST_F(NetworkStepSuite, NamesTypedLongerThanTheirFieldsAreSavedWhole)
{
    const std::string name = "studio-7." + Label63 + ".example";
    const std::string domain = "branch-office.broadcaster-intl.example.net";
    Install(InstalledVersion());
    StartStep("linux");
    Down(1);
    Keys({"Up"});
    Retype(name, 8);
    ASSERT_TRUE(WaitFor(".example")) << Screen();
    // What is seen is the end of what was typed, in the field's 24 columns.
    EXPECT_EQ(Row(Screen(), HostnameRow).substr(0, 15), "   Hostname:   ") << Screen();
    EXPECT_EQ(Screen().find("studio-7"), std::string::npos) << Screen();
    Down(7);
    Retype(domain, 11);
    ASSERT_TRUE(WaitFor("example.net")) << Screen();
    SaveAndFinish();
    EXPECT_EQ(VersionFile("etc/hostname"), name + "\n");
    EXPECT_EQ(VersionFile("etc/hosts"), "127.0.0.1\tlocalhost\n127.0.1.1\t" + name + "\n");
    EXPECT_EQ(VersionFile("etc/resolv.conf"), "nameserver 192.168.1.254\nsearch " + domain + "\n");
    EXPECT_NE(Result().find("hostname " + name + "\n"), std::string::npos) << Result();
}

TEST_F(NetworkStepSuite, ADosVersionWithoutItsPartitionSaysSoAndEscapeLeavesWritingNothing)
{
    const std::string batch = "set NET_IP=10.0.0.5\r\nset NET_MASK=255.0.0.0\r\n"
                              "set NET_GATEWAY=10.0.0.1\r\n";
    Install(InstalledVersion());
    WriteDosConfiguration(batch);
    Start(Program("NetworkStepProgram") + " dos /dev/vdz");
    ASSERT_TRUE(WaitFor("<ESC> return to the main menu", 60)) << Screen();
    EXPECT_TRUE(Logged("3 Unable to mount dos mount point")) << Log();
    const std::string line = "The DOS partition cannot be mounted: nothing can be saved.";
    EXPECT_EQ(Messages(), std::vector<std::string>{line}) << Screen();
    EXPECT_EQ(Row(Screen(), PcLan1Row), Line("   PC Lan 1", 42, "DNS")) << Screen();
    EXPECT_EQ(Row(Screen(), 23), "  <ESC> return to the main menu") << Screen();
    // Nothing read, no address fields; ENTER is no way out: there is nowhere
    // to save to.
    EXPECT_EQ(Row(Screen(), GatewayRow), "") << Screen();
    Keys({"Enter"});
    Settle();
    EXPECT_EQ(Messages(), std::vector<std::string>{line}) << Screen();
    EXPECT_EQ(Screen().find(FinalPopup), std::string::npos) << Screen();
    Keys({"Escape"});
    ASSERT_EQ(WaitExit().value_or(-1), 0) << Screen();
    EXPECT_EQ(Result().substr(0, 6), "run 0\n") << Result();
    EXPECT_TRUE(Logged("2 Network configuration not saved")) << Log();
    EXPECT_FALSE(Logged("3 Unable to save network configuration")) << Log();
    // Nothing written: not under the unmounted mount point, not on the disk.
    EXPECT_EQ(GuestOutput("grep -c ' /mnt/DOS ' /proc/mounts"), "0\n");
    EXPECT_EQ(GuestOutput("ls -A /mnt/DOS"), "");
    EXPECT_EQ(GuestOutput("mount -t vfat /dev/vda1 /mnt/DOS && cat /mnt/DOS/cecfg.bat; "
                          "umount /mnt/DOS"),
              batch);
}

// The console changes size while the form is up (the serial line's size set
// with stty, which signals the program): the next key finds the frame drawn
// again at the new size, the form as it was.
TEST_F(NetworkStepSuite, AtANewConsoleSizeTheNextKeyRedrawsTheScreen)
{
    Install(InstalledVersion());
    StartStep("linux");
    const std::string before = Screen();
    EXPECT_EQ(Row(before, 23), "  " + FormBottom) << before;

    SetConsoleSize(24);
    Keys({"Right"});
    for (int i = 0; i < 50 && Row(Screen(), 22) != "  " + FormBottom; ++i)
        Settle();
    std::string screen = Screen();
    EXPECT_EQ(Row(screen, 22), "  " + FormBottom) << screen;
    EXPECT_EQ(Row(screen, 21), "  " + std::string(76, 'q')) << screen;
    EXPECT_EQ(Row(screen, 23), "") << screen;
    EXPECT_EQ(Row(screen, 1), Row(before, 1)) << screen;
    for (int row = 3; row <= GatewayRow; ++row)
        EXPECT_EQ(Row(screen, row), Row(before, row)) << row << "\n" << screen;

    // Back to 25 lines, the same again.
    SetConsoleSize(25);
    Keys({"Left"});
    for (int i = 0; i < 50 && Row(Screen(), 23) != "  " + FormBottom; ++i)
        Settle();
    screen = Screen();
    EXPECT_EQ(Row(screen, 23), "  " + FormBottom) << screen;
    EXPECT_EQ(Row(screen, 22), "  " + std::string(76, 'q')) << screen;
    EXPECT_EQ(Row(screen, 21), "") << screen;
    for (int row = 1; row <= GatewayRow; ++row)
        EXPECT_EQ(Row(screen, row), Row(before, row)) << row << "\n" << screen;

    // Nothing of the form was lost on the way.
    SaveAndFinish();
    EXPECT_EQ(Result(), "run 1\nhostname server-7\nmethod static\naddress 192.168.1.1\n"
                        "netmask 255.255.255.0\ngateway 192.168.1.254\nprimary 192.168.1.254\n"
                        "secondary 0.0.0.0\ndomain example.com\n");
}

// The console changes size while the reading's progress pop-up is up: with no
// key pressed, the next second's dot finds the frame drawn at the new size.
TEST_F(NetworkStepSuite, AtANewConsoleSizeTheProgressTickRedrawsTheScreen)
{
    InstalledVersion version;
    version.updateDelay = 12;
    Install(version);
    Start(Program("NetworkStepProgram") + " linux");
    ASSERT_TRUE(WaitFor("Read network configuration", 30)) << Screen();
    const std::string separator = "  " + std::string(76, 'q');
    ASSERT_TRUE(WaitFor("qqqq", 10)) << Screen();
    EXPECT_EQ(Row(Screen(), 22), separator) << Screen();

    SetConsoleSize(24);
    for (int i = 0; i < 20 && Row(Screen(), 21) != separator; ++i)
        Settle();
    std::string screen = Screen();
    // Still reading, and the frame's bottom bar already a row higher.
    EXPECT_NE(screen.find("Read network configuration"), std::string::npos) << screen;
    EXPECT_EQ(screen.find(FormBottom), std::string::npos) << screen;
    EXPECT_EQ(Row(screen, 21), separator) << screen;
    EXPECT_EQ(Row(screen, 22), "") << screen;
    EXPECT_EQ(Row(screen, 1), "                             Network Configuration") << screen;

    // The form then comes at the new size.
    ASSERT_TRUE(WaitFor(FormBottom, 60)) << Screen();
    screen = Screen();
    EXPECT_EQ(Row(screen, 22), "  " + FormBottom) << screen;
    EXPECT_EQ(Row(screen, HostnameRow), "   Hostname:   server-7") << screen;
    EXPECT_EQ(Row(screen, GatewayRow), Line("   Gateway:", 15, "192.168.1.254")) << screen;
    SaveAndFinish();
    EXPECT_EQ(Result().substr(0, 6), "run 1\n") << Result();
}
