#include "NCursesRedirectStream.h"

#include <panel.h>

#include <cctype>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

NCursesRedirectStream::NCursesRedirectStream(WINDOW* target, unsigned long attributeWord)
    : window(target), attributes(attributeWord), redirected(nullptr), previous(nullptr)
{
    if (window != nullptr)
    {
        scrollok(window, TRUE);
        wmove(window, 0, 0);
    }
}

NCursesRedirectStream::NCursesRedirectStream(WINDOW* target, std::ostream& stream,
                                             unsigned long attributeWord)
    : window(target), attributes(attributeWord), redirected(&stream), previous(stream.rdbuf())
{
    stream.rdbuf(this);
    if (window != nullptr)
    {
        scrollok(window, TRUE);
        wmove(window, 0, 0);
    }
}

NCursesRedirectStream::NCursesRedirectStream(const NCursesRedirectStream& other)
    : std::streambuf(other), window(other.window), attributes(other.attributes),
      redirected(other.redirected), previous(other.previous)
{
}

NCursesRedirectStream& NCursesRedirectStream::operator=(const NCursesRedirectStream& other)
{
    if (this != &other)
    {
        window = other.window;
        attributes = other.attributes;
        redirected = other.redirected;
        previous = other.previous;
    }
    return *this;
}

NCursesRedirectStream::~NCursesRedirectStream()
{
    if (redirected != nullptr)
    {
        redirected->rdbuf(previous);
    }
}

NCursesRedirectStream::int_type NCursesRedirectStream::overflow(int_type character)
{
    if (traits_type::eq_int_type(character, traits_type::eof()))
    {
        return sync() == 0 ? traits_type::not_eof(character) : traits_type::eof();
    }
    if (attributes != 0)
    {
        wattron(window, static_cast<int>(attributes));
    }
    const int added =
        waddch(window, static_cast<unsigned char>(traits_type::to_char_type(character)));
    if (attributes != 0)
    {
        wattroff(window, static_cast<int>(attributes));
    }
    if (added == ERR)
    {
        return traits_type::eof();
    }
    // Shown word by word: a word appears once the blank or line end after it comes.
    if (std::isspace(static_cast<unsigned char>(traits_type::to_char_type(character))) != 0 &&
        sync() != 0)
    {
        return traits_type::eof();
    }
    return character;
}

int NCursesRedirectStream::sync()
{
    if (stdscr == nullptr || isendwin() || window == nullptr)
    {
        return -1;
    }
    if (panel_above(nullptr) != nullptr)
    {
        update_panels();
        return doupdate() == ERR ? -1 : 0;
    }
    return wrefresh(window) == ERR ? -1 : 0;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
