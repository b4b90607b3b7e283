// One reading of a package for its size, its soundness and its installer: the reading
// itself, the readings kept by file identity, and the reading ahead of need on a thread of
// its own. Packages are built in scratch directories; files that a test wants kept are dated
// back, since a file changed just before it is read is read anew each time.
#include "PackageScan.h"
#include "InstallPackage.h"
#include "PackageScanCache.h"
#include "PackageScanner.h"
#include "ScratchDirectory.h"
#include "TestArchive.h"

#include <archive_entry.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace
{

using Kel::Vidorama::InstallerLib::InstallPackage;
using Kel::Vidorama::InstallerLib::PackageScan;
using Kel::Vidorama::InstallerLib::PackageScanCache;
using Kel::Vidorama::InstallerLib::PackageScanner;
using TestSupport::NoiseBytes;
using TestSupport::ReadFile;
using TestSupport::ScratchDirectory;
using TestSupport::WorkingDirectory;
using TestSupport::WriteArchive;
using TestSupport::WriteFile;
using Member = TestSupport::ArchiveMember;

const std::string Script = "#!/bin/sh\necho installing \"$2\" \"$3\"\nexit 0\n";

// Dates a file back by a day (plus seconds, so that two calls give two identities).
void Age(const std::string& path, int seconds = 0)
{
    struct timespec times[2];
    ::clock_gettime(CLOCK_REALTIME, &times[0]);
    times[0].tv_sec -= 86400 + seconds;
    times[1] = times[0];
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

std::vector<std::string> Listing(const std::string& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory))
    {
        names.push_back(entry.path().lexically_relative(directory).string());
    }
    return names;
}

// The nice value of each thread of this process.
std::vector<int> ThreadNiceValues()
{
    std::vector<int> values;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
    {
        std::ifstream in(task.path() / "stat");
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const auto close = text.rfind(')');
        if (close == std::string::npos)
        {
            continue;
        }
        // After the name: state, then fields 4 to 19; the nice value is field 19.
        std::istringstream fields(text.substr(close + 2));
        std::string field;
        for (int index = 3; index <= 19 && (fields >> field); ++index)
        {
            if (index == 19)
            {
                values.push_back(std::stoi(field));
            }
        }
    }
    return values;
}

class PackageScanTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(scratch.path.empty());
        ASSERT_EQ(::mkdir(work().c_str(), 0755), 0);
        PackageScanCache::Instance().Clear();
    }

    std::string work() const { return scratch.Join("work"); }
    std::string linuxPath(const std::string& name = "Vidorama_12.05.01.3456.tar.gz") const
    {
        return scratch.Join(name);
    }

    // Payload first, the installer last, as vendors lay their packages out.
    std::vector<Member> Members(const std::string& script = Script) const
    {
        return {{"payload/Version.json",
                 R"({"name": "Vidorama", "version": "12.05.01", "revision": "3456"})"},
                {"payload/media.bin", NoiseBytes(300 * 1024, 7)},
                {"payload/img.zip", std::string(100, 'z')},
                {"Install.sh", script, 0755}};
    }

    static std::int64_t Size(const std::vector<Member>& members)
    {
        std::int64_t total = 0;
        for (const Member& member : members)
        {
            const bool zip = member.name.size() >= 3 &&
                             member.name.compare(member.name.size() - 3, 3, "zip") == 0;
            total += static_cast<std::int64_t>(member.content.size()) * (zip ? 2 : 1);
        }
        return total;
    }

    std::string Write(const std::vector<Member>& members, bool aged = true,
                      const std::string& name = "Vidorama_12.05.01.3456.tar.gz")
    {
        const std::string path = linuxPath(name);
        EXPECT_TRUE(WriteArchive(path, members, false));
        if (aged)
        {
            Age(path);
        }
        return path;
    }

    ScratchDirectory scratch{"package-scan"};
};

// ---------------------------------------------------------------------------------------
// One reading

TEST_F(PackageScanTest, OneReadingGivesTheSizeTheSoundnessAndTheInstaller)
{
    const auto members = Members();
    const std::string path = Write(members);
    const auto scan = PackageScan::Read(path);
    EXPECT_TRUE(scan->Complete());
    EXPECT_FALSE(scan->Damaged());
    EXPECT_FALSE(scan->Stopped());
    EXPECT_FALSE(scan->InstallerTooLarge());
    EXPECT_TRUE(scan->Linux());
    EXPECT_EQ(scan->Size(), Size(members));
    ASSERT_EQ(scan->Installers().size(), 1u);
    EXPECT_STREQ(archive_entry_pathname(scan->Installers()[0].header.get()), "Install.sh");
    EXPECT_EQ(scan->Installers()[0].data, Script);
    EXPECT_EQ(archive_entry_perm(scan->Installers()[0].header.get()), 0755u);
}

TEST_F(PackageScanTest, TheReadingWritesNothing)
{
    const std::string path = Write(Members());
    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    EXPECT_TRUE(PackageScan::Read(path)->Complete());
    EXPECT_TRUE(PackageScanCache::Instance().Get(path)->Complete());
    EXPECT_TRUE(Listing(work()).empty());
}

TEST_F(PackageScanTest, EveryInstallerEntryIsKeptInPackageOrder)
{
    std::vector<Member> members = {{"tools/Install.sh", "#!/bin/sh\necho tools\n", 0700},
                                   {"payload/data.bin", NoiseBytes(4096, 3)},
                                   {"Install.sh", Script, 0755},
                                   {"empty/Install.sh", ""},
                                   {"NotAnInstall.sh.txt", "text"}};
    const auto scan = PackageScan::Read(Write(members));
    ASSERT_TRUE(scan->Complete());
    ASSERT_EQ(scan->Installers().size(), 2u);
    EXPECT_STREQ(archive_entry_pathname(scan->Installers()[0].header.get()), "tools/Install.sh");
    EXPECT_EQ(scan->Installers()[0].data, "#!/bin/sh\necho tools\n");
    EXPECT_STREQ(archive_entry_pathname(scan->Installers()[1].header.get()), "Install.sh");
    EXPECT_EQ(scan->Installers()[1].data, Script);
}

TEST_F(PackageScanTest, APackageCutShortIsDamagedAndKeepsNothing)
{
    const std::string path = Write(Members(), false);
    const std::string whole = ReadFile(path);
    WriteFile(path, whole.substr(0, whole.size() - 4));
    const auto scan = PackageScan::Read(path);
    EXPECT_FALSE(scan->Complete());
    EXPECT_TRUE(scan->Damaged());
    EXPECT_EQ(scan->Size(), -1);
    EXPECT_TRUE(scan->Installers().empty());
}

// A tar that ends in the middle of an entry, inside a gzip stream that is itself whole:
// the installer entries read before the break are not kept.
TEST_F(PackageScanTest, ATarCutInsideASoundStreamKeepsNoInstaller)
{
    const std::vector<Member> members = {{"Install.sh", Script, 0755},
                                         {"payload/media.bin", NoiseBytes(64 * 1024, 5)},
                                         {"payload/Install.sh", Script, 0755}};
    const std::string path = Write(members, false);
    std::string tar;
    {
        gzFile in = gzopen(path.c_str(), "rb");
        ASSERT_NE(in, nullptr);
        char block[8192];
        int count = 0;
        while ((count = gzread(in, block, sizeof(block))) > 0)
            tar.append(block, static_cast<std::size_t>(count));
        gzclose(in);
    }
    // The installer's header and data take the first two blocks; the cut falls in the
    // middle of the payload's data.
    ASSERT_GT(tar.size(), 1024u + 512u + 32u * 1024u);
    tar.resize(1024 + 512 + 32 * 1024);
    {
        gzFile out = gzopen(path.c_str(), "wb");
        ASSERT_NE(out, nullptr);
        ASSERT_EQ(gzwrite(out, tar.data(), static_cast<unsigned>(tar.size())),
                  static_cast<int>(tar.size()));
        ASSERT_EQ(gzclose(out), Z_OK);
    }
    const auto scan = PackageScan::Read(path);
    EXPECT_FALSE(scan->Complete());
    EXPECT_TRUE(scan->Damaged());
    EXPECT_EQ(scan->Size(), -1);
    EXPECT_TRUE(scan->Installers().empty());
}

TEST_F(PackageScanTest, AMissingPackageIsNeitherReadNorDamaged)
{
    const auto scan = PackageScan::Read(linuxPath());
    EXPECT_FALSE(scan->Complete());
    EXPECT_FALSE(scan->Damaged());
    EXPECT_EQ(scan->Size(), -1);
}

TEST_F(PackageScanTest, TheStopCheckEndsTheReadingWithoutAVerdict)
{
    const std::string path = Write(Members());
    int asked = 0;
    const auto scan = PackageScan::Read(path, [&asked] { return ++asked > 2; });
    EXPECT_TRUE(scan->Stopped());
    EXPECT_FALSE(scan->Complete());
    EXPECT_FALSE(scan->Damaged());
    EXPECT_EQ(scan->Size(), -1);
    EXPECT_EQ(asked, 3) << "asked once per block, and not after it said stop";

    int never = 0;
    EXPECT_TRUE(PackageScan::Read(path, [&never] { return ++never < 0; })->Complete());
    EXPECT_GT(never, 3) << "the check is asked block by block";
}

TEST_F(PackageScanTest, AnOversizedInstallerIsRefusedButThePackageIsMeasured)
{
    const std::string big(PackageScan::InstallerLimit + 1, '#');
    const auto members = Members(big);
    const std::string path = Write(members);
    const auto scan = PackageScan::Read(path);
    EXPECT_TRUE(scan->Complete());
    EXPECT_TRUE(scan->InstallerTooLarge());
    EXPECT_TRUE(scan->Installers().empty());
    EXPECT_EQ(scan->Size(), Size(members));

    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    InstallPackage package(path.c_str());
    EXPECT_FALSE(package.ExtractFileFomTar("Install.sh"));
    EXPECT_TRUE(Listing(work()).empty());
    EXPECT_EQ(package.GetExtractedSize(), Size(members));
}

TEST_F(PackageScanTest, ADosPackageIsMeasuredWithItsArchivesTwice)
{
    const std::string path = scratch.Join("120501.zip");
    ASSERT_TRUE(WriteArchive(
        path, {{"120501/a.txt", std::string(10, 'a')}, {"120501/img.zip", std::string(100, 'i')}},
        true));
    const auto scan = PackageScan::Read(path);
    EXPECT_TRUE(scan->Complete());
    EXPECT_FALSE(scan->Linux());
    EXPECT_EQ(scan->Size(), 210);
    EXPECT_TRUE(scan->Installers().empty());
}

// ---------------------------------------------------------------------------------------
// Kept readings

TEST_F(PackageScanTest, SizeAndInstallerOfOneInstallationCostOneReading)
{
    const auto members = Members();
    const std::string path = Write(members);
    PackageScanCache& cache = PackageScanCache::Instance();
    const std::size_t before = cache.Readings();

    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    InstallPackage package(path.c_str());
    bool damaged = true;
    EXPECT_EQ(package.GetExtractedSize64(&damaged), Size(members));
    EXPECT_FALSE(damaged);
    EXPECT_EQ(package.GetExtractedSize(), Size(members));
    ASSERT_TRUE(package.ExtractFileFomTar("Install.sh"));
    EXPECT_EQ(ReadFile(work() + "/Install.sh"), Script);
    struct stat status;
    ASSERT_EQ(::stat((work() + "/Install.sh").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0755u) << "the stored mode comes along";
    EXPECT_EQ(cache.Readings() - before, 1u);

    // Another handle on the same file, and a second extraction: still that one reading.
    ASSERT_EQ(::unlink((work() + "/Install.sh").c_str()), 0);
    InstallPackage again(path.c_str());
    EXPECT_TRUE(again.ExtractFileFomTar("Install.sh"));
    EXPECT_EQ(ReadFile(work() + "/Install.sh"), Script);
    EXPECT_EQ(cache.Readings() - before, 1u);
}

TEST_F(PackageScanTest, AnotherFileUnderTheSameNameIsReadAgain)
{
    const std::string path = Write(Members());
    PackageScanCache& cache = PackageScanCache::Instance();
    InstallPackage package(path.c_str());
    const int first = package.GetExtractedSize();
    const std::size_t before = cache.Readings();

    auto members = Members("#!/bin/sh\nexit 0\n");
    members.push_back({"payload/more.bin", NoiseBytes(5000, 9)});
    ASSERT_TRUE(WriteArchive(path, members, false));
    Age(path, 10);
    EXPECT_EQ(package.GetExtractedSize(), Size(members));
    EXPECT_NE(package.GetExtractedSize(), first);
    EXPECT_EQ(cache.Readings() - before, 1u);

    // Only the time stamp changes: read again as well.
    Age(path, 20);
    EXPECT_EQ(package.GetExtractedSize(), Size(members));
    EXPECT_EQ(cache.Readings() - before, 2u);
}

TEST_F(PackageScanTest, AFileWrittenJustBeforeIsReadEachTime)
{
    const std::string path = Write(Members(), false);
    PackageScanCache& cache = PackageScanCache::Instance();
    const std::size_t before = cache.Readings();
    InstallPackage package(path.c_str());
    const int size = package.GetExtractedSize();
    EXPECT_EQ(package.GetExtractedSize(), size);
    EXPECT_EQ(cache.Readings() - before, 2u);
}

TEST_F(PackageScanTest, WhatIsKeptIsToldWithoutReading)
{
    const std::string path = Write(Members());
    PackageScanCache& cache = PackageScanCache::Instance();
    const std::size_t before = cache.Readings();
    // Not read yet: nothing to tell, and asking reads nothing.
    EXPECT_EQ(cache.Kept(path), nullptr);
    EXPECT_EQ(cache.Readings(), before);

    const auto read = cache.Get(path);
    const auto kept = cache.Kept(path);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept, read);
    EXPECT_FALSE(kept->Damaged());
    EXPECT_EQ(cache.Readings() - before, 1u);

    // Another file under the same name: what was kept is no longer told.
    std::string bytes = ReadFile(path);
    WriteFile(path, bytes.substr(0, bytes.size() / 2));
    Age(path, 10);
    EXPECT_EQ(cache.Kept(path), nullptr);
    ASSERT_TRUE(cache.Get(path)->Damaged());
    ASSERT_NE(cache.Kept(path), nullptr);
    EXPECT_TRUE(cache.Kept(path)->Damaged());
    EXPECT_EQ(cache.Kept(scratch.Join("missing.tar.gz")), nullptr);
}

TEST_F(PackageScanTest, ADamagedPackageIsRefusedBeforeAnythingIsWritten)
{
    const std::string path = Write(Members(), false);
    std::string bytes = ReadFile(path);
    for (std::size_t i = bytes.size() / 2; i < bytes.size() / 2 + 16; ++i)
    {
        bytes[i] = static_cast<char>(~bytes[i]);
    }
    WriteFile(path, bytes);
    Age(path);

    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    PackageScanCache& cache = PackageScanCache::Instance();
    const std::size_t before = cache.Readings();
    InstallPackage package(path.c_str());
    bool damaged = false;
    EXPECT_EQ(package.GetExtractedSize64(&damaged), -1);
    EXPECT_TRUE(damaged);
    EXPECT_FALSE(package.ExtractFileFomTar("Install.sh"));
    EXPECT_TRUE(Listing(work()).empty()) << "nothing of the damaged package was written";
    std::ostringstream log;
    EXPECT_EQ(package.Install(log), InstallPackage::DamagedPackage);
    EXPECT_EQ(cache.Readings() - before, 1u) << "the damage is known from the one reading";
}

TEST_F(PackageScanTest, CallersAtTheSameTimeShareOneReading)
{
    const std::string path = Write(Members());
    PackageScanCache& cache = PackageScanCache::Instance();
    const std::size_t before = cache.Readings();
    std::vector<std::thread> threads;
    std::vector<std::shared_ptr<const PackageScan>> scans(4);
    for (std::size_t i = 0; i < scans.size(); ++i)
    {
        threads.emplace_back([&scans, &cache, &path, i] { scans[i] = cache.Get(path); });
    }
    for (auto& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(cache.Readings() - before, 1u);
    for (const auto& scan : scans)
    {
        ASSERT_TRUE(scan);
        EXPECT_EQ(scan, scans[0]);
        EXPECT_TRUE(scan->Complete());
    }
}

TEST_F(PackageScanTest, OnlyTheLatestReadingsAreKept)
{
    PackageScanCache& cache = PackageScanCache::Instance();
    std::vector<std::string> paths;
    for (std::size_t i = 0; i <= PackageScanCache::Capacity; ++i)
    {
        paths.push_back(Write({{"Install.sh", Script + std::to_string(i)}}, true,
                              "Vidorama_12.05.01." + std::to_string(i + 1) + ".tar.gz"));
        cache.Get(paths.back());
    }
    const std::size_t before = cache.Readings();
    cache.Get(paths.back());
    EXPECT_EQ(cache.Readings() - before, 0u) << "the latest is kept";
    cache.Get(paths.front());
    EXPECT_EQ(cache.Readings() - before, 1u) << "the oldest was let go";
}

// ---------------------------------------------------------------------------------------
// Reading ahead

TEST_F(PackageScanTest, TheScannerReadsTheListedPackagesAheadOfTheInstallation)
{
    const auto members = Members();
    const std::string high = Write(members, true, "Vidorama_12.06.01.1.tar.gz");
    const std::string low = Write(members, true, "Vidorama_12.05.01.1.tar.gz");
    PackageScanCache& cache = PackageScanCache::Instance();
    const std::size_t before = cache.Readings();
    {
        PackageScanner scanner;
        scanner.Start({high, low});
        scanner.WaitIdle();
        EXPECT_EQ(scanner.Pending(), 0u);
    }
    EXPECT_EQ(cache.Readings() - before, 2u);

    WorkingDirectory inside(work());
    ASSERT_TRUE(inside.changed);
    InstallPackage package(low.c_str());
    EXPECT_EQ(package.GetExtractedSize(), Size(members));
    EXPECT_TRUE(package.ExtractFileFomTar("Install.sh"));
    EXPECT_EQ(ReadFile(work() + "/Install.sh"), Script);
    EXPECT_EQ(cache.Readings() - before, 2u) << "the installation read nothing itself";
    EXPECT_EQ(Listing(work()), std::vector<std::string>{"Install.sh"});
}

TEST_F(PackageScanTest, TheScannerGivesWayToAnInstallationAndReadsAtALowerPriority)
{
    const std::string waiting = Write(Members(), true, "Vidorama_12.06.01.1.tar.gz");
    const std::string installing = Write(Members(), true, "Vidorama_12.05.01.1.tar.gz");
    PackageScanCache& cache = PackageScanCache::Instance();
    const std::size_t before = cache.Readings();
    PackageScanner scanner;
    {
        const PackageScanCache::Use use(installing);
        scanner.Start({waiting});
        // The scanner's thread lowers its own priority as it starts, whatever it then waits
        // for; no other thread of the test does.
        bool lowered = false;
        for (int i = 0; i < 100 && !lowered; ++i)
        {
            for (const int nice : ThreadNiceValues())
            {
                lowered = lowered || nice == 10;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        EXPECT_TRUE(lowered);
        EXPECT_EQ(scanner.Pending(), 1u) << "nothing read while an installation is under way";
        EXPECT_EQ(cache.Readings() - before, 0u);
    }
    scanner.WaitIdle();
    EXPECT_EQ(cache.Readings() - before, 1u) << "read once the installation is over";
}

TEST_F(PackageScanTest, AStoppedScannerLeavesTheRestUnread)
{
    std::vector<std::string> paths;
    for (int i = 1; i <= 4; ++i)
    {
        paths.push_back(
            Write(Members(), true, "Vidorama_12.05.01." + std::to_string(i) + ".tar.gz"));
    }
    PackageScanCache& cache = PackageScanCache::Instance();
    const std::size_t before = cache.Readings();
    PackageScanner scanner;
    scanner.Start(paths);
    scanner.Stop();
    EXPECT_EQ(scanner.Pending(), 0u);
    EXPECT_LE(cache.Readings() - before, 1u) << "at most the one under way was begun";
}

TEST_F(PackageScanTest, AnInstallationWaitsForTheReadingUnderWayInsteadOfReadingAgain)
{
    const std::string path = Write(Members(), true);
    PackageScanCache& cache = PackageScanCache::Instance();
    const std::size_t before = cache.Readings();
    std::atomic<bool> started{false};
    std::atomic<bool> release{false};
    std::thread background(
        [&]
        {
            cache.Prepare(path,
                          [&]
                          {
                              started = true;
                              while (!release)
                              {
                                  std::this_thread::yield();
                              }
                              return false;
                          });
        });
    while (!started)
    {
        std::this_thread::yield();
    }
    std::shared_ptr<const PackageScan> scan;
    std::thread installation([&] { scan = cache.Get(path); });
    release = true;
    installation.join();
    background.join();
    ASSERT_TRUE(scan);
    EXPECT_TRUE(scan->Complete());
    EXPECT_EQ(cache.Readings() - before, 1u);
}

} // namespace
