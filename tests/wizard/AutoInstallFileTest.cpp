#include "AutoInstallFile.h"

#include <gtest/gtest.h>

#include <string>

using Kel::Vidorama::InstallerWizard::AutoInstallAnswers;
using Kel::Vidorama::InstallerWizard::AutoInstallFile;
using Kel::Vidorama::InstallerWizard::AutoInstallProblem;

namespace
{

const std::string Example = R"({
  "disk":     { "path": "/dev/vda", "model": "Virtio Block Device", "minSizeGiB": 3, "maxSizeGiB": 64 },
  "format":   true,
  "replaceExisting": false,
  "package":  "newest",
  "overwrite": false,
  "bios":     "keep",
  "network":  { "hostname": "Vidorama-{serial}", "mode": "static", "address": "10.1.2.3",
                "mask": "255.255.0.0", "gateway": "10.1.0.1",
                "dns": ["10.1.0.53"], "domain": "example.com" },
  "finish":   "reboot"
})";

// The problem of a file that must be refused; the answers must stay untouched.
AutoInstallProblem Refused(const std::string& text)
{
    AutoInstallAnswers answers;
    answers.package = "untouched";
    AutoInstallProblem problem;
    EXPECT_FALSE(AutoInstallFile::Parse(text, "SN42", answers, problem)) << text;
    EXPECT_EQ(answers.package, "untouched");
    return problem;
}

// The example with one member of "network" replaced (or removed when value is empty).
std::string WithNetwork(const std::string& network)
{
    return R"({"format": true, "network": )" + network + "}";
}

} // namespace

TEST(AutoInstallFile, TheExampleGivesEveryAnswer)
{
    AutoInstallAnswers answers;
    AutoInstallProblem problem;
    ASSERT_TRUE(AutoInstallFile::Parse(Example, "SN42", answers, problem)) << problem.Text();
    EXPECT_EQ(answers.disk.path, "/dev/vda");
    EXPECT_EQ(answers.disk.model, "Virtio Block Device");
    EXPECT_EQ(answers.disk.minSizeGiB.value_or(-1), 3);
    EXPECT_EQ(answers.disk.maxSizeGiB.value_or(-1), 64);
    EXPECT_TRUE(answers.format);
    EXPECT_FALSE(answers.replaceExisting);
    EXPECT_EQ(answers.package, "newest");
    EXPECT_FALSE(answers.overwrite);
    EXPECT_EQ(answers.bios, "keep");
    EXPECT_TRUE(answers.network.present);
    EXPECT_EQ(answers.network.hostname.value_or(""), "Vidorama-SN42");
    EXPECT_EQ(answers.network.mode, "static");
    EXPECT_EQ(answers.network.address, "10.1.2.3");
    EXPECT_EQ(answers.network.mask, "255.255.0.0");
    EXPECT_EQ(answers.network.gateway, "10.1.0.1");
    EXPECT_TRUE(answers.network.dnsGiven);
    EXPECT_EQ(answers.network.dns, std::vector<std::string>({"10.1.0.53"}));
    EXPECT_EQ(answers.network.domain, "example.com");
    EXPECT_EQ(answers.finish, "reboot");
}

TEST(AutoInstallFile, AnEmptyObjectTakesTheCarefulDefaults)
{
    AutoInstallAnswers answers;
    AutoInstallProblem problem;
    ASSERT_TRUE(AutoInstallFile::Parse("{}", "", answers, problem));
    EXPECT_FALSE(answers.format);
    EXPECT_FALSE(answers.replaceExisting);
    EXPECT_FALSE(answers.overwrite);
    EXPECT_EQ(answers.package, "newest");
    EXPECT_EQ(answers.bios, "keep");
    EXPECT_FALSE(answers.network.present);
    EXPECT_EQ(answers.finish, "wait");
    EXPECT_TRUE(answers.disk.path.empty());
    EXPECT_FALSE(answers.disk.minSizeGiB);
}

TEST(AutoInstallFile, DhcpNeedsNoAddressAndKeepsTheProposedNameServers)
{
    AutoInstallAnswers answers;
    AutoInstallProblem problem;
    ASSERT_TRUE(AutoInstallFile::Parse(WithNetwork(R"({"mode": "dhcp"})"), "X", answers, problem))
        << problem.Text();
    EXPECT_EQ(answers.network.mode, "dhcp");
    EXPECT_FALSE(answers.network.hostname);
    EXPECT_FALSE(answers.network.dnsGiven);
}

TEST(AutoInstallFile, AddressesAreKeptAsTheFormKeepsThem)
{
    AutoInstallAnswers answers;
    AutoInstallProblem problem;
    ASSERT_TRUE(AutoInstallFile::Parse(
        WithNetwork(R"({"mode": "static", "address": " 010.001.002.003", "mask": "255.255.255.0",
                        "gateway": "10.1.2.1", "dns": ["10.1.2.53", "10.1.2.54", "10.1.2.55"],
                        "domain": "a.example"})"),
        "X", answers, problem))
        << problem.Text();
    EXPECT_EQ(answers.network.address, "10.1.2.3");
    EXPECT_EQ(answers.network.dns.size(), 3u);
}

TEST(AutoInstallFile, NotJson)
{
    const auto problem = Refused("{\"format\": true,");
    EXPECT_EQ(problem.key, "");
    EXPECT_NE(problem.Text().find("autoinstall.json is not valid JSON"), std::string::npos)
        << problem.Text();
}

TEST(AutoInstallFile, NotAnObject)
{
    const auto problem = Refused("[1, 2]");
    EXPECT_NE(problem.Text().find("must hold one JSON object"), std::string::npos);
}

TEST(AutoInstallFile, ADuplicatedKey)
{
    const auto problem = Refused(R"({"format": true, "format": false})");
    EXPECT_NE(problem.Text().find("not valid JSON"), std::string::npos) << problem.Text();
}

TEST(AutoInstallFile, UnknownKeysAreNamed)
{
    auto problem = Refused(R"({"formatt": true})");
    EXPECT_EQ(problem.Text(), "\"formatt\": true: unknown key");
    problem = Refused(R"({"disk": {"serial": "x"}})");
    EXPECT_EQ(problem.Text(), "\"disk.serial\": \"x\": unknown key");
    problem = Refused(WithNetwork(R"({"mode": "dhcp", "ntp": "10.0.0.1"})"));
    EXPECT_EQ(problem.Text(), "\"network.ntp\": \"10.0.0.1\": unknown key");
}

TEST(AutoInstallFile, WrongTypesAreNamed)
{
    EXPECT_EQ(Refused(R"({"format": "yes"})").Text(), "\"format\": \"yes\": must be true or false");
    EXPECT_EQ(Refused(R"({"replaceExisting": 1})").Text(),
              "\"replaceExisting\": 1: must be true or false");
    EXPECT_EQ(Refused(R"({"overwrite": null})").Text(),
              "\"overwrite\": null: must be true or false");
    EXPECT_EQ(Refused(R"({"package": 12})").Text(), "\"package\": 12: must be a text");
    EXPECT_EQ(Refused(R"({"disk": "/dev/vda"})").Text(),
              "\"disk\": \"/dev/vda\": must be an object of filters");
    EXPECT_EQ(Refused(R"({"disk": {"path": 3}})").Text(), "\"disk.path\": 3: must be a text");
    EXPECT_EQ(Refused(R"({"disk": {"model": true}})").Text(),
              "\"disk.model\": true: must be a text");
    EXPECT_EQ(Refused(R"({"disk": {"minSizeGiB": "3"}})").Text(),
              "\"disk.minSizeGiB\": \"3\": must be a number of GiB");
    EXPECT_EQ(Refused(R"({"disk": {"maxSizeGiB": -1}})").Text(),
              "\"disk.maxSizeGiB\": -1: must be a number of GiB");
    EXPECT_EQ(Refused(R"({"network": "dhcp"})").Text(),
              "\"network\": \"dhcp\": must be an object of the network form's fields");
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "dhcp", "hostname": 7})")).Text(),
              "\"network.hostname\": 7: must be a text");
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "dhcp", "dns": "10.0.0.1"})")).Text(),
              "\"network.dns\": \"10.0.0.1\": must be a list of addresses");
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "dhcp", "dns": [1], "domain": "a.b"})")).Text(),
              "\"network.dns[0]\": 1: must be a text");
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "dhcp", "address": 1})")).Text(),
              "\"network.address\": 1: must be a text");
}

TEST(AutoInstallFile, ChoicesOutsideTheirListsAreNamed)
{
    EXPECT_EQ(Refused(R"({"bios": "fast"})").Text(),
              "\"bios\": \"fast\": must be \"default\", \"enhanced\" or \"keep\"");
    EXPECT_EQ(Refused(R"({"finish": "halt"})").Text(),
              "\"finish\": \"halt\": must be \"reboot\", \"poweroff\" or \"wait\"");
    EXPECT_EQ(Refused(R"({"package": ""})").Text(),
              "\"package\": \"\": must be \"newest\", a full version or a package file name");
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "auto"})")).Text(),
              "\"network.mode\": \"auto\": must be \"static\" or \"dhcp\"");
    EXPECT_EQ(Refused(WithNetwork(R"({"hostname": "studio-a"})")).Text(),
              "\"network.mode\": null: is required: \"static\" or \"dhcp\"");
}

TEST(AutoInstallFile, SizesOutOfOrder)
{
    EXPECT_EQ(Refused(R"({"disk": {"minSizeGiB": 64, "maxSizeGiB": 3}})").Text(),
              "\"disk.maxSizeGiB\": 3: is below \"minSizeGiB\"");
}

TEST(AutoInstallFile, InvalidNamesAndAddressesAreNamed)
{
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "dhcp", "hostname": "-{serial}"})")).Text(),
              "\"network.hostname\": \"-{serial}\": is not a valid host name (-SN42)");
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "dhcp", "hostname": "studio_a"})")).Text(),
              "\"network.hostname\": \"studio_a\": is not a valid host name (studio_a)");
    const std::string good = R"("mask": "255.255.0.0", "gateway": "10.1.0.1")";
    EXPECT_EQ(
        Refused(WithNetwork(R"({"mode": "static", "address": "10.1.2.300", )" + good + "}")).Text(),
        "\"network.address\": \"10.1.2.300\": is not a valid IPv4 address");
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "static", "address": "10.1.2.3",
                                     "mask": "255.0.255.0", "gateway": "10.1.0.1"})"))
                  .Text(),
              "\"network.mask\": \"255.0.255.0\": is not a valid net mask");
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "static", "address": "10.1.2.3",
                                     "mask": "255.255.0.0", "gateway": "gw"})"))
                  .Text(),
              "\"network.gateway\": \"gw\": is not a valid IPv4 address");
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "static", "address": "10.1.2.3",
                                     "mask": "255.255.0.0"})"))
                  .Text(),
              "\"network.gateway\": null: is required with \"mode\": \"static\"");
    EXPECT_EQ(
        Refused(WithNetwork(R"({"mode": "dhcp", "dns": ["10.1.0.256"], "domain": "a.b"})")).Text(),
        "\"network.dns[0]\": \"10.1.0.256\": is not a valid IPv4 address");
    EXPECT_EQ(
        Refused(WithNetwork(R"({"mode": "dhcp", "dns": ["0.0.0.0"], "domain": "a.b"})")).Text(),
        "\"network.dns[0]\": \"0.0.0.0\": is not a valid IPv4 address");
    EXPECT_EQ(
        Refused(WithNetwork(R"({"mode": "dhcp", "dns": ["10.0.0.1"], "domain": "-bad"})")).Text(),
        "\"network.domain\": \"-bad\": is not a valid domain");
}

TEST(AutoInstallFile, AtMostThreeNameServers)
{
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "dhcp", "domain": "a.b",
                   "dns": ["10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"]})"))
                  .Text(),
              "\"network.dns\": [\"10.0.0.1\",\"10.0.0.2\",\"10.0.0.3\",\"10.0.0.4\"]: "
              "holds more than three name servers");
}

TEST(AutoInstallFile, NameServersAndDomainGoTogether)
{
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "dhcp", "dns": ["10.0.0.1"]})")).Text(),
              "\"network.domain\": null: is required with \"dns\"");
    EXPECT_EQ(Refused(WithNetwork(R"({"mode": "dhcp", "domain": "a.b"})")).Text(),
              "\"network.dns\": null: is required with \"domain\"");
}

TEST(AutoInstallFile, ReadsAWholeFileAndReportsAMissingOne)
{
    std::string text;
    EXPECT_FALSE(AutoInstallFile::Read("/nonexistent/autoinstall.json", text));
    const std::string path = testing::TempDir() + "autoinstall-read.json";
    {
        FILE* file = fopen(path.c_str(), "w");
        ASSERT_NE(file, nullptr);
        fputs(Example.c_str(), file);
        fclose(file);
    }
    ASSERT_TRUE(AutoInstallFile::Read(path, text));
    EXPECT_EQ(text, Example);
    remove(path.c_str());
}
