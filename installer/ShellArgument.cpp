#include "ShellArgument.h"

#include <cctype>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

namespace
{

bool IsLiteralForShell(char character)
{
    if (std::isalnum(static_cast<unsigned char>(character)) != 0)
    {
        return true;
    }
    switch (character)
    {
    case '_':
    case '-':
    case '.':
    case '/':
    case '+':
    case ',':
    case ':':
    case '=':
    case '@':
    case '%':
        return true;
    default:
        return false;
    }
}

} // namespace

std::string DoubleQuotedArgument(const std::string& text)
{
    std::string quoted;
    quoted.reserve(text.size() + 2);
    quoted += '"';
    for (const char character : text)
    {
        if (character == '$' || character == '`' || character == '"' || character == '\\')
        {
            quoted += '\\';
        }
        quoted += character;
    }
    quoted += '"';
    return quoted;
}

std::string ShellArgument(const std::string& text)
{
    if (text.empty())
    {
        return DoubleQuotedArgument(text);
    }
    for (const char character : text)
    {
        if (!IsLiteralForShell(character))
        {
            return DoubleQuotedArgument(text);
        }
    }
    return text;
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
