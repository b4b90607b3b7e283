#include "SparseImage.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace Sandbox
{

SparseImage::SparseImage(std::string path, uint64_t bytes) : _path(std::move(path))
{
    const int fd = open(_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        throw std::runtime_error("cannot create " + _path + ": " + std::strerror(errno));
    const bool sized = ftruncate(fd, static_cast<off_t>(bytes)) == 0;
    const int error = errno;
    close(fd);
    if (!sized)
    {
        unlink(_path.c_str());
        throw std::runtime_error("cannot size " + _path + ": " + std::strerror(error));
    }
}

SparseImage::~SparseImage()
{
    unlink(_path.c_str());
}

} // namespace Sandbox
