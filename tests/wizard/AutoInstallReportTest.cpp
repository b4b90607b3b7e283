#include "AutoInstallReport.h"

#include "TempDir.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <dirent.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

using Kel::Vidorama::InstallerWizard::AutoInstallReport;

namespace
{

// 2026-11-23 18:20:05 and 18:31:40 UTC.
const time_t Start = 1795458005;
const time_t End = Start + 695;

AutoInstallReport Succeeded()
{
    AutoInstallReport report;
    report.serialNumber = "DEMO-0001";
    report.succeeded = true;
    report.diskKnown = true;
    report.diskPath = "/dev/vda";
    report.diskModel = "Virtio Block Device";
    report.diskSize = 4LL << 30;
    report.packageKnown = true;
    report.packageFile = "Vidorama_12.05.01.3456.tar.gz";
    report.packageName = "Vidorama";
    report.packageVersion = "12.05.01.3456";
    report.networkApplied = true;
    report.hostname = "Vidorama-DEMO-0001";
    report.mode = "static";
    report.address = "10.1.2.3";
    report.mask = "255.255.0.0";
    report.gateway = "10.1.0.1";
    report.dns = {"10.1.0.53"};
    report.domain = "example.com";
    report.started = Start;
    report.ended = End;
    return report;
}

Json::Value Parsed(const std::string& text)
{
    Json::Value root;
    std::istringstream in(text);
    std::string errors;
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &root, &errors)) << errors;
    return root;
}

std::string FileText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

TEST(AutoInstallReport, TheNameIsTheSerialAndTheStartInUtc)
{
    AutoInstallReport report = Succeeded();
    EXPECT_EQ(report.BaseName(), "DEMO-0001-20261123-182005");
    report.serialNumber = "";
    EXPECT_EQ(report.BaseName(), "unknown-20261123-182005");
    report.serialNumber = "../A B/C";
    EXPECT_EQ(report.BaseName(), "_._A_B_C-20261123-182005");
}

TEST(AutoInstallReport, ASuccessNamesDiskPackageNetworkAndTimes)
{
    const Json::Value root = Parsed(Succeeded().ToJson());
    EXPECT_EQ(root["outcome"].asString(), "succeeded");
    EXPECT_FALSE(root.isMember("reason"));
    EXPECT_EQ(root["serialNumber"].asString(), "DEMO-0001");
    EXPECT_EQ(root["disk"]["path"].asString(), "/dev/vda");
    EXPECT_EQ(root["disk"]["model"].asString(), "Virtio Block Device");
    EXPECT_EQ(root["disk"]["size"].asInt64(), 4LL << 30);
    EXPECT_EQ(root["package"]["file"].asString(), "Vidorama_12.05.01.3456.tar.gz");
    EXPECT_EQ(root["package"]["name"].asString(), "Vidorama");
    EXPECT_EQ(root["package"]["version"].asString(), "12.05.01.3456");
    EXPECT_EQ(root["network"]["hostname"].asString(), "Vidorama-DEMO-0001");
    EXPECT_EQ(root["network"]["mode"].asString(), "static");
    EXPECT_EQ(root["network"]["address"].asString(), "10.1.2.3");
    EXPECT_EQ(root["network"]["mask"].asString(), "255.255.0.0");
    EXPECT_EQ(root["network"]["gateway"].asString(), "10.1.0.1");
    ASSERT_EQ(root["network"]["dns"].size(), 1u);
    EXPECT_EQ(root["network"]["dns"][0].asString(), "10.1.0.53");
    EXPECT_EQ(root["network"]["domain"].asString(), "example.com");
    EXPECT_EQ(root["started"].asString(), "2026-11-23T18:20:05Z");
    EXPECT_EQ(root["ended"].asString(), "2026-11-23T18:31:40Z");
}

TEST(AutoInstallReport, AFailureGivesItsReasonAndOnlyWhatWasKnown)
{
    AutoInstallReport report;
    report.succeeded = false;
    report.reason = "\"disk\": {}: matches 2 disks: /dev/vda /dev/vdb";
    report.started = Start;
    report.ended = Start;
    const Json::Value root = Parsed(report.ToJson());
    EXPECT_EQ(root["outcome"].asString(), "failed");
    EXPECT_EQ(root["reason"].asString(), report.reason);
    EXPECT_EQ(root["serialNumber"].asString(), "unknown");
    EXPECT_TRUE(root["disk"].isNull());
    EXPECT_TRUE(root["package"].isNull());
    EXPECT_TRUE(root["network"].isNull());
}

TEST(AutoInstallReport, ADhcpNetworkHasNoAddresses)
{
    AutoInstallReport report = Succeeded();
    report.mode = "dhcp";
    const Json::Value root = Parsed(report.ToJson());
    EXPECT_EQ(root["network"]["mode"].asString(), "dhcp");
    EXPECT_FALSE(root["network"].isMember("address"));
}

TEST(AutoInstallReport, WritesTheReportAndTheLogBesideIt)
{
    Sandbox::TempDir directory("/tmp/wizard-report-");
    const std::string log = directory.Path() + "/installer.log";
    std::ofstream(log) << "line one\nline two\n";
    const std::string reports = directory.Path() + "/reports";

    const AutoInstallReport report = Succeeded();
    std::string path;
    ASSERT_TRUE(report.Write(reports, log, path));
    EXPECT_EQ(path, reports + "/DEMO-0001-20261123-182005.json");
    EXPECT_EQ(FileText(path), report.ToJson());
    EXPECT_EQ(FileText(reports + "/DEMO-0001-20261123-182005.log"), "line one\nline two\n");

    // A second report beside the first; nothing else in the directory (no
    // temporary file left behind).
    AutoInstallReport second = Succeeded();
    second.started = End;
    ASSERT_TRUE(second.Write(reports, log, path));
    int entries = 0;
    for (const char* name : {"DEMO-0001-20261123-182005.json", "DEMO-0001-20261123-182005.log",
                             "DEMO-0001-20261123-183140.json", "DEMO-0001-20261123-183140.log"})
    {
        struct stat status;
        entries += stat((reports + "/" + name).c_str(), &status) == 0 ? 1 : 0;
    }
    EXPECT_EQ(entries, 4);
    int all = 0;
    if (DIR* listing = opendir(reports.c_str()))
    {
        while (const dirent* entry = readdir(listing))
            all += entry->d_name[0] == '.' ? 0 : 1;
        closedir(listing);
    }
    EXPECT_EQ(all, 4);
}

TEST(AutoInstallReport, AnUnwritableDirectoryIsAFailure)
{
    std::string path;
    EXPECT_FALSE(Succeeded().Write("/nonexistent/dir/reports", "/nonexistent/log", path));
}
