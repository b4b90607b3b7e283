#include "PartedHandles.h"

#include <mutex>

namespace Kel
{
namespace ZarnLinuxTools
{
namespace Parted
{

namespace
{

thread_local std::string lastMessage;

bool IsSingleOption(PedExceptionOption options)
{
    const int value = static_cast<int>(options);
    return value != 0 && (value & (value - 1)) == 0;
}

PedExceptionOption QuietHandler(PedException* exception)
{
    lastMessage = (exception != nullptr && exception->message != nullptr) ? exception->message : "";
    if (exception != nullptr && IsSingleOption(exception->options))
        return exception->options;
    return PED_EXCEPTION_UNHANDLED;
}

} // namespace

void InstallQuietExceptionHandler()
{
    static std::once_flag installed;
    std::call_once(installed, [] { ped_exception_set_handler(QuietHandler); });
}

std::string LastExceptionMessage()
{
    return lastMessage;
}

DevicePtr GetDevice(const char* path)
{
    InstallQuietExceptionHandler();
    return DevicePtr(path != nullptr ? ped_device_get(path) : nullptr);
}

} // namespace Parted
} // namespace ZarnLinuxTools
} // namespace Kel
