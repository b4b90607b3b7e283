// The boot loader operations that need no disk (host): the refusals of the
// boot record copies on regular files, the copy of the syslinux files from a
// made-up module directory, and the command texts.
#include "BootLoader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

using Kel::Vidorama::InstallerLib::BootLoader;
namespace detail = Kel::Vidorama::InstallerLib::detail;
namespace fs = std::filesystem;

namespace
{

const std::vector<std::string> Modules = {
    "hdt.c32",  "chain.c32",    "ldlinux.c32", "libcom32.c32", "libgpl.c32",   "libmenu.c32",
    "menu.c32", "poweroff.c32", "reboot.c32",  "libutil.c32",  "vesamenu.c32",
};

std::string ReadFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void WriteFile(const fs::path& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

std::set<std::string> Names(const fs::path& directory)
{
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory))
        names.insert(entry.path().filename().string());
    return names;
}

// A copy that failed for want of its source: DiskTools::CopyFile opens the
// source first and writes beside the destination, so no file is left at all.
bool NotCopied(const fs::path& path)
{
    return !fs::exists(path);
}

// The names in a directory apart from one that failed to copy.
std::set<std::string> NamesBut(const fs::path& directory, const std::string& failed)
{
    std::set<std::string> names = Names(directory);
    names.erase(failed);
    return names;
}

// A fresh directory, removed with its contents at the end.
class ScratchDirectory
{
public:
    ScratchDirectory()
    {
        char pattern[] = "/tmp/bootloader-test-XXXXXX";
        if (mkdtemp(pattern) != nullptr)
            _path = pattern;
    }
    ~ScratchDirectory()
    {
        std::error_code ignored;
        if (!_path.empty())
            fs::remove_all(_path, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const fs::path& Path() const { return _path; }

private:
    fs::path _path;
};

class BootRecordOnRegularFiles : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(_scratch.Path().empty());
        _disk = _scratch.Path() / "disk.img";
        WriteFile(_disk, std::string(1024, '\x5a'));
    }

    ScratchDirectory _scratch;
    fs::path _disk;
};

// A module directory with every module (each with its own content), a
// configuration and a splash image.
class SyslinuxFiles : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(_scratch.Path().empty());
        _source = _scratch.Path() / "modules";
        fs::create_directories(_source);
        for (const std::string& module : Modules)
            WriteFile(_source / module, "module " + module + "\n");
        _config = _scratch.Path() / "prepared.cfg";
        WriteFile(_config, "DEFAULT VidoramaLinux\nLABEL VidoramaLinux\n");
        _extra = _scratch.Path() / "images" / "splash.png";
        fs::create_directories(_extra.parent_path());
        WriteFile(_extra, std::string("\x89PNG\r\n\x1a\n\0splash", 15));
        _mount = _scratch.Path() / "mnt" / "DOS";
        _destination = _mount.string() + "/boot/syslinux";
    }

    bool Copy(const char* extraFile)
    {
        return BootLoader::CopySyslinuxFiles(_source.c_str(), _mount.c_str(), "/boot/syslinux",
                                             _config.c_str(), extraFile);
    }

    std::set<std::string> ConfigAndModules() const
    {
        std::set<std::string> names(Modules.begin(), Modules.end());
        names.insert("syslinux.cfg");
        return names;
    }

    ScratchDirectory _scratch;
    fs::path _source;
    fs::path _config;
    fs::path _extra;
    fs::path _mount;
    fs::path _destination;
};

} // namespace

// ---- boot record -----------------------------------------------------------

TEST_F(BootRecordOnRegularFiles, BackupMbrRefusesARegularFileAndCreatesNothing)
{
    const fs::path backup = _scratch.Path() / "msdosmbr.bin";
    EXPECT_FALSE(BootLoader::BackupMbr(_disk.c_str(), backup.c_str()));
    EXPECT_FALSE(fs::exists(backup));
}

TEST_F(BootRecordOnRegularFiles, BackupMbrRefusesADirectoryAMissingPathAndNull)
{
    const fs::path backup = _scratch.Path() / "msdosmbr.bin";
    EXPECT_FALSE(BootLoader::BackupMbr(_scratch.Path().c_str(), backup.c_str()));
    EXPECT_FALSE(BootLoader::BackupMbr((_scratch.Path() / "none").c_str(), backup.c_str()));
    EXPECT_FALSE(BootLoader::BackupMbr(nullptr, backup.c_str()));
    EXPECT_FALSE(BootLoader::BackupMbr(_disk.c_str(), nullptr));
    EXPECT_FALSE(fs::exists(backup));
}

TEST_F(BootRecordOnRegularFiles, BackupMbrLeavesAnExistingFileAloneOnFailure)
{
    const fs::path backup = _scratch.Path() / "msdosmbr.bin";
    WriteFile(backup, "kept");
    EXPECT_FALSE(BootLoader::BackupMbr(_disk.c_str(), backup.c_str()));
    EXPECT_EQ(ReadFile(backup), "kept");
}

TEST_F(BootRecordOnRegularFiles, InstallMbrRefusesARegularFileAndWritesNothing)
{
    const fs::path code = _scratch.Path() / "mbr.bin";
    WriteFile(code, std::string(440, '\x33'));
    EXPECT_FALSE(BootLoader::InstallMbr(_disk.c_str(), code.c_str()));
    EXPECT_EQ(ReadFile(_disk), std::string(1024, '\x5a'));
    EXPECT_FALSE(BootLoader::InstallMbr(nullptr, code.c_str()));
    EXPECT_FALSE(BootLoader::InstallMbr(_disk.c_str(), nullptr));
}

// ---- syslinux files --------------------------------------------------------

TEST_F(SyslinuxFiles, ConfigurationAndElevenModulesWithoutExtraFile)
{
    ASSERT_TRUE(Copy(nullptr));
    EXPECT_EQ(Names(_destination), ConfigAndModules());
    EXPECT_EQ(ReadFile(_destination / "syslinux.cfg"), ReadFile(_config));
    for (const std::string& module : Modules)
        EXPECT_EQ(ReadFile(_destination / module), "module " + module + "\n") << module;
}

TEST_F(SyslinuxFiles, ExtraFileUnderItsBaseName)
{
    ASSERT_TRUE(Copy(_extra.c_str()));
    std::set<std::string> expected = ConfigAndModules();
    expected.insert("splash.png");
    EXPECT_EQ(Names(_destination), expected);
    EXPECT_EQ(ReadFile(_destination / "splash.png"), ReadFile(_extra));
    EXPECT_EQ(ReadFile(_destination / "splash.png").size(), 15u);
}

TEST_F(SyslinuxFiles, DestinationIsMadeWithItsParents)
{
    ASSERT_FALSE(fs::exists(_scratch.Path() / "mnt"));
    ASSERT_TRUE(Copy(nullptr));
    EXPECT_TRUE(fs::is_directory(_destination));
    // The syslinux directory follows the mount directory as it is given.
    EXPECT_EQ(Names(_mount), std::set<std::string>{"boot"});
    EXPECT_EQ(Names(_mount / "boot"), std::set<std::string>{"syslinux"});
}

TEST_F(SyslinuxFiles, AnExistingDestinationIsUsedAsItIs)
{
    fs::create_directories(_destination);
    WriteFile(_destination / "syslinux.cfg", "an older configuration, somewhat longer\n");
    WriteFile(_destination / "msdosmbr.bin", std::string(512, '\x01'));
    ASSERT_TRUE(Copy(nullptr));
    std::set<std::string> expected = ConfigAndModules();
    expected.insert("msdosmbr.bin");
    EXPECT_EQ(Names(_destination), expected);
    EXPECT_EQ(ReadFile(_destination / "syslinux.cfg"), ReadFile(_config));
}

TEST_F(SyslinuxFiles, MissingMenuModuleStopsAfterTheFirstSix)
{
    fs::remove(_source / "menu.c32");
    EXPECT_FALSE(Copy(_extra.c_str()));
    std::set<std::string> expected(Modules.begin(), Modules.begin() + 6);
    expected.insert("syslinux.cfg");
    expected.insert("splash.png");
    EXPECT_EQ(NamesBut(_destination, "menu.c32"), expected);
    EXPECT_TRUE(NotCopied(_destination / "menu.c32"));
    for (auto module = Modules.begin() + 7; module != Modules.end(); ++module)
        EXPECT_FALSE(fs::exists(_destination / *module)) << *module;
    for (auto module = Modules.begin(); module != Modules.begin() + 6; ++module)
        EXPECT_EQ(ReadFile(_destination / *module), "module " + *module + "\n") << *module;
    EXPECT_EQ(ReadFile(_destination / "syslinux.cfg"), ReadFile(_config));
}

TEST_F(SyslinuxFiles, MissingFirstModuleCopiesOnlyTheConfiguration)
{
    fs::remove(_source / "hdt.c32");
    EXPECT_FALSE(Copy(nullptr));
    EXPECT_EQ(NamesBut(_destination, "hdt.c32"), std::set<std::string>{"syslinux.cfg"});
    EXPECT_TRUE(NotCopied(_destination / "hdt.c32"));
}

TEST_F(SyslinuxFiles, MissingExtraFileFailsBeforeTheModules)
{
    EXPECT_FALSE(Copy((_scratch.Path() / "images" / "none.png").c_str()));
    EXPECT_EQ(NamesBut(_destination, "none.png"), std::set<std::string>{"syslinux.cfg"});
    EXPECT_TRUE(NotCopied(_destination / "none.png"));
}

TEST_F(SyslinuxFiles, MissingConfigurationFailsBeforeTheModules)
{
    fs::remove(_config);
    EXPECT_FALSE(Copy(_extra.c_str()));
    // The extra file is still tried; no module follows.
    EXPECT_EQ(NamesBut(_destination, "syslinux.cfg"), std::set<std::string>{"splash.png"});
    EXPECT_TRUE(NotCopied(_destination / "syslinux.cfg"));
}

TEST_F(SyslinuxFiles, DestinationThatCannotBeADirectory)
{
    fs::create_directories(_mount);
    WriteFile(_mount / "boot", "a file where the directory should go");
    EXPECT_FALSE(Copy(nullptr));
    EXPECT_TRUE(fs::is_regular_file(_mount / "boot"));
}

TEST_F(SyslinuxFiles, NullArgumentsFail)
{
    EXPECT_FALSE(BootLoader::CopySyslinuxFiles(nullptr, _mount.c_str(), "/boot/syslinux",
                                               _config.c_str(), nullptr));
    EXPECT_FALSE(BootLoader::CopySyslinuxFiles(_source.c_str(), nullptr, "/boot/syslinux",
                                               _config.c_str(), nullptr));
    EXPECT_FALSE(BootLoader::CopySyslinuxFiles(_source.c_str(), _mount.c_str(), nullptr,
                                               _config.c_str(), nullptr));
    EXPECT_FALSE(BootLoader::CopySyslinuxFiles(_source.c_str(), _mount.c_str(), "/boot/syslinux",
                                               nullptr, nullptr));
    EXPECT_FALSE(fs::exists(_mount));
}

// ---- command texts ---------------------------------------------------------

TEST(BootLoaderCommands, SyslinuxInstall)
{
    EXPECT_EQ(detail::SyslinuxInstallCommand("/boot/syslinux", "/dev/sda", 1),
              "syslinux -i -d /boot/syslinux /dev/sda1 2>&1");
    EXPECT_EQ(detail::SyslinuxInstallCommand("/boot/syslinux", "/dev/vda", 12),
              "syslinux -i -d /boot/syslinux /dev/vda12 2>&1");
}

TEST(BootLoaderCommands, ExtlinuxInstallJoinsTheDirectoriesWithoutSeparator)
{
    EXPECT_EQ(detail::ExtlinuxInstallCommand("/mnt/SYS", "/boot/syslinux"),
              "extlinux --install /mnt/SYS/boot/syslinux 2>&1");
}

TEST(BootLoaderCommands, DefaultEntrySavesTheMenuEntryAndBootsItOnce)
{
    EXPECT_EQ(detail::SyslinuxDefaultEntryCommand("/boot/syslinux", "/dev/sda", 1, "Vidorama"),
              "syslinux --update --menu-save='Vidorama' --once='Vidorama' -d /boot/syslinux "
              "/dev/sda1 2>&1");
    EXPECT_EQ(detail::SyslinuxDefaultEntryCommand("/boot/syslinux", "/dev/sda", 1, "VidoramaDos"),
              "syslinux --update --menu-save='VidoramaDos' --once='VidoramaDos' -d /boot/syslinux "
              "/dev/sda1 2>&1");
}

TEST(BootLoaderCommands, BootOnce)
{
    EXPECT_EQ(detail::SyslinuxBootOnceCommand("/boot/syslinux", "/dev/sda", 1, "VidoramaLinux"),
              "syslinux --once='VidoramaLinux' -d /boot/syslinux /dev/sda1 2>&1");
}

TEST(BootLoaderCommands, NullTextsAreEmpty)
{
    EXPECT_EQ(detail::SyslinuxBootOnceCommand(nullptr, nullptr, 1, nullptr),
              "syslinux --once='' -d  1 2>&1");
}
