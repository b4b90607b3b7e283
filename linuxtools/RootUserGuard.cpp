#include "RootUserGuard.h"

#include <unistd.h>

namespace Kel
{
namespace ZarnLinuxTools
{

RootUserGuard::RootUserGuard()
{
    // Without the current ids there is nothing sane to restore later, so an
    // unreadable set counts as a failed switch.
    if (getresuid(&savedReal_, &savedEffective_, &savedSaved_) != 0)
    {
        return;
    }
    switched_ = (setuid(0) == 0);
}

RootUserGuard::~RootUserGuard()
{
    if (switched_ && !dismissed_)
    {
        // The saved id becomes the old effective id: a caller that ran with a
        // non-root effective id must not keep root in its saved id afterwards.
        const int restored = setresuid(savedReal_, savedEffective_, savedEffective_);
        static_cast<void>(restored);
    }
}

} // namespace ZarnLinuxTools
} // namespace Kel
