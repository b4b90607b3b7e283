#pragma once

#include <cstdint>
#include <string>

namespace Sandbox
{

// A disk image file of the given size that takes no space until written:
// the sandbox guest's disks. The file is removed at the end.
class SparseImage
{
public:
    // Creates (or empties) the file at path and sets its size. Throws
    // std::runtime_error when that fails.
    SparseImage(std::string path, uint64_t bytes);
    ~SparseImage();
    SparseImage(const SparseImage&) = delete;
    SparseImage& operator=(const SparseImage&) = delete;

    const std::string& Path() const { return _path; }

private:
    std::string _path;
};

} // namespace Sandbox
