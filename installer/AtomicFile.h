#pragma once

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// Replaces a file as a whole: the new contents go to a temporary file beside the
// target, which is synced and renamed over the target only on Commit(). A power
// cut therefore leaves either the old file or the complete new one, never an
// empty or half-written file. The temporary file is removed unless committed.
class AtomicFile
{
public:
    // Creates the temporary file in the target's directory; IsOpen() tells
    // whether that worked.
    explicit AtomicFile(const std::string& target);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    bool IsOpen() const { return descriptor >= 0; }

    // Appends the text; false (and every later call fails) on any write error.
    bool Write(const std::string& text);

    // Syncs the temporary file and renames it over the target. False when any
    // write failed or the sync or the rename did not succeed; the target is
    // then left as it was.
    bool Commit();

private:
    void Discard();

    std::string target;
    std::string temporary;
    int descriptor;
    bool failed;
};

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
