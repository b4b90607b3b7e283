#pragma once

#include <string>

namespace Sandbox
{

// A new, empty directory that is removed with everything in it at the end.
class TempDir
{
public:
    // prefix: a path whose last part starts the directory's name, e.g.
    // "/tmp/wizard-guest-". Throws std::runtime_error when it cannot be made.
    explicit TempDir(const std::string& prefix);
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return _path; }

private:
    std::string _path;
};

} // namespace Sandbox
