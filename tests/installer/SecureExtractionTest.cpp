// Package entries that name places outside the directory they are extracted to: absolute
// names, "..", symbolic links (in the package or already on the disk) and hard links that
// carry data. Each package is built in a scratch directory that holds both the working
// directory of the extraction and a directory "outside" beside it, which must stay as it
// was; and a normal package must still extract. Nothing here leaves the scratch directory,
// even when the code under test were to follow such a name.
#include "InstallPackage.h"
#include "ScratchDirectory.h"
#include "TestArchive.h"

#include <gtest/gtest.h>

#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

using Kel::Vidorama::InstallerLib::InstallPackage;
namespace detail = Kel::Vidorama::InstallerLib::detail;
namespace fs = std::filesystem;
using Member = TestSupport::ArchiveMember;
using TestSupport::ReadFile;
using TestSupport::WorkingDirectory;
using TestSupport::WriteArchive;
using TestSupport::WriteFile;

const std::string Script = "#!/bin/sh\necho evil\n";

Member File(const std::string& name, const std::string& content, mode_t mode = 0644)
{
    return Member{name, content, mode, Member::File};
}

Member Link(const std::string& name, const std::string& target)
{
    return Member{name, target, 0777, Member::Link};
}

// Every entry below root (links not followed), relative to it; links are shown with their
// target.
std::set<std::string> Tree(const std::string& root)
{
    std::set<std::string> names;
    std::error_code error;
    for (fs::recursive_directory_iterator it(root, error), end; !error && it != end;
         it.increment(error))
    {
        std::string name = it->path().lexically_relative(root).string();
        if (it->is_symlink())
        {
            name += " -> " + fs::read_symlink(it->path()).string();
        }
        names.insert(name);
    }
    return names;
}

// One ustar header block with its checksum.
std::string TarHeader(const std::string& name, char type, std::size_t size,
                      const std::string& linkName)
{
    std::string block(512, '\0');
    auto put = [&block](std::size_t at, const std::string& text)
    { block.replace(at, text.size(), text); };
    char number[16];
    put(0, name);
    put(100, "0000644");
    put(108, "0000000");
    put(116, "0000000");
    std::snprintf(number, sizeof(number), "%011o", static_cast<unsigned>(size));
    put(124, number);
    put(136, "12751403200");
    block[156] = type;
    put(157, linkName);
    put(257, std::string("ustar\0", 6));
    put(263, "00");
    put(148, "        ");
    unsigned sum = 0;
    for (unsigned char c : block)
    {
        sum += c;
    }
    std::snprintf(number, sizeof(number), "%06o", sum);
    put(148, std::string(number) + std::string(1, '\0') + " ");
    return block;
}

std::string Padded(const std::string& data)
{
    return data + std::string((512 - data.size() % 512) % 512, '\0');
}

// A tar whose entry "Install.sh" is a hard link to linkName that carries data, behind a pax
// header that says so (pax allows data on hard links), gzip-compressed with zlib.
bool WriteHardLinkPackage(const std::string& path, const std::string& linkName,
                          const std::string& data)
{
    const std::string record = "size=" + std::to_string(data.size()) + "\n";
    // A pax record is "<length> <keyword>=<value>\n", its length counting itself.
    std::string pax = std::to_string(record.size() + 3) + " " + record;
    if (pax.size() != record.size() + 3)
    {
        pax = std::to_string(record.size() + 4) + " " + record;
    }
    const std::string tar = TarHeader("PaxHeader/Install.sh", 'x', pax.size(), "") + Padded(pax) +
                            TarHeader("Install.sh", '1', data.size(), linkName) + Padded(data) +
                            std::string(1024, '\0');
    gzFile file = gzopen(path.c_str(), "wb");
    if (file == nullptr)
    {
        return false;
    }
    const int written = gzwrite(file, tar.data(), static_cast<unsigned>(tar.size()));
    return gzclose(file) == Z_OK && written == static_cast<int>(tar.size());
}

class SecureExtraction : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(scratch.path.empty());
        root = scratch.path;
        work = root + "/level/work";
        outside = root + "/outside";
        fs::create_directories(work);
        fs::create_directories(outside);
        WriteFile(outside + "/victim.txt", "keep\n");
        package = root + "/Vidorama_12.05.01.3456.tar.gz";
    }

    // Extracts "Install.sh" from the package with work as the working directory.
    bool ExtractInstaller()
    {
        WorkingDirectory inside(work);
        EXPECT_TRUE(inside.changed);
        return inside.changed && InstallPackage(package.c_str()).ExtractFileFomTar("Install.sh");
    }

    // Nothing appeared beside the working directory, and the file there is as it was.
    void ExpectOutsideUntouched(const std::string& archive = "Vidorama_12.05.01.3456.tar.gz")
    {
        EXPECT_EQ(Tree(outside), std::set<std::string>{"victim.txt"});
        EXPECT_EQ(ReadFile(outside + "/victim.txt"), "keep\n");
        std::set<std::string> top = Tree(root);
        std::set<std::string> others;
        for (const std::string& name : top)
        {
            if (name.rfind("level/work", 0) != 0 && name.rfind("outside", 0) != 0)
            {
                others.insert(name);
            }
        }
        EXPECT_EQ(others, (std::set<std::string>{archive, "level"}));
    }

    TestSupport::ScratchDirectory scratch;
    std::string root;
    std::string work;
    std::string outside;
    std::string package;
};

TEST_F(SecureExtraction, AnAbsoluteEntryIsNotWrittenWhereItPoints)
{
    ASSERT_TRUE(WriteArchive(package, {File(outside + "/Install.sh", Script, 0755)}, false));
    EXPECT_FALSE(ExtractInstaller());
    ExpectOutsideUntouched();
    EXPECT_TRUE(Tree(work).empty());
}

TEST_F(SecureExtraction, AnAbsoluteEntryOverAnExistingFileLeavesIt)
{
    ASSERT_TRUE(WriteArchive(package,
                             {File(outside + "/victim.txt", "Install.sh overwritten\n"),
                              File(outside + "/victim.txt/../Install.sh", Script)},
                             false));
    {
        WorkingDirectory inside(work);
        ASSERT_TRUE(inside.changed);
        EXPECT_FALSE(InstallPackage(package.c_str()).ExtractFileFomTar("victim.txt"));
        EXPECT_FALSE(InstallPackage(package.c_str()).ExtractFileFomTar("Install.sh"));
    }
    ExpectOutsideUntouched();
    EXPECT_TRUE(Tree(work).empty());
}

TEST_F(SecureExtraction, DotDotEntriesAreNotWrittenAboveTheWorkingDirectory)
{
    for (const std::string& name :
         {std::string("../../y/Install.sh"), std::string("../Install.sh"),
          std::string("./../../outside/Install.sh"), std::string("sub/../../../y/Install.sh")})
    {
        ASSERT_TRUE(WriteArchive(package, {File(name, Script, 0755)}, false));
        EXPECT_FALSE(ExtractInstaller()) << name;
        EXPECT_FALSE(fs::exists(root + "/y")) << name;
        EXPECT_FALSE(fs::exists(root + "/level/Install.sh")) << name;
        ExpectOutsideUntouched();
        EXPECT_TRUE(Tree(work).empty()) << name;
    }
}

TEST_F(SecureExtraction, AnEntryThroughALinkAlreadyThereIsRefused)
{
    fs::create_directory_symlink(outside, work + "/link");
    fs::create_directory_symlink("../../outside", work + "/relative");
    for (const char* name : {"link/Install.sh", "relative/Install.sh"})
    {
        ASSERT_TRUE(WriteArchive(package, {File(name, Script, 0755)}, false));
        EXPECT_FALSE(ExtractInstaller()) << name;
        ExpectOutsideUntouched();
    }
    EXPECT_EQ(Tree(work),
              (std::set<std::string>{"link -> " + outside, "relative -> ../../outside"}));
}

TEST_F(SecureExtraction, ALinkInThePackageIsNotFollowedByTheEntriesAfterIt)
{
    // Links have no data and are never extracted, so the file after one lands in a real
    // directory of the same name inside the working directory.
    ASSERT_TRUE(WriteArchive(package,
                             {Link("link", outside), File("link/Install.sh", Script, 0755),
                              Link("up", "../../outside"), File("up/Install.sh", Script, 0755)},
                             false));
    EXPECT_TRUE(ExtractInstaller());
    ExpectOutsideUntouched();
    EXPECT_EQ(Tree(work),
              (std::set<std::string>{"link", "link/Install.sh", "up", "up/Install.sh"}));
    EXPECT_FALSE(fs::is_symlink(work + "/link"));
    EXPECT_EQ(ReadFile(work + "/up/Install.sh"), Script);
}

TEST_F(SecureExtraction, AHardLinkWithDataIsNotWrittenIntoTheFileItNames)
{
    // "victim" in the working directory leads outside; a hard link to it that carries data
    // would write that data into the file outside.
    fs::create_symlink(outside + "/victim.txt", work + "/victim");
    for (const std::string& target :
         {std::string("victim"), outside + "/victim.txt", std::string("../../outside/victim.txt")})
    {
        ASSERT_TRUE(WriteHardLinkPackage(package, target, "evil\n"));
        ExtractInstaller();
        ExpectOutsideUntouched();
        EXPECT_EQ(Tree(work), std::set<std::string>{"victim -> " + outside + "/victim.txt"})
            << target;
    }
}

TEST_F(SecureExtraction, ASubTreeIsExtractedBelowItsDestinationOnly)
{
    const std::string destination = work + "/dest/";
    fs::create_directories(destination);
    fs::create_directory_symlink(outside, destination + "link");
    for (const std::string& name :
         {std::string("payload/../../../outside/x.txt"), std::string("payload/link/x.txt"),
          std::string("payload/a/../../x.txt")})
    {
        ASSERT_TRUE(WriteArchive(package, {File(name, "x\n")}, false));
        EXPECT_FALSE(
            InstallPackage(package.c_str()).ExtractDirectoryFomTar("payload/", destination.c_str()))
            << name;
        ExpectOutsideUntouched();
        EXPECT_FALSE(fs::exists(work + "/x.txt")) << name;
    }
    EXPECT_EQ(Tree(work), (std::set<std::string>{"dest", "dest/link -> " + outside}));

    // An ordinary sub-tree still goes below the destination, which may be absolute.
    ASSERT_TRUE(WriteArchive(package,
                             {File("Install.sh", Script, 0755), File("payload/a.txt", "a\n"),
                              File("payload/b/c.txt", "c\n")},
                             false));
    EXPECT_TRUE(
        InstallPackage(package.c_str()).ExtractDirectoryFomTar("payload/", destination.c_str()));
    EXPECT_EQ(Tree(work), (std::set<std::string>{"dest", "dest/link -> " + outside, "dest/a.txt",
                                                 "dest/b", "dest/b/c.txt"}));
    ExpectOutsideUntouched();
}

TEST_F(SecureExtraction, AnOrdinaryPackageStillExtracts)
{
    ASSERT_TRUE(WriteArchive(package,
                             {Member{"./", "", 0755, Member::Directory},
                              File("./Install.sh", Script, 0755), File("./Version.json", "{}"),
                              Member{"./payload/", "", 0755, Member::Directory},
                              File("./payload/tools/Install.sh", "second\n", 0700),
                              Link("./payload/current", "tools"), File("./payload/data.bin", "d")},
                             false));
    EXPECT_TRUE(ExtractInstaller());
    EXPECT_EQ(Tree(work), (std::set<std::string>{"Install.sh", "payload", "payload/tools",
                                                 "payload/tools/Install.sh"}));
    EXPECT_EQ(ReadFile(work + "/Install.sh"), Script);
    EXPECT_EQ(ReadFile(work + "/payload/tools/Install.sh"), "second\n");
    struct stat status;
    ASSERT_EQ(::stat((work + "/Install.sh").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0755u);
    ExpectOutsideUntouched();
}

// DOS packages are unpacked by unzip (the installation's own command), which keeps every
// entry below its destination by itself: it drops leading "/" and "../" from names and
// makes the links of a package only after all its files.
TEST_F(SecureExtraction, TheDosUnzipKeepsEveryEntryBelowItsDestination)
{
    ASSERT_EQ(::access("/usr/bin/unzip", X_OK), 0) << "unzip missing: run scripts/setup.sh";
    const std::string zip = root + "/120501.zip";
    ASSERT_TRUE(WriteArchive(zip,
                             {File("120501/img.zip", "image"), File("../../y/up.txt", "up\n"),
                              File(outside + "/absolute.txt", "abs\n"),
                              Link("120501/link", outside), File("120501/link/through.txt", "t\n")},
                             true));
    const std::string destination = work + "/Versions";
    fs::create_directories(destination);
    const std::string command = detail::UnzipCommand(zip, destination);
    // Whatever unzip says about the names it changed, only where the files go matters.
    std::system(("cd " + work + " && " + command.substr(0, command.size() - 1) + " >/dev/null 2>&1")
                    .c_str());
    ExpectOutsideUntouched("120501.zip");
    EXPECT_FALSE(fs::exists(root + "/y"));
    EXPECT_EQ(ReadFile(destination + "/120501/img.zip"), "image");
    for (const std::string& name : Tree(root + "/level"))
    {
        EXPECT_TRUE(name == "work" || name.rfind("work/Versions", 0) == 0) << name;
    }
    std::cout << "[ observed ] unzip left:";
    for (const std::string& name : Tree(destination))
    {
        std::cout << " " << name;
    }
    std::cout << std::endl;
}

} // namespace
