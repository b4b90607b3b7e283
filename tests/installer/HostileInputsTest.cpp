// Broken and hostile inputs of the installer library on the host: packages cut short or
// with bytes overwritten, manifests that are not JSON, and identity tools that print
// nothing. Every case must end in the documented result, quickly, without a crash, and
// must leave what was there before where it was.
#include "EepromReader.h"
#include "InstallPackage.h"
#include "PackageVersion.h"
#include "ScratchDirectory.h"
#include "TestArchive.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace
{

using Kel::Vidorama::InstallerLib::EepromInfo;
using Kel::Vidorama::InstallerLib::EepromReader;
using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::PackageVersion;

namespace fs = std::filesystem;
using TestSupport::NoiseBytes;
using TestSupport::ReadFile;
using TestSupport::ScratchDirectory;
using TestSupport::WorkingDirectory;
using TestSupport::WriteArchive;
using TestSupport::WriteFile;
using Member = TestSupport::ArchiveMember;

// Text that deflate codes with Huffman tables: a damaged byte there breaks the stream.
std::string LogLines(std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
    {
        text += "frame " + std::to_string(i * 7919 % 100003) + " channel " +
                std::to_string(i % 13) + " ok\n";
    }
    return text;
}

const std::string Installer = "#!/bin/sh\n# copies the payload\ntouch installer-ran\nexit 0\n";

// Comment lines of hexadecimal noise: a script that deflate can hardly shrink, so that its
// compressed form fills the end of the package.
std::string PaddedInstaller()
{
    static const char Hex[] = "0123456789abcdef";
    const std::string noise = NoiseBytes(64 * 1024, 13);
    std::string script = Installer;
    for (std::size_t i = 0; i < noise.size(); ++i)
    {
        if (i % 32 == 0)
        {
            script += "\n# ";
        }
        const auto byte = static_cast<unsigned char>(noise[i]);
        script += Hex[byte >> 4];
        script += Hex[byte & 15];
    }
    return script + "\n";
}

// The payload first and the installer last, as vendors lay their packages out. The script
// is padded so that the second half of the file is the installer's.
std::vector<Member> InstallerLastMembers(const std::string& payload)
{
    const std::string script = PaddedInstaller();
    return {
        {"payload/Version.json", R"({"name": "Vidorama", "version": "12.07.01", "revision": "1"})"},
        {"payload/media.bin", payload},
        {"Install.sh", script, 0755}};
}

// The installer first, then the payload.
std::vector<Member> InstallerFirstMembers(const std::string& payload)
{
    return {
        {"Install.sh", Installer, 0755},
        {"payload/Version.json", R"({"name": "Vidorama", "version": "12.07.01", "revision": "1"})"},
        {"payload/media.bin", payload}};
}

std::int64_t ExtractedSize(const std::vector<Member>& members)
{
    std::int64_t total = 0;
    for (const Member& member : members)
    {
        total += static_cast<std::int64_t>(member.content.size());
    }
    return total;
}

// Overwrites count bytes from the middle of the file on.
void Damage(const std::string& path, std::size_t count, char value)
{
    std::string bytes = ReadFile(path);
    const std::size_t middle = bytes.size() / 2;
    for (std::size_t i = middle; i < middle + count && i < bytes.size(); ++i)
    {
        bytes[i] = static_cast<char>(bytes[i] ^ value);
    }
    WriteFile(path, bytes);
}

void Truncate(const std::string& path, std::size_t size)
{
    fs::resize_file(path, size);
}

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

const char* const LinuxName = "Vidorama_12.07.01.1.tar.gz";
const char* const DosName = "120701.zip";

class BrokenPackage : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(scratch.path.empty()) << "cannot create a temporary directory";
        fs::create_directory(work());
        ASSERT_TRUE(fs::is_directory(work()));
    }

    std::string work() const { return scratch.Join("work"); }
    std::string linuxPath() const { return scratch.Join(LinuxName); }
    std::string dosPath() const { return scratch.Join(DosName); }

    ScratchDirectory scratch;
};

// ---------------------------------------------------------------------------------------
// Linux packages cut short

TEST_F(BrokenPackage, ATruncatedLinuxPackageHasNoKnownSize)
{
    const auto members = InstallerLastMembers(LogLines(20000));
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    InstallPackage whole(linuxPath().c_str());
    ASSERT_EQ(whole.GetExtractedSize(), ExtractedSize(members));

    Truncate(linuxPath(), fs::file_size(linuxPath()) / 2);
    InstallPackage cut(linuxPath().c_str());
    EXPECT_EQ(cut.GetExtractedSize(), -1);
}

TEST_F(BrokenPackage, EveryCutOfALinuxPackageIsRefused)
{
    // The cut may fall in a header, in data, in the end blocks or in the gzip trailer.
    const auto members = InstallerFirstMembers(NoiseBytes(40000, 7));
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    const std::string whole = ReadFile(linuxPath());
    const std::size_t step = whole.size() / 97 + 1;
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t size = 0; size < whole.size(); size += step)
    {
        WriteFile(linuxPath(), whole.substr(0, size));
        InstallPackage cut(linuxPath().c_str());
        EXPECT_EQ(cut.GetExtractedSize(), -1) << "cut at " << size << " of " << whole.size();
    }
    for (std::size_t tail = 1; tail <= 8; ++tail)
    {
        WriteFile(linuxPath(), whole.substr(0, whole.size() - tail));
        InstallPackage cut(linuxPath().c_str());
        EXPECT_EQ(cut.GetExtractedSize(), -1) << tail << " bytes of the trailer missing";
    }
    EXPECT_LT(SecondsSince(start), 30.0);
}

TEST_F(BrokenPackage, AnInstallerCutShortIsNeverReportedAsExtracted)
{
    const auto members = InstallerLastMembers(LogLines(2000));
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    const std::string whole = ReadFile(linuxPath());

    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    // Cuts through the second half of the file, where the installer lies: the package is
    // read to its end before anything is written, so not even a part of the script is left.
    for (std::size_t size = whole.size() / 2; size < whole.size(); size += whole.size() / 41)
    {
        WriteFile(linuxPath(), whole.substr(0, size));
        InstallPackage package(linuxPath().c_str());
        EXPECT_FALSE(package.ExtractFileFomTar("Install.sh")) << "cut at " << size;
        EXPECT_FALSE(fs::exists(work() + "/Install.sh")) << "cut at " << size;
    }
    EXPECT_FALSE(fs::exists(work() + "/installer-ran"));
}

TEST_F(BrokenPackage, AnInstallerBeforeTheCutIsNotExtractedEither)
{
    const auto members = InstallerFirstMembers(LogLines(20000));
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    Truncate(linuxPath(), fs::file_size(linuxPath()) / 2);

    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    InstallPackage package(linuxPath().c_str());
    EXPECT_FALSE(package.ExtractFileFomTar("Install.sh"));
    // The script itself was whole, but the package is not: nothing of it is written.
    EXPECT_FALSE(fs::exists(work() + "/Install.sh"));
}

TEST_F(BrokenPackage, AnInstallationFromATruncatedPackageNeverRunsItsInstaller)
{
    // The script would leave "installer-ran" in the working directory.
    const auto members = InstallerLastMembers(LogLines(2000));
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    Truncate(linuxPath(), fs::file_size(linuxPath()) - 16 * 1024);

    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    // A stale installer of an earlier run is not run either.
    WriteFile(work() + "/Install.sh", "#!/bin/sh\ntouch stale-ran\n");
    ::chmod((work() + "/Install.sh").c_str(), 0755);
    InstallPackage package(linuxPath().c_str());
    std::ostringstream log;
    EXPECT_EQ(package.InstallLinuxPackage(log), InstallPackage::InvalidPackage);
    EXPECT_EQ(log.str(), "");
    EXPECT_FALSE(fs::exists(work() + "/installer-ran"));
    EXPECT_FALSE(fs::exists(work() + "/stale-ran"));
}

TEST_F(BrokenPackage, TheManifestOfATruncatedPackageIsReadUpToTheCut)
{
    const auto members = InstallerLastMembers(LogLines(20000));
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    Truncate(linuxPath(), fs::file_size(linuxPath()) / 2);
    InstallPackage package(linuxPath().c_str());
    // The manifest lies before the cut; the result rule gives false whenever one was read.
    EXPECT_FALSE(package.ExtractInfosFromManifest());
    EXPECT_STREQ(package.GetVersion().GetVersion(true), "12.07.01.1");
    EXPECT_STREQ(package.GetVersion().GetPath(), linuxPath().c_str());
}

// ---------------------------------------------------------------------------------------
// Linux packages with bytes overwritten

TEST_F(BrokenPackage, ALinuxPackageWithADamagedGzipHeaderCannotBeRead)
{
    const auto members = InstallerFirstMembers(LogLines(2000));
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    std::string bytes = ReadFile(linuxPath());
    bytes[0] = 'P';
    bytes[1] = 'K';
    WriteFile(linuxPath(), bytes);
    InstallPackage package(linuxPath().c_str());
    EXPECT_EQ(package.GetExtractedSize(), -1);
    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    EXPECT_FALSE(package.ExtractFileFomTar("Install.sh"));
    EXPECT_FALSE(fs::exists(work() + "/Install.sh"));
}

TEST_F(BrokenPackage, ADamagedInstallerIsNeverExtractedAsIfItWereWhole)
{
    // Bytes overwritten inside the installer's compressed data. The reader does not check
    // the gzip checksum, and deflate often decodes damage into other bytes of the same
    // length: the extraction must not report success then, or the damaged script is run.
    const auto members = InstallerLastMembers(LogLines(2000));
    const std::string& script = members.back().content;
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    const std::string whole = ReadFile(linuxPath());

    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    int accepted = 0;
    int tries = 0;
    for (std::size_t at = whole.size() * 3 / 5; at < whole.size() * 9 / 10;
         at += whole.size() / 53, ++tries)
    {
        std::string damaged = whole;
        for (std::size_t i = at; i < at + 64; ++i)
        {
            damaged[i] = static_cast<char>(damaged[i] ^ 0x5a);
        }
        WriteFile(linuxPath(), damaged);
        fs::remove(work() + "/Install.sh");
        InstallPackage package(linuxPath().c_str());
        if (package.ExtractFileFomTar("Install.sh") && ReadFile(work() + "/Install.sh") != script)
        {
            ++accepted;
        }
        const int size = package.GetExtractedSize();
        EXPECT_TRUE(size == -1 || size == ExtractedSize(members)) << size;
    }
    EXPECT_EQ(accepted, 0) << accepted << " of " << tries
                           << " damaged installers were reported as extracted";
}

TEST_F(BrokenPackage, DamageAnywhereInALinuxPackageGivesMinusOneOrTheTrueSize)
{
    const auto members = InstallerFirstMembers(LogLines(3000) + NoiseBytes(30000, 3));
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    const std::string whole = ReadFile(linuxPath());
    const std::size_t step = whole.size() / 89 + 1;
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t at = 0; at < whole.size(); at += step)
    {
        std::string damaged = whole;
        for (std::size_t i = at; i < at + 16 && i < damaged.size(); ++i)
        {
            damaged[i] = static_cast<char>(~damaged[i]);
        }
        WriteFile(linuxPath(), damaged);
        InstallPackage package(linuxPath().c_str());
        const int size = package.GetExtractedSize();
        EXPECT_TRUE(size == -1 || size == ExtractedSize(members))
            << "damage at " << at << ": " << size;
        // Reading the manifest out of it ends, whatever it finds.
        package.ExtractInfosFromManifest();
    }
    EXPECT_LT(SecondsSince(start), 30.0);
}

// ---------------------------------------------------------------------------------------
// DOS packages

std::vector<Member> DosMembers()
{
    return {{"120701/README.TXT", LogLines(500)}, {"120701/img.zip", NoiseBytes(64 * 1024, 5)}};
}

std::int64_t DosExtractedSize()
{
    // "img.zip" counts twice: it is unpacked in turn.
    const auto members = DosMembers();
    return static_cast<std::int64_t>(members[0].content.size() + 2 * members[1].content.size());
}

TEST_F(BrokenPackage, ATruncatedDosPackageHasNoKnownSizeOrItsTrueOne)
{
    ASSERT_TRUE(WriteArchive(dosPath(), DosMembers(), true));
    ASSERT_EQ(InstallPackage(dosPath().c_str()).GetExtractedSize(), DosExtractedSize());
    const std::string whole = ReadFile(dosPath());

    // Cut in the middle of the image: the walk over the entries cannot reach its end.
    Truncate(dosPath(), whole.size() / 2);
    EXPECT_EQ(InstallPackage(dosPath().c_str()).GetExtractedSize(), -1);
    // Single files are only ever taken out of Linux packages.
    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    EXPECT_FALSE(InstallPackage(dosPath().c_str()).ExtractFileFomTar("img.zip"));
    EXPECT_FALSE(fs::exists(work() + "/120701"));

    // Cut inside the central directory at the end: the entries were all walked before it,
    // so the size is known; unzip is the one that refuses such a package.
    WriteFile(dosPath(), whole.substr(0, whole.size() - 30));
    const int size = InstallPackage(dosPath().c_str()).GetExtractedSize();
    EXPECT_TRUE(size == -1 || size == DosExtractedSize()) << size;
}

TEST_F(BrokenPackage, EveryCutOfADosPackageGivesMinusOneOrTheTrueSize)
{
    ASSERT_TRUE(WriteArchive(dosPath(), DosMembers(), true));
    const std::string whole = ReadFile(dosPath());
    const std::size_t step = whole.size() / 97 + 1;
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t size = 0; size < whole.size(); size += step)
    {
        WriteFile(dosPath(), whole.substr(0, size));
        const int extracted = InstallPackage(dosPath().c_str()).GetExtractedSize();
        EXPECT_TRUE(extracted == -1 || extracted == DosExtractedSize())
            << "cut at " << size << ": " << extracted;
    }
    EXPECT_LT(SecondsSince(start), 30.0);
}

TEST_F(BrokenPackage, DamageAnywhereInADosPackageGivesMinusOneOrTheTrueSize)
{
    ASSERT_TRUE(WriteArchive(dosPath(), DosMembers(), true));
    const std::string whole = ReadFile(dosPath());
    const std::size_t step = whole.size() / 89 + 1;
    for (std::size_t at = 0; at < whole.size(); at += step)
    {
        std::string damaged = whole;
        for (std::size_t i = at; i < at + 16 && i < damaged.size(); ++i)
        {
            damaged[i] = static_cast<char>(~damaged[i]);
        }
        WriteFile(dosPath(), damaged);
        const int extracted = InstallPackage(dosPath().c_str()).GetExtractedSize();
        // A damaged local header may also announce another size: any answer will do as long
        // as the reader ends. Its sizes are only a first check before unzip.
        EXPECT_GE(extracted, -1) << "damage at " << at;
    }
}

TEST_F(BrokenPackage, ADosPackageDamagedInTheMiddleKeepsItsAnnouncedSize)
{
    // The sizes come from the entry headers; the damaged data is skipped, never checked.
    ASSERT_TRUE(WriteArchive(dosPath(), DosMembers(), true));
    Damage(dosPath(), 64, '\x5a');
    EXPECT_EQ(InstallPackage(dosPath().c_str()).GetExtractedSize(), DosExtractedSize());
}

TEST_F(BrokenPackage, ALinuxPackageIsNeverExtractedAsAZipNorTheOtherWay)
{
    // A DOS package's contents behind a Linux package's name, and the reverse.
    ASSERT_TRUE(WriteArchive(linuxPath(), DosMembers(), true));
    ASSERT_TRUE(WriteArchive(dosPath(), InstallerFirstMembers("data"), false));
    EXPECT_EQ(InstallPackage(linuxPath().c_str()).GetExtractedSize(), -1);
    EXPECT_EQ(InstallPackage(dosPath().c_str()).GetExtractedSize(), -1);
    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    EXPECT_FALSE(InstallPackage(linuxPath().c_str()).ExtractFileFomTar("Install.sh"));
    EXPECT_FALSE(fs::exists(work() + "/Install.sh"));
}

TEST_F(BrokenPackage, APackageThatIsADirectoryOrEmptyHasNoKnownSize)
{
    fs::create_directory(linuxPath());
    WriteFile(dosPath(), "");
    EXPECT_EQ(InstallPackage(linuxPath().c_str()).GetExtractedSize(), -1);
    EXPECT_EQ(InstallPackage(dosPath().c_str()).GetExtractedSize(), -1);
    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    EXPECT_FALSE(InstallPackage(linuxPath().c_str()).ExtractFileFomTar("Install.sh"));
}

// ---------------------------------------------------------------------------------------
// Damaged, not unreadable: a Linux package whose bytes prove it damaged is told apart from
// one that cannot be read, and its installation says so before anything is done.

std::string DamagedLines(const char* name)
{
    return std::string("Package installation failed!\nThe package ") + name +
           " is damaged and cannot be installed\n";
}

TEST_F(BrokenPackage, AWholePackageIsMeasuredInBothWidthsAndIsNotDamaged)
{
    const auto members = InstallerLastMembers(LogLines(2000));
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    InstallPackage package(linuxPath().c_str());
    bool damaged = true;
    EXPECT_EQ(package.GetExtractedSize64(&damaged), ExtractedSize(members));
    EXPECT_FALSE(damaged);
    EXPECT_EQ(package.GetExtractedSize(), ExtractedSize(members));
    EXPECT_EQ(package.GetExtractedSize64(), ExtractedSize(members));
}

TEST_F(BrokenPackage, EveryCutOfALinuxPackageProvesItDamaged)
{
    const auto members = InstallerFirstMembers(NoiseBytes(40000, 7));
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    const std::string whole = ReadFile(linuxPath());
    for (std::size_t size = 0; size < whole.size(); size += size < 64 ? 1 : 997)
    {
        WriteFile(linuxPath(), whole.substr(0, size));
        bool damaged = false;
        EXPECT_EQ(InstallPackage(linuxPath().c_str()).GetExtractedSize64(&damaged), -1)
            << "cut at " << size;
        EXPECT_TRUE(damaged) << "cut at " << size;
    }
}

TEST_F(BrokenPackage, OverwrittenBytesProveALinuxPackageDamaged)
{
    for (const char value : {'\x01', '\x5a', '\xff'})
    {
        ASSERT_TRUE(WriteArchive(linuxPath(), InstallerFirstMembers(LogLines(2000)), false));
        Damage(linuxPath(), 16, value);
        bool damaged = false;
        EXPECT_EQ(InstallPackage(linuxPath().c_str()).GetExtractedSize64(&damaged), -1);
        EXPECT_TRUE(damaged) << static_cast<int>(value);
    }
    // Not gzip at all, or a gzip stream that holds no tar.
    WriteFile(linuxPath(), "this is not a compressed tar archive at all\n");
    bool damaged = false;
    EXPECT_EQ(InstallPackage(linuxPath().c_str()).GetExtractedSize64(&damaged), -1);
    EXPECT_TRUE(damaged);
    ASSERT_EQ(std::system(("printf 'plain text, no tar\\n' | gzip -c > " + linuxPath()).c_str()),
              0);
    damaged = false;
    EXPECT_EQ(InstallPackage(linuxPath().c_str()).GetExtractedSize64(&damaged), -1);
    EXPECT_TRUE(damaged);
}

TEST_F(BrokenPackage, APackageThatCannotBeReadIsNotSaidToBeDamaged)
{
    bool damaged = true;
    EXPECT_EQ(InstallPackage(linuxPath().c_str()).GetExtractedSize64(&damaged), -1);
    EXPECT_FALSE(damaged) << "a missing file";
    // Opened, but every read fails.
    fs::create_directory(linuxPath());
    damaged = true;
    EXPECT_EQ(InstallPackage(linuxPath().c_str()).GetExtractedSize64(&damaged), -1);
    EXPECT_FALSE(damaged) << "a directory";
    // DOS packages are checked by unzip when they are unpacked, not here.
    WriteFile(dosPath(), "nor is this a zip archive\n");
    damaged = true;
    EXPECT_EQ(InstallPackage(dosPath().c_str()).GetExtractedSize64(&damaged), -1);
    EXPECT_FALSE(damaged);
}

TEST_F(BrokenPackage, TheInstallationOfADamagedPackageSaysSoAndDoesNothing)
{
    // The installer comes first and is whole: only the check of the whole file stops it.
    const auto members = InstallerFirstMembers(LogLines(2000));
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    const std::string whole = ReadFile(linuxPath());
    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    for (const std::string& bytes : {whole.substr(0, whole.size() - 100), whole.substr(0, 10)})
    {
        WriteFile(linuxPath(), bytes);
        InstallPackage package(linuxPath().c_str());
        std::ostringstream log;
        EXPECT_EQ(package.Install(log), InstallPackage::DamagedPackage);
        EXPECT_EQ(log.str(), DamagedLines(LinuxName));
        std::ostringstream check;
        EXPECT_FALSE(package.CheckAvailableDiskSpace(check));
        EXPECT_EQ(check.str(), DamagedLines(LinuxName));
        EXPECT_EQ(log.str().find("space"), std::string::npos);
        EXPECT_TRUE(fs::is_empty(work())) << "nothing extracted, nothing run";
    }
    WriteFile(linuxPath(), whole);
    Damage(linuxPath(), 16, '\x5a');
    InstallPackage damaged(linuxPath().c_str());
    std::ostringstream log;
    EXPECT_EQ(damaged.Install(log), InstallPackage::DamagedPackage);
    EXPECT_EQ(log.str(), DamagedLines(LinuxName));
    EXPECT_TRUE(fs::is_empty(work()));
}

// ---------------------------------------------------------------------------------------
// Manifests that are not JSON

PackageVersion ParsedJs(const std::string& text)
{
    std::istringstream stream(text);
    return PackageVersion::ParseJs(stream);
}

void ExpectEmpty(const PackageVersion& version)
{
    EXPECT_TRUE(version.IsEmpty());
    EXPECT_STREQ(version.GetName(), "");
    EXPECT_STREQ(version.GetVersion(), "");
    EXPECT_STREQ(version.GetRevision(), "");
    EXPECT_STREQ(version.GetVersion(true), "");
}

TEST(BrokenManifest, TextThatIsNotJsonGivesAnEmptyRecord)
{
    ExpectEmpty(ParsedJs("Vidorama\n12.05.01.3456\n"));
    ExpectEmpty(ParsedJs("{\"name\": \"Vidorama\", \"version\": "));
    ExpectEmpty(ParsedJs("<?xml version=\"1.0\"?><name>Vidorama</name>"));
}

TEST(BrokenManifest, TextAfterAWholeObjectIsIgnored)
{
    // The reader stops after the first document and accepts what follows it.
    const PackageVersion version = ParsedJs("{\"name\": \"Vidorama\"} trailing");
    EXPECT_STREQ(version.GetName(), "Vidorama");
    EXPECT_STREQ(version.GetVersion(), "");
}

TEST(BrokenManifest, AnEmptyManifestGivesAnEmptyRecord)
{
    ExpectEmpty(ParsedJs(""));
    ExpectEmpty(ParsedJs("\n\n   \t\n"));
}

TEST(BrokenManifest, BinaryBytesGiveAnEmptyRecord)
{
    ExpectEmpty(ParsedJs(NoiseBytes(4096, 17)));
    ExpectEmpty(ParsedJs(std::string("{\"name\": \"Vid\0rama\"", 19) + std::string(100, '\0')));
    ExpectEmpty(ParsedJs(std::string(1 << 16, '\xff')));
}

TEST(BrokenManifest, DeepNestingGivesAnEmptyRecordWithoutThrowing)
{
    PackageVersion version;
    EXPECT_NO_THROW(version = ParsedJs(std::string(100000, '[')));
    ExpectEmpty(version);
    EXPECT_NO_THROW(version = ParsedJs(std::string(100000, '{')));
    ExpectEmpty(version);
}

TEST(BrokenManifest, AnInstalledVersionWithABrokenManifestHasAnEmptyIdentity)
{
    ScratchDirectory versions;
    ASSERT_FALSE(versions.path.empty());
    const struct
    {
        const char* directory;
        std::string manifest;
    } broken[] = {{"text", "Vidorama\n12.05.01.3456\n"},
                  {"empty", ""},
                  {"binary", NoiseBytes(2048, 23)},
                  {"nested", std::string(50000, '[')}};
    for (const auto& version : broken)
    {
        fs::create_directory(versions.Join(version.directory));
        WriteFile(versions.Join(version.directory) + "/Version.json", version.manifest);
        // "Version.json" is preferred even when it is unreadable.
        WriteFile(versions.Join(version.directory) + "/Version.txt", "Vidorama\n12.05.01.1\n");
        ExpectEmpty(InstallPackage::ReadVersionManifest(versions.Join(version.directory) + "/"));
    }
    fs::create_directory(versions.Join("good"));
    WriteFile(versions.Join("good/Version.json"),
              R"({"name": "Vidorama", "version": "12.05.01", "revision": "3456"})");

    // Each is still a version directory: listed with its path and no identity.
    std::unique_ptr<std::vector<PackageVersion>> installed(
        InstallPackage::GetInstalledPackages(versions.path.c_str()));
    ASSERT_EQ(installed->size(), 5u);
    EXPECT_STREQ(installed->front().GetVersion(true), "12.05.01.3456");
    for (std::size_t i = 1; i < installed->size(); ++i)
    {
        EXPECT_TRUE((*installed)[i].IsEmpty()) << (*installed)[i].GetPath();
        EXPECT_NE(std::string((*installed)[i].GetPath()).find(versions.path), std::string::npos);
    }
}

TEST(BrokenManifest, AManifestThatIsADirectoryGivesAnEmptyRecord)
{
    ScratchDirectory versions;
    ASSERT_FALSE(versions.path.empty());
    const std::string version = versions.Join("12.05.01.1");
    fs::create_directories(version + "/Version.json");
    WriteFile(version + "/Version.txt", "Vidorama\n12.05.01.1\n");
    // Opening a directory succeeds; reading it fails.
    PackageVersion read;
    EXPECT_NO_THROW(read = InstallPackage::ReadVersionManifest(version + "/"));
    ExpectEmpty(read);
    // The listing looks for a file, and takes the text manifest instead.
    std::unique_ptr<std::vector<PackageVersion>> installed;
    EXPECT_NO_THROW(installed.reset(InstallPackage::GetInstalledPackages(versions.path.c_str())));
    ASSERT_TRUE(installed != nullptr);
    ASSERT_EQ(installed->size(), 1u);
    EXPECT_STREQ(installed->front().GetVersion(true), "12.05.01.1");
}

TEST_F(BrokenPackage, ABrokenManifestInAPackageEmptiesTheRecord)
{
    const std::vector<Member> members = {{"payload/Version.json", NoiseBytes(300, 29)},
                                         {"Install.sh", Installer, 0755}};
    ASSERT_TRUE(WriteArchive(linuxPath(), members, false));
    InstallPackage package(linuxPath().c_str());
    ASSERT_STREQ(package.GetVersion().GetName(), "Vidorama");
    EXPECT_FALSE(package.ExtractInfosFromManifest());
    // The unreadable manifest replaces the identity from the file name; only the path stays.
    EXPECT_TRUE(package.GetVersion().IsEmpty());
    EXPECT_STREQ(package.GetVersion().GetPath(), linuxPath().c_str());
    EXPECT_TRUE(package.IsValid());
}

// ---------------------------------------------------------------------------------------
// Identity tools that print nothing

class SilentIdentityTool : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(scratch.path.empty());
        EepromReader::info = EepromInfo();
        EepromReader::eepromRead = false;
        EepromReader::kernelLoaded = false;
    }

    void TearDown() override
    {
        EepromReader::info = EepromInfo();
        EepromReader::eepromRead = false;
        EepromReader::kernelLoaded = false;
    }

    // A tool that counts its runs, prints body (a shell fragment) and exits with status.
    std::string Tool(const std::string& body, int status)
    {
        const std::string path = scratch.Join("EepromReader");
        WriteFile(path, "#!/bin/sh\necho run >> " + scratch.Join("runs") + "\n" + body + "\nexit " +
                            std::to_string(status) + "\n");
        ::chmod(path.c_str(), 0755);
        return path;
    }

    int Runs() const
    {
        const std::string runs = ReadFile(scratch.Join("runs"));
        int count = 0;
        for (char c : runs)
        {
            count += c == '\n';
        }
        return count;
    }

    ScratchDirectory scratch;
};

TEST_F(SilentIdentityTool, NothingPrintedAndSuccessCountsAsARunWithAnEmptyIdentity)
{
    EepromReader reader("/d/", "/u/", Tool("", 0).c_str());
    EXPECT_TRUE(reader.ReadInfos());
    EXPECT_EQ(EepromReader::info.serialNumber, "");
    EXPECT_EQ(EepromReader::info.chassis, "");
    EXPECT_TRUE(EepromReader::info.IsVidorama14AndLessCompatible());
    EXPECT_EQ(Runs(), 1);
}

TEST_F(SilentIdentityTool, NothingPrintedAndFailureIsNotARun)
{
    EepromReader::info.serialNumber = "kept";
    EepromReader reader("/d/", "/u/", Tool("", 1).c_str());
    EXPECT_FALSE(reader.ReadInfos());
    EXPECT_EQ(EepromReader::info.serialNumber, "kept");
    EXPECT_EQ(EepromReader::info.chassis, "");
    EXPECT_EQ(Runs(), 1);
}

TEST_F(SilentIdentityTool, OnlyBlanksOrBinaryBytesLeaveTheIdentityEmpty)
{
    EepromReader blanks("/d/", "/u/", Tool("printf '\\n \\t\\n'", 0).c_str());
    EXPECT_TRUE(blanks.ReadInfos());
    EepromReader binary("/d/", "/u/", Tool("head -c 4096 /dev/urandom", 0).c_str());
    EXPECT_TRUE(binary.ReadInfos());
    EXPECT_EQ(EepromReader::info.serialNumber, "");
    EXPECT_EQ(EepromReader::info.chassis, "");
}

TEST_F(SilentIdentityTool, AToolKilledBySignalIsNotARun)
{
    EepromReader reader("/d/", "/u/", Tool("kill -KILL $$", 0).c_str());
    EXPECT_FALSE(reader.ReadInfos());
    EXPECT_EQ(EepromReader::info.serialNumber, "");
}

TEST_F(SilentIdentityTool, AnIdentityCutByAByte0xFFIsNotJson)
{
    // The command output ends at a byte 0xFF; what came before it is not a whole object.
    EepromReader reader(
        "/d/", "/u/",
        Tool("printf '{\"SerialNumber\": \"VS-1\", \\377 \"Chassis\": \"QAmini\"}'", 0).c_str());
    EXPECT_TRUE(reader.ReadInfos());
    EXPECT_EQ(EepromReader::info.serialNumber, "");
    EXPECT_EQ(EepromReader::info.chassis, "");
}

TEST_F(SilentIdentityTool, DeeplyNestedOutputIsNotJsonAndDoesNotThrow)
{
    // Text that is not usable JSON still counts as a run with an unknown identity.
    EepromReader reader("/d/", "/u/", Tool("head -c 100000 /dev/zero | tr '\\0' '['", 0).c_str());
    bool result = false;
    EXPECT_NO_THROW(result = reader.ReadInfos());
    EXPECT_TRUE(result);
    EXPECT_EQ(EepromReader::info.serialNumber, "");
    EXPECT_EQ(EepromReader::info.chassis, "");
}

TEST_F(SilentIdentityTool, AHugeOutputIsReadWhole)
{
    // Ten megabytes of blanks before the object.
    EepromReader reader(
        "/d/", "/u/",
        Tool("head -c 10485760 /dev/zero | tr '\\0' ' '; echo '{\"SerialNumber\": \"VS-9\"}'", 0)
            .c_str());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(reader.ReadInfos());
    EXPECT_LT(SecondsSince(start), 60.0);
    EXPECT_EQ(EepromReader::info.serialNumber, "VS-9");
}

} // namespace
