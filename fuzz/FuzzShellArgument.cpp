// Names from the USB key and the target disk (package paths, version names)
// that end up in shell command lines. Whatever the name, the shell must read
// the quoted text back as exactly one word equal to the name, expanding
// nothing. The shell's rules for that word are modelled here; no shell is run.
#include "FuzzCheck.h"
#include "ShellArgument.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

using Kel::Vidorama::InstallerLib::DoubleQuotedArgument;
using Kel::Vidorama::InstallerLib::ShellArgument;

namespace
{

// Characters that the shell takes literally outside quotes, in any word
// position of an argument.
bool IsPlainWordCharacter(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') ||
           std::strchr("_-./+,:=@%", character) != nullptr;
}

// Reads one shell word made of plain characters and double-quoted parts, the
// way sh does, into word. False when anything would be expanded, when a quote
// is left open, or when the word ends before the text does.
bool ReadShellWord(const std::string& text, std::string& word)
{
    word.clear();
    std::size_t index = 0;
    while (index < text.size())
    {
        const char character = text[index];
        if (character != '"')
        {
            if (!IsPlainWordCharacter(character))
                return false;
            word += character;
            ++index;
            continue;
        }
        ++index;
        for (;;)
        {
            if (index >= text.size())
                return false;
            const char inside = text[index];
            if (inside == '"')
            {
                ++index;
                break;
            }
            if (inside == '$' || inside == '`')
                return false;
            if (inside == '\\' && index + 1 < text.size())
            {
                const char next = text[index + 1];
                if (next == '\n')
                {
                    // A line continuation: both characters disappear.
                    index += 2;
                    continue;
                }
                if (next == '$' || next == '`' || next == '"' || next == '\\')
                {
                    word += next;
                    index += 2;
                    continue;
                }
            }
            word += inside;
            ++index;
        }
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Command lines are C texts: a name cannot carry a NUL into one.
    std::string name(reinterpret_cast<const char*>(data), size);
    name = name.substr(0, name.find('\0'));

    std::string word;
    const std::string quoted = DoubleQuotedArgument(name);
    FUZZ_CHECK(ReadShellWord(quoted, word));
    FUZZ_CHECK(word == name);

    const std::string argument = ShellArgument(name);
    FUZZ_CHECK(ReadShellWord(argument, word));
    FUZZ_CHECK(word == name);
    // An empty name must still be an argument of its own.
    FUZZ_CHECK(!argument.empty());
    // Plain names stay readable in the log.
    if (argument != quoted)
        FUZZ_CHECK(argument == name);
    return 0;
}
