#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <unistd.h>

namespace TestSupport
{

// A private scratch directory under $TMPDIR (or /tmp), removed with everything
// in it when the test ends. path stays empty when it cannot be made, so a
// fixture can assert on it instead of throwing from a constructor.
class ScratchDirectory
{
public:
    explicit ScratchDirectory(const std::string& name = "wizard-test")
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern =
            std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/" + name + ".XXXXXX";
        if (::mkdtemp(pattern.data()) != nullptr)
            path = pattern;
    }

    ~ScratchDirectory()
    {
        if (!path.empty())
        {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    }

    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    std::string Join(const std::string& name) const { return path + "/" + name; }

    // The directory with a trailing "/", the form the manifest reader expects.
    std::string Slashed() const { return path + "/"; }

    std::string path;
};

// Runs the rest of a test in another working directory and goes back
// afterwards, also when an assertion ends the test early: extraction writes to
// the working directory.
class WorkingDirectory
{
public:
    explicit WorkingDirectory(const std::string& directory)
    {
        std::error_code error;
        previous = std::filesystem::current_path(error);
        changed = !error && ::chdir(directory.c_str()) == 0;
    }

    ~WorkingDirectory()
    {
        if (changed)
        {
            std::error_code ignored;
            std::filesystem::current_path(previous, ignored);
        }
    }

    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

    bool changed = false;

private:
    std::filesystem::path previous;
};

} // namespace TestSupport
