#pragma once

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Owns the curses session for as long as the application object lives.
class Wizard
{
public:
    Wizard();
    virtual ~Wizard();

    Wizard(const Wizard&) = delete;
    Wizard& operator=(const Wizard&) = delete;

    // The main loop; its result is the process exit status.
    virtual int Start() = 0;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
