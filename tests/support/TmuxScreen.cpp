#include "TmuxScreen.h"

#include "HostCommand.h"

#include <atomic>
#include <chrono>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace Sandbox
{

namespace
{

const char* const Target = "main";

// tmux reads an argument that ends in ';' as the end of a command; a
// backslash in front keeps it a plain character.
std::string EscapeSemicolon(const std::string& arg)
{
    if (!arg.empty() && arg.back() == ';')
        return arg.substr(0, arg.size() - 1) + "\\;";
    return arg;
}

std::string Trimmed(const std::string& text)
{
    const size_t end = text.find_last_not_of(" \n\r\t");
    return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

} // namespace

TmuxScreen::TmuxScreen(int columns, int rows, const std::string& shellCommand)
    : _columns(columns), _rows(rows)
{
    static std::atomic<unsigned> counter{0};
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    _socket = "wizard-sandbox-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + "-" +
              std::to_string(now % 1000000);

    std::vector<std::string> argv = {"tmux", "-L", _socket, "-f", "/dev/null"};
    const std::vector<std::string> session = {
        "new-session",        "-d",        "-s", Target, "-x", std::to_string(columns), "-y",
        std::to_string(rows), shellCommand};
    const std::vector<std::string> noStatus = {";", "set-option", "-g", "status", "off"};
    const std::vector<std::string> remain = {";", "set-option", "-g", "remain-on-exit", "on"};
    for (const auto* part : {&session, &noStatus, &remain})
        argv.insert(argv.end(), part->begin(), part->end());
    std::string output;
    const int rc = HostCommand::Run(argv, &output);
    if (rc != 0)
        throw std::runtime_error("tmux new-session failed (" + std::to_string(rc) + "): " + output);

    const std::string wanted = std::to_string(columns) + "x" + std::to_string(rows);
    std::string size = Display("#{pane_width}x#{pane_height}");
    if (size != wanted)
    {
        TmuxRun({"resize-window", "-t", Target, "-x", std::to_string(columns), "-y",
                 std::to_string(rows)},
                nullptr);
        size = Display("#{pane_width}x#{pane_height}");
    }
    _socketPath = Display("#{socket_path}");
    if (size != wanted)
    {
        KillServer();
        throw std::runtime_error("tmux pane is " + size + ", not " + wanted);
    }
}

TmuxScreen::~TmuxScreen()
{
    KillServer();
}

void TmuxScreen::KillServer() noexcept
{
    try
    {
        TmuxRun({"kill-server"}, nullptr);
    }
    catch (...)
    {
    }
    // tmux leaves its socket file behind.
    if (!_socketPath.empty())
        unlink(_socketPath.c_str());
}

int TmuxScreen::TmuxRun(const std::vector<std::string>& args, std::string* output) const
{
    std::vector<std::string> argv = {"tmux", "-L", _socket};
    argv.insert(argv.end(), args.begin(), args.end());
    return HostCommand::Run(argv, output);
}

std::string TmuxScreen::Display(const std::string& format) const
{
    std::string output;
    if (TmuxRun({"display-message", "-p", "-t", Target, format}, &output) != 0)
        return "";
    return Trimmed(output);
}

std::string TmuxScreen::CaptureStyled() const
{
    std::string output;
    TmuxRun({"capture-pane", "-p", "-e", "-t", Target}, &output);
    return output;
}

std::string TmuxScreen::Capture() const
{
    std::string output;
    TmuxRun({"capture-pane", "-p", "-t", Target}, &output);
    std::istringstream in(output);
    std::string screen;
    std::string line;
    int count = 0;
    while (count < _rows && std::getline(in, line))
    {
        const size_t end = line.find_last_not_of(' ');
        screen += (end == std::string::npos ? std::string() : line.substr(0, end + 1)) + "\n";
        ++count;
    }
    for (; count < _rows; ++count)
        screen += "\n";
    return screen;
}

void TmuxScreen::SendKeys(const std::vector<std::string>& keys) const
{
    if (keys.empty())
        return;
    std::vector<std::string> args = {"send-keys", "-t", Target};
    for (const auto& key : keys)
        args.push_back(EscapeSemicolon(key));
    TmuxRun(args, nullptr);
}

void TmuxScreen::SendText(const std::string& literal) const
{
    if (literal.empty())
        return;
    TmuxRun({"send-keys", "-t", Target, "-l", "--", EscapeSemicolon(literal)}, nullptr);
}

int TmuxScreen::PanePid() const
{
    try
    {
        return std::stoi(Display("#{pane_pid}"));
    }
    catch (const std::exception&)
    {
        return 0;
    }
}

bool TmuxScreen::PaneDead() const
{
    return Display("#{pane_dead}") == "1";
}

} // namespace Sandbox
