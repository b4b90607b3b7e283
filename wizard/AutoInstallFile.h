#pragma once

#include "AutoInstallAnswers.h"

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Reads "autoinstall.json" and checks everything that needs no disk: the
// keys, their types and values, and the network fields with the network
// form's own rules. Touches nothing.
class AutoInstallFile
{
public:
    // The file's name at the root of the key.
    static const char* const FileName;

    // True with answers filled; false with the first problem found.
    // "{serial}" in the host name becomes serialNumber.
    static bool Parse(const std::string& text, const std::string& serialNumber,
                      AutoInstallAnswers& answers, AutoInstallProblem& problem);

    // The whole file at path; false when it cannot be read.
    static bool Read(const std::string& path, std::string& text);
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
