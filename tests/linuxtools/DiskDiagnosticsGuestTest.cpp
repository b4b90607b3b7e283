// System tests of the disk diagnostics inside the sandbox guest, on scratch
// disks laid out once, at the first test, with the real parted, mkfs and
// mkswap; the tests only read them (and mount and unmount partitions):
//   /dev/vda   64 MiB  no table
//   /dev/vdb  128 MiB  msdos: 1 FAT16 bootable, free space, 2 ext4
//   /dev/vdc  256 MiB  gpt: 1, 2, 3 linux-swap
//   /dev/vdd    3 GiB  msdos: 1 at the start, the rest free
//   /dev/vde   96 MiB  msdos: 1 linux-swap, 2 extended holding logical 5
//   /dev/vdf   48 MiB  msdos without partitions
//   /dev/vdg   80 MiB  msdos: 1 and 3 (2 removed)
//   /dev/vdh   64 MiB  msdos: 1 at the end, 2 at the start
//   /dev/sda   32 MiB  on the USB bus, no table
#include "DiskDiagnostics.h"
#include "PartedHandles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

using Kel::ZarnLinuxTools::ConvertPedDisk;
using Kel::ZarnLinuxTools::Disk;
using Kel::ZarnLinuxTools::DiskDiagnostics;
using Kel::ZarnLinuxTools::Partition;
namespace Parted = Kel::ZarnLinuxTools::Parted;

namespace
{

const char* const Blank = "/dev/vda";
const char* const TwoParts = "/dev/vdb";
const char* const Gpt = "/dev/vdc";
const char* const Huge = "/dev/vdd";
const char* const Logical = "/dev/vde";
const char* const EmptyMsdos = "/dev/vdf";
const char* const NumberGap = "/dev/vdg";
const char* const Reversed = "/dev/vdh";
const char* const Usb = "/dev/sda";
const char* const Missing = "/dev/vdz";

const int64_t MiB = 1024 * 1024;

int64_t Sectors(int64_t mebibytes)
{
    return mebibytes * MiB / 512;
}

bool InSandbox()
{
    char cwd[64] = {};
    return getcwd(cwd, sizeof(cwd)) != nullptr && std::string(cwd) == "/io/work";
}

// Runs a shell command; its exit status, with stdout and stderr in output.
int RunCommand(const std::string& command, std::string& output)
{
    output.clear();
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr)
        return -1;
    char buffer[4096];
    size_t count;
    while ((count = fread(buffer, 1, sizeof(buffer), pipe)) > 0)
        output.append(buffer, count);
    return pclose(pipe);
}

testing::AssertionResult Sh(const std::string& command)
{
    std::string output;
    const int status = RunCommand(command, output);
    if (status == 0)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "`" << command << "` gave " << status << ":\n" << output;
}

// The shell commands that make one disk's layout: every old signature on the
// disk and its partitions erased, then the parted commands (sectors as "s"),
// then the file systems. Each log goes to /tmp/dd-layout-<disk>.log.
struct DiskLayout
{
    std::string disk;
    std::string parted; // empty: no table at all
    std::string formats;
};

std::string LayoutScript(const DiskLayout& layout)
{
    const std::string& disk = layout.disk;
    std::string script = "for p in " + disk +
                         "[0-9]*; do if [ -b \"$p\" ]; then wipefs -a -f -q \"$p\" || exit 1; "
                         "fi; done; wipefs -a -q " +
                         disk;
    if (!layout.parted.empty())
        script += " && parted -s " + disk + " " + layout.parted + " && udevadm settle";
    if (!layout.formats.empty())
        script += " && " + layout.formats;
    return script;
}

// All disks at once: parted spends most of its time waiting, not computing.
testing::AssertionResult LayOutAll(const std::vector<DiskLayout>& layouts)
{
    std::string script = "udevadm settle; pids=;";
    for (const DiskLayout& layout : layouts)
    {
        const std::string log = "/tmp/dd-layout-" + layout.disk.substr(5) + ".log";
        script += " (" + LayoutScript(layout) + ") >" + log + " 2>&1 & pids=\"$pids $!\";";
    }
    script += " status=0; for p in $pids; do wait $p || status=1; done; udevadm settle;"
              " if [ $status != 0 ]; then tail -n +1 /tmp/dd-layout-*.log; fi; exit $status";
    return Sh(script);
}

const std::vector<DiskLayout>& Layouts()
{
    static const std::vector<DiskLayout> layouts = {
        {Blank, "", ""},
        {TwoParts,
         "mklabel msdos mkpart primary fat16 2048s 34815s mkpart primary ext4 65536s 106495s "
         "set 1 boot on",
         "mkfs.fat -F 16 /dev/vdb1 && mkfs.ext4 -q -F /dev/vdb2"},
        {Gpt,
         "mklabel gpt mkpart one 2048s 20479s mkpart two 20480s 40959s "
         "mkpart three linux-swap 40960s 61439s",
         "mkswap /dev/vdc3"},
        {Huge, "mklabel msdos mkpart primary 2048s 4095s", ""},
        {Logical,
         "mklabel msdos mkpart primary linux-swap 2048s 20479s mkpart extended 20480s 100351s "
         "mkpart logical 22528s 40959s",
         "mkswap /dev/vde1"},
        {EmptyMsdos, "mklabel msdos", ""},
        {NumberGap,
         "mklabel msdos mkpart primary 2048s 4095s mkpart primary 4096s 8191s "
         "mkpart primary 8192s 16383s rm 2",
         ""},
        {Reversed, "mklabel msdos mkpart primary 65536s 131071s mkpart primary 2048s 4095s", ""},
        {Usb, "", ""},
    };
    return layouts;
}

std::vector<Disk> TakeDisks()
{
    std::unique_ptr<std::vector<Disk>> disks(DiskDiagnostics::GetDisks());
    return disks ? *disks : std::vector<Disk>{};
}

std::vector<Partition> TakePartitions(const char* device)
{
    std::unique_ptr<std::vector<Partition>> partitions(DiskDiagnostics::GetPartitions(device));
    return partitions ? *partitions : std::vector<Partition>{};
}

std::vector<std::string> Paths(const std::vector<Disk>& disks)
{
    std::vector<std::string> paths;
    for (const Disk& disk : disks)
        paths.push_back(disk.path);
    return paths;
}

std::vector<int> Numbers(const std::vector<Partition>& partitions)
{
    std::vector<int> numbers;
    for (const Partition& partition : partitions)
        numbers.push_back(partition.number);
    return numbers;
}

const Disk* Find(const std::vector<Disk>& disks, const std::string& path)
{
    for (const Disk& disk : disks)
    {
        if (disk.path == path)
            return &disk;
    }
    return nullptr;
}

void ExpectDefault(const Partition& partition)
{
    EXPECT_EQ(partition.number, -1);
    EXPECT_EQ(partition.start, -1);
    EXPECT_EQ(partition.end, -1);
    EXPECT_EQ(partition.size, -1);
    EXPECT_EQ(partition.sectorCount, -1);
    EXPECT_EQ(partition.fileSystem, "");
    EXPECT_FALSE(partition.bootable);
    EXPECT_FALSE(partition.mounted);
    EXPECT_FALSE(partition.reserved);
}

void ExpectPartition(const Partition& partition, int number, int64_t start, int64_t end,
                     const std::string& fileSystem, bool bootable)
{
    EXPECT_EQ(partition.number, number);
    EXPECT_EQ(partition.start, start);
    EXPECT_EQ(partition.end, end);
    EXPECT_EQ(partition.sectorCount, end - start + 1);
    EXPECT_EQ(partition.size, (end - start + 1) * 512);
    EXPECT_EQ(partition.fileSystem, fileSystem);
    EXPECT_EQ(partition.bootable, bootable);
    EXPECT_FALSE(partition.reserved);
}

// The devices in the order the parted program lists them (same library).
std::vector<std::string> PartedListOrder()
{
    std::string output;
    RunCommand("parted -s -m -l 2>/dev/null", output);
    std::vector<std::string> paths;
    std::istringstream lines(output);
    std::string line;
    while (std::getline(lines, line))
    {
        if (line.rfind("/dev/", 0) == 0)
            paths.push_back(line.substr(0, line.find(':')));
    }
    return paths;
}

// Runs body in a child process whose ids are real 0, effective 1000, saved
// 0, and gives the child's exit status: 0 when body returned true and the ids
// afterwards are real 0 and effective and saved as expected.
int RunWithNonRootEffectiveId(const std::function<bool()>& body, uid_t expectedEffective,
                              uid_t expectedSaved)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == -1)
        return -1;
    if (child == 0)
    {
        if (setresuid(0, 1000, 0) != 0)
            _exit(10);
        if (!body())
            _exit(11);
        uid_t real = 99, effective = 99, saved = 99;
        if (getresuid(&real, &effective, &saved) != 0)
            _exit(12);
        if (real != 0)
            _exit(13);
        if (effective != expectedEffective)
            _exit(14);
        if (saved != expectedSaved)
            _exit(15);
        _exit(0);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -2;
    return WEXITSTATUS(status);
}

const int Restored = 0;
const int LeftAsRoot = 1;

int IdsAfter(const std::function<bool()>& body, int expectation)
{
    return expectation == Restored ? RunWithNonRootEffectiveId(body, 1000, 1000)
                                   : RunWithNonRootEffectiveId(body, 0, 0);
}

class DiskDiagnosticsInGuest : public testing::Test
{
protected:
    void SetUp() override
    {
        // Never lay out anything outside the guest.
        ASSERT_TRUE(InSandbox()) << "runs only inside the sandbox guest";
        static bool laidOut = false;
        static std::string failure;
        if (!laidOut)
        {
            laidOut = true;
            const testing::AssertionResult result = LayOutAll(Layouts());
            if (!result)
                failure = result.message();
        }
        ASSERT_TRUE(failure.empty()) << failure;
    }

    void TearDown() override
    {
        for (auto it = mountPoints_.rbegin(); it != mountPoints_.rend(); ++it)
        {
            for (int i = 0; i < 10 && umount2(it->c_str(), 0) == 0; ++i)
            {
            }
        }
        for (const std::string& link : links_)
            unlink(link.c_str());
        if (!savedPath_.empty())
            setenv("PATH", savedPath_.c_str(), 1);
    }

    testing::AssertionResult Mount(const std::string& source, const std::string& directory,
                                   const std::string& type)
    {
        mkdir(directory.c_str(), 0755);
        mountPoints_.push_back(directory);
        if (mount(source.c_str(), directory.c_str(), type.c_str(), 0, nullptr) != 0)
            return testing::AssertionFailure()
                   << "mount " << source << " on " << directory << ": " << strerror(errno);
        return testing::AssertionSuccess();
    }

    testing::AssertionResult Link(const std::string& target, const std::string& link)
    {
        unlink(link.c_str());
        links_.push_back(link);
        if (symlink(target.c_str(), link.c_str()) != 0)
            return testing::AssertionFailure() << "symlink " << link << ": " << strerror(errno);
        return testing::AssertionSuccess();
    }

    // Puts a directory in front of PATH until the end of the test.
    void PrependPath(const std::string& directory)
    {
        const char* path = getenv("PATH");
        savedPath_ = path != nullptr ? path : "/usr/sbin:/usr/bin:/sbin:/bin";
        setenv("PATH", (directory + ":" + savedPath_).c_str(), 1);
    }

    std::vector<std::string> mountPoints_;
    std::vector<std::string> links_;
    std::string savedPath_;
};

} // namespace

// --- the guest itself ----------------------------------------------------------

TEST_F(DiskDiagnosticsInGuest, MtabIsTheKernelsMountList)
{
    // The mount queries read /etc/mtab; on this system it is a link to the
    // kernel's list, as on the appliance.
    EXPECT_TRUE(DiskDiagnostics::IsLink("/etc/mtab"));
    EXPECT_TRUE(DiskDiagnostics::IsFile("/etc/mtab"));
    EXPECT_TRUE(DiskDiagnostics::IsDirectoryMounted("/io"));
    EXPECT_TRUE(DiskDiagnostics::IsDirectoryMounted("/mnt"));
    EXPECT_FALSE(DiskDiagnostics::IsDirectoryMounted("/mnt/"));
}

// --- GetDisks -----------------------------------------------------------------------

TEST_F(DiskDiagnosticsInGuest, GetDisksListsExactlyTheVirtioDisksInProbeOrder)
{
    const std::vector<Disk> disks = TakeDisks();
    const std::vector<std::string> paths = Paths(disks);

    const std::set<std::string> expected = {Blank,   TwoParts,   Gpt,       Huge,
                                            Logical, EmptyMsdos, NumberGap, Reversed};
    EXPECT_EQ(std::set<std::string>(paths.begin(), paths.end()), expected);
    EXPECT_EQ(paths.size(), 8u) << "each disk once";

    std::vector<std::string> probeOrder = PartedListOrder();
    probeOrder.erase(std::remove(probeOrder.begin(), probeOrder.end(), Usb), probeOrder.end());
    EXPECT_EQ(paths, probeOrder);

    struct Expected
    {
        const char* path;
        int64_t mebibytes;
        const char* tableType;
    };
    for (const Expected& want : {Expected{Blank, 64, ""}, Expected{TwoParts, 128, "msdos"},
                                 Expected{Gpt, 256, "gpt"}, Expected{Huge, 3072, "msdos"},
                                 Expected{Logical, 96, "msdos"}, Expected{EmptyMsdos, 48, "msdos"},
                                 Expected{NumberGap, 80, "msdos"}, Expected{Reversed, 64, "msdos"}})
    {
        SCOPED_TRACE(want.path);
        const Disk* disk = Find(disks, want.path);
        ASSERT_NE(disk, nullptr);
        EXPECT_EQ(disk->sectorCount, Sectors(want.mebibytes));
        EXPECT_EQ(disk->sectorSize, 512);
        EXPECT_EQ(disk->size, want.mebibytes * MiB);
        EXPECT_EQ(disk->physicalSectorSize, 512);
        EXPECT_EQ(disk->tableType, want.tableType);
        EXPECT_EQ(disk->model, "Virtio Block Device");
        EXPECT_FALSE(disk->dirty);
        // A virtio disk is none of the twelve known kinds: the type stays.
        EXPECT_EQ(disk->type, Kel::ZarnLinuxTools::DiskTypeUnknown);
        // udev gives these disks no bus at all; they are kept.
        EXPECT_EQ(disk->udevProperties.count("ID_BUS"), 0u);
        ASSERT_EQ(disk->udevProperties.count("DEVNAME"), 1u);
        EXPECT_EQ(disk->udevProperties.at("DEVNAME"), want.path);
        EXPECT_EQ(disk->udevProperties.at("DEVTYPE"), "disk");
    }
}

TEST_F(DiskDiagnosticsInGuest, GetDisksLeavesOutTheUsbDiskThatLibpartedSees)
{
    Disk usb;
    usb.path = Usb;
    ASSERT_TRUE(DiskDiagnostics::FillUdevProperties(usb));
    ASSERT_EQ(usb.udevProperties.count("ID_BUS"), 1u);
    EXPECT_EQ(usb.udevProperties.at("ID_BUS"), "usb");

    Parted::DevicePtr device = Parted::GetDevice(Usb);
    ASSERT_TRUE(device);
    ConvertPedDisk(device.get(), usb);
    device.reset();
    EXPECT_EQ(usb.type, Kel::ZarnLinuxTools::DiskTypeScsi);
    EXPECT_EQ(usb.size, 32 * MiB);
    EXPECT_EQ(usb.tableType, "");
    std::ostringstream printed;
    printed << usb.type;
    EXPECT_EQ(printed.str(), "scsi");
    const std::vector<std::string> probed = PartedListOrder();
    EXPECT_NE(std::find(probed.begin(), probed.end(), Usb), probed.end());

    const std::vector<Disk> disks = TakeDisks();
    EXPECT_EQ(Find(disks, Usb), nullptr);
    EXPECT_EQ(disks.size(), 8u);
}

TEST_F(DiskDiagnosticsInGuest, GetDisksLeavesOutOnlyAnExactUsbBusAndKeepsFailedQueries)
{
    // A stand-in udevadm first in PATH: each disk gets its own answer.
    const std::string bin = "/tmp/dd-fake-bin";
    ASSERT_TRUE(Sh("mkdir -p " + bin));
    {
        std::ofstream script(bin + "/udevadm");
        script << "#!/bin/sh\n"
                  "[ \"$1 $2 $3 $4\" = \"info --query property --name\" ] || exit 2\n"
                  "case \"$5\" in\n"
                  "/dev/vda) printf 'ID_BUS=USB\\n' ;;\n"
                  "/dev/vdb) printf 'ID_BUS=usb\\nID_BUS=ata\\n' ;;\n"
                  "/dev/vdc) printf 'ID_BUS=ata\\nID_BUS=usb\\n' ;;\n"
                  "/dev/vdd) printf 'ID_BUS=usb \\n' ;;\n"
                  "/dev/vde) printf 'ID_BUS\\nusb\\nID_BUS_X=usb\\n' ;;\n"
                  "/dev/vdf) printf 'ID_BUS=usb\\n' ;;\n"
                  "/dev/vdg) printf 'ID_BUS=\\n' ;;\n"
                  "/dev/vdh) printf '' ;;\n"
                  "*) exit 1 ;;\n"
                  "esac\n";
    }
    ASSERT_EQ(chmod((bin + "/udevadm").c_str(), 0755), 0);
    PrependPath(bin);

    const std::vector<Disk> disks = TakeDisks();
    const std::vector<std::string> paths = Paths(disks);
    const std::set<std::string> expected = {Blank,     TwoParts, Huge, Logical,
                                            NumberGap, Reversed, Usb};
    EXPECT_EQ(std::set<std::string>(paths.begin(), paths.end()), expected);

    const Disk* twoParts = Find(disks, TwoParts);
    ASSERT_NE(twoParts, nullptr);
    EXPECT_EQ(twoParts->udevProperties.at("ID_BUS"), "ata");
    // The USB disk's query failed: listed, with no properties at all.
    const Disk* usb = Find(disks, Usb);
    ASSERT_NE(usb, nullptr);
    EXPECT_TRUE(usb->udevProperties.empty());
    EXPECT_EQ(usb->type, Kel::ZarnLinuxTools::DiskTypeScsi);
}

// The key the wizard runs from is never offered, whatever udev says of its
// bus: here a virtio disk (no bus at all) holds /mnt/USB.
TEST_F(DiskDiagnosticsInGuest, GetDisksNeverOffersTheDiskBehindTheKeysMountPoint)
{
    ASSERT_TRUE(Mount("/dev/vdb1", "/mnt/USB", "vfat"));
    std::vector<std::string> paths = Paths(TakeDisks());
    EXPECT_EQ(std::set<std::string>(paths.begin(), paths.end()),
              std::set<std::string>({Blank, Gpt, Huge, Logical, EmptyMsdos, NumberGap, Reversed}));

    // Held back by its mount point, not by anything else: with nothing held
    // it is listed again, and another held directory holds its own disk.
    std::unique_ptr<std::vector<Disk>> unheld(DiskDiagnostics::GetDisks({}));
    ASSERT_TRUE(unheld);
    EXPECT_NE(Find(*unheld, TwoParts), nullptr);
    EXPECT_EQ(unheld->size(), 8u);
    ASSERT_TRUE(Mount("/dev/vdb2", "/mnt/dd-root", "ext4"));
    std::unique_ptr<std::vector<Disk>> held(DiskDiagnostics::GetDisks({"/mnt/dd-root"}));
    ASSERT_TRUE(held);
    EXPECT_EQ(Find(*held, TwoParts), nullptr);
    EXPECT_EQ(held->size(), 7u);
}

// A key on the USB bus whose udev query tells no bus (or fails) is still
// never offered once it holds /mnt/USB; once it is gone from there, a failed
// query keeps a disk listed as before.
TEST_F(DiskDiagnosticsInGuest, GetDisksNeverOffersAMountedKeyWhateverUdevSays)
{
    const std::string bin = "/tmp/dd-silent-udev";
    ASSERT_TRUE(Sh("mkdir -p " + bin + " && printf '#!/bin/sh\\nexit 1\\n' > " + bin +
                   "/udevadm && chmod 755 " + bin + "/udevadm"));
    ASSERT_TRUE(Sh("mkfs.fat -F 16 -I /dev/sda >/dev/null"));
    const bool mounted = Mount(Usb, "/mnt/USB", "vfat");
    PrependPath(bin);
    const std::vector<Disk> disks = TakeDisks();
    TearDown();
    mountPoints_.clear();
    // The whole-disk file system goes again: the other tests want it blank.
    ASSERT_TRUE(Sh("wipefs -a -q /dev/sda"));
    ASSERT_TRUE(mounted);
    EXPECT_EQ(Find(disks, Usb), nullptr);
    EXPECT_EQ(disks.size(), 8u);
    for (const Disk& disk : disks)
        EXPECT_TRUE(disk.udevProperties.empty()) << disk.path;
}

// A loop device with a partition table is never offered. (libparted does not
// list loop devices today; the name rule that leaves them out is also
// checked on the host.)
TEST_F(DiskDiagnosticsInGuest, GetDisksLeavesOutLoopDevices)
{
    ASSERT_TRUE(Sh("truncate -s 16M /tmp/dd-loop.img && losetup -f --show /tmp/dd-loop.img "
                   "> /tmp/dd-loop.dev && parted -s \"$(cat /tmp/dd-loop.dev)\" mklabel msdos"));
    std::string loop;
    RunCommand("cat /tmp/dd-loop.dev", loop);
    loop = loop.substr(0, loop.find('\n'));
    const std::vector<Disk> disks = TakeDisks();
    Sh("losetup -d " + loop + "; rm -f /tmp/dd-loop.img /tmp/dd-loop.dev");
    ASSERT_EQ(loop.rfind("/dev/loop", 0), 0u) << loop;
    EXPECT_EQ(Find(disks, loop), nullptr);
    EXPECT_EQ(disks.size(), 8u);
}

TEST_F(DiskDiagnosticsInGuest, FillUdevPropertiesAsksUdevAboutThePath)
{
    Disk disk;
    disk.path = Blank;
    EXPECT_TRUE(DiskDiagnostics::FillUdevProperties(disk));
    EXPECT_EQ(disk.udevProperties["DEVNAME"], Blank);
    EXPECT_EQ(disk.udevProperties["DEVTYPE"], "disk");
    EXPECT_EQ(disk.udevProperties["SUBSYSTEM"], "block");

    Disk missing;
    missing.path = Missing;
    EXPECT_FALSE(DiskDiagnostics::FillUdevProperties(missing));
    EXPECT_TRUE(missing.udevProperties.empty());
}

// --- tables ---------------------------------------------------------------------------

TEST_F(DiskDiagnosticsInGuest, HasMsdosPartitionTableOnlyForMsdos)
{
    EXPECT_FALSE(DiskDiagnostics::HasMsdosPartitionTable(Blank));
    EXPECT_TRUE(DiskDiagnostics::HasMsdosPartitionTable(TwoParts));
    EXPECT_TRUE(DiskDiagnostics::HasMsdosPartitionTable(EmptyMsdos));
    EXPECT_FALSE(DiskDiagnostics::HasMsdosPartitionTable(Gpt));
    EXPECT_FALSE(DiskDiagnostics::HasMsdosPartitionTable(Usb));
    EXPECT_FALSE(DiskDiagnostics::HasMsdosPartitionTable(Missing));
    // A partition is no disk with a table.
    EXPECT_FALSE(DiskDiagnostics::HasMsdosPartitionTable("/dev/vdb2"));
}

TEST_F(DiskDiagnosticsInGuest, DiskWithoutTableHasNothing)
{
    Parted::DevicePtr device = Parted::GetDevice(Blank);
    ASSERT_TRUE(device);
    Disk disk;
    ConvertPedDisk(device.get(), disk);
    device.reset();
    EXPECT_EQ(disk.tableType, "");
    EXPECT_EQ(disk.path, Blank);
    EXPECT_EQ(disk.sectorCount, Sectors(64));

    EXPECT_FALSE(DiskDiagnostics::HasMsdosPartitionTable(Blank));
    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(Blank), -1);
    std::unique_ptr<std::vector<Partition>> partitions(DiskDiagnostics::GetPartitions(Blank));
    ASSERT_NE(partitions, nullptr);
    EXPECT_TRUE(partitions->empty());
    ExpectDefault(DiskDiagnostics::GetPartition(Blank, 1));
    EXPECT_EQ(DiskDiagnostics::GetFreeSpace(Blank), -1);
}

TEST_F(DiskDiagnosticsInGuest, MissingDeviceGivesTheFailureValues)
{
    EXPECT_FALSE(DiskDiagnostics::HasMsdosPartitionTable(Missing));
    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(Missing), -1);
    std::unique_ptr<std::vector<Partition>> partitions(DiskDiagnostics::GetPartitions(Missing));
    ASSERT_NE(partitions, nullptr);
    EXPECT_TRUE(partitions->empty());
    ExpectDefault(DiskDiagnostics::GetPartition(Missing, 1));
    EXPECT_EQ(DiskDiagnostics::GetFreeSpace(Missing), -1);
}

// --- partitions -------------------------------------------------------------------------

TEST_F(DiskDiagnosticsInGuest, TwoPartitionsWithFreeSpaceBetweenGiveExactlyTwoRecords)
{
    const std::vector<Partition> partitions = TakePartitions(TwoParts);
    ASSERT_EQ(partitions.size(), 2u);
    ExpectPartition(partitions[0], 1, 2048, 34815, "fat16", true);
    ExpectPartition(partitions[1], 2, 65536, 106495, "ext4", false);
    EXPECT_FALSE(partitions[0].mounted);
    EXPECT_FALSE(partitions[1].mounted);

    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(TwoParts), 2);

    ExpectPartition(DiskDiagnostics::GetPartition(TwoParts, 1), 1, 2048, 34815, "fat16", true);
    ExpectPartition(DiskDiagnostics::GetPartition(TwoParts, 2), 2, 65536, 106495, "ext4", false);
}

TEST_F(DiskDiagnosticsInGuest, GetPartitionOfAMissingNumberIsTheDefaultRecord)
{
    ExpectDefault(DiskDiagnostics::GetPartition(TwoParts, 3));
    ExpectDefault(DiskDiagnostics::GetPartition(TwoParts, 0));
    ExpectDefault(DiskDiagnostics::GetPartition(TwoParts, 5));
    // -1 is what libparted numbers its metadata areas with: still no partition.
    ExpectDefault(DiskDiagnostics::GetPartition(TwoParts, -1));
    ExpectDefault(DiskDiagnostics::GetPartition(NumberGap, 2));
    ExpectDefault(DiskDiagnostics::GetPartition(EmptyMsdos, 1));
}

TEST_F(DiskDiagnosticsInGuest, ExtendedAndLogicalPartitionsAreListedAndSwapIsNamed)
{
    const std::vector<Partition> partitions = TakePartitions(Logical);
    EXPECT_EQ(Numbers(partitions), (std::vector<int>{1, 2, 5}));
    ASSERT_EQ(partitions.size(), 3u);
    ExpectPartition(partitions[0], 1, 2048, 20479, "linux-swap(v1)", false);
    ExpectPartition(partitions[1], 2, 20480, 100351, "", false);
    ExpectPartition(partitions[2], 5, 22528, 40959, "", false);

    // The extended partition counts as a primary one.
    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(Logical), 2);
    ExpectPartition(DiskDiagnostics::GetPartition(Logical, 5), 5, 22528, 40959, "", false);
    EXPECT_EQ(DiskDiagnostics::GetFreeSpace(Logical), (Sectors(96) - 100351) * 512);
}

TEST_F(DiskDiagnosticsInGuest, GptDiskIsReadButIsNoMsdosDisk)
{
    Parted::DevicePtr device = Parted::GetDevice(Gpt);
    ASSERT_TRUE(device);
    Disk disk;
    ConvertPedDisk(device.get(), disk);
    device.reset();
    EXPECT_EQ(disk.tableType, "gpt");

    EXPECT_FALSE(DiskDiagnostics::HasMsdosPartitionTable(Gpt));
    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(Gpt), 3);
    const std::vector<Partition> partitions = TakePartitions(Gpt);
    EXPECT_EQ(Numbers(partitions), (std::vector<int>{1, 2, 3}));
    ASSERT_EQ(partitions.size(), 3u);
    ExpectPartition(partitions[0], 1, 2048, 20479, "", false);
    ExpectPartition(partitions[2], 3, 40960, 61439, "linux-swap(v1)", false);
    EXPECT_EQ(DiskDiagnostics::GetFreeSpace(Gpt), (Sectors(256) - 61439) * 512);
}

TEST_F(DiskDiagnosticsInGuest, PrimaryPartitionCounts)
{
    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(EmptyMsdos), 0);
    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(Huge), 1);
    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(TwoParts), 2);
    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(NumberGap), 2);
    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(Reversed), 2);
    EXPECT_EQ(DiskDiagnostics::GetNbPrimaryPartitions(Blank), -1);
}

// --- free space ----------------------------------------------------------------------------

TEST_F(DiskDiagnosticsInGuest, FreeSpaceIsCountedFromTheEndOfTheLastPrimaryPartition)
{
    // Device length minus the last sector's number: one sector more than
    // what is really free behind it.
    EXPECT_EQ(DiskDiagnostics::GetFreeSpace(TwoParts), (Sectors(128) - 106495) * 512);
}

TEST_F(DiskDiagnosticsInGuest, FreeSpaceUsesTheHighestNumberNotTheHighestSector)
{
    EXPECT_EQ(Numbers(TakePartitions(Reversed)), (std::vector<int>{2, 1}));
    EXPECT_EQ(DiskDiagnostics::GetFreeSpace(Reversed), (Sectors(64) - 4095) * 512);
}

TEST_F(DiskDiagnosticsInGuest, FreeSpaceOfAnEmptyTableIsMinusOne)
{
    // No partition carries the number 0 that the count gives.
    EXPECT_TRUE(TakePartitions(EmptyMsdos).empty());
    EXPECT_EQ(DiskDiagnostics::GetFreeSpace(EmptyMsdos), -1);
}

TEST_F(DiskDiagnosticsInGuest, FreeSpaceWithAGapInTheNumbersIsMinusOne)
{
    EXPECT_EQ(Numbers(TakePartitions(NumberGap)), (std::vector<int>{1, 3}));
    EXPECT_EQ(DiskDiagnostics::GetFreeSpace(NumberGap), -1);
}

TEST_F(DiskDiagnosticsInGuest, FreeSpaceWrapsAbove2GiBLikeA32BitInt)
{
    // (6291456 - 4095) * 512 = 3219128832, which is -1075838464 in 32 bits.
    EXPECT_EQ(DiskDiagnostics::GetFreeSpace(Huge), -1075838464);
}

// --- ids around the libparted calls ------------------------------------------------------------

TEST_F(DiskDiagnosticsInGuest, IdsAreRestoredExceptOnTheEarlyReturnsOfTwoOperations)
{
    // Device or disk cannot be opened: the ids stay switched.
    EXPECT_EQ(
        IdsAfter([] { return !DiskDiagnostics::HasMsdosPartitionTable(Missing); }, LeftAsRoot), 0);
    EXPECT_EQ(IdsAfter([] { return DiskDiagnostics::GetFreeSpace(Missing) == -1; }, LeftAsRoot), 0);
    EXPECT_EQ(IdsAfter([] { return DiskDiagnostics::GetFreeSpace(Blank) == -1; }, LeftAsRoot), 0);

    // Every other way out puts them back.
    EXPECT_EQ(IdsAfter([] { return DiskDiagnostics::HasMsdosPartitionTable(TwoParts); }, Restored),
              0);
    EXPECT_EQ(IdsAfter([] { return !DiskDiagnostics::HasMsdosPartitionTable(Blank); }, Restored),
              0);
    EXPECT_EQ(IdsAfter([] { return DiskDiagnostics::GetFreeSpace(TwoParts) > 0; }, Restored), 0);
    EXPECT_EQ(IdsAfter([] { return DiskDiagnostics::GetFreeSpace(EmptyMsdos) == -1; }, Restored),
              0);
    EXPECT_EQ(
        IdsAfter([] { return DiskDiagnostics::GetNbPrimaryPartitions(Missing) == -1; }, Restored),
        0);
    EXPECT_EQ(
        IdsAfter([] { return DiskDiagnostics::GetNbPrimaryPartitions(Blank) == -1; }, Restored), 0);
    EXPECT_EQ(
        IdsAfter([] { return DiskDiagnostics::GetNbPrimaryPartitions(TwoParts) == 2; }, Restored),
        0);
    EXPECT_EQ(IdsAfter([] { return TakePartitions(Missing).empty(); }, Restored), 0);
    EXPECT_EQ(IdsAfter([] { return TakePartitions(TwoParts).size() == 2; }, Restored), 0);
    EXPECT_EQ(
        IdsAfter([] { return DiskDiagnostics::GetPartition(Blank, 1).number == -1; }, Restored), 0);
    EXPECT_EQ(
        IdsAfter([] { return DiskDiagnostics::GetPartition(TwoParts, 1).number == 1; }, Restored),
        0);
    EXPECT_EQ(IdsAfter([] { return TakeDisks().size() == 8; }, Restored), 0);
}

// --- mounts
// ---------------------------------------------------------------------------------------

TEST_F(DiskDiagnosticsInGuest, MountedPartitionIsSeenByEveryMountQuery)
{
    const std::string directory = "/mnt/dd-sys";
    ASSERT_TRUE(Mount("/dev/vdb2", directory, "ext4"));

    const std::vector<Partition> partitions = TakePartitions(TwoParts);
    ASSERT_EQ(partitions.size(), 2u);
    EXPECT_FALSE(partitions[0].mounted);
    EXPECT_TRUE(partitions[1].mounted);
    EXPECT_TRUE(DiskDiagnostics::GetPartition(TwoParts, 2).mounted);
    EXPECT_FALSE(DiskDiagnostics::GetPartition(TwoParts, 1).mounted);

    EXPECT_TRUE(DiskDiagnostics::IsPartitionMounted(TwoParts, 2));
    EXPECT_FALSE(DiskDiagnostics::IsPartitionMounted(TwoParts, 1));
    EXPECT_TRUE(DiskDiagnostics::IsDirectoryMounted(directory.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsDirectoryMounted((directory + "/").c_str()));
    EXPECT_TRUE(DiskDiagnostics::IsDirectoryMountedOn(directory.c_str(), TwoParts, 2));
    EXPECT_FALSE(DiskDiagnostics::IsDirectoryMountedOn(directory.c_str(), TwoParts, 1));
    EXPECT_FALSE(DiskDiagnostics::IsDirectoryMountedOn((directory + "/").c_str(), TwoParts, 2));
    EXPECT_FALSE(DiskDiagnostics::IsDirectoryMountedOn("/mnt", TwoParts, 2));

    struct statvfs info;
    ASSERT_EQ(statvfs(directory.c_str(), &info), 0);
    const uint64_t free = DiskDiagnostics::GetMountedPartitionFreeSpace(directory.c_str());
    EXPECT_EQ(free, static_cast<uint64_t>(info.f_bsize) * info.f_bavail);
    EXPECT_GT(free, 0u);
    EXPECT_LT(free, static_cast<uint64_t>(40960 * 512));

    ASSERT_EQ(umount2(directory.c_str(), 0), 0);
    EXPECT_FALSE(DiskDiagnostics::IsDirectoryMounted(directory.c_str()));
    EXPECT_FALSE(DiskDiagnostics::IsPartitionMounted(TwoParts, 2));
    EXPECT_FALSE(DiskDiagnostics::GetPartition(TwoParts, 2).mounted);
}

TEST_F(DiskDiagnosticsInGuest, PartitionMountedTwiceIsSeenOnBothDirectories)
{
    ASSERT_TRUE(Mount("/dev/vdb1", "/mnt/dd-one", "vfat"));
    ASSERT_TRUE(Mount("/dev/vdb1", "/mnt/dd-two", "vfat"));
    EXPECT_TRUE(DiskDiagnostics::IsDirectoryMountedOn("/mnt/dd-one", TwoParts, 1));
    EXPECT_TRUE(DiskDiagnostics::IsDirectoryMountedOn("/mnt/dd-two", TwoParts, 1));
    EXPECT_TRUE(DiskDiagnostics::GetPartition(TwoParts, 1).mounted);
}

TEST_F(DiskDiagnosticsInGuest, MountedPartitionFreeSpaceOfMissingDirectoryIsAllOnes)
{
    EXPECT_EQ(DiskDiagnostics::GetMountedPartitionFreeSpace("/mnt/dd-no-such-dir"),
              std::numeric_limits<uint64_t>::max());
}

TEST_F(DiskDiagnosticsInGuest, MmcblkZeroNumberOneIsLookedUpAsMmcblk0p1)
{
    ASSERT_TRUE(Link(TwoParts, "/dev/mmcblk0"));
    ASSERT_TRUE(Link("/dev/vdb1", "/dev/mmcblk0p1"));
    // mount(2) keeps the source name as given, so mtab shows the link's name.
    const std::string directory = "/mnt/dd-mmc";
    ASSERT_TRUE(Mount("/dev/mmcblk0p1", directory, "vfat"));

    EXPECT_TRUE(DiskDiagnostics::IsPartitionMounted("/dev/mmcblk0", 1));
    EXPECT_TRUE(DiskDiagnostics::IsDirectoryMountedOn(directory.c_str(), "/dev/mmcblk0", 1));
    EXPECT_FALSE(DiskDiagnostics::IsPartitionMounted("/dev/mmcblk0", 2));
    EXPECT_FALSE(DiskDiagnostics::IsPartitionMounted(TwoParts, 1));

    // libparted opens the link under its target's name, so the records it
    // gives carry /dev/vdb and the partition does not show as mounted.
    EXPECT_TRUE(DiskDiagnostics::HasMsdosPartitionTable("/dev/mmcblk0"));
    const std::vector<Partition> partitions = TakePartitions("/dev/mmcblk0");
    ASSERT_EQ(partitions.size(), 2u);
    EXPECT_EQ(partitions[0].fileSystem, "fat16");
    EXPECT_FALSE(partitions[0].mounted);
}

// --- file kinds on real devices
// -------------------------------------------------------------------

TEST_F(DiskDiagnosticsInGuest, FileKindsOfDevicesAndLinksToThem)
{
    ASSERT_TRUE(Link(Blank, "/dev/dd-disk-link"));
    EXPECT_TRUE(DiskDiagnostics::IsBlockDevice(Blank));
    EXPECT_TRUE(DiskDiagnostics::IsBlockDevice("/dev/vdb1"));
    EXPECT_FALSE(DiskDiagnostics::IsLink(Blank));
    EXPECT_FALSE(DiskDiagnostics::IsFile(Blank));
    EXPECT_FALSE(DiskDiagnostics::IsDirectory(Blank));
    EXPECT_TRUE(DiskDiagnostics::IsBlockDevice("/dev/dd-disk-link"));
    EXPECT_TRUE(DiskDiagnostics::IsLink("/dev/dd-disk-link"));
    EXPECT_FALSE(DiskDiagnostics::IsBlockDevice("/dev/null"));
    EXPECT_FALSE(DiskDiagnostics::IsBlockDevice(Missing));
    EXPECT_TRUE(DiskDiagnostics::IsDirectory("/dev"));
}
