#include "NCursesOutputStream.h"

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

NCursesOutputStream::NCursesOutputStream(WINDOW* window)
    : std::ostream(nullptr), buffer(new BasicNCursesOutbuf<char>(window))
{
    rdbuf(buffer);
}

NCursesOutputStream::~NCursesOutputStream()
{
    rdbuf(nullptr);
    delete buffer;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
