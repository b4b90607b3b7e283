#include "InstallWizard.h"

#include <ctime>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// Never closed: the stream lives to the end of the process.
std::ofstream* InstallWizard::_log = nullptr;
std::string InstallWizard::_lastFailure;

void InstallWizard::log(int level, const char* message)
{
    if (_log == nullptr)
    {
        // A failed open leaves the stream failed and every line is silently lost.
        _log = new std::ofstream("installer.log", std::ios::out | std::ios::trunc);
        log(0, "Log created!");
    }

    if (level == 3)
        _lastFailure += (_lastFailure.empty() ? "" : "; ") + std::string(message);

    char stamp[100];
    const time_t now = time(nullptr);
    strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", localtime(&now));

    // Flushed at every line, so a crash or power cut keeps everything logged so far.
    *_log << stamp << "\t|\t" << level << "\t|\t" << message << std::endl;
}

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
