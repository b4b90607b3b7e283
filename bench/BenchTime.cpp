// Runs a command several times, each as a process of its own, and reports its best wall time,
// its least processor time (user and system, its waited-for children included) and its peak
// resident set as the kernel accounts it to that process (wait4's ru_maxrss). The processor
// time tells more than the wall time on a machine that other work keeps busy.
//
//   BenchTime [--runs N] [--cwd DIR] [--stdout FILE] -- COMMAND [ARGS...]
//
// Prints one "run I wall_s=... cpu_s=... maxrss_kib=..." line per run, then
// "best_s=... median_s=... cpu_s=... maxrss_kib=...". The command's standard output goes to FILE
// (default /dev/null; the last run's is kept). Exit status 1 when a run fails.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

struct RunResult
{
    bool ok;
    double seconds;
    double cpuSeconds;
    long maxRssKib;
};

RunResult RunOnce(char* const command[], const std::string& cwd, const std::string& output)
{
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child < 0)
    {
        std::perror("BenchTime: fork");
        return {false, 0, 0, 0};
    }
    if (child == 0)
    {
        if (!cwd.empty() && ::chdir(cwd.c_str()) != 0)
        {
            std::perror("BenchTime: chdir");
            ::_exit(126);
        }
        const int fd = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd < 0 || ::dup2(fd, STDOUT_FILENO) < 0)
        {
            std::perror("BenchTime: output");
            ::_exit(126);
        }
        ::close(fd);
        ::execvp(command[0], command);
        std::perror("BenchTime: exec");
        ::_exit(127);
    }

    int status = 0;
    rusage usage{};
    pid_t waited;
    do
    {
        waited = ::wait4(child, &status, 0, &usage);
    } while (waited < 0 && errno == EINTR);
    const auto end = std::chrono::steady_clock::now();
    const bool ok = waited == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!ok)
    {
        std::fprintf(stderr, "BenchTime: %s ended with status %d\n", command[0],
                     WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    }
    const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                       static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    return {ok, std::chrono::duration<double>(end - start).count(), cpu, usage.ru_maxrss};
}

int Usage()
{
    std::fprintf(stderr,
                 "usage: BenchTime [--runs N] [--cwd DIR] [--stdout FILE] -- COMMAND [ARGS...]\n");
    return 2;
}

} // namespace

int main(int argc, char* argv[])
{
    int runs = 3;
    std::string cwd;
    std::string output = "/dev/null";
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
        if (option == "--runs")
        {
            runs = std::atoi(argv[++i]);
        }
        else if (option == "--cwd")
        {
            cwd = argv[++i];
        }
        else if (option == "--stdout")
        {
            output = argv[++i];
        }
        else
        {
            return Usage();
        }
    }
    if (i >= argc || runs < 1)
    {
        return Usage();
    }

    std::vector<double> times;
    double leastCpu = 0;
    long maxRss = 0;
    for (int run = 1; run <= runs; ++run)
    {
        const RunResult result = RunOnce(argv + i, cwd, output);
        if (!result.ok)
        {
            return 1;
        }
        std::printf("run %d wall_s=%.3f cpu_s=%.3f maxrss_kib=%ld\n", run, result.seconds,
                    result.cpuSeconds, result.maxRssKib);
        std::fflush(stdout);
        times.push_back(result.seconds);
        leastCpu = run == 1 ? result.cpuSeconds : std::min(leastCpu, result.cpuSeconds);
        maxRss = std::max(maxRss, result.maxRssKib);
    }
    std::sort(times.begin(), times.end());
    std::printf("best_s=%.3f median_s=%.3f cpu_s=%.3f maxrss_kib=%ld\n", times.front(),
                times[times.size() / 2], leastCpu, maxRss);
    return 0;
}
