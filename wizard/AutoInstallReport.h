#pragma once

#include <ctime>
#include <string>
#include <vector>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// What an unattended installation leaves on the key:
// "reports/<serial>-<YYYYmmdd-HHMMSS>.json" and the installer log beside it
// as ".log". Both are written whole or not at all.
class AutoInstallReport
{
public:
    std::string serialNumber;
    bool succeeded = false;
    // As the screen showed it; empty on success.
    std::string reason;

    bool diskKnown = false;
    std::string diskPath;
    std::string diskModel;
    long long diskSize = -1;

    bool packageKnown = false;
    std::string packageFile;
    std::string packageName;
    std::string packageVersion;

    bool networkApplied = false;
    std::string hostname;
    std::string mode;
    std::string address;
    std::string mask;
    std::string gateway;
    std::vector<std::string> dns;
    std::string domain;

    time_t started = 0;
    time_t ended = 0;

    // "<serial>-<YYYYmmdd-HHMMSS>" from the start time in UTC; a serial
    // number that is empty becomes "unknown", one with characters that do not
    // belong in a file name has them replaced by "_".
    std::string BaseName() const;
    // The report as JSON text.
    std::string ToJson() const;
    // Writes "<BaseName>.json" into directory (created when missing) and
    // copies logFile beside it as "<BaseName>.log". The path of the report in
    // reportPath. False when either could not be written.
    bool Write(const std::string& directory, const std::string& logFile,
               std::string& reportPath) const;
};

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
