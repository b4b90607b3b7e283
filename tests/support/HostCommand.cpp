#include "HostCommand.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Sandbox
{

int HostCommand::Run(const std::vector<std::string>& argv, std::string* output)
{
    if (argv.empty())
        return -1;

    std::vector<char*> args;
    for (const auto& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);

    int fds[2] = {-1, -1};
    if (output != nullptr && pipe2(fds, O_CLOEXEC) != 0)
        return -1;

    const pid_t pid = fork();
    if (pid < 0)
    {
        if (output != nullptr)
        {
            close(fds[0]);
            close(fds[1]);
        }
        return -1;
    }
    if (pid == 0)
    {
        const int null = open("/dev/null", O_RDWR);
        const int out = output != nullptr ? fds[1] : null;
        dup2(null, 0);
        dup2(out, 1);
        dup2(out, 2);
        execvp(args[0], args.data());
        _exit(127);
    }

    if (output != nullptr)
    {
        close(fds[1]);
        char buffer[4096];
        for (;;)
        {
            const ssize_t got = read(fds[0], buffer, sizeof buffer);
            if (got > 0)
                output->append(buffer, static_cast<size_t>(got));
            else if (got == 0 || errno != EINTR)
                break;
        }
        close(fds[0]);
    }

    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
    {
        if (errno != EINTR)
            return -1;
    }
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return -1;
}

std::string HostCommand::ShellQuote(const std::string& text)
{
    std::string quoted = "'";
    for (const char c : text)
    {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

} // namespace Sandbox
