#pragma once

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// The server's identity as the board's identity tool prints it.
struct EepromInfo
{
    std::string serialNumber;
    std::string chassis;

    // Whether the chassis can run versions 14 and older; an unknown chassis
    // puts no restriction.
    bool IsVidorama14AndLessCompatible() const;
};

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
