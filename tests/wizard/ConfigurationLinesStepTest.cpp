// Which names the configuration-lines step takes for configuration lines:
// the pattern alone, and the pattern as the step hands it to
// DiskTools::DeleteAllFiles on a scratch directory (host, no mount).
#include "ConfigurationLinesStep.h"
#include "DiskTools.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

using Kel::Vidorama::InstallerWizard::ConfigurationLinesStep;
using Kel::ZarnLinuxTools::DiskTools;
namespace fs = std::filesystem;

namespace
{

bool IsLine(const std::string& name)
{
    return std::regex_match(name, std::regex(ConfigurationLinesStep::LinePattern));
}

} // namespace

TEST(ConfigurationLinePattern, TakesTheExtensionInAnyCase)
{
    // As the DOS side writes them (upper-case 8.3), as Linux tools write
    // them, and anything in between.
    for (const char* name : {"CAM3.LIN", "video.lin", "Video.Lin", "STUDIO_2.LIN", "a.lIn", "_.lin",
                             "Cam3.lin", "12.LIN"})
        EXPECT_TRUE(IsLine(name)) << name;
}

TEST(ConfigurationLinePattern, KeepsEveryOtherName)
{
    // "-" is no word character; the name must end in the extension; the
    // extension is ".lin" and nothing longer or shorter.
    for (const char* name : {"lan-3.lin", "LAN-3.LIN", "x.lin.bak", "X.LIN.BAK", "keep.txt", ".lin",
                             ".LIN", "cam3.linx", "cam3.li", "cam3lin", "cam3.lin ", "a b.lin",
                             "CAM3.LIN~", "cam3_lin", "cam.3.lin"})
        EXPECT_FALSE(IsLine(name)) << name;
}

TEST(ConfigurationLinePattern, ClearsASetupDirectoryAsTheDosSideLeftIt)
{
    char pattern[] = "/tmp/configuration-lines-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string directory = pattern;
    fs::create_directories(directory + "/SITE");
    for (const char* name : {"CAM3.LIN", "video.lin", "Video2.Lin", "keep.txt", "lan-3.lin",
                             "x.lin.bak", "SITE/STUDIO.LIN", "SITE/SITE.CFG"})
        std::ofstream(directory + "/" + name) << name;

    EXPECT_TRUE(
        DiskTools::DeleteAllFiles(directory.c_str(), ConfigurationLinesStep::LinePattern, true));

    std::set<std::string> left;
    for (const auto& entry : fs::recursive_directory_iterator(directory))
        left.insert(fs::relative(entry.path(), directory).string());
    EXPECT_EQ(left, std::set<std::string>(
                        {"SITE", "SITE/SITE.CFG", "keep.txt", "lan-3.lin", "x.lin.bak"}));
    // What is kept is kept whole.
    std::ifstream kept(directory + "/keep.txt");
    std::string text;
    std::getline(kept, text);
    EXPECT_EQ(text, "keep.txt");
    fs::remove_all(directory);
}
