#pragma once

#include <sys/types.h>

namespace Kel
{
namespace ZarnLinuxTools
{

// Switches the process to user id 0 for the lifetime of the object.
//
// The constructor reads the current real, effective and saved user ids and
// calls setuid(0); it never throws, Succeeded() tells whether the switch took
// place. When it did, the destructor puts back the real and effective ids and
// sets the saved id to the old effective id as well, so the process does not
// keep a saved root id it did not start with as effective id.
//
// Dismiss() keeps the process as it is (no restore), for paths that leave the
// ids switched on purpose.
class RootUserGuard
{
public:
    RootUserGuard();
    ~RootUserGuard();

    RootUserGuard(const RootUserGuard&) = delete;
    RootUserGuard& operator=(const RootUserGuard&) = delete;

    bool Succeeded() const { return switched_; }
    void Dismiss() { dismissed_ = true; }

private:
    uid_t savedReal_ = 0;
    uid_t savedEffective_ = 0;
    uid_t savedSaved_ = 0;
    bool switched_ = false;
    bool dismissed_ = false;
};

} // namespace ZarnLinuxTools
} // namespace Kel
