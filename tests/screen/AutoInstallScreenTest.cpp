// The unattended installation from an answer file on the key, in the real
// program started from the sample USB key: the countdown of the main menu,
// answer files that are refused before any disk is touched, a blank disk
// installed with no key pressed and looked at from outside, and a failure
// that stays on screen. The report is read from the key as the guest sees it.
//
// Each suite is one machine; its tests run in order and the last one may end
// the machine with the restart.
#include "HostCommand.h"
#include "ScreenTest.h"
#include "SparseImage.h"
#include "TempDir.h"

#include <json/json.h>

#include <algorithm>
#include <fstream>
#include <sstream>

using namespace ScreenTest;

namespace
{

const std::string MainMenuTitle = "Vidorama Install and Rescue";
const std::string Countdown = "Unattended installation in 10 seconds, any key for the menu";
const std::string Refused = "The answer file cannot be used";
const std::string Failed = "Unattended installation failed";
const std::string Succeeded = "Unattended installation succeeded";
const std::string NothingWritten = "Nothing was written to any disk.";

Json::Value ParseJson(const std::string& text)
{
    Json::Value root;
    std::istringstream in(text);
    std::string errors;
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &root, &errors))
        << errors << text;
    return root;
}

class AutoInstallSuite : public GuestSuite
{
protected:
    static std::unique_ptr<Sandbox::TempDir> _files;

    std::string GuestOutput(const std::string& command) { return Guest().Run(command).output; }

    bool Logged(const std::string& message) const
    {
        const auto messages = LogMessages();
        return std::find(messages.begin(), messages.end(), message) != messages.end();
    }

    // The answer file on the key, through this test's working directory.
    void AnswerFile(const std::string& json)
    {
        std::ofstream(HostWorkDir() + "/answers.json") << json;
        RunInGuest("cp " + WorkDir() + "/answers.json /mnt/USB/autoinstall.json");
    }

    // The reports on the key, file names sorted.
    std::vector<std::string> Reports()
    {
        return Lines(GuestOutput("ls /mnt/USB/reports 2>/dev/null | sort"));
    }

    // The one report on the key, then removed with its log so that the next
    // test starts without any.
    Json::Value TakeReport()
    {
        const auto files = Reports();
        EXPECT_EQ(files.size(), 2u) << GuestOutput("ls -l /mnt/USB/reports");
        Json::Value report;
        if (files.size() == 2)
        {
            // "<serial>-<YYYYmmdd-HHMMSS>" with the sample key's serial.
            EXPECT_EQ(files[0].rfind("DEMO-0001-20", 0), 0u) << files[0];
            EXPECT_EQ(files[0].size(), std::string("DEMO-0001-20261123-182005.json").size());
            EXPECT_EQ(files[0].substr(files[0].size() - 5), ".json");
            const std::string base = files[0].substr(0, files[0].size() - 5);
            EXPECT_EQ(files[1], base + ".log");
            report = ParseJson(GuestOutput("cat /mnt/USB/reports/" + files[0]));
            // The log beside it: the installer log as it was when the run ended.
            const std::string log = GuestOutput("cat /mnt/USB/reports/" + files[1]);
            EXPECT_NE(log.find("Unattended installation"), std::string::npos) << log;
        }
        RunInGuest("rm -rf /mnt/USB/reports /mnt/USB/autoinstall.json");
        return report;
    }

    void ExitToShell(const std::string& item)
    {
        ASSERT_TRUE(WaitFor(MainMenuTitle)) << Screen();
        ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
        Keys({item});
        ASSERT_EQ(WaitExit().value_or(-1), 2) << Screen();
    }

    std::string PartitionTable(const std::string& disk)
    {
        return GuestOutput("parted -s " + disk + " print 2>&1");
    }
};

std::unique_ptr<Sandbox::TempDir> AutoInstallSuite::_files;

// A blank 4 GiB disk on a board without BIOS settings; the key holds two
// Linux packages.
class UnattendedOnABlankDisk : public AutoInstallSuite
{
protected:
    static std::unique_ptr<Sandbox::SparseImage> _disk;

    static void SetUpTestSuite()
    {
        _files = std::make_unique<Sandbox::TempDir>("/tmp/wizard-autoinstall-");
        _disk = std::make_unique<Sandbox::SparseImage>(_files->Path() + "/disk.img", 4ULL << 30);
        auto options = SuiteDefaults();
        options.disks = {_disk->Path()};
        options.setupScript += std::string(WIZARD_SOURCE_DIR) +
                               "/scripts/make-sample-packages.sh /mnt/USB/Packages "
                               "--linux 12.05.01.3456 --linux 12.06.02.3501 >/dev/null\n";
        StartGuest(options);
    }

    static void TearDownTestSuite()
    {
        GuestSuite::TearDownTestSuite();
        _disk.reset();
        _files.reset();
    }

    // A second machine that only looks at the disk the installation left.
    static std::string Inspect(const std::string& commands)
    {
        return LookAtDisk(_disk->Path(), commands, false);
    }
};

std::unique_ptr<Sandbox::SparseImage> UnattendedOnABlankDisk::_disk;

TEST_F(UnattendedOnABlankDisk, WithoutAnAnswerFileTheMenuIsAsAlways)
{
    Start(Wizard());
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Settle();
    EXPECT_EQ(Screen().find("Unattended"), std::string::npos) << Screen();
    ExitToShell("5");
}

TEST_F(UnattendedOnABlankDisk, AKeyStopsTheCountdown)
{
    AnswerFile(R"({"format": true, "finish": "wait"})");
    Start(Wizard());
    ASSERT_TRUE(WaitFor(Countdown)) << Screen();
    ASSERT_TRUE(WaitFor("Unattended installation in 9 seconds")) << Screen();
    Keys({"Down"});
    ASSERT_TRUE(WaitGone("Unattended installation in")) << Screen();
    // The key was acted upon, and the menu stays as long as it likes.
    EXPECT_NE(Screen().find(" > 2"), std::string::npos) << Screen();
    Guest().Run("sleep 12");
    EXPECT_NE(Screen().find(MainMenuTitle), std::string::npos) << Screen();
    EXPECT_EQ(Screen().find("Unattended"), std::string::npos) << Screen();
    ExitToShell("5");
    EXPECT_FALSE(Logged("0 Unattended installation")) << Log();
    EXPECT_TRUE(Reports().empty());
    EXPECT_NE(PartitionTable("/dev/vda").find("Partition Table: unknown"), std::string::npos);
    RunInGuest("rm -f /mnt/USB/autoinstall.json");
}

TEST_F(UnattendedOnABlankDisk, NoAutoIgnoresTheFile)
{
    AnswerFile(R"({"format": true, "finish": "wait"})");
    Start(Wizard() + " --no-auto");
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    Guest().Run("sleep 2");
    EXPECT_EQ(Screen().find("Unattended"), std::string::npos) << Screen();
    ExitToShell("5");
    EXPECT_TRUE(Reports().empty());
    RunInGuest("rm -f /mnt/USB/autoinstall.json");
}

TEST_F(UnattendedOnABlankDisk, AWrongAddressIsNamedAndNothingIsWritten)
{
    AnswerFile(R"({"format": true, "finish": "reboot",
                   "network": {"mode": "static", "address": "10.1.2.300",
                               "mask": "255.255.0.0", "gateway": "10.1.0.1"}})");
    Start(Wizard() + " -a");
    ASSERT_TRUE(WaitFor(Refused, 60)) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(screen.find("\"network.address\": \"10.1.2.300\": is not a valid IPv4 address"),
              std::string::npos)
        << screen;
    EXPECT_NE(screen.find(NothingWritten), std::string::npos) << screen;
    EXPECT_NE(screen.find("<ENTER> return to the main menu"), std::string::npos) << screen;
    Keys({"Escape", "y"});
    Settle();
    EXPECT_NE(Screen().find(Refused), std::string::npos) << "only ENTER leaves";
    Keys({"Enter"});
    // Back to the menu, without a countdown.
    ASSERT_TRUE(WaitFor("Shutdown")) << Screen();
    EXPECT_EQ(Screen().find("Unattended"), std::string::npos) << Screen();
    ExitToShell("5");

    const Json::Value report = TakeReport();
    EXPECT_EQ(report["outcome"].asString(), "failed");
    EXPECT_EQ(report["reason"].asString(),
              "\"network.address\": \"10.1.2.300\": is not a valid IPv4 address");
    EXPECT_TRUE(report["disk"].isNull());
    EXPECT_NE(PartitionTable("/dev/vda").find("Partition Table: unknown"), std::string::npos);
}

TEST_F(UnattendedOnABlankDisk, APackageThatIsNotOnTheKeyIsNamed)
{
    AnswerFile(R"({"format": true, "package": "12.07.00.1"})");
    Start(Wizard() + " --auto");
    ASSERT_TRUE(WaitFor(Refused, 60)) << Screen();
    EXPECT_NE(Screen().find("\"package\": \"12.07.00.1\": matches no package on the key"),
              std::string::npos)
        << Screen();
    Keys({"Enter"});
    ExitToShell("5");
    EXPECT_EQ(TakeReport()["reason"].asString(),
              "\"package\": \"12.07.00.1\": matches no package on the key");
    EXPECT_NE(PartitionTable("/dev/vda").find("Partition Table: unknown"), std::string::npos);
}

TEST_F(UnattendedOnABlankDisk, TheCountdownInstallsTheBlankDiskWithNoKeyPressed)
{
    AnswerFile(R"({
      "disk":     { "path": "/dev/vda", "model": "Virtio Block Device", "minSizeGiB": 3, "maxSizeGiB": 64 },
      "format":   true,
      "replaceExisting": false,
      "package":  "12.05.01.3456",
      "overwrite": false,
      "bios":     "keep",
      "network":  { "hostname": "Vidorama-{serial}", "mode": "static", "address": "10.1.2.3",
                    "mask": "255.255.0.0", "gateway": "10.1.0.1",
                    "dns": ["10.1.0.53", "10.1.0.54", "10.1.0.55"], "domain": "example.com" },
      "finish":   "wait"
    })");
    Start(Wizard());
    ASSERT_TRUE(WaitFor(Countdown)) << Screen();
    // No key: the screens pass with their answers.
    ASSERT_TRUE(WaitFor("Disk partitioning", 60)) << Screen();
    EXPECT_NE(Row(Screen(), 1).find("Format and Install Vidorama"), std::string::npos) << Screen();
    ASSERT_TRUE(WaitFor(Succeeded, 1500)) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(screen.find("/dev/vda Virtio Block Device, 4.0 GiB"), std::string::npos) << screen;
    EXPECT_NE(screen.find("Vidorama 12.05.01.3456"), std::string::npos) << screen;
    EXPECT_NE(screen.find("Report: /mnt/USB/reports/DEMO-0001-"), std::string::npos) << screen;
    EXPECT_NE(screen.find("<ENTER> to reboot"), std::string::npos) << screen;

    // The report, read from the key before the restart ends the machine.
    const auto files = Reports();
    ASSERT_EQ(files.size(), 2u);
    const Json::Value report = ParseJson(GuestOutput("cat /mnt/USB/reports/" + files[0]));
    EXPECT_EQ(report["outcome"].asString(), "succeeded");
    EXPECT_FALSE(report.isMember("reason"));
    EXPECT_EQ(report["serialNumber"].asString(), "DEMO-0001");
    EXPECT_EQ(report["disk"]["path"].asString(), "/dev/vda");
    EXPECT_EQ(report["disk"]["model"].asString(), "Virtio Block Device");
    EXPECT_EQ(report["disk"]["size"].asInt64(), 4LL << 30);
    EXPECT_EQ(report["package"]["file"].asString(), "Vidorama_12.05.01.3456.tar.gz");
    EXPECT_EQ(report["package"]["version"].asString(), "12.05.01.3456");
    EXPECT_EQ(report["network"]["hostname"].asString(), "Vidorama-DEMO-0001");
    EXPECT_EQ(report["network"]["address"].asString(), "10.1.2.3");
    EXPECT_EQ(report["network"]["mask"].asString(), "255.255.0.0");
    EXPECT_EQ(report["network"]["gateway"].asString(), "10.1.0.1");
    EXPECT_EQ(report["network"]["dns"].size(), 3u);
    EXPECT_EQ(report["network"]["domain"].asString(), "example.com");
    EXPECT_LE(report["started"].asString(), report["ended"].asString());
    const std::string log = GuestOutput("cat /mnt/USB/reports/" + files[1]);
    EXPECT_NE(log.find("Unattended installation succeeded"), std::string::npos) << log;

    // Only ENTER restarts.
    Keys({"Escape", "y"});
    Settle();
    EXPECT_FALSE(Guest().WaitEnded(0));
    Keys({"Enter"});
    ASSERT_TRUE(Guest().WaitEnded(120)) << Screen();
    EXPECT_EQ(Guest().Outcome(), "reboot");

    EXPECT_TRUE(InOrder(LogMessages(),
                        {"0 StartStep selected item: 14", "0 Unattended installation",
                         "0 Unattended installation of Vidorama 12.05.01.3456 on /dev/vda with a "
                         "format",
                         "0 Selected disk: /dev/vda", "0 Perform a format and install",
                         "0 Selected package: Vidorama 12.05.01.3456", "0 Installation succeed!",
                         "0 Unattended installation succeeded"}))
        << Log();

    // The disk from outside: the version and the network of the answers.
    const std::string outside =
        Inspect("readlink /mnt/SYS/Versions/current; "
                "grep -A4 'iface pc_lan_1' /mnt/SYS/Versions/12.05.01.3456/etc/network/interfaces; "
                "cat /mnt/SYS/Versions/12.05.01.3456/etc/hostname; "
                "cat /mnt/SYS/Versions/12.05.01.3456/etc/resolv.conf");
    EXPECT_NE(outside.find("/mnt/SYS/Versions/12.05.01.3456"), std::string::npos) << outside;
    EXPECT_NE(outside.find("address 10.1.2.3"), std::string::npos) << outside;
    EXPECT_NE(outside.find("netmask 255.255.0.0"), std::string::npos) << outside;
    EXPECT_NE(outside.find("gateway 10.1.0.1"), std::string::npos) << outside;
    EXPECT_NE(outside.find("Vidorama-DEMO-0001"), std::string::npos) << outside;
    EXPECT_NE(outside.find("nameserver 10.1.0.53"), std::string::npos) << outside;
    EXPECT_NE(outside.find("nameserver 10.1.0.55"), std::string::npos) << outside;
    EXPECT_NE(outside.find("search example.com"), std::string::npos) << outside;
}

// Two 4 GiB disks: /dev/vda holds a DOS installation, /dev/vdb is blank. The
// key holds a package and a copy of it with bytes changed in its middle.
class UnattendedRefusals : public AutoInstallSuite
{
protected:
    static std::unique_ptr<Sandbox::SparseImage> _installed;
    static std::unique_ptr<Sandbox::SparseImage> _blank;

    static void SetUpTestSuite()
    {
        _files = std::make_unique<Sandbox::TempDir>("/tmp/wizard-autorefusals-");
        _installed =
            std::make_unique<Sandbox::SparseImage>(_files->Path() + "/installed.img", 4ULL << 30);
        _blank = std::make_unique<Sandbox::SparseImage>(_files->Path() + "/blank.img", 4ULL << 30);
        auto options = SuiteDefaults();
        options.disks = {_installed->Path(), _blank->Path()};
        options.setupScript +=
            std::string(WIZARD_SOURCE_DIR) +
            "/scripts/make-sample-packages.sh /mnt/USB/Packages --linux 12.05.01.3456 "
            ">/dev/null\n"
            "cd /mnt/USB/Packages && size=$(stat -c %s Vidorama_12.05.01.3456.tar.gz) && "
            "cp Vidorama_12.05.01.3456.tar.gz Vidorama_12.07.02.1.tar.gz && "
            "printf 'XXXXXXXXXXXXXXXX' | dd of=Vidorama_12.07.02.1.tar.gz bs=1 "
            "seek=$((size / 2)) conv=notrunc 2>/dev/null; cd /\n"
            "parted -s /dev/vda mklabel msdos mkpart primary fat16 2048s 4196351s set 1 boot on\n"
            "udevadm settle\n"
            "mkfs.fat -F 16 -n DOS /dev/vda1 >/dev/null\n";
        StartGuest(options);
    }

    static void TearDownTestSuite()
    {
        GuestSuite::TearDownTestSuite();
        _installed.reset();
        _blank.reset();
        _files.reset();
    }

    // Both disks as the setup left them.
    void ExpectDisksUntouched()
    {
        const std::string installed = GuestOutput("parted -m -s /dev/vda unit s print 2>&1");
        EXPECT_NE(installed.find("1:2048s:4196351s:4194304s:fat16:"), std::string::npos)
            << installed;
        EXPECT_EQ(installed.find("\n2:"), std::string::npos) << installed;
        EXPECT_NE(PartitionTable("/dev/vdb").find("Partition Table: unknown"), std::string::npos);
    }

    // Starts at once, shows the refusal with its line, back to the menu on ENTER.
    // shown: the screen rows of a line longer than one row.
    void ExpectRefused(const std::string& line, const std::vector<std::string>& shown = {})
    {
        Start(Wizard() + " -a");
        ASSERT_TRUE(WaitFor(Refused, 60)) << Screen();
        if (shown.empty())
            EXPECT_NE(Screen().find(line), std::string::npos) << Screen();
        else
            EXPECT_TRUE(InOrder(Rows(Screen()), shown)) << Screen();
        EXPECT_NE(Screen().find(NothingWritten), std::string::npos) << Screen();
        Keys({"Enter"});
        ExitToShell("5");
        const Json::Value report = TakeReport();
        EXPECT_EQ(report["outcome"].asString(), "failed");
        EXPECT_EQ(report["reason"].asString(), line);
        ExpectDisksUntouched();
    }
};

std::unique_ptr<Sandbox::SparseImage> UnattendedRefusals::_installed;
std::unique_ptr<Sandbox::SparseImage> UnattendedRefusals::_blank;

TEST_F(UnattendedRefusals, TwoMatchingDisksAreRefused)
{
    AnswerFile(R"({"format": true, "disk": {"model": "Virtio Block Device"}})");
    ExpectRefused(
        "\"disk\": {\"model\": \"Virtio Block Device\"}: matches 2 disks: /dev/vda /dev/vdb",
        {"     \"disk\": {\"model\": \"Virtio Block Device\"}: matches 2 disks: /dev/vda",
         "     /dev/vdb"});
}

TEST_F(UnattendedRefusals, AnInstalledDiskIsNotReplacedUnlessAllowed)
{
    AnswerFile(R"({"format": true, "disk": {"path": "/dev/vda"}, "replaceExisting": false,
                   "finish": "reboot"})");
    ExpectRefused("\"replaceExisting\": false: /dev/vda already holds an installation");
}

TEST_F(UnattendedRefusals, ADamagedPackageFailsWithoutARestart)
{
    AnswerFile(R"({"format": true, "disk": {"path": "/dev/vdb"},
                   "package": "Vidorama_12.07.02.1.tar.gz", "finish": "reboot"})");
    Start(Wizard() + " -a");
    ASSERT_TRUE(WaitFor(Failed, 1200)) << Screen();
    const std::string screen = Screen();
    EXPECT_NE(screen.find("Vidorama_12.07.02.1.tar.gz is damaged"), std::string::npos) << screen;
    EXPECT_NE(screen.find("Report: /mnt/USB/reports/DEMO-0001-"), std::string::npos) << screen;
    EXPECT_NE(screen.find("<ENTER> return to the main menu"), std::string::npos) << screen;
    EXPECT_EQ(screen.find(NothingWritten), std::string::npos) << screen;

    // The report is there before anyone presses a key.
    const Json::Value report = TakeReport();
    EXPECT_EQ(report["outcome"].asString(), "failed");
    EXPECT_NE(report["reason"].asString().find("Vidorama_12.07.02.1.tar.gz is damaged"),
              std::string::npos)
        << report["reason"].asString();
    EXPECT_NE(report["reason"].asString().find("Installation failed!"), std::string::npos);
    EXPECT_EQ(report["disk"]["path"].asString(), "/dev/vdb");
    EXPECT_EQ(report["package"]["file"].asString(), "Vidorama_12.07.02.1.tar.gz");
    EXPECT_TRUE(report["network"].isNull());

    // No restart: the screen stays until ENTER, then the main menu.
    Guest().Run("sleep 5");
    EXPECT_FALSE(Guest().WaitEnded(0));
    EXPECT_NE(Screen().find(Failed), std::string::npos) << Screen();
    Keys({"Enter"});
    ExitToShell("5");
    const auto messages = LogMessages();
    EXPECT_TRUE(InOrder(messages, {"0 Selected disk: /dev/vdb", "0 Perform a format and install",
                                   "3 Installation failed!"}))
        << Log();
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(),
                            [](const std::string& line)
                            { return line.rfind("3 Unattended installation failed: ", 0) == 0; }))
        << Log();
    // The DOS disk was not touched.
    const std::string installed = GuestOutput("parted -m -s /dev/vda unit s print 2>&1");
    EXPECT_EQ(installed.find("\n2:"), std::string::npos) << installed;
}

} // namespace
