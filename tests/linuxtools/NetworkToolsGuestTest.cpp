// The installed system's network, host name, hosts and resolver files edited
// through augeas with the stock lenses, inside the sandbox guest (where /mnt
// is the guest's own). Every test builds an installed version
// /mnt/SYS/Versions/12.05.01.3456 with "current" linked to it, then runs
// NetworkToolsCase once per step: the tools load their files once per
// process. Results are checked in the case's output and in the files on disk.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

const char* const CaseProgram = NETWORK_TOOLS_CASE;
const std::string Version = "/mnt/SYS/Versions/12.05.01.3456";
const std::string Current = "/mnt/SYS/Versions/current";
const char* const ScriptArguments = "/mnt/update-args";
const char* const OtherScriptArguments = "/mnt/update-args-other";

const char* const Interfaces = "# Appliance interfaces\n"
                               "auto lo\n"
                               "iface lo inet loopback\n"
                               "\n"
                               "auto pc_lan_1\n"
                               "iface pc_lan_1 inet static\n"
                               "    address 10.1.2.3\n"
                               "    netmask 255.255.0.0\n"
                               "    gateway 10.1.0.254\n"
                               "\n"
                               "auto pc_lan_2\n"
                               "iface pc_lan_2 inet dhcp\n"
                               "    hostname box\n";

bool InSandbox()
{
    char cwd[64] = {};
    return getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work";
}

void Shell(const std::string& command)
{
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// A file of the installed version, by its path in that system ("etc/hosts").
std::string InVersion(const std::string& file)
{
    return Version + "/" + file;
}

void WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream output(path, std::ios::binary | std::ios::trunc);
    output << text;
    ASSERT_TRUE(output.good()) << path;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream input(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(input), {});
}

bool Exists(const std::string& path)
{
    struct stat info;
    return lstat(path.c_str(), &info) == 0;
}

off_t SizeOf(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? info.st_size : -1;
}

std::string Quoted(const std::string& argument)
{
    std::string quoted = "'";
    for (const char c : argument)
    {
        if (c == '\'')
        {
            quoted += "'\\''";
        }
        else
        {
            quoted += c;
        }
    }
    return quoted + "'";
}

struct CaseRun
{
    int status = -1;
    std::string output;
};

// Runs the case program with arguments; its stdout and stderr together.
CaseRun RunCase(const std::vector<std::string>& arguments)
{
    std::string command = CaseProgram;
    for (const std::string& argument : arguments)
    {
        command += " " + Quoted(argument);
    }
    command += " 2>&1";
    CaseRun run;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
    {
        return run;
    }
    char buffer[512];
    std::size_t got;
    while ((got = std::fread(buffer, 1, sizeof(buffer), pipe)) > 0)
    {
        run.output.append(buffer, got);
    }
    const int wait = pclose(pipe);
    run.status = WIFEXITED(wait) ? WEXITSTATUS(wait) : -1;
    return run;
}

// Runs the case and requires a normal end; gives its output.
std::string RunOk(const std::vector<std::string>& arguments)
{
    const CaseRun run = RunCase(arguments);
    EXPECT_EQ(run.status, 0) << run.output;
    return run.output;
}

std::string InterfaceLines(const std::string& prefix, const std::string& name,
                           const std::string& address, const std::string& netmask,
                           const std::string& gateway, const std::string& method,
                           const std::string& family, const std::string& hostname)
{
    return prefix + "name=" + name + "\n" + prefix + "address=" + address + "\n" + prefix +
           "netmask=" + netmask + "\n" + prefix + "gateway=" + gateway + "\n" + prefix +
           "method=" + method + "\n" + prefix + "family=" + family + "\n" + prefix +
           "hostname=" + hostname + "\n";
}

std::string Trimmed(const std::string& line)
{
    const std::string::size_type first = line.find_first_not_of(" \t");
    if (first == std::string::npos)
    {
        return std::string();
    }
    return line.substr(first, line.find_last_not_of(" \t") - first + 1);
}

// The stanza of interface name in an interfaces file: its "iface" line and
// its option lines, trimmed, up to the next stanza. Blank lines and comments
// are no options (augeas may put a new option after a blank line: it still
// belongs to the stanza above it).
struct Stanza
{
    std::string header;
    std::vector<std::string> options;
};

Stanza FindStanza(const std::string& text, const std::string& name)
{
    Stanza stanza;
    std::istringstream input(text);
    std::string line;
    bool inside = false;
    while (std::getline(input, line))
    {
        const std::string trimmed = Trimmed(line);
        if (trimmed.rfind("iface " + name + " ", 0) == 0)
        {
            stanza.header = trimmed;
            inside = true;
            continue;
        }
        if (!inside)
        {
            continue;
        }
        if (trimmed.empty() || trimmed[0] == '#')
        {
            continue;
        }
        if (trimmed.rfind("iface ", 0) == 0 || trimmed.rfind("auto ", 0) == 0 ||
            trimmed.rfind("allow-", 0) == 0 || trimmed.rfind("mapping ", 0) == 0 ||
            trimmed.rfind("source", 0) == 0)
        {
            break;
        }
        stanza.options.push_back(trimmed);
    }
    return stanza;
}

using Lines = std::vector<std::string>;

class NetworkFiles : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(InSandbox()) << "runs only inside the sandbox guest";
        Shell("rm -rf /mnt/SYS/Versions " + std::string(ScriptArguments) + " " +
              OtherScriptArguments);
        Shell("mkdir -p " + InVersion("etc/network") + " " + InVersion("etc/init.d"));
        Shell("ln -sfnT " + Version + " " + Current);
        WriteFile(InVersion("etc/network/interfaces"), Interfaces);
        WriteFile(InVersion("etc/hostname"), "oldname\n");
        WriteFile(InVersion("etc/hosts"), "127.0.0.1\tlocalhost\n"
                                          "127.0.1.1\toldname oldname.local\n");
        WriteFile(InVersion("etc/resolv.conf"), "nameserver 9.9.9.9\n"
                                                "search example.org\n");
    }
    void TearDown() override
    {
        if (InSandbox())
        {
            std::system("rm -rf /mnt/SYS/Versions /mnt/update-args /mnt/update-args-other");
        }
    }

    // An update script that records how it was called in argumentsFile.
    void WriteScript(const std::string& name, const std::string& argumentsFile, int status)
    {
        const std::string path = InVersion("etc/init.d/" + name);
        WriteFile(path, "#!/bin/sh\n"
                        "echo \"$0 $*\" > " +
                            argumentsFile +
                            "\n"
                            "echo updating network\n"
                            "exit " +
                            std::to_string(status) + "\n");
        Shell("chmod 755 " + path);
    }
};

} // namespace

TEST_F(NetworkFiles, GetInterfaceReadsEveryFieldOfAStanza)
{
    EXPECT_EQ(RunOk({"get-interface", "pc_lan_1"}),
              InterfaceLines("", "pc_lan_1", "10.1.2.3", "255.255.0.0", "10.1.0.254", "static",
                             "inet", ""));
    EXPECT_EQ(RunOk({"get-interface", "pc_lan_2"}),
              InterfaceLines("", "pc_lan_2", "", "", "", "dhcp", "inet", "box"));
    // Names compare exactly.
    EXPECT_EQ(RunOk({"get-interface", "pc_lan"}), InterfaceLines("", "", "", "", "", "", "", ""));
}

TEST_F(NetworkFiles, MissingInterfaceIsEmptyAndIsNeverCreated)
{
    EXPECT_EQ(RunOk({"get-interface", "eth9"}), InterfaceLines("", "", "", "", "", "", "", ""));
    EXPECT_EQ(RunOk({"set-interface", "eth9", "static", "inet", "10.0.0.1", "255.0.0.0",
                     "10.0.0.254", ""}),
              "set=0\n" + InterfaceLines("unsaved-", "", "", "", "", "", "", "") + "save=1\n");
    EXPECT_EQ(ReadFile(InVersion("etc/network/interfaces")), Interfaces);
}

TEST_F(NetworkFiles, DhcpOnAStaticStanzaDropsItsAddressesAndNamesTheHost)
{
    EXPECT_EQ(RunOk({"set-interface", "pc_lan_1", "dhcp", "inet", "10.9.9.9", "255.0.0.0",
                     "10.0.0.254", "newbox"}),
              "set=1\n" +
                  InterfaceLines("unsaved-", "pc_lan_1", "", "", "", "dhcp", "inet", "newbox") +
                  "save=1\n");

    const std::string text = ReadFile(InVersion("etc/network/interfaces"));
    const Stanza changed = FindStanza(text, "pc_lan_1");
    EXPECT_EQ(changed.header, "iface pc_lan_1 inet dhcp") << text;
    EXPECT_EQ(changed.options, Lines{"hostname newbox"}) << text;
    const Stanza other = FindStanza(text, "pc_lan_2");
    EXPECT_EQ(other.header, "iface pc_lan_2 inet dhcp") << text;
    EXPECT_EQ(other.options, Lines{"hostname box"}) << text;
    EXPECT_EQ(FindStanza(text, "lo").header, "iface lo inet loopback") << text;
    EXPECT_EQ(text.rfind("# Appliance interfaces\nauto lo\n", 0), 0u) << text;

    // A new process reads the saved file.
    EXPECT_EQ(RunOk({"get-interface", "pc_lan_1"}),
              InterfaceLines("", "pc_lan_1", "", "", "", "dhcp", "inet", "newbox"));
}

TEST_F(NetworkFiles, StaticOnADhcpStanzaWritesTheAddressesAndDropsTheHostname)
{
    EXPECT_EQ(RunOk({"set-interface", "pc_lan_2", "static", "inet", "192.168.5.6", "255.255.255.0",
                     "192.168.5.254", "ignored"}),
              "set=1\n" +
                  InterfaceLines("unsaved-", "pc_lan_2", "192.168.5.6", "255.255.255.0",
                                 "192.168.5.254", "static", "inet", "") +
                  "save=1\n");

    const std::string text = ReadFile(InVersion("etc/network/interfaces"));
    const Stanza changed = FindStanza(text, "pc_lan_2");
    EXPECT_EQ(changed.header, "iface pc_lan_2 inet static") << text;
    EXPECT_EQ(changed.options,
              (Lines{"address 192.168.5.6", "netmask 255.255.255.0", "gateway 192.168.5.254"}))
        << text;
    const Stanza other = FindStanza(text, "pc_lan_1");
    EXPECT_EQ(other.header, "iface pc_lan_1 inet static") << text;
    EXPECT_EQ(other.options,
              (Lines{"address 10.1.2.3", "netmask 255.255.0.0", "gateway 10.1.0.254"}))
        << text;
}

TEST_F(NetworkFiles, SetHostnameRenamesTheEntriesOfTheOldName)
{
    WriteFile(InVersion("etc/hosts"), "127.0.0.1\tlocalhost\n"
                                      "127.0.1.1\toldname oldname.local\n"
                                      "10.0.0.5\toldname\n"
                                      "10.0.0.6\tother oldname\n");
    EXPECT_EQ(RunOk({"get-hostname"}), "hostname=oldname\n");
    EXPECT_EQ(RunOk({"set-hostname", "newname"}), "set=1\nunsaved-hostname=newname\nsave=1\n");

    EXPECT_EQ(ReadFile(InVersion("etc/hostname")), "newname\n");
    // Canonical names follow, aliases stay.
    EXPECT_EQ(ReadFile(InVersion("etc/hosts")), "127.0.0.1\tlocalhost\n"
                                                "127.0.1.1\tnewname oldname.local\n"
                                                "10.0.0.5\tnewname\n"
                                                "10.0.0.6\tother oldname\n");
    EXPECT_EQ(RunOk({"get-hostname"}), "hostname=newname\n");
}

TEST_F(NetworkFiles, SetHostnameWithoutAnEntryAppendsOne)
{
    WriteFile(InVersion("etc/hosts"), "127.0.0.1\tlocalhost\n"
                                      "127.0.1.1\tother\n");
    EXPECT_EQ(RunOk({"set-hostname", "newname"}), "set=1\nunsaved-hostname=newname\nsave=1\n");

    EXPECT_EQ(ReadFile(InVersion("etc/hostname")), "newname\n");
    const std::string hosts = ReadFile(InVersion("etc/hosts"));
    EXPECT_EQ(hosts.rfind("127.0.0.1\tlocalhost\n127.0.1.1\tother\n", 0), 0u) << hosts;
    const std::string added = Trimmed(hosts.substr(hosts.find("other\n") + 6));
    std::istringstream fields(added);
    std::string address, name, rest;
    fields >> address >> name;
    EXPECT_EQ(address, "127.0.1.1") << hosts;
    EXPECT_EQ(name, "newname") << hosts;
    EXPECT_FALSE(fields >> rest) << hosts;
}

TEST_F(NetworkFiles, SetHostnameWithoutAHostnameFileCreatesIt)
{
    Shell("rm " + InVersion("etc/hostname"));
    EXPECT_EQ(RunOk({"get-hostname"}), "hostname=(null)\n");
    EXPECT_EQ(RunOk({"set-hostname", "newname"}), "set=1\nunsaved-hostname=newname\nsave=1\n");
    EXPECT_EQ(ReadFile(InVersion("etc/hostname")), "newname\n");
    // The old name's entry is left alone: there was no old name to match.
    const std::string hosts = ReadFile(InVersion("etc/hosts"));
    EXPECT_EQ(hosts.rfind("127.0.0.1\tlocalhost\n127.0.1.1\toldname oldname.local\n", 0), 0u)
        << hosts;
    EXPECT_NE(hosts.find("127.0.1.1\tnewname\n"), std::string::npos) << hosts;
}

TEST_F(NetworkFiles, FourNameServersGiveTheFirstThree)
{
    WriteFile(InVersion("etc/resolv.conf"), "nameserver 1.1.1.1\n"
                                            "nameserver 2.2.2.2\n"
                                            "nameserver 3.3.3.3\n"
                                            "nameserver 4.4.4.4\n"
                                            "search example.com other.org\n");
    EXPECT_EQ(RunOk({"get-dns"}),
              "primary=1.1.1.1\nsecondary=2.2.2.2\ntertiary=3.3.3.3\ndomain=example.com\n");
}

TEST_F(NetworkFiles, NoNameServersGiveNoneAndNoDomain)
{
    WriteFile(InVersion("etc/resolv.conf"), "# no servers\noptions timeout:2\n");
    const std::string none = "primary=0.0.0.0\nsecondary=0.0.0.0\ntertiary=0.0.0.0\ndomain=\n";
    EXPECT_EQ(RunOk({"get-dns"}), none);
    Shell("rm " + InVersion("etc/resolv.conf"));
    EXPECT_EQ(RunOk({"get-dns"}), none);
}

TEST_F(NetworkFiles, NoPrimaryServerEmptiesTheResolverFile)
{
    EXPECT_EQ(RunOk({"set-dns", "0.0.0.0", "8.8.8.8", "8.8.4.4", "example.com"}),
              "set=1\nsave=1\n");
    EXPECT_TRUE(Exists(InVersion("etc/resolv.conf")));
    EXPECT_EQ(SizeOf(InVersion("etc/resolv.conf")), 0);
}

TEST_F(NetworkFiles, ServersWithoutADomainEmptyTheResolverFile)
{
    EXPECT_EQ(RunOk({"set-dns", "10.0.0.1", "10.0.0.2", "0.0.0.0", ""}), "set=1\nsave=1\n");
    EXPECT_TRUE(Exists(InVersion("etc/resolv.conf")));
    EXPECT_EQ(SizeOf(InVersion("etc/resolv.conf")), 0);
}

TEST_F(NetworkFiles, ServersAndDomainAreWritten)
{
    WriteFile(InVersion("etc/resolv.conf"), "nameserver 9.9.9.9\n"
                                            "nameserver 8.8.8.8\n"
                                            "nameserver 7.7.7.7\n");
    EXPECT_EQ(RunOk({"set-dns", "10.0.0.1", "10.0.0.2", "0.0.0.0", "example.com"}),
              "set=1\nsave=1\n");
    // Servers beyond the ones given are kept.
    EXPECT_EQ(ReadFile(InVersion("etc/resolv.conf")), "nameserver 10.0.0.1\n"
                                                      "nameserver 10.0.0.2\n"
                                                      "nameserver 7.7.7.7\n"
                                                      "search example.com\n");
    EXPECT_EQ(RunOk({"get-dns"}),
              "primary=10.0.0.1\nsecondary=10.0.0.2\ntertiary=7.7.7.7\ndomain=example.com\n");
}

TEST_F(NetworkFiles, ThreeServersAndDomainReplaceTheOldOnes)
{
    EXPECT_EQ(RunOk({"set-dns", "10.0.0.1", "10.0.0.2", "10.0.0.3", "example.com"}),
              "set=1\nsave=1\n");
    // Where new lines go is augeas's choice; what they are is ours.
    const std::string text = ReadFile(InVersion("etc/resolv.conf"));
    Lines servers;
    Lines others;
    std::istringstream input(text);
    std::string line;
    while (std::getline(input, line))
    {
        (line.rfind("nameserver ", 0) == 0 ? servers : others).push_back(line);
    }
    EXPECT_EQ(servers, (Lines{"nameserver 10.0.0.1", "nameserver 10.0.0.2", "nameserver 10.0.0.3"}))
        << text;
    EXPECT_EQ(others, Lines{"search example.com"}) << text;
}

TEST_F(NetworkFiles, UpdateRunsTheShellScriptFirst)
{
    WriteScript("S38UpdateNetworkSettings.sh", ScriptArguments, 0);
    WriteScript("S38UpdateNetworkSettings", OtherScriptArguments, 0);
    EXPECT_EQ(RunOk({"update"}), "updating network\nupdate=1\n");
    EXPECT_EQ(ReadFile(ScriptArguments),
              Current + "/etc/init.d/S38UpdateNetworkSettings.sh start\n");
    EXPECT_FALSE(Exists(OtherScriptArguments));
}

TEST_F(NetworkFiles, UpdateRunsTheScriptWithoutSuffix)
{
    WriteScript("S38UpdateNetworkSettings", ScriptArguments, 0);
    EXPECT_EQ(RunOk({"update"}), "updating network\nupdate=1\n");
    EXPECT_EQ(ReadFile(ScriptArguments), Current + "/etc/init.d/S38UpdateNetworkSettings start\n");
}

TEST_F(NetworkFiles, UpdateReportsTheScriptsFailure)
{
    WriteScript("S38UpdateNetworkSettings.sh", ScriptArguments, 3);
    EXPECT_EQ(RunOk({"update"}), "updating network\nupdate=0\n");
    EXPECT_TRUE(Exists(ScriptArguments));
}

TEST_F(NetworkFiles, UpdateWithoutAScriptRunsNothing)
{
    // A directory of that name is no script either.
    Shell("mkdir " + InVersion("etc/init.d/S38UpdateNetworkSettings.sh"));
    EXPECT_EQ(RunOk({"update"}), "update=0\n");
    EXPECT_FALSE(Exists(ScriptArguments));
}
