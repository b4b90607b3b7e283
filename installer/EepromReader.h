#pragma once

#include "EepromInfo.h"

#include <atomic>
#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

// Loads the I/O board's kernel drivers and reads the board identity, at most
// once per process; the result is kept in one process-wide record.
class EepromReader
{
public:
    EepromReader(const char* driversPath, const char* ucodeZarnPath, const char* toolPath);

    // Never fails; the record may be empty.
    EepromInfo& Read();
    // The board kind was recognised and its modules were submitted to insmod.
    bool LoadKernelModules();
    // The identity tool ran successfully.
    bool ReadInfos();

    // The insmod command lines for each board, in the order they run.
    std::string Rb417TimeCodeCommand() const;
    std::string Rb417ExchangeCommand() const;
    std::string K9QCommand() const;

    static std::atomic<bool> kernelLoaded;
    static std::atomic<bool> eepromRead;
    static EepromInfo info;

private:
    std::string _driversPath;
    std::string _ucodeZarnPath;
    std::string _toolPath;
};

namespace detail
{
// The identity tool's "--json" output into info: "SerialNumber" and "Chassis"
// when they are strings. False, with info unchanged, when the output is not a
// JSON object.
bool ParseIdentity(const std::string& output, EepromInfo& info);
} // namespace detail

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
