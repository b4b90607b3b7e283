#include "Guest.h"

#include "HostCommand.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#ifndef WIZARD_SOURCE_DIR
#error "WIZARD_SOURCE_DIR must name the repository root"
#endif

namespace Sandbox
{

namespace
{

using Clock = std::chrono::steady_clock;

const int BootTimeoutSec = 120;

bool Exists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    return static_cast<bool>(out);
}

std::string Trimmed(const std::string& text)
{
    const size_t end = text.find_last_not_of(" \n\r\t");
    return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

std::optional<int> ParseStatus(const std::string& text)
{
    try
    {
        size_t used = 0;
        const std::string trimmed = Trimmed(text);
        const int value = std::stoi(trimmed, &used);
        if (used == trimmed.size())
            return value;
    }
    catch (const std::exception&)
    {
    }
    return std::nullopt;
}

std::string LastLines(const std::string& text, size_t count)
{
    size_t pos = text.size();
    if (pos > 0 && text[pos - 1] == '\n')
        --pos;
    for (size_t i = 0; i < count && pos != std::string::npos && pos > 0; ++i)
        pos = text.rfind('\n', pos - 1);
    return pos == std::string::npos || pos == 0 ? text : text.substr(pos + 1);
}

void Pause(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

bool ProcessAlive(int pid)
{
    return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
}

} // namespace

Guest::Guest(const GuestOptions& options) : _ioDir("/tmp/wizard-guest-")
{
    const std::string io = _ioDir.Path();
    std::vector<std::string> args = {std::string(WIZARD_SOURCE_DIR) + "/sandbox/guest",
                                     "--io",
                                     io,
                                     "--mem",
                                     std::to_string(options.memMb),
                                     "--timeout",
                                     std::to_string(options.timeoutSec),
                                     "--owner-pid",
                                     std::to_string(getpid())};
    for (const auto& disk : options.disks)
        args.insert(args.end(), {"--disk", disk});
    for (const auto& disk : options.usbDisks)
        args.insert(args.end(), {"--usb-disk", disk});
    for (const auto& disk : options.nvmeDisks)
        args.insert(args.end(), {"--nvme-disk", disk});
    for (const auto& disk : options.sdDisks)
        args.insert(args.end(), {"--sd-disk", disk});
    if (!options.biosVendor.empty())
        args.insert(args.end(), {"--bios-vendor", options.biosVendor});
    if (options.kernelCmdline)
    {
        if (options.kernelCmdline->empty())
            args.push_back("--no-cmdline");
        else
            args.insert(args.end(), {"--cmdline", *options.kernelCmdline});
    }
    if (!options.usbKeyDir.empty())
        args.insert(args.end(), {"--usbkey", options.usbKeyDir});
    if (!options.setupScript.empty())
    {
        // The launcher copies it into the guest's /io under a name of its own.
        const std::string setup = io + "/guest-setup.sh";
        if (!WriteFile(setup, options.setupScript))
            throw std::runtime_error("cannot write " + setup);
        args.insert(args.end(), {"--setup", setup});
    }
    if (!options.nvramFile.empty())
        args.insert(args.end(), {"--nvram", options.nvramFile});
    args.push_back("agent");

    std::string command = "exec ";
#ifdef WIZARD_SANDBOX_INITRD
    // The build's own initramfs, when it has made one.
    if (Exists(WIZARD_SANDBOX_INITRD))
        command +=
            "env WIZARD_SANDBOX_INITRD=" + HostCommand::ShellQuote(WIZARD_SANDBOX_INITRD) + " ";
#endif
    for (const auto& arg : args)
        command += HostCommand::ShellQuote(arg) + " ";

    _screen = std::make_unique<TmuxScreen>(options.columns, options.rows, command);
    _launcherPid = _screen->PanePid();

    const auto deadline = Clock::now() + std::chrono::seconds(BootTimeoutSec);
    bool ready = false;
    while (!(ready = Exists(io + "/ready")) && !Ended() && Clock::now() < deadline)
        Pause(100);
    if (!ready)
    {
        const std::string why = Ended()
                                    ? "it ended (" + Outcome() + ")"
                                    : "no answer within " + std::to_string(BootTimeoutSec) + " s";
        const std::string details = Diagnostics();
        Stop();
        throw std::runtime_error("the sandbox guest did not start: " + why + "\n" + details);
    }
    // The guest's init gives its console 80x25; a serial line tells no size
    // of its own, so another one is set the same way.
    if (options.columns != 80 || options.rows != 25)
    {
        const Result sized = Run("stty -F /dev/ttyS0 rows " + std::to_string(options.rows) +
                                 " cols " + std::to_string(options.columns));
        if (sized.rc != 0)
        {
            Stop();
            throw std::runtime_error("cannot size the guest's console: " + sized.output);
        }
    }
}

Guest::~Guest()
{
    Stop();
}

void Guest::Stop() noexcept
{
    try
    {
        if (!_screen)
            return;
        if (ProcessAlive(_launcherPid) && !_screen->PaneDead())
        {
            // The launcher stops qemu and cleans up after itself.
            kill(_launcherPid, SIGTERM);
            const auto deadline = Clock::now() + std::chrono::seconds(15);
            while (ProcessAlive(_launcherPid) && !_screen->PaneDead() && Clock::now() < deadline)
                Pause(50);
        }
        // Should the launcher not have managed it: qemu must not outlive us.
        const auto qemuPid = ParseStatus(ReadIoFile("qemu.pid"));
        if (qemuPid && ProcessAlive(*qemuPid) &&
            ReadFile("/proc/" + std::to_string(*qemuPid) + "/comm").rfind("qemu", 0) == 0)
            kill(*qemuPid, SIGKILL);
        _screen.reset();
    }
    catch (...)
    {
    }
}

bool Guest::Ended() const
{
    return Exists(_ioDir.Path() + "/outcome");
}

std::string Guest::Diagnostics() const
{
    // Long enough for a whole panic trace and the guest init lines before it.
    std::string text = "--- end of the guest's kernel log (" + _ioDir.Path() + "/kernel.log) ---\n";
    text += LastLines(ReadIoFile("kernel.log"), 120);
    if (_screen)
        text += "\n--- console ---\n" + Screen();
    return text;
}

Guest::Result Guest::Run(const std::string& shellCommand, int timeoutSec)
{
    if (Ended())
        return {-1, "the sandbox guest has ended (" + Outcome() + ")"};

    char name[32];
    std::snprintf(name, sizeof name, "%06u", ++_requests);
    const std::string base = _ioDir.Path() + "/ctl/" + name;
    // The guest picks up only complete requests: write, then rename.
    if (!WriteFile(base + ".sh.tmp", shellCommand + "\n") ||
        std::rename((base + ".sh.tmp").c_str(), (base + ".sh").c_str()) != 0)
        return {-1, "cannot write the request " + base + ".sh"};

    const auto deadline = Clock::now() + std::chrono::seconds(timeoutSec);
    int pause = 10;
    while (!Exists(base + ".rc"))
    {
        if (Ended() || Clock::now() >= deadline)
        {
            std::string output = ReadFile(base + ".out");
            output += Ended() ? "\n[the sandbox guest ended (" + Outcome() + ")]"
                              : "\n[no answer from the sandbox guest within " +
                                    std::to_string(timeoutSec) + " s]";
            return {-1, output};
        }
        Pause(pause);
        pause = std::min(pause * 2, 100);
    }
    Result result{ParseStatus(ReadFile(base + ".rc")).value_or(-1), ReadFile(base + ".out")};
    // The request first: the agent skips requests that have an answer.
    unlink((base + ".sh").c_str());
    unlink((base + ".out").c_str());
    unlink((base + ".rc").c_str());
    return result;
}

void Guest::StartOnConsole(const std::string& command, const std::string& cwd)
{
    const std::string dir = HostCommand::ShellQuote(cwd);
    const Result result = Run("mkdir -p " + dir + " && cd " + dir + " && console-run sh -c " +
                              HostCommand::ShellQuote(command));
    if (result.rc != 0)
        throw std::runtime_error("cannot start on the guest console: " + command + "\n" +
                                 result.output);
}

std::optional<int> Guest::WaitConsoleExit(int timeoutSec)
{
    const std::string path = _ioDir.Path() + "/console.rc";
    const auto deadline = Clock::now() + std::chrono::seconds(timeoutSec);
    for (;;)
    {
        if (Exists(path))
        {
            const auto status = ParseStatus(ReadFile(path));
            unlink(path.c_str());
            return status;
        }
        if (Ended() || Clock::now() >= deadline)
            return std::nullopt;
        Pause(50);
    }
}

std::string Guest::Screen() const
{
    return _screen->Capture();
}

std::string Guest::StyledScreen() const
{
    return _screen->CaptureStyled();
}

std::string Guest::ScreenLine(int row) const
{
    std::istringstream in(Screen());
    std::string line;
    for (int i = 0; i <= row && std::getline(in, line); ++i)
    {
        if (i == row)
            return line;
    }
    return "";
}

bool Guest::WaitForText(const std::string& text, int timeoutSec) const
{
    return WaitForScreen([&text](const std::string& screen)
                         { return screen.find(text) != std::string::npos; },
                         timeoutSec);
}

bool Guest::WaitForScreen(std::function<bool(const std::string&)> test, int timeoutSec) const
{
    const auto deadline = Clock::now() + std::chrono::seconds(timeoutSec);
    for (;;)
    {
        if (test(Screen()))
            return true;
        if (Clock::now() >= deadline)
            return false;
        Pause(100);
    }
}

void Guest::SendKeys(const std::vector<std::string>& keys) const
{
    _screen->SendKeys(keys);
}

void Guest::SendText(const std::string& literal) const
{
    _screen->SendText(literal);
}

bool Guest::WaitEnded(int timeoutSec)
{
    const auto deadline = Clock::now() + std::chrono::seconds(timeoutSec);
    while (!Ended())
    {
        if (Clock::now() >= deadline)
            return false;
        Pause(100);
    }
    return true;
}

std::string Guest::Outcome() const
{
    return Trimmed(ReadIoFile("outcome"));
}

std::string Guest::IoDir() const
{
    return _ioDir.Path();
}

std::string Guest::ReadIoFile(const std::string& relative) const
{
    return ReadFile(_ioDir.Path() + "/" + relative);
}

} // namespace Sandbox
