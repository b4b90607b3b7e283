// Hostile hardware maintenance tool lists: files of ten megabytes, valid or not, read the
// way the step reads "HWMaintenance.json". No terminal needed.
#include "HWMaintenanceStep.h"

#include "TempDir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

using Kel::Vidorama::InstallerWizard::HWMaintenanceStep;
using Tool = HWMaintenanceStep::HWMaintenanceTool;

namespace
{

const std::size_t TenMegabytes = 10u << 20;

// Generous for a debug build with sanitizers; a release build reads such a list in well
// under a second.
const double ReasonableSeconds = 60.0;

class HugeToolList : public testing::Test
{
protected:
    HugeToolList() : scratch("/tmp/hostile-tool-list-") {}

    std::string Write(const std::string& text)
    {
        const std::string path = scratch.Path() + "/HWMaintenance.json";
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
        return path;
    }

    // Reads the list as an RB417 would, and tells how long it took.
    bool Read(const std::string& path, std::vector<Tool>& tools, double& seconds)
    {
        const auto start = std::chrono::steady_clock::now();
        const bool result = HWMaintenanceStep::ReadToolsFromFile(path, false, true, tools);
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return result;
    }

    Sandbox::TempDir scratch;
};

std::string ToolElement(std::size_t index)
{
    const std::string number = std::to_string(index);
    return "  {\"runAsRoot\": " + std::string(index % 2 == 0 ? "true" : "false") +
           ", \"menu\": \"" + number + "\", \"label\": \"Diagnostic " + number +
           "\", \"description\": \"Checks part " + number +
           " of the board\", \"workingDirectory\": \"HardwareMaintenance\", \"executable\": "
           "\"HardwareMaintenance/diag-" +
           number + ".sh\", \"parameters\": \"--part " + number + "\"" +
           (index % 3 == 0 ? ", \"board\": \"K9Q\"" : "") + "}";
}

// A valid list of at least size bytes: one element per tool, every third for the K9Q only.
std::string ValidList(std::size_t size, std::size_t& elements)
{
    std::string text = "[\n";
    elements = 0;
    while (text.size() < size)
    {
        if (elements > 0)
        {
            text += ",\n";
        }
        text += ToolElement(elements++);
    }
    return text + "\n]\n";
}

std::string Noise(std::size_t count)
{
    std::string bytes(count, '\0');
    std::uint32_t state = 99;
    for (char& byte : bytes)
    {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

TEST_F(HugeToolList, TenMegabytesOfToolsAreAllRead)
{
    std::size_t elements = 0;
    const std::string path = Write(ValidList(TenMegabytes, elements));
    std::vector<Tool> tools;
    double seconds = 0;
    ASSERT_TRUE(Read(path, tools, seconds));
    EXPECT_LT(seconds, ReasonableSeconds);
    // The K9Q tools are not for an RB417.
    EXPECT_EQ(tools.size(), elements - (elements + 2) / 3);
    ASSERT_FALSE(tools.empty());
    EXPECT_EQ(tools.front().label, "Diagnostic 1");
    std::size_t last = elements - 1;
    while (last % 3 == 0)
    {
        --last;
    }
    EXPECT_EQ(tools.back().label, "Diagnostic " + std::to_string(last));
    EXPECT_FALSE(tools.front().runAsRoot);
    EXPECT_EQ(tools.front().parameters, "--part 1");
}

TEST_F(HugeToolList, OneBadElementAtTheEndOfTenMegabytesGivesNoTools)
{
    std::size_t elements = 0;
    std::string text = ValidList(TenMegabytes, elements);
    text.insert(text.rfind(']'), ",\n  {\"menu\": \"x\", \"executable\": \"no-label.sh\"}\n");
    std::vector<Tool> tools;
    double seconds = 0;
    EXPECT_FALSE(Read(Write(text), tools, seconds));
    EXPECT_LT(seconds, ReasonableSeconds);
    EXPECT_TRUE(tools.empty());
}

TEST_F(HugeToolList, TenMegabytesOfGarbageGiveNoTools)
{
    std::vector<Tool> tools;
    double seconds = 0;
    EXPECT_FALSE(Read(Write(Noise(TenMegabytes)), tools, seconds));
    EXPECT_LT(seconds, ReasonableSeconds);
    EXPECT_TRUE(tools.empty());
}

TEST_F(HugeToolList, AValidListCutShortGivesNoTools)
{
    std::size_t elements = 0;
    const std::string text = ValidList(TenMegabytes, elements);
    std::vector<Tool> tools;
    double seconds = 0;
    EXPECT_FALSE(Read(Write(text.substr(0, text.size() / 2)), tools, seconds));
    EXPECT_LT(seconds, ReasonableSeconds);
    EXPECT_TRUE(tools.empty());
}

TEST_F(HugeToolList, GarbageAfterAValidListIsRefused)
{
    // Ten megabytes of tools followed by bytes that are not JSON.
    std::size_t elements = 0;
    std::vector<Tool> tools;
    double seconds = 0;
    const bool result =
        Read(Write(ValidList(TenMegabytes, elements) + Noise(1 << 20)), tools, seconds);
    EXPECT_LT(seconds, ReasonableSeconds);
    // The list is either refused whole or read whole; never a part of it.
    if (result)
    {
        EXPECT_EQ(tools.size(), elements - (elements + 2) / 3);
    }
    else
    {
        EXPECT_TRUE(tools.empty());
    }
}

TEST_F(HugeToolList, OneToolWithATenMegabyteDescriptionIsRead)
{
    const std::string description(TenMegabytes, 'd');
    std::vector<Tool> tools;
    double seconds = 0;
    ASSERT_TRUE(Read(Write("[{\"menu\": \"1\", \"label\": \"Long\", \"executable\": \"x\", "
                           "\"description\": \"" +
                           description + "\"}]"),
                     tools, seconds));
    EXPECT_LT(seconds, ReasonableSeconds);
    ASSERT_EQ(tools.size(), 1u);
    EXPECT_EQ(tools[0].description.size(), TenMegabytes);
}

TEST_F(HugeToolList, TenMegabytesOfEmptyAndNullElementsGiveAnEmptyList)
{
    // Every element is skipped, which leaves a valid list without tools.
    std::string text = "[";
    while (text.size() < TenMegabytes)
    {
        text += "null, 1, \"x\", [], ";
    }
    text += "null]";
    std::vector<Tool> tools;
    double seconds = 0;
    EXPECT_TRUE(Read(Write(text), tools, seconds));
    EXPECT_LT(seconds, ReasonableSeconds);
    EXPECT_TRUE(tools.empty());
}

TEST_F(HugeToolList, DeepNestingGivesNoToolsWithoutThrowing)
{
    // Arrays in arrays, ten megabytes deep: not a tool list, and no reason to stop the
    // wizard, which reads this file while it starts.
    std::vector<Tool> tools;
    double seconds = 0;
    bool result = true;
    EXPECT_NO_THROW(result = Read(Write(std::string(TenMegabytes, '[')), tools, seconds));
    EXPECT_FALSE(result);
    EXPECT_TRUE(tools.empty());
    EXPECT_NO_THROW(result =
                        Read(Write("[" + std::string(5000, '{') + std::string(5000, '}') + "]"),
                             tools, seconds));
    EXPECT_FALSE(result);
    EXPECT_TRUE(tools.empty());
}

TEST_F(HugeToolList, BinaryBytesInsideTheTextsAreKeptAsTheyAre)
{
    std::vector<Tool> tools;
    double seconds = 0;
    ASSERT_TRUE(Read(Write("[{\"menu\": \"1\", \"label\": \"caf\xc3\xa9 \\u0000 \\t\", "
                           "\"executable\": \"a\\u0000b\"}]"),
                     tools, seconds));
    ASSERT_EQ(tools.size(), 1u);
    EXPECT_EQ(tools[0].label, std::string("caf\xc3\xa9 \0 \t", 9));
    EXPECT_EQ(tools[0].executable, std::string("a\0b", 3));
}

TEST_F(HugeToolList, AListThatIsADirectoryGivesNoToolsWithoutThrowing)
{
    // Opening a directory succeeds; reading it fails.
    const std::string directory = scratch.Path() + "/HWMaintenance.json";
    ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
    std::vector<Tool> tools;
    double seconds = 0;
    bool result = true;
    EXPECT_NO_THROW(result = Read(directory, tools, seconds));
    EXPECT_FALSE(result);
    EXPECT_TRUE(tools.empty());
}

TEST_F(HugeToolList, AReadErrorGivesNoToolsWithoutThrowing)
{
    // What a failing sector of the key gives: the file opens, the first read fails (EIO).
    std::vector<Tool> tools;
    double seconds = 0;
    bool result = true;
    EXPECT_NO_THROW(result = Read("/proc/self/mem", tools, seconds));
    EXPECT_FALSE(result);
    EXPECT_TRUE(tools.empty());
}

} // namespace
