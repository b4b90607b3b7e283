// Time from a program's start to a text on its screen, in a pseudo-terminal of 80x25:
//
//   BenchMenuTime [--runs N] [--text TEXT] [--marker TEXT] [--timeout SEC] [--term NAME]
//                 [--exit-key auto|none|KEY] [--cwd-base DIR] [--log FILE] -- COMMAND [ARGS...]
//
// The clock starts when the command is forked, or, with --marker, when the program itself is
// started: a wrapper that prepares things first prints "MARKER SECONDS@@" just before it
// execs the program, SECONDS being the wall clock then ("date +%s.%N"); without a number
// there, the clock starts when the marker is read. It stops when TEXT (default "Exit to shell") has
// been written, escape sequences left aside. Then the program is ended: with --exit-key auto the
// number written before TEXT is typed (the menu's own way out), with KEY that key, and with none,
// or when the program does not end within 10 s, it is terminated (SIGTERM to its process group,
// then SIGKILL). Each run gets its own working directory DIR/run-I when --cwd-base is given.
//
// Prints "run I menu_s=... exit=STATUS|terminated" lines and "median_s=... min_s=... max_s=...";
// exit status 1 when TEXT did not appear within SEC seconds (default 60) in some run.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <poll.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using Clock = std::chrono::steady_clock;

struct Options
{
    int runs = 3;
    std::string text = "Exit to shell";
    std::string marker;
    int timeoutSec = 60;
    std::string term = "screen";
    std::string exitKey = "none";
    std::string cwdBase;
    std::string log;
    char** command = nullptr;
};

// The terminal output with its escape sequences and control characters turned into single
// separators, so that only text written in one piece is found.
class ScreenText
{
public:
    void Feed(const char* data, size_t size)
    {
        for (size_t i = 0; i < size; ++i)
        {
            Put(static_cast<unsigned char>(data[i]));
        }
    }

    const std::string& Text() const { return text; }

private:
    enum class State
    {
        Plain,
        Escape,
        Csi,
        Osc,
        Charset
    };

    void Put(unsigned char c)
    {
        switch (state)
        {
        case State::Plain:
            if (c == 0x1b)
            {
                state = State::Escape;
            }
            else if (c < 0x20 || c == 0x7f)
            {
                Separate();
            }
            else
            {
                text.push_back(static_cast<char>(c));
            }
            return;
        case State::Escape:
            state = c == '['                                         ? State::Csi
                    : c == ']'                                       ? State::Osc
                    : (c == '(' || c == ')' || c == '*' || c == '+') ? State::Charset
                                                                     : State::Plain;
            if (state == State::Plain)
            {
                Separate();
            }
            return;
        case State::Csi:
            if (c >= 0x40 && c <= 0x7e)
            {
                state = State::Plain;
                Separate();
            }
            return;
        case State::Osc:
            if (c == 0x07 || c == 0x1b)
            {
                state = State::Plain;
                Separate();
            }
            return;
        case State::Charset:
            state = State::Plain;
            Separate();
            return;
        }
    }

    void Separate()
    {
        if (text.empty() || text.back() != '\n')
        {
            text.push_back('\n');
        }
    }

    std::string text;
    State state = State::Plain;
};

// The number written right before position in text (" 5 Exit to shell" gives "5").
std::string NumberBefore(const std::string& text, size_t position)
{
    size_t end = position;
    while (end > 0 && text[end - 1] == ' ')
    {
        --end;
    }
    size_t begin = end;
    while (begin > 0 && text[begin - 1] >= '0' && text[begin - 1] <= '9')
    {
        --begin;
    }
    return text.substr(begin, end - begin);
}

// Ends the marker's time stamp: "MARKER 1732240000.123456789@@".
const char* const MarkerEnd = "@@";

double WallClockSeconds()
{
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// The wrapper's "date +%s.%N"; 0 when the text is none.
double EpochSeconds(const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    while (end != nullptr && *end == ' ')
    {
        ++end;
    }
    return end != nullptr && end != text.c_str() && *end == '\0' && value > 0 ? value : 0;
}

double Seconds(Clock::time_point from, Clock::time_point to)
{
    return std::chrono::duration<double>(to - from).count();
}

// Reads what is there within waitMs; false at the end of the terminal's output.
bool Drain(int master, int waitMs, std::string& raw, ScreenText& screen)
{
    pollfd descriptor{master, POLLIN, 0};
    const int ready = ::poll(&descriptor, 1, waitMs);
    if (ready <= 0)
    {
        return ready == 0 || errno == EINTR;
    }
    char buffer[4096];
    const ssize_t n = ::read(master, buffer, sizeof buffer);
    if (n <= 0)
    {
        // EIO once every slave descriptor is closed.
        return n < 0 && errno == EINTR;
    }
    raw.append(buffer, static_cast<size_t>(n));
    screen.Feed(buffer, static_cast<size_t>(n));
    return true;
}

bool Reap(pid_t child, int& status)
{
    return ::waitpid(child, &status, WNOHANG) == child;
}

std::string Describe(int status)
{
    if (WIFEXITED(status))
    {
        return std::to_string(WEXITSTATUS(status));
    }
    return std::string("signal ") + std::to_string(WTERMSIG(status));
}

struct RunResult
{
    bool found;
    double seconds;
    std::string exit;
};

RunResult RunOnce(const Options& options, int run)
{
    std::string cwd;
    if (!options.cwdBase.empty())
    {
        cwd = options.cwdBase + "/run-" + std::to_string(run);
        ::mkdir(options.cwdBase.c_str(), 0755);
        ::mkdir(cwd.c_str(), 0755);
    }

    winsize size{};
    size.ws_row = 25;
    size.ws_col = 80;
    int master = -1;
    const Clock::time_point forked = Clock::now();
    const pid_t child = ::forkpty(&master, nullptr, nullptr, &size);
    if (child < 0)
    {
        std::perror("BenchMenuTime: forkpty");
        return {false, 0, "none"};
    }
    if (child == 0)
    {
        if (!cwd.empty() && ::chdir(cwd.c_str()) != 0)
        {
            ::_exit(126);
        }
        ::setenv("TERM", options.term.c_str(), 1);
        ::execvp(options.command[0], options.command);
        ::_exit(127);
    }

    std::string raw;
    ScreenText screen;
    Clock::time_point start = forked;
    // Set when the marker carries the time of the exec itself, taken by the wrapper.
    double startEpoch = 0;
    bool started = options.marker.empty();
    size_t searchFrom = 0;
    size_t found = std::string::npos;
    double seconds = 0;
    const Clock::time_point deadline = forked + std::chrono::seconds(options.timeoutSec);
    bool open = true;
    while (open && found == std::string::npos && Clock::now() < deadline)
    {
        open = Drain(master, 20, raw, screen);
        const Clock::time_point now = Clock::now();
        if (!started)
        {
            const size_t marker = screen.Text().find(options.marker);
            const size_t stamp = marker + options.marker.size();
            const size_t stampEnd = marker == std::string::npos
                                        ? std::string::npos
                                        : screen.Text().find(MarkerEnd, stamp);
            if (stampEnd == std::string::npos)
            {
                continue;
            }
            started = true;
            start = now;
            startEpoch = EpochSeconds(screen.Text().substr(stamp, stampEnd - stamp));
            searchFrom = stampEnd + std::strlen(MarkerEnd);
        }
        found = screen.Text().find(options.text, searchFrom);
        if (found != std::string::npos)
        {
            seconds = startEpoch > 0 ? WallClockSeconds() - startEpoch : Seconds(start, now);
        }
    }

    int status = 0;
    bool ended = Reap(child, status);
    if (!ended && found != std::string::npos && options.exitKey != "none")
    {
        const std::string key =
            options.exitKey == "auto" ? NumberBefore(screen.Text(), found) : options.exitKey;
        if (!key.empty() && ::write(master, key.data(), key.size()) < 0)
        {
            std::perror("BenchMenuTime: key");
        }
        const Clock::time_point limit = Clock::now() + std::chrono::seconds(10);
        while (!(ended = Reap(child, status)) && Clock::now() < limit)
        {
            if (!Drain(master, 50, raw, screen))
            {
                ::usleep(50000);
            }
        }
    }
    const bool terminated = !ended;
    if (!ended)
    {
        ::kill(-child, SIGTERM);
        ::kill(child, SIGTERM);
        const Clock::time_point limit = Clock::now() + std::chrono::seconds(3);
        while (!(ended = Reap(child, status)) && Clock::now() < limit)
        {
            if (!Drain(master, 50, raw, screen))
            {
                ::usleep(50000);
            }
        }
        if (!ended)
        {
            ::kill(-child, SIGKILL);
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
        }
    }
    ::close(master);

    if (!options.log.empty())
    {
        std::ofstream(options.log, std::ios::binary | std::ios::trunc) << raw;
    }
    return {found != std::string::npos, seconds, terminated ? "terminated" : Describe(status)};
}

int Usage()
{
    std::fprintf(stderr,
                 "usage: BenchMenuTime [--runs N] [--text TEXT] [--marker TEXT] [--timeout SEC]\n"
                 "                     [--term NAME] [--exit-key auto|none|KEY] [--cwd-base DIR]\n"
                 "                     [--log FILE] -- COMMAND [ARGS...]\n");
    return 2;
}

} // namespace

int main(int argc, char* argv[])
{
    Options options;
    int i = 1;
    for (; i < argc; ++i)
    {
        const std::string option = argv[i];
        if (option == "--")
        {
            ++i;
            break;
        }
        if (i + 1 >= argc)
        {
            return Usage();
        }
        const std::string value = argv[++i];
        if (option == "--runs")
            options.runs = std::atoi(value.c_str());
        else if (option == "--text")
            options.text = value;
        else if (option == "--marker")
            options.marker = value;
        else if (option == "--timeout")
            options.timeoutSec = std::atoi(value.c_str());
        else if (option == "--term")
            options.term = value;
        else if (option == "--exit-key")
            options.exitKey = value;
        else if (option == "--cwd-base")
            options.cwdBase = value;
        else if (option == "--log")
            options.log = value;
        else
            return Usage();
    }
    if (i >= argc || options.runs < 1 || options.text.empty())
    {
        return Usage();
    }
    options.command = argv + i;

    std::vector<double> times;
    bool allFound = true;
    for (int run = 1; run <= options.runs; ++run)
    {
        const RunResult result = RunOnce(options, run);
        if (result.found)
        {
            std::printf("run %d menu_s=%.3f exit=%s\n", run, result.seconds, result.exit.c_str());
            times.push_back(result.seconds);
        }
        else
        {
            std::printf("run %d menu_s=none exit=%s\n", run, result.exit.c_str());
            allFound = false;
        }
        std::fflush(stdout);
    }
    if (!times.empty())
    {
        std::sort(times.begin(), times.end());
        std::printf("median_s=%.3f min_s=%.3f max_s=%.3f\n", times[times.size() / 2], times.front(),
                    times.back());
    }
    return allFound ? 0 : 1;
}
