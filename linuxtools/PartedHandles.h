#pragma once

// Every libparted handle behind a deleter, and the exception handler that keeps
// libparted quiet while the wizard owns the screen.

#include <parted/parted.h>

#include <memory>
#include <string>

namespace Kel
{
namespace ZarnLinuxTools
{
namespace Parted
{

struct DeviceDeleter
{
    void operator()(PedDevice* device) const
    {
        if (device != nullptr)
            ped_device_destroy(device);
    }
};
struct DiskDeleter
{
    void operator()(PedDisk* disk) const
    {
        if (disk != nullptr)
            ped_disk_destroy(disk);
    }
};
struct GeometryDeleter
{
    void operator()(PedGeometry* geometry) const
    {
        if (geometry != nullptr)
            ped_geometry_destroy(geometry);
    }
};
struct ConstraintDeleter
{
    void operator()(PedConstraint* constraint) const
    {
        if (constraint != nullptr)
            ped_constraint_destroy(constraint);
    }
};

using DevicePtr = std::unique_ptr<PedDevice, DeviceDeleter>;
using DiskPtr = std::unique_ptr<PedDisk, DiskDeleter>;
using GeometryPtr = std::unique_ptr<PedGeometry, GeometryDeleter>;
using ConstraintPtr = std::unique_ptr<PedConstraint, ConstraintDeleter>;

// Installs (once per process) a libparted exception handler that never prints
// and never asks: it answers as libparted's default handler does (the one
// option when only one is offered, "unhandled" otherwise), so the operations
// fail or go on exactly as without a user interface, and it keeps the message
// for whoever wants to log it.
void InstallQuietExceptionHandler();

// The text of the last libparted exception seen by the handler (this thread).
std::string LastExceptionMessage();

// ped_device_get with the quiet handler in place.
DevicePtr GetDevice(const char* path);

} // namespace Parted
} // namespace ZarnLinuxTools
} // namespace Kel
