#include "EepromReader.h"

#include "Bios.h"
#include "SystemTools.h"

#include <json/json.h>

#include <exception>
#include <sstream>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

using ZarnLinuxTools::SystemTools;

std::atomic<bool> EepromReader::kernelLoaded(false);
std::atomic<bool> EepromReader::eepromRead(false);
EepromInfo EepromReader::info;

namespace
{

// Chassis that run versions 14 and older, written exactly as the identity
// tool prints them (trailing blanks included).
const char* const CompatibleChassis[] = {"PB-4U ", "PB-5U ", "QAmini", "QA3-4U", "QA3-6U",
                                         "PB-6U ", "PBmini", "PB3-6U", "PB3-4U"};

void CopyStringMember(const Json::Value& root, const char* member, std::string& target)
{
    const Json::Value& value = root[member];
    if (!value.isNull() && value.isString())
        target = value.asString();
}

// The commands' success is ignored: a module already loaded makes insmod
// fail, and a second run of the wizard must behave like the first.
void RunIgnoringResult(const std::string& command)
{
    std::ostringstream output;
    SystemTools::ExecuteCommand(command.c_str(), output, true);
}

} // namespace

bool EepromInfo::IsVidorama14AndLessCompatible() const
{
    if (chassis.empty())
        return true;
    for (const char* compatible : CompatibleChassis)
        if (chassis == compatible)
            return true;
    return false;
}

EepromReader::EepromReader(const char* driversPath, const char* ucodeZarnPath, const char* toolPath)
    : _driversPath(driversPath), _ucodeZarnPath(ucodeZarnPath), _toolPath(toolPath)
{
}

EepromInfo& EepromReader::Read()
{
    // A failed attempt is repeated at the next call.
    if (!kernelLoaded)
        kernelLoaded.exchange(LoadKernelModules());
    if (!kernelLoaded)
        return info;
    if (!eepromRead)
        eepromRead.exchange(ReadInfos());
    return info;
}

std::string EepromReader::Rb417TimeCodeCommand() const
{
    // The two blanks before the redirection are part of the command as written.
    return "insmod " + _driversPath + "drv_tcreader.ko ucodeZarnPath=\"" + _ucodeZarnPath +
           "\"  2>&1";
}

std::string EepromReader::Rb417ExchangeCommand() const
{
    return "insmod " + _driversPath + "drv_xchgmem.ko 2>&1";
}

std::string EepromReader::K9QCommand() const
{
    return "insmod " + _driversPath + "k9qpciedrv.ko 2>&1";
}

bool EepromReader::LoadKernelModules()
{
    if (Bios::IsRb417())
    {
        RunIgnoringResult(Rb417TimeCodeCommand());
        RunIgnoringResult(Rb417ExchangeCommand());
        return true;
    }
    if (Bios::IsK9Q())
    {
        RunIgnoringResult(K9QCommand());
        return true;
    }
    return false;
}

bool EepromReader::ReadInfos()
{
    std::ostringstream output;
    const std::string command = _toolPath + " --json";
    if (!SystemTools::ExecuteCommand(command.c_str(), output, true))
        return false;

    // Text that is not JSON still counts as a run: the tool is not run again.
    detail::ParseIdentity(output.str(), info);
    return true;
}

namespace detail
{

bool ParseIdentity(const std::string& output, EepromInfo& info)
{
    Json::Value root;
    Json::CharReaderBuilder builder;
    builder["collectComments"] = true;
    std::istringstream text(output);
    std::string errors;
    // jsoncpp throws rather than fails on some text (nesting deeper than its
    // stack limit); that is not JSON either.
    bool parsed = false;
    try
    {
        parsed = Json::parseFromStream(builder, text, &root, &errors);
    }
    catch (const std::exception&)
    {
        parsed = false;
    }
    if (!parsed || !root.isObject())
        return false;
    CopyStringMember(root, "SerialNumber", info.serialNumber);
    CopyStringMember(root, "Chassis", info.chassis);
    return true;
}

} // namespace detail

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
