#include "ScreenTest.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

namespace ScreenTest
{

std::unique_ptr<Sandbox::Guest> GuestSuite::_guest;
std::unique_ptr<Sandbox::TempDir> GuestSuite::_suiteFiles;
std::vector<std::unique_ptr<Sandbox::SparseImage>> GuestSuite::_diskImages;
int GuestSuite::_suiteRows = 25;
int GuestSuite::_suiteColumns = 80;

const std::string GuestSuite::DosAndLinuxPartitions =
    "parted -s /dev/vda mklabel msdos mkpart primary fat16 1MiB 41MiB "
    "mkpart primary ext4 41MiB 100%\n"
    "udevadm settle\n"
    "mkfs.fat -F 16 -n DOS /dev/vda1 >/dev/null\n"
    "mkfs.ext4 -q -F -L LINUX /dev/vda2\n"
    "mkdir -p /mnt/SYS /mnt/DOS\n";

std::string Wizard()
{
    return std::string(WIZARD_BINARY_DIR) + "/wizard/InstallWizard";
}

std::string Program(const std::string& name)
{
    return std::string(WIZARD_BINARY_DIR) + "/tests/screen/" + name;
}

std::string SampleUsbKey()
{
    return std::string(WIZARD_SOURCE_DIR) + "/sample/usbkey";
}

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

bool InOrder(const std::vector<std::string>& lines, const std::vector<std::string>& wanted)
{
    auto at = lines.begin();
    for (const auto& line : wanted)
    {
        at = std::find(at, lines.end(), line);
        if (at == lines.end())
            return false;
        ++at;
    }
    return true;
}

std::vector<std::string> Rows(const std::string& screen)
{
    std::vector<std::string> rows;
    std::istringstream in(screen);
    std::string line;
    while (std::getline(in, line))
    {
        const size_t end = line.find_last_not_of(' ');
        rows.push_back(end == std::string::npos ? "" : line.substr(0, end + 1));
    }
    rows.resize(std::max<size_t>(rows.size(), 25));
    return rows;
}

std::string Row(const std::string& screen, int row)
{
    return Rows(screen).at(static_cast<size_t>(row));
}

int ForegroundOf(const std::string& styledScreen, int row, const std::string& text)
{
    std::istringstream in(styledScreen);
    std::string line;
    for (int i = 0; i <= row; ++i)
    {
        if (!std::getline(in, line))
            return -2;
    }
    // The visible characters of the row, each with the foreground it is drawn in.
    std::string plain;
    std::vector<int> colours;
    int foreground = -1;
    for (size_t at = 0; at < line.size();)
    {
        if (line.compare(at, 2, "\033[") == 0)
        {
            const size_t end = line.find_first_of("ABCDEFGHJKSTfmsu", at + 2);
            if (end == std::string::npos)
                break;
            if (line[end] == 'm')
            {
                std::vector<int> parameters;
                std::istringstream list(line.substr(at + 2, end - at - 2));
                for (std::string number; std::getline(list, number, ';');)
                    parameters.push_back(number.empty() ? 0 : std::atoi(number.c_str()));
                if (parameters.empty())
                    parameters.push_back(0);
                for (size_t i = 0; i < parameters.size(); ++i)
                {
                    const int value = parameters[i];
                    if (value == 0 || value == 39)
                        foreground = -1;
                    else if (value >= 30 && value <= 37)
                        foreground = value - 30;
                    else if (value >= 90 && value <= 97)
                        foreground = value - 90;
                    else if ((value == 38 || value == 48) && i + 2 < parameters.size() &&
                             parameters[i + 1] == 5)
                    {
                        if (value == 38)
                            foreground = parameters[i + 2] % 8;
                        i += 2;
                    }
                }
            }
            at = end + 1;
            continue;
        }
        plain += line[at];
        colours.push_back(foreground);
        ++at;
    }
    const size_t found = plain.find(text);
    return found == std::string::npos ? -2 : colours[found];
}

Sandbox::GuestOptions GuestSuite::SuiteDefaults()
{
    Sandbox::GuestOptions options;
    options.usbKeyDir = SampleUsbKey();
    options.kernelCmdline = UsbKeyCmdline;
    // The sample key's maintenance tools would add an item to every main
    // menu; the tests that want tools write their own list.
    options.setupScript = "rm -rf /mnt/USB/HardwareMaintenance\n";
    return options;
}

void GuestSuite::StartGuest(const Sandbox::GuestOptions& options)
{
    _suiteRows = options.rows;
    _suiteColumns = options.columns;
    _guest = std::make_unique<Sandbox::Guest>(options);
}

void GuestSuite::SetUpTestSuite()
{
    StartGuest(SuiteDefaults());
}

void GuestSuite::TearDownTestSuite()
{
    // The images go only once the machine that had them open has stopped.
    _guest.reset();
    _diskImages.clear();
    _suiteFiles.reset();
}

std::string GuestSuite::SuiteFiles()
{
    if (!_suiteFiles)
    {
        const auto* suite = testing::UnitTest::GetInstance()->current_test_suite();
        std::string name = suite != nullptr ? suite->name() : "suite";
        std::replace(name.begin(), name.end(), '/', '-');
        _suiteFiles = std::make_unique<Sandbox::TempDir>("/tmp/wizard-" + name + "-");
    }
    return _suiteFiles->Path();
}

std::string GuestSuite::NewDiskImage(const std::string& name, unsigned long long bytes)
{
    _diskImages.push_back(std::make_unique<Sandbox::SparseImage>(SuiteFiles() + "/" + name, bytes));
    return _diskImages.back()->Path();
}

void GuestSuite::SetUp()
{
    ASSERT_TRUE(_guest) << "the sandbox guest did not boot";
    RunInGuest("rm -rf " + WorkDir() + " && mkdir -p " + WorkDir());
}

void GuestSuite::TearDown()
{
    const bool biosVendorSet = _biosVendorSet;
    _biosVendorSet = false;
    // A test that ended the machine (restart, halt) leaves nothing to clean.
    if (_guest->WaitEnded(0))
    {
        _running = false;
        _consoleResized = false;
        return;
    }
    if (biosVendorSet)
        _guest->Run("while umount /sys/class/dmi/id 2>/dev/null; do :; done");
    if (_consoleResized)
    {
        _guest->Run("stty -F /dev/ttyS0 rows " + std::to_string(_suiteRows) + " cols " +
                    std::to_string(_suiteColumns));
        _consoleResized = false;
    }
    if (_running)
    {
        // A failed test may leave its program on the console: end it so the
        // next test starts on a clean console.
        _guest->Run("pkill -9 -f '" + std::string(WIZARD_BINARY_DIR) + "' || true");
        _guest->WaitConsoleExit(20);
        _running = false;
    }
    // Fixtures of a test never leak into the next one. A disk the program
    // mounted is let go first: its contents belong to the suite's disk.
    RunInGuest("for m in /mnt/SYS /mnt/DOS; do while umount $m 2>/dev/null; do :; done; done; "
               "rm -rf /mnt/SYS/* /mnt/APPS/* /mnt/USB/HardwareMaintenance");
    SetKernelCommandLine(UsbKeyCmdline);
}

void GuestSuite::RunInGuest(const std::string& command)
{
    const auto result = _guest->Run(command);
    ASSERT_EQ(result.rc, 0) << command << "\n" << result.output;
}

void GuestSuite::SetKernelCommandLine(const std::optional<std::string>& text)
{
    std::string write = text ? "printf '%s\\n' '" + *text + "' > /run/cmdline.test"
                             : std::string(": > /run/cmdline.test");
    RunInGuest("while umount /proc/cmdline 2>/dev/null; do :; done; " + write +
               " && mount --bind /run/cmdline.test /proc/cmdline");
}

std::string GuestSuite::WorkDir() const
{
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    return std::string("/io/work/") + info->test_suite_name() + "." + info->name();
}

std::string GuestSuite::HostWorkDir() const
{
    return _guest->IoDir() + WorkDir().substr(3);
}

void GuestSuite::Start(const std::string& commandLine)
{
    // Whatever the previous program left on the console must not be taken
    // for this one's screen.
    RunInGuest("printf '\\033[H\\033[2J' > /dev/ttyS0");
    ASSERT_TRUE(
        _guest->WaitForScreen([](const std::string& screen)
                              { return screen.find_first_not_of('\n') == std::string::npos; },
                              10))
        << _guest->Screen();
    _guest->StartOnConsole(commandLine, WorkDir());
    _running = true;
}

std::optional<int> GuestSuite::WaitExit(int timeoutSec)
{
    auto status = _guest->WaitConsoleExit(timeoutSec);
    if (status)
        _running = false;
    return status;
}

std::string GuestSuite::Log() const
{
    std::ifstream in(HostWorkDir() + "/installer.log");
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string GuestSuite::LookAtDisk(const std::string& image, const std::string& commands, bool dos)
{
    Sandbox::GuestOptions options;
    options.disks.push_back(image);
    options.timeoutSec = 600;
    Sandbox::Guest inspector(options);
    const std::string mount =
        dos ? "mkdir -p /mnt/DOS /mnt/SYS && mount -o ro -t vfat /dev/vda1 /mnt/DOS && "
              "mount -o ro -t ext4 /dev/vda2 /mnt/SYS"
            : "mkdir -p /mnt/SYS && mount -o ro -t ext4 /dev/vda2 /mnt/SYS";
    const std::string unmount = dos ? "umount /mnt/DOS /mnt/SYS" : "umount /mnt/SYS";
    return inspector.Run("export LC_ALL=C; " + mount + " && { " + commands + "; }; " + unmount)
        .output;
}

std::string GuestSuite::Result() const
{
    std::ifstream in(HostWorkDir() + "/result.txt");
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void GuestSuite::SetBiosVendor(const std::optional<std::string>& vendor)
{
    std::string command = "while umount /sys/class/dmi/id 2>/dev/null; do :; done; "
                          "mount -t tmpfs dmi /sys/class/dmi/id";
    if (vendor)
        command += " && printf '%s\\n' '" + *vendor + "' > /sys/class/dmi/id/bios_vendor";
    _biosVendorSet = true;
    RunInGuest(command);
}

void GuestSuite::SetConsoleSize(int rows, int columns)
{
    _consoleResized = true;
    RunInGuest("stty -F /dev/ttyS0 rows " + std::to_string(rows) + " cols " +
               std::to_string(columns));
}

std::vector<std::string> GuestSuite::LogMessages() const
{
    std::vector<std::string> messages;
    std::istringstream in(Log());
    std::string line;
    while (std::getline(in, line))
    {
        // "time\t|\tlevel\t|\tmessage"
        const size_t first = line.find("\t|\t");
        const size_t second = first == std::string::npos ? first : line.find("\t|\t", first + 3);
        if (second != std::string::npos)
            messages.push_back(line.substr(first + 3, second - first - 3) + " " +
                               line.substr(second + 3));
    }
    return messages;
}

bool GuestSuite::WaitForLog(const std::string& message, int timeoutSec) const
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSec);
    do
    {
        for (const auto& line : LogMessages())
            if (line == message)
                return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    } while (std::chrono::steady_clock::now() < deadline);
    return false;
}

bool GuestSuite::WaitFor(const std::string& text, int timeoutSec) const
{
    if (!_guest->WaitForText(text, timeoutSec))
        return false;
    Settle();
    return true;
}

void GuestSuite::Settle() const
{
    // The serial line is slow under emulation: wait until the screen stops changing.
    std::string previous = _guest->Screen();
    for (int i = 0; i < 50; ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        std::string current = _guest->Screen();
        if (current == previous)
            return;
        previous = std::move(current);
    }
}

bool GuestSuite::WaitGone(const std::string& text, int timeoutSec) const
{
    return _guest->WaitForScreen([&](const std::string& screen)
                                 { return screen.find(text) == std::string::npos; },
                                 timeoutSec);
}

} // namespace ScreenTest
