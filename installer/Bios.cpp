#include "Bios.h"

#include "DiskTools.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

using ZarnLinuxTools::DiskTools;

std::string Bios::biosVendorPath = "/sys/class/dmi/id/bios_vendor";
std::string Bios::nvramPath = "/dev/nvram";

namespace
{

const char* const Rb417Vendor = "Phoenix Technologies";

// Closes the descriptor on every way out.
class Descriptor
{
public:
    explicit Descriptor(int descriptor) : _descriptor(descriptor) {}
    ~Descriptor()
    {
        if (_descriptor >= 0)
            close(_descriptor);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool IsOpen() const { return _descriptor >= 0; }
    int Get() const { return _descriptor; }
    // Closes now, so that an error of the close itself is seen.
    bool Close()
    {
        const int descriptor = _descriptor;
        _descriptor = -1;
        return close(descriptor) == 0;
    }

private:
    int _descriptor;
};

// The settings image, when it is a readable regular file of 1 to limit bytes.
bool ReadImage(const char* path, size_t limit, std::vector<char>& image)
{
    Descriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status;
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    // One byte more than allowed is enough to tell an image that is too large.
    image.assign(limit + 1, '\0');
    size_t done = 0;
    while (done < image.size())
    {
        const ssize_t count = read(file.Get(), image.data() + done, image.size() - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        if (count == 0)
            break;
        done += static_cast<size_t>(count);
    }
    image.resize(done);
    return done > 0 && done <= limit;
}

} // namespace

bool Bios::IsRb417()
{
    std::ifstream vendor(biosVendorPath.c_str());
    if (!vendor.is_open())
        return false;
    const std::string text((std::istreambuf_iterator<char>(vendor)),
                           std::istreambuf_iterator<char>());
    // At the very start only: a leading blank already means another board.
    return text.find(Rb417Vendor) == 0;
}

bool Bios::IsK9Q()
{
    // Any server with a readable vendor text that is not the RB417's.
    std::ifstream vendor(biosVendorPath.c_str());
    const bool rb417 = IsRb417();
    return !rb417 && vendor.is_open();
}

bool Bios::ReadCmos(const char* path)
{
    return DiskTools::CopyFile(nvramPath.c_str(), path);
}

bool Bios::WriteCmos(const char* path)
{
    if (path == nullptr || !IsRb417())
        return false;

    // The driver's device or nothing: opened without O_CREAT, so that a
    // board without the driver never gets a plain file in its place, and
    // without blocking, so that a pipe there cannot hang the reset. A plain
    // file that is there is only opened, never written.
    Descriptor device(open(nvramPath.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status;
    if (!device.IsOpen() || fstat(device.Get(), &status) != 0 || !S_ISCHR(status.st_mode))
        return false;
    // The driver tells its size (114 bytes on a PC) at its end. It takes only
    // that much of a longer write and gives 0 for any write beyond: an image
    // that does not fit is refused before anything is written.
    const off_t size = lseek(device.Get(), 0, SEEK_END);
    if (size <= 0 || lseek(device.Get(), 0, SEEK_SET) != 0)
        return false;

    std::vector<char> image;
    if (!ReadImage(path, static_cast<size_t>(size), image))
        return false;

    // One write of the whole image. The driver refuses it (EIO) when the
    // CMOS checksum is wrong, and sets the checksum anew after it.
    ssize_t written;
    do
        written = write(device.Get(), image.data(), image.size());
    while (written < 0 && errno == EINTR);
    const bool closed = device.Close();
    return written == static_cast<ssize_t>(image.size()) && closed;
}

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel
