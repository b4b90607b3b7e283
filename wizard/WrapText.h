#pragma once

#include <string>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// The text on as many lines of at most `width` characters as it needs, broken
// at blanks; a word longer than a line is split where the line ends. Blanks at
// a break are dropped, every other character is kept. An empty text gives no
// line.
std::vector<std::string> WrapText(const std::string& text, int width);

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
