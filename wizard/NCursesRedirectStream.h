#pragma once

#include <curses.h>

#include <ostream>
#include <streambuf>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// A stream buffer that writes into a curses window and shows the text word by
// word (it refreshes after every white-space character). Given a stream, it
// takes the stream over (the standard output, say) until it is destroyed.
class NCursesRedirectStream : public std::streambuf
{
public:
    NCursesRedirectStream(WINDOW* window, unsigned long attributes);
    NCursesRedirectStream(WINDOW* window, std::ostream& stream, unsigned long attributes);
    NCursesRedirectStream(const NCursesRedirectStream& other);
    NCursesRedirectStream& operator=(const NCursesRedirectStream& other);
    ~NCursesRedirectStream() override;

protected:
    int_type overflow(int_type character) override;
    int sync() override;

private:
    WINDOW* window;
    unsigned long attributes;
    std::ostream* redirected;
    std::streambuf* previous;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
