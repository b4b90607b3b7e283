#pragma once

#include <string>
#include <vector>

namespace Sandbox
{

// Runs a program on the host without a shell and waits for it.
class HostCommand
{
public:
    // argv[0] is looked up in PATH. stdin is /dev/null; stdout and stderr are
    // collected into output when it is given, dropped otherwise. Returns the
    // exit status, 128 + signal number when the program was killed, or -1
    // when it could not be started.
    static int Run(const std::vector<std::string>& argv, std::string* output = nullptr);

    // The text quoted for sh: one word whatever it contains.
    static std::string ShellQuote(const std::string& text);
};

} // namespace Sandbox
