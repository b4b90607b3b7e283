#include "WrapText.h"

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

std::vector<std::string> WrapText(const std::string& text, int width)
{
    std::vector<std::string> lines;
    if (width < 1)
        return lines;
    const size_t limit = static_cast<size_t>(width);
    std::string line;
    size_t position = 0;
    while (position < text.size())
    {
        // The next word and the blanks before it.
        size_t start = text.find_first_not_of(' ', position);
        if (start == std::string::npos)
            break;
        const std::string blanks = text.substr(position, start - position);
        size_t end = text.find(' ', start);
        if (end == std::string::npos)
            end = text.size();
        std::string word = text.substr(start, end - start);
        position = end;

        if (!line.empty() && line.size() + blanks.size() + word.size() <= limit)
        {
            line += blanks + word;
            continue;
        }
        if (!line.empty())
        {
            lines.push_back(line);
            line.clear();
        }
        // A word too long for any line fills whole lines.
        while (word.size() > limit)
        {
            lines.push_back(word.substr(0, limit));
            word.erase(0, limit);
        }
        line = word;
    }
    if (!line.empty())
        lines.push_back(line);
    return lines;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
