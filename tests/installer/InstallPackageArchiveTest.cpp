#include "InstallPackage.h"
#include "ScratchDirectory.h"
#include "TestArchive.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace
{

using Kel::Vidorama::InstallerLib::CopyData;
using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::PackageVersion;

namespace fs = std::filesystem;
using TemporaryDirectory = TestSupport::ScratchDirectory;
using TestSupport::ReadFile;
using TestSupport::WorkingDirectory;
using TestSupport::WriteArchive;
using TestSupport::WriteFile;
using Member = TestSupport::ArchiveMember;

Member FileMember(const std::string& name, const std::string& content, mode_t mode = 0644)
{
    return Member{name, content, mode, Member::File};
}

Member DirectoryMember(const std::string& name)
{
    return Member{name, "", 0755, Member::Directory};
}

Member LinkMember(const std::string& name, const std::string& target)
{
    return Member{name, target, 0777, Member::Link};
}

// Every file and directory below root, as paths relative to it.
std::set<std::string> ListTree(const std::string& root)
{
    std::set<std::string> names;
    std::error_code error;
    for (fs::recursive_directory_iterator it(root, error), end; !error && it != end;
         it.increment(error))
    {
        names.insert(fs::relative(it->path(), root).string());
    }
    return names;
}

const std::string TenBytes = "0123456789";
const std::string HundredBytes(100, 'z');

// ---------------------------------------------------------------------------------------
// Identification from the file name

TEST(Identification, LinuxPackageWithRevision)
{
    const std::string path = "/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz";
    InstallPackage package(path.c_str());

    EXPECT_TRUE(package.IsValid());
    EXPECT_STREQ(path.c_str(), package.GetPath());
    EXPECT_STREQ("Vidorama", package.GetVersion().GetName());
    EXPECT_STREQ("12.05.01", package.GetVersion().GetVersion());
    EXPECT_STREQ("3456", package.GetVersion().GetRevision());
    EXPECT_STREQ("12.05.01.3456", package.GetVersion().GetVersion(true));
    EXPECT_STREQ(path.c_str(), package.GetVersion().GetPath());
    EXPECT_FALSE(package.GetVersion().IsDos());
}

TEST(Identification, LastUnderscoreSeparatesNameAndVersion)
{
    InstallPackage package("/mnt/USB/Packages/Vidorama_Base_12.05.01.tar.gz");

    EXPECT_TRUE(package.IsValid());
    EXPECT_STREQ("Vidorama_Base", package.GetVersion().GetName());
    EXPECT_STREQ("12.05.01", package.GetVersion().GetVersion());
    EXPECT_STREQ("", package.GetVersion().GetRevision());
    EXPECT_STREQ("12.05.01", package.GetVersion().GetVersion(true));
}

TEST(Identification, DosPackage)
{
    const std::string path = "/mnt/USB/Packages/120501.zip";
    InstallPackage package(path.c_str());

    EXPECT_TRUE(package.IsValid());
    EXPECT_STREQ("Vidorama", package.GetVersion().GetName());
    EXPECT_STREQ("12.05.01", package.GetVersion().GetVersion());
    EXPECT_STREQ("120501", package.GetVersion().GetDosVersion());
    EXPECT_STREQ("", package.GetVersion().GetRevision());
    EXPECT_TRUE(package.GetVersion().IsDos());
    EXPECT_STREQ(path.c_str(), package.GetVersion().GetPath());
}

TEST(Identification, LinuxPackageWithoutUnderscoreIsInvalid)
{
    InstallPackage package("/mnt/USB/Packages/notes.tar.gz");

    EXPECT_FALSE(package.IsValid());
    EXPECT_FALSE(package.GetVersion().IsDos());
    EXPECT_TRUE(package.GetVersion().IsEmpty());
    EXPECT_STREQ("/mnt/USB/Packages/notes.tar.gz", package.GetVersion().GetPath());
}

TEST(Identification, OtherFilesAreInvalid)
{
    InstallPackage package("/mnt/USB/Packages/README.txt");

    EXPECT_FALSE(package.IsValid());
    EXPECT_FALSE(package.GetVersion().IsDos());
    EXPECT_TRUE(package.GetVersion().IsEmpty());
}

TEST(Identification, WholePathIsSearched)
{
    // The name may come from a directory as long as the pattern runs on without a "/".
    InstallPackage package("Vidorama_13.01.02.9.tar.gz");
    EXPECT_TRUE(package.IsValid());
    EXPECT_STREQ("Vidorama", package.GetVersion().GetName());
    EXPECT_STREQ("13.01.02", package.GetVersion().GetVersion());
    EXPECT_STREQ("9", package.GetVersion().GetRevision());
}

TEST(Identification, NullPathIsInvalid)
{
    InstallPackage package(nullptr);
    EXPECT_FALSE(package.IsValid());
    EXPECT_STREQ("", package.GetPath());
}

TEST(Identification, CopyConstructorCopiesEveryField)
{
    InstallPackage original("/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz");
    InstallPackage copy(original);

    EXPECT_STREQ(original.GetPath(), copy.GetPath());
    EXPECT_EQ(original.IsValid(), copy.IsValid());
    EXPECT_TRUE(original.GetVersion() == copy.GetVersion());
    EXPECT_STREQ(original.GetVersion().GetPath(), copy.GetVersion().GetPath());
    EXPECT_STREQ(original.GetVersion().GetVersion(true), copy.GetVersion().GetVersion(true));
    EXPECT_EQ(original.GetVersion().IsDos(), copy.GetVersion().IsDos());

    InstallPackage dos("/mnt/USB/Packages/120501.zip");
    InstallPackage dosCopy(dos);
    EXPECT_TRUE(dosCopy.IsValid());
    EXPECT_TRUE(dosCopy.GetVersion().IsDos());
    EXPECT_STREQ("120501", dosCopy.GetVersion().GetDosVersion());

    InstallPackage invalid("/mnt/USB/Packages/notes.tar.gz");
    InstallPackage invalidCopy(invalid);
    EXPECT_FALSE(invalidCopy.IsValid());
    EXPECT_STREQ(invalid.GetPath(), invalidCopy.GetPath());
}

TEST(Identification, AssignmentCopiesEveryField)
{
    InstallPackage target("/mnt/USB/Packages/notes.tar.gz");
    const InstallPackage source("/mnt/USB/Packages/120501.zip");
    target = source;

    EXPECT_TRUE(target.IsValid());
    EXPECT_STREQ(source.GetPath(), target.GetPath());
    EXPECT_TRUE(target.GetVersion().IsDos());
    EXPECT_STREQ("12.05.01", target.GetVersion().GetVersion());
}

// ---------------------------------------------------------------------------------------
// Lists of packages

TEST(AvailablePackages, MissingDirectoryGivesAnEmptyList)
{
    TemporaryDirectory scratch;
    std::unique_ptr<std::vector<InstallPackage>> packages(
        InstallPackage::GetAvailablePackages(scratch.Join("missing").c_str()));
    ASSERT_NE(nullptr, packages);
    EXPECT_TRUE(packages->empty());

    std::unique_ptr<std::vector<InstallPackage>> none(
        InstallPackage::GetAvailablePackages(nullptr));
    ASSERT_NE(nullptr, none);
    EXPECT_TRUE(none->empty());
}

TEST(AvailablePackages, EmptyDirectoryGivesAnEmptyList)
{
    TemporaryDirectory scratch;
    std::unique_ptr<std::vector<InstallPackage>> packages(
        InstallPackage::GetAvailablePackages(scratch.path.c_str()));
    ASSERT_NE(nullptr, packages);
    EXPECT_TRUE(packages->empty());
}

TEST(AvailablePackages, DosAndLinuxPackagesHighestFirst)
{
    TemporaryDirectory scratch;
    ASSERT_FALSE(scratch.path.empty());
    // Identification reads names only, so empty files will do.
    for (const char* name : {"Vidorama_12.05.01.3456.tar.gz", "130101.zip",
                             "Vidorama_14.02.00.7.tar.gz", "notes.tar.gz", "README.txt"})
    {
        WriteFile(scratch.Join(name), "");
    }

    std::unique_ptr<std::vector<InstallPackage>> packages(
        InstallPackage::GetAvailablePackages(scratch.path.c_str()));
    ASSERT_NE(nullptr, packages);
    ASSERT_EQ(3u, packages->size());

    EXPECT_EQ(scratch.Join("Vidorama_14.02.00.7.tar.gz"), (*packages)[0].GetPath());
    EXPECT_STREQ("14.02.00", (*packages)[0].GetVersion().GetVersion());
    EXPECT_FALSE((*packages)[0].GetVersion().IsDos());

    EXPECT_EQ(scratch.Join("130101.zip"), (*packages)[1].GetPath());
    EXPECT_STREQ("13.01.01", (*packages)[1].GetVersion().GetVersion());
    EXPECT_TRUE((*packages)[1].GetVersion().IsDos());

    EXPECT_EQ(scratch.Join("Vidorama_12.05.01.3456.tar.gz"), (*packages)[2].GetPath());
    EXPECT_STREQ("3456", (*packages)[2].GetVersion().GetRevision());
    EXPECT_STREQ(scratch.Join("Vidorama_12.05.01.3456.tar.gz").c_str(),
                 (*packages)[2].GetVersion().GetPath());
}

TEST(AvailablePackages, RevisionDecidesBetweenEqualVersions)
{
    TemporaryDirectory scratch;
    ASSERT_FALSE(scratch.path.empty());
    WriteFile(scratch.Join("120501.zip"), "");
    WriteFile(scratch.Join("Vidorama_12.05.01.3456.tar.gz"), "");

    std::unique_ptr<std::vector<InstallPackage>> packages(
        InstallPackage::GetAvailablePackages(scratch.path.c_str()));
    ASSERT_EQ(2u, packages->size());
    // Same name and version: the Linux package has a revision, the DOS one has none.
    EXPECT_FALSE((*packages)[0].GetVersion().IsDos());
    EXPECT_TRUE((*packages)[1].GetVersion().IsDos());
}

TEST(AvailablePackages, ManyPackagesSortedDescending)
{
    TemporaryDirectory scratch;
    ASSERT_FALSE(scratch.path.empty());
    for (int i = 1; i <= 40; ++i)
    {
        const std::string major = (i < 10 ? "0" : "") + std::to_string(i);
        WriteFile(
            scratch.Join("Vidorama_" + major + ".05.01." + std::to_string(100 + i) + ".tar.gz"),
            "");
    }

    std::unique_ptr<std::vector<InstallPackage>> packages(
        InstallPackage::GetAvailablePackages(scratch.path.c_str()));
    ASSERT_EQ(40u, packages->size());
    EXPECT_STREQ("40.05.01", packages->front().GetVersion().GetVersion());
    EXPECT_STREQ("01.05.01", packages->back().GetVersion().GetVersion());
    for (size_t i = 1; i < packages->size(); ++i)
    {
        EXPECT_TRUE((*packages)[i - 1].GetVersion() > (*packages)[i].GetVersion()) << i;
    }
}

TEST(AvailablePackages, ManyPackagesWithClashingNamesDoNotCrash)
{
    // Different names with equal versions make operator> inconsistent; sorting such a list
    // must stay within the vector.
    TemporaryDirectory scratch;
    ASSERT_FALSE(scratch.path.empty());
    const char* names[] = {"Vidorama", "Alpha", "Zeta", "Vidorama_Base", "Mid"};
    int count = 0;
    for (int i = 0; i < 60; ++i)
    {
        const std::string version =
            "1" + std::to_string(i % 4) + ".05.01." + std::to_string(1000 - 7 * i);
        WriteFile(scratch.Join(std::string(names[i % 5]) + "_" + version + ".tar.gz"), "");
        ++count;
    }
    for (int i = 10; i < 30; ++i)
    {
        WriteFile(scratch.Join(std::to_string(i) + "0501.zip"), "");
        ++count;
    }

    std::unique_ptr<std::vector<InstallPackage>> packages(
        InstallPackage::GetAvailablePackages(scratch.path.c_str()));
    ASSERT_EQ(static_cast<size_t>(count), packages->size());
    for (const InstallPackage& package : *packages)
    {
        EXPECT_TRUE(package.IsValid());
    }
}

// ---------------------------------------------------------------------------------------
// Extracted size

TEST(ExtractedSize, LinuxPackageCountsZipTwice)
{
    TemporaryDirectory scratch;
    const std::string path = scratch.Join("Vidorama_12.05.01.3456.tar.gz");
    ASSERT_TRUE(WriteArchive(
        path, {FileMember("data.bin", TenBytes), FileMember("img.zip", HundredBytes)}, false));
    EXPECT_EQ(210, InstallPackage(path.c_str()).GetExtractedSize());
}

TEST(ExtractedSize, DosPackageCountsZipTwice)
{
    TemporaryDirectory scratch;
    const std::string path = scratch.Join("120501.zip");
    ASSERT_TRUE(WriteArchive(path,
                             {DirectoryMember("120501/"), FileMember("120501/data.bin", TenBytes),
                              FileMember("120501/img.zip", HundredBytes)},
                             true));
    EXPECT_EQ(210, InstallPackage(path.c_str()).GetExtractedSize());
}

// The same packages as the vendor's tools make them, with a real directory tree.
TEST(ExtractedSize, PackagesMadeByTarAndZip)
{
    // The set-up script installs both: a missing one is a broken machine, not
    // a reason to pass without looking.
    ASSERT_EQ(::access("/usr/bin/tar", X_OK), 0) << "tar missing: run scripts/setup.sh";
    ASSERT_EQ(::access("/usr/bin/zip", X_OK), 0) << "zip missing: run scripts/setup.sh";
    TemporaryDirectory scratch;
    ASSERT_FALSE(scratch.path.empty());
    fs::create_directories(scratch.Join("tree/120501/sub"));
    WriteFile(scratch.Join("tree/120501/data.bin"), TenBytes);
    WriteFile(scratch.Join("tree/120501/img.zip"), HundredBytes);
    fs::create_symlink("data.bin", scratch.Join("tree/120501/sub/link"));

    const std::string commands = "cd '" + scratch.Join("tree") +
                                 "' && tar czf ../Vidorama_12.05.01.3456.tar.gz 120501 && "
                                 "zip -qry ../120501.zip 120501";
    ASSERT_EQ(0, std::system(commands.c_str()));

    EXPECT_EQ(
        210,
        InstallPackage(scratch.Join("Vidorama_12.05.01.3456.tar.gz").c_str()).GetExtractedSize());
    EXPECT_EQ(210, InstallPackage(scratch.Join("120501.zip").c_str()).GetExtractedSize());
}

TEST(ExtractedSize, DirectoriesAndLinksAddNothing)
{
    TemporaryDirectory scratch;
    const std::string path = scratch.Join("Vidorama_12.05.01.3456.tar.gz");
    ASSERT_TRUE(WriteArchive(
        path,
        {DirectoryMember("payload/"), FileMember("payload/data.bin", TenBytes),
         LinkMember("payload/link", "data.bin"), DirectoryMember("payload/empty/"),
         FileMember("payload/img.zip", HundredBytes), FileMember("payload/nothing.txt", "")},
        false));
    EXPECT_EQ(210, InstallPackage(path.c_str()).GetExtractedSize());
}

TEST(ExtractedSize, EmptyPackageIsZero)
{
    TemporaryDirectory scratch;
    const std::string path = scratch.Join("Vidorama_12.05.01.3456.tar.gz");
    ASSERT_TRUE(WriteArchive(path, {}, false));
    EXPECT_EQ(0, InstallPackage(path.c_str()).GetExtractedSize());
}

TEST(ExtractedSize, MissingFileIsMinusOne)
{
    TemporaryDirectory scratch;
    EXPECT_EQ(
        -1,
        InstallPackage(scratch.Join("Vidorama_12.05.01.3456.tar.gz").c_str()).GetExtractedSize());
    EXPECT_EQ(-1, InstallPackage(scratch.Join("120501.zip").c_str()).GetExtractedSize());
}

TEST(ExtractedSize, DamagedPackageIsMinusOne)
{
    TemporaryDirectory scratch;
    const std::string tarPath = scratch.Join("Vidorama_12.05.01.3456.tar.gz");
    const std::string dos = scratch.Join("120501.zip");
    WriteFile(tarPath, "this is not a compressed tar archive at all\n");
    WriteFile(dos, "nor is this a zip archive\n");
    EXPECT_EQ(-1, InstallPackage(tarPath.c_str()).GetExtractedSize());
    EXPECT_EQ(-1, InstallPackage(dos.c_str()).GetExtractedSize());
}

TEST(ExtractedSize, KindFollowsThePathNotTheContent)
{
    // A zip named like a Linux package is read as gzip+tar and refused.
    TemporaryDirectory scratch;
    const std::string path = scratch.Join("Vidorama_12.05.01.3456.tar.gz");
    ASSERT_TRUE(WriteArchive(path, {FileMember("data.bin", TenBytes)}, true));
    EXPECT_EQ(-1, InstallPackage(path.c_str()).GetExtractedSize());
}

// ---------------------------------------------------------------------------------------
// Extraction of single files

class ExtractFile : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(packages.path.empty());
        ASSERT_FALSE(work.path.empty());
        packagePath = packages.Join("Vidorama_12.05.01.3456.tar.gz");
    }

    TemporaryDirectory packages;
    TemporaryDirectory work;
    std::string packagePath;
};

TEST_F(ExtractFile, ExtractsEveryMatchingEntryIntoTheWorkingDirectory)
{
    ASSERT_TRUE(WriteArchive(
        packagePath,
        {FileMember("Install.sh", "#!/bin/sh\nexit 0\n", 0755), FileMember("Version.json", "{}"),
         DirectoryMember("tools/"), FileMember("tools/Install.sh", "second\n", 0700),
         FileMember("tools/OtherInstall.sh.bak", "no\n"), FileMember("empty/Install.sh", "")},
        false));
    const fs::path before = fs::current_path();
    {
        WorkingDirectory inside(work.path);
        ASSERT_TRUE(inside.changed);
        EXPECT_TRUE(InstallPackage(packagePath.c_str()).ExtractFileFomTar("Install.sh"));
    }
    EXPECT_EQ(before, fs::current_path());

    EXPECT_EQ((std::set<std::string>{"Install.sh", "tools", "tools/Install.sh"}),
              ListTree(work.path));
    EXPECT_EQ("#!/bin/sh\nexit 0\n", ReadFile(work.Join("Install.sh")));
    EXPECT_EQ("second\n", ReadFile(work.Join("tools/Install.sh")));

    struct stat status;
    ASSERT_EQ(0, ::stat(work.Join("Install.sh").c_str(), &status));
    EXPECT_EQ(0755u, status.st_mode & 07777);
    EXPECT_EQ(1336000000, status.st_mtime);
}

TEST_F(ExtractFile, DotSlashNamesMatchBySuffix)
{
    ASSERT_TRUE(WriteArchive(
        packagePath, {DirectoryMember("./"), FileMember("./Install.sh", "run\n", 0755)}, false));
    WorkingDirectory inside(work.path);
    ASSERT_TRUE(inside.changed);
    EXPECT_TRUE(InstallPackage(packagePath.c_str()).ExtractFileFomTar("Install.sh"));
    EXPECT_EQ("run\n", ReadFile(work.Join("Install.sh")));
}

TEST_F(ExtractFile, NoMatchingEntryStillSucceeds)
{
    ASSERT_TRUE(WriteArchive(packagePath, {FileMember("payload.bin", TenBytes)}, false));
    WorkingDirectory inside(work.path);
    ASSERT_TRUE(inside.changed);
    EXPECT_TRUE(InstallPackage(packagePath.c_str()).ExtractFileFomTar("Install.sh"));
    EXPECT_TRUE(ListTree(work.path).empty());
}

TEST_F(ExtractFile, EmptyEntryIsNotWritten)
{
    ASSERT_TRUE(WriteArchive(packagePath, {FileMember("Install.sh", "")}, false));
    WorkingDirectory inside(work.path);
    ASSERT_TRUE(inside.changed);
    EXPECT_TRUE(InstallPackage(packagePath.c_str()).ExtractFileFomTar("Install.sh"));
    EXPECT_TRUE(ListTree(work.path).empty());
}

TEST_F(ExtractFile, LargeEntryIsStreamedWhole)
{
    std::string large(3 * 1024 * 1024 + 17, '\0');
    for (size_t i = 0; i < large.size(); ++i)
    {
        large[i] = static_cast<char>((i * 131) % 251);
    }
    ASSERT_TRUE(WriteArchive(packagePath, {FileMember("payload/image.bin", large)}, false));
    WorkingDirectory inside(work.path);
    ASSERT_TRUE(inside.changed);
    EXPECT_TRUE(InstallPackage(packagePath.c_str()).ExtractFileFomTar("image.bin"));
    EXPECT_TRUE(large == ReadFile(work.Join("payload/image.bin")));
}

TEST_F(ExtractFile, MissingPackageFails)
{
    WorkingDirectory inside(work.path);
    ASSERT_TRUE(inside.changed);
    EXPECT_FALSE(InstallPackage(packagePath.c_str()).ExtractFileFomTar("Install.sh"));
    EXPECT_TRUE(ListTree(work.path).empty());
}

TEST_F(ExtractFile, DamagedPackageFails)
{
    WriteFile(packagePath, "garbage, not gzip\n");
    WorkingDirectory inside(work.path);
    ASSERT_TRUE(inside.changed);
    EXPECT_FALSE(InstallPackage(packagePath.c_str()).ExtractFileFomTar("Install.sh"));
}

TEST_F(ExtractFile, UnwritableTargetFails)
{
    // A directory in the way of the file makes the header write fail.
    ASSERT_TRUE(WriteArchive(packagePath, {FileMember("Install.sh", "run\n", 0755)}, false));
    fs::create_directory(work.Join("Install.sh"));
    fs::create_directory(work.Join("Install.sh/keep"));
    WorkingDirectory inside(work.path);
    ASSERT_TRUE(inside.changed);
    EXPECT_FALSE(InstallPackage(packagePath.c_str()).ExtractFileFomTar("Install.sh"));
}

TEST_F(ExtractFile, NullNameFails)
{
    ASSERT_TRUE(WriteArchive(packagePath, {FileMember("Install.sh", "run\n")}, false));
    WorkingDirectory inside(work.path);
    ASSERT_TRUE(inside.changed);
    EXPECT_FALSE(InstallPackage(packagePath.c_str()).ExtractFileFomTar(nullptr));
    EXPECT_TRUE(ListTree(work.path).empty());
}

// ---------------------------------------------------------------------------------------
// Extraction of a sub-tree

TEST_F(ExtractFile, DirectoryIsRewrittenToTheDestination)
{
    ASSERT_TRUE(
        WriteArchive(packagePath,
                     {FileMember("Install.sh", "run\n", 0755), DirectoryMember("payload/"),
                      FileMember("payload/a.txt", "a\n"), DirectoryMember("payload/b/"),
                      FileMember("payload/b/c.txt", "c\n"), LinkMember("payload/b/link", "c.txt"),
                      FileMember("payload/zero", ""), FileMember("other/d.txt", "d\n")},
                     false));
    const std::string destination = work.Join("dest/");
    EXPECT_TRUE(InstallPackage(packagePath.c_str())
                    .ExtractDirectoryFomTar("payload/", destination.c_str()));

    EXPECT_EQ((std::set<std::string>{"dest", "dest/a.txt", "dest/b", "dest/b/c.txt"}),
              ListTree(work.path));
    EXPECT_EQ("a\n", ReadFile(work.Join("dest/a.txt")));
    EXPECT_EQ("c\n", ReadFile(work.Join("dest/b/c.txt")));
}

TEST_F(ExtractFile, DirectoryPrefixIsPlainText)
{
    // The prefix is compared as text: "pay" also selects "payload/..." and the rest of the
    // name is appended as it is.
    ASSERT_TRUE(WriteArchive(packagePath, {FileMember("payload/a.txt", "a\n")}, false));
    const std::string destination = work.Join("x");
    EXPECT_TRUE(
        InstallPackage(packagePath.c_str()).ExtractDirectoryFomTar("pay", destination.c_str()));
    EXPECT_EQ("a\n", ReadFile(work.Join("xload/a.txt")));
}

TEST_F(ExtractFile, DirectoryWithoutMatchSucceeds)
{
    ASSERT_TRUE(WriteArchive(packagePath, {FileMember("payload/a.txt", "a\n")}, false));
    EXPECT_TRUE(InstallPackage(packagePath.c_str())
                    .ExtractDirectoryFomTar("missing/", work.Join("dest/").c_str()));
    EXPECT_TRUE(ListTree(work.path).empty());
}

TEST_F(ExtractFile, DirectoryFromMissingOrDamagedPackageFails)
{
    EXPECT_FALSE(InstallPackage(packagePath.c_str())
                     .ExtractDirectoryFomTar("payload/", work.Join("dest/").c_str()));
    WriteFile(packagePath, "garbage\n");
    EXPECT_FALSE(InstallPackage(packagePath.c_str())
                     .ExtractDirectoryFomTar("payload/", work.Join("dest/").c_str()));
    EXPECT_TRUE(ListTree(work.path).empty());
}

// ---------------------------------------------------------------------------------------
// Manifest inside the package

class Manifest : public ExtractFile
{
};

TEST_F(Manifest, JsonManifestUpdatesTheRecordButReportsFalse)
{
    ASSERT_TRUE(
        WriteArchive(packagePath,
                     {FileMember("Version.json",
                                 R"({"name": "Vidorama_Pro", "version": "9.0", "revision": "77"})"),
                      FileMember("payload.bin", TenBytes)},
                     false));
    InstallPackage package(packagePath.c_str());

    EXPECT_FALSE(package.ExtractInfosFromManifest());
    EXPECT_STREQ("Vidorama_Pro", package.GetVersion().GetName());
    EXPECT_STREQ("9.0", package.GetVersion().GetVersion());
    EXPECT_STREQ("77", package.GetVersion().GetRevision());
    EXPECT_STREQ("9.0.77", package.GetVersion().GetVersion(true));
    EXPECT_STREQ(packagePath.c_str(), package.GetVersion().GetPath());
    EXPECT_TRUE(package.IsValid());
}

TEST_F(Manifest, TextManifestUpdatesTheRecordButReportsFalse)
{
    ASSERT_TRUE(WriteArchive(
        packagePath,
        {DirectoryMember("./"), FileMember("./Version.txt", "Vidorama\r\n13.02.04.5678\r\n")},
        false));
    InstallPackage package(packagePath.c_str());

    EXPECT_FALSE(package.ExtractInfosFromManifest());
    EXPECT_STREQ("Vidorama", package.GetVersion().GetName());
    EXPECT_STREQ("13.02.04", package.GetVersion().GetVersion());
    EXPECT_STREQ("5678", package.GetVersion().GetRevision());
    EXPECT_STREQ(packagePath.c_str(), package.GetVersion().GetPath());
}

TEST_F(Manifest, ManifestBeforeTheInstallerIsRead)
{
    ASSERT_TRUE(WriteArchive(
        packagePath,
        {FileMember("Version.txt", "Other\n14.01.01.2\n"), FileMember("Install.sh", "run\n", 0755)},
        false));
    InstallPackage package(packagePath.c_str());

    EXPECT_FALSE(package.ExtractInfosFromManifest());
    EXPECT_STREQ("Other", package.GetVersion().GetName());
    EXPECT_STREQ("14.01.01", package.GetVersion().GetVersion());
    EXPECT_STREQ("2", package.GetVersion().GetRevision());
}

TEST_F(Manifest, WalkStopsAfterTheInstaller)
{
    // The entry after "Install.sh" is never looked at, so the record keeps the file name's
    // identity, and no manifest was found.
    ASSERT_TRUE(WriteArchive(packagePath,
                             {FileMember("Install.sh", "run\n", 0755),
                              FileMember("Version.json", R"({"name": "Other"})")},
                             false));
    InstallPackage package(packagePath.c_str());

    EXPECT_FALSE(package.ExtractInfosFromManifest());
    EXPECT_STREQ("Vidorama", package.GetVersion().GetName());
    EXPECT_STREQ("12.05.01", package.GetVersion().GetVersion());
    EXPECT_STREQ("3456", package.GetVersion().GetRevision());
}

TEST_F(Manifest, FirstNonEmptyManifestWins)
{
    ASSERT_TRUE(WriteArchive(packagePath,
                             {FileMember("Version.json", ""),
                              FileMember("Version.txt", "FromText\n11.11.11.11\n"),
                              FileMember("old/Version.json", R"({"name": "Late"})")},
                             false));
    InstallPackage package(packagePath.c_str());

    EXPECT_FALSE(package.ExtractInfosFromManifest());
    EXPECT_STREQ("FromText", package.GetVersion().GetName());
    EXPECT_STREQ("11.11.11", package.GetVersion().GetVersion());
}

TEST_F(Manifest, NoManifestLeavesTheRecord)
{
    ASSERT_TRUE(WriteArchive(packagePath, {FileMember("payload.bin", TenBytes)}, false));
    InstallPackage package(packagePath.c_str());

    EXPECT_FALSE(package.ExtractInfosFromManifest());
    EXPECT_STREQ("Vidorama", package.GetVersion().GetName());
    EXPECT_STREQ("3456", package.GetVersion().GetRevision());
}

TEST_F(Manifest, DosPackageIsNotOpened)
{
    const std::string dos = packages.Join("120501.zip");
    ASSERT_TRUE(WriteArchive(dos, {FileMember("Version.txt", "Other\n14.01.01.2\n")}, true));
    InstallPackage package(dos.c_str());

    EXPECT_FALSE(package.ExtractInfosFromManifest());
    EXPECT_STREQ("Vidorama", package.GetVersion().GetName());
    EXPECT_TRUE(package.GetVersion().IsDos());
}

TEST_F(Manifest, MissingOrDamagedPackageReportsFalse)
{
    InstallPackage missing(packagePath.c_str());
    EXPECT_FALSE(missing.ExtractInfosFromManifest());
    EXPECT_STREQ("Vidorama", missing.GetVersion().GetName());

    WriteFile(packagePath, "garbage\n");
    InstallPackage damaged(packagePath.c_str());
    EXPECT_FALSE(damaged.ExtractInfosFromManifest());
    EXPECT_STREQ("Vidorama", damaged.GetVersion().GetName());
}

// ---------------------------------------------------------------------------------------
// Block copy

struct ReaderFree
{
    void operator()(archive* reader) const { archive_read_free(reader); }
};

struct WriterFree
{
    void operator()(archive* writer) const { archive_write_free(writer); }
};

TEST_F(ExtractFile, CopyDataCopiesOneEntry)
{
    ASSERT_TRUE(WriteArchive(
        packagePath, {FileMember("one.txt", "first\n"), FileMember("two.txt", "second\n")}, false));
    std::unique_ptr<archive, ReaderFree> reader(archive_read_new());
    archive_read_support_filter_gzip(reader.get());
    archive_read_support_format_tar(reader.get());
    ASSERT_EQ(ARCHIVE_OK, archive_read_open_filename(reader.get(), packagePath.c_str(), 10240));
    std::unique_ptr<archive, WriterFree> writer(archive_write_disk_new());

    archive_entry* entry = nullptr;
    ASSERT_EQ(ARCHIVE_OK, archive_read_next_header(reader.get(), &entry));
    const std::string target = work.Join("copy.txt");
    archive_entry_set_pathname(entry, target.c_str());
    ASSERT_EQ(ARCHIVE_OK, archive_write_header(writer.get(), entry));
    EXPECT_EQ(0, CopyData(reader.get(), writer.get()));
    archive_write_close(writer.get());
    EXPECT_EQ("first\n", ReadFile(target));
}

} // namespace
