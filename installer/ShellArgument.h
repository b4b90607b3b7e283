#pragma once

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// Commands are run through the shell, and some of their arguments are names found on
// the target disk or on the USB key (package files, version directories, names read from
// manifests). Whoever wrote those names must not be able to run anything through them,
// nor to split one argument into two.

// The text between double quotes, with the four characters the shell still interprets
// there ($ ` " \) escaped: the program receives exactly the text as one argument. An
// ordinary name comes out as "name".
std::string DoubleQuotedArgument(const std::string& text);

// The text unchanged when it holds only characters the shell takes literally (letters,
// digits and _ - . / + , : = @ %), so that ordinary paths read in the log as typed;
// otherwise DoubleQuotedArgument(text). An empty text gives "".
std::string ShellArgument(const std::string& text);

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
