#pragma once

#include <curses.h>

#include <locale>
#include <ostream>
#include <streambuf>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// A stream buffer without put area that adds every character to a curses
// window as it comes. It never refreshes: the step shows the text when it
// refreshes its window. A null window means the standard screen.
template <typename CharT, typename Traits = std::char_traits<CharT>>
class BasicNCursesOutbuf : public std::basic_streambuf<CharT, Traits>
{
public:
    using int_type = typename Traits::int_type;

    explicit BasicNCursesOutbuf(WINDOW* target) : window(target) {}

protected:
    int_type overflow(int_type character) override
    {
        if (Traits::eq_int_type(character, Traits::eof()))
        {
            return 0;
        }
        const char narrow = std::use_facet<std::ctype<CharT>>(this->getloc())
                                .narrow(Traits::to_char_type(character), '?');
        waddch(window != nullptr ? window : stdscr, static_cast<unsigned char>(narrow));
        return character;
    }

private:
    WINDOW* window;
};

// An output stream into a curses window (the step's content window), so that
// the installer's messages are formatted as for any other stream.
class NCursesOutputStream : public virtual std::ostream
{
public:
    explicit NCursesOutputStream(WINDOW* window);
    ~NCursesOutputStream() override;
    NCursesOutputStream(const NCursesOutputStream&) = delete;
    NCursesOutputStream& operator=(const NCursesOutputStream&) = delete;

private:
    BasicNCursesOutbuf<char>* buffer;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
